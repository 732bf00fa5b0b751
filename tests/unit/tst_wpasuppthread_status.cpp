// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

// What the supervisor reads from the supplicant's status, and what it makes of it.

#include "supervisorworld.h"

#include <QSignalSpy>
#include <QTest>

class TestWpaSuppThreadStatus : public QObject, private SupervisedSupplicant
{
    Q_OBJECT
private slots:
    void init() { Make(); }
    void cleanup() { End(); }

    void splitsLines_data();
    void splitsLines();
    void readsAnAssociationWithoutASignal();
    void readsTheStatus_data();
    void readsTheStatus();
    void readsNothingFromAFailure();
    void logsTheStatus();
    void readsTheStatusOnceWhenAsked();
    void hearsWhatIsUnreadBeforeItAsksForTheStatus();
    void knowsOfASuccessThatNobodyHeard();
    void knowsOfNoSuccessThatWasTold();
    void leavesWhatComesMeanwhileToTheNotifier();
    void readsTheStatusWhenItHasConnectedAnew();

private:
    /// The supplicant answers so when it is asked for its status.
    void SuperviseWithStatus(const QByteArray &reply);
};

void TestWpaSuppThreadStatus::SuperviseWithStatus(const QByteArray &reply)
{
    supplicant->SetReply("STATUS", reply);
    supervisor->Supervise();
}

void TestWpaSuppThreadStatus::splitsLines_data()
{
    QTest::addColumn<QString>("line");
    QTest::addColumn<QString>("expected");
    QTest::newRow("key and value") << "ssid=MyNet"
                                   << "MyNet";
    QTest::newRow("no value") << "ssid="
                              << "";
    QTest::newRow("no equals sign") << "ssid"
                                    << "";
    QTest::newRow("nothing") << ""
                             << "";
    QTest::newRow("value cut at its own equals sign") << "ssid=a=b"
                                                      << "a";
    QTest::newRow("value that begins with one") << "ssid==b"
                                                << "";
}

void TestWpaSuppThreadStatus::splitsLines()
{
    QFETCH(QString, line);

    QTEST(WpaSuppThreadPeer::SplitLine(line), "expected");
}

void TestWpaSuppThreadStatus::readsAnAssociationWithoutASignal()
{
    SuperviseWithStatus("wpa_state=COMPLETED\n");
    QSignalSpy changes(supervisor.get(), &WpaSuppThread::associatedChanged);

    supervisor->CheckStatus();

    QVERIFY(supervisor->IsAssociated());
    QCOMPARE(changes.size(), 0);
}

void TestWpaSuppThreadStatus::readsTheStatus_data()
{
    QTest::addColumn<QByteArray>("reply");
    QTest::addColumn<QString>("ssid");
    QTest::addColumn<QString>("status");
    QTest::addColumn<bool>("associated");
    QTest::newRow("completed")
        << QByteArray("bssid=02:00:00:00:01:00\nfreq=2412\nssid=MyNet\nid=0\nwpa_state=COMPLETED\n")
        << "MyNet"
        << "COMPLETED" << true;
    QTest::newRow("scanning") << QByteArray("wpa_state=SCANNING\naddress=02:00:00:00:00:00\n") << "before"
                              << "SCANNING" << false;
    QTest::newRow("only the BSSID") << QByteArray("bssid=x\n") << "before"
                                    << "Thread Created" << true;
    QTest::newRow("another case") << QByteArray("WPA_STATE=SCANNING\nSSID=x\n") << "before"
                                  << "Thread Created" << true;
    QTest::newRow("completed in small letters") << QByteArray("wpa_state=completed") << "before"
                                                << "completed" << false;
    QTest::newRow("SSID with an equals sign") << QByteArray("ssid=a=b\n") << "a"
                                              << "Thread Created" << true;
    QTest::newRow("escaped SSID stays so") << QByteArray("ssid=\\xc3\\xa9\n") << "\\xc3\\xa9"
                                           << "Thread Created" << true;
    QTest::newRow("state without value") << QByteArray("wpa_state\n") << "before"
                                         << "" << false;
    QTest::newRow("SSID without value") << QByteArray("ssid\n") << ""
                                        << "Thread Created" << true;
    QTest::newRow("last of two") << QByteArray("ssid=one\nssid=two\n") << "two"
                                 << "Thread Created" << true;
    QTest::newRow("nothing") << QByteArray("") << "before"
                             << "Thread Created" << true;
}

void TestWpaSuppThreadStatus::readsTheStatus()
{
    QFETCH(QByteArray, reply);
    SuperviseWithStatus(reply);
    supervisor->NoteSsid(QStringLiteral("before"));
    supervisor->TakeForAssociated();
    QSignalSpy changes(supervisor.get(), &WpaSuppThread::associatedChanged);

    supervisor->CheckStatus();

    QTEST(supervisor->Ssid(), "ssid");
    QTEST(supervisor->StatusText(), "status");
    QTEST(supervisor->IsAssociated(), "associated");
    QCOMPARE(changes.size(), 0);
}

void TestWpaSuppThreadStatus::readsNothingFromAFailure()
{
    supervisor->NoteSsid(QStringLiteral("before"));
    supervisor->TakeForAssociated();
    const QString before = supervisor->toString();

    supervisor->CheckStatus();

    QCOMPARE(supervisor->toString(), before);
}

void TestWpaSuppThreadStatus::logsTheStatus()
{
    SuperviseWithStatus("ssid=MyNet\nwpa_state=COMPLETED\n");
    TestSupport::ClearLog();
    supervisor->CheckStatus();
    QCOMPARE(LogLineCount(), 1);
    QCOMPARE(LastLogLine(), QStringLiteral("WpaSuppThread::CheckStatus wpa_state=COMPLETED,COMPLETED,1 "));
    Logging::GetInstance(Logging::KEEP_LEVEL, false)->SetLoggingLevel(Level::DEBUG);
    TestSupport::ClearLog();

    supervisor->CheckStatus();

    const QString text = TestSupport::LogText();
    QVERIFY(text.contains(" :  WpaSuppThread::CheckStatus start COMPLETED true \n"));
    QVERIFY(text.contains(" :  WpaSuppThread::CheckStatus ssid=MyNet \n"));
    QVERIFY(text.contains(" :  WpaSuppThread::CheckStatus wpa_state=COMPLETED \n"));
    QCOMPARE(LastLogLine(), QStringLiteral("WpaSuppThread::CheckStatus done true "));
    // The empty part after the last line feed counts as a line.
    QCOMPARE(LogLineCount(), 6);
}

void TestWpaSuppThreadStatus::readsTheStatusOnceWhenAsked()
{
    supervisor->Supervise();
    supervisor->AskForStatus();

    supervisor->Tick(3);

    QCOMPARE(supplicant->Commands(), (QStringList{"ATTACH", "STATUS"}));
}

void TestWpaSuppThreadStatus::hearsWhatIsUnreadBeforeItAsksForTheStatus()
{
    SuperviseWithStatus("wpa_state=COMPLETED\n");
    supervisor->AskForStatus();
    QSignalSpy changes(supervisor.get(), &WpaSuppThread::associatedChanged);
    QVERIFY(supplicant->SendEvent("<3>CTRL-EVENT-CONNECTED - Connection to x completed"));

    supervisor->Tick();

    QVERIFY(supervisor->IsAssociated());
    QCOMPARE(changes, (QList<QList<QVariant>>{{true}}));
}

void TestWpaSuppThreadStatus::knowsOfASuccessThatNobodyHeard()
{
    FakeSupplicant::Answer answer;
    answer.eventsFirst = {"<3>CTRL-EVENT-CONNECTED - Connection to x completed"};
    answer.reply = "wpa_state=COMPLETED\n";
    supplicant->SetAnswer("STATUS", answer);
    supervisor->Supervise();
    supervisor->AskForStatus();
    QSignalSpy changes(supervisor.get(), &WpaSuppThread::associatedChanged);

    supervisor->Tick();

    QVERIFY(supervisor->IsAssociated());
    QCOMPARE(changes.size(), 0);
    QVERIFY(supervisor->TakeUntoldSuccess());
    QVERIFY(!supervisor->TakeUntoldSuccess());
}

void TestWpaSuppThreadStatus::knowsOfNoSuccessThatWasTold()
{
    SuperviseWithStatus("wpa_state=COMPLETED\n");
    supervisor->MessageReceived(QStringLiteral("<3>CTRL-EVENT-CONNECTED - "));
    // Neither of these is told, so that the connection is the same to whoever listens.
    supervisor->MessageReceived(QStringLiteral("<3>CTRL-EVENT-EAP-FAILURE"));
    supervisor->CheckStatus();
    QVERIFY(supervisor->IsAssociated());
    QVERIFY(!supervisor->TakeUntoldSuccess());

    // Here the event comes, but later than the status.
    supervisor->MessageReceived(QStringLiteral("<3>CTRL-EVENT-DISCONNECTED reason=3"));
    supervisor->CheckStatus();
    QSignalSpy changes(supervisor.get(), &WpaSuppThread::associatedChanged);
    QVERIFY(supplicant->SendEvent("<3>CTRL-EVENT-CONNECTED - Connection to x completed"));

    QVERIFY(!supervisor->TakeUntoldSuccess());

    QCOMPARE(changes, (QList<QList<QVariant>>{{true}}));
}

void TestWpaSuppThreadStatus::leavesWhatComesMeanwhileToTheNotifier()
{
    supervisor->Supervise();
    supervisor->AskForStatus();
    QSignalSpy changes(supervisor.get(), &WpaSuppThread::associatedChanged);
    // A link that flaps while its listener is busy.
    connect(supervisor.get(), &WpaSuppThread::associatedChanged, supervisor.get(),
            [this] { supplicant->SendEvent("<3>CTRL-EVENT-CONNECTED - again"); });
    QVERIFY(supplicant->SendEvent("<3>CTRL-EVENT-CONNECTED - Connection to x completed"));

    supervisor->Tick();

    QCOMPARE(changes.size(), 1);
}

/// An event may have been lost since our own name went.
void TestWpaSuppThreadStatus::readsTheStatusWhenItHasConnectedAnew()
{
    SuperviseWithStatus("wpa_state=DISCONNECTED\n");
    supervisor->MessageReceived(QStringLiteral("<3>CTRL-EVENT-CONNECTED - "));
    const QStringList names =
        QDir(QStringLiteral("/tmp")).entryList({QStringLiteral("wpa_ctrl_*")}, QDir::System);
    QCOMPARE(names.size(), 1);
    TestSupport::Remove(QStringLiteral("/tmp/") + names.first());

    supervisor->Tick(3);

    QCOMPARE(supplicant->Commands(), (QStringList{"ATTACH", "ATTACH", "STATUS"}));
    QVERIFY(!supervisor->IsAssociated());
}

QTEST_GUILESS_MAIN(TestWpaSuppThreadStatus)
#include "tst_wpasuppthread_status.moc"
