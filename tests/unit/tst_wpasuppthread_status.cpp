// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

// What the supervisor reads from the supplicant's status, and what it makes of it.

#include "supervisorworld.h"

#include <QSignalSpy>
#include <QTest>

namespace {

const QByteArray CONNECTED = "<3>CTRL-EVENT-CONNECTED - Connection to x completed";

} // namespace

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
    void asksANewSupplicantThatSaysNothing();
    void asksANewSupplicantWhoseStatusWasReadBefore();
    void asksNoSupplicantThatWasHeard_data();
    void asksNoSupplicantThatWasHeard();
    void ticksThatWereHeldUpAreNoTimeToWait();
    void takesUpASuccessThatWasDropped_data();
    void takesUpASuccessThatWasDropped();
    void takesUpNoSuccessThatNoEventWasMissedOf();
    void takesUpASuccessThatCameWithoutAConnection_data();
    void takesUpASuccessThatCameWithoutAConnection();
    void refusalIsOverWhereASuccessCameWithoutAConnection();
    void asksAfterALossHoweverItIsConnectedAgain();
    void takesUpNoSuccessThatWasTold();
    void takesUpNoSuccessThatIsOver();
    void asksAgainWhereTheReplyIsLostWithTheSuccess();
    void takesUpADroppedSuccessAfterARefusal();
    void successThatWasTakenUpEndsWhatWasToldBefore();
    void eventOfASuccessThatWasTakenUpConfirmsIt();
    void ticksThatWereHeldUpAreNoTimeForTheEvent();
    void eventLongAfterWhatWasTakenUpIsTold();
    void eventAfterTheEndOfWhatWasTakenUpIsTold_data();
    void eventAfterTheEndOfWhatWasTakenUpIsTold();
    void leavesWhatComesMeanwhileToTheNotifier();
    void readsTheStatusWhenItHasConnectedAnew_data();
    void readsTheStatusWhenItHasConnectedAnew();

private:
    /// The supplicant answers so when it is asked for its status.
    void SuperviseWithStatus(const QByteArray &reply);
    /// As after a start: the connection is opened now.
    void Attach();
    /// The supplicant connects while it is sent this command, and says so.
    void ConnectDuring(const QByteArray &command, const QByteArray &reply);
    void TakeUpASuccess();
};

void TestWpaSuppThreadStatus::SuperviseWithStatus(const QByteArray &reply)
{
    supplicant->SetReply("STATUS", reply);
    supervisor->Supervise();
}

void TestWpaSuppThreadStatus::Attach()
{
    supplicant->SetReply("STATUS", "wpa_state=COMPLETED\n");
    supervisor->ExpectSupplicant();
    supervisor->Tick();
}

void TestWpaSuppThreadStatus::ConnectDuring(const QByteArray &command, const QByteArray &reply)
{
    FakeSupplicant::Answer answer;
    answer.eventsFirst = {CONNECTED};
    answer.reply = reply;
    supplicant->SetAnswer(command, answer);
}

void TestWpaSuppThreadStatus::TakeUpASuccess()
{
    supervisor->Supervise();
    ConnectDuring("STATUS", "wpa_state=COMPLETED\n");
    supervisor->CheckStatus();
    QVERIFY(supervisor->TakeMissedSuccess());
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

void TestWpaSuppThreadStatus::asksANewSupplicantThatSaysNothing()
{
    QSignalSpy changes(supervisor.get(), &WpaSuppThread::associatedChanged);
    Attach();

    supervisor->Tick(4);
    QCOMPARE(supplicant->Commands(), QStringList{"ATTACH"});
    supervisor->Tick(10);

    QCOMPARE(supplicant->Commands(), (QStringList{"ATTACH", "STATUS"}));
    QVERIFY(supervisor->IsAssociated());
    QCOMPARE(changes.size(), 0);
    QVERIFY(supervisor->TakeMissedSuccess());
    QVERIFY(!supervisor->TakeMissedSuccess());
}

void TestWpaSuppThreadStatus::asksANewSupplicantWhoseStatusWasReadBefore()
{
    Attach();
    supervisor->CheckStatus();
    QVERIFY(supervisor->IsAssociated());
    QVERIFY(!supervisor->TakeMissedSuccess());

    supervisor->Tick(10);

    QVERIFY(supervisor->TakeMissedSuccess());
}

void TestWpaSuppThreadStatus::asksNoSupplicantThatWasHeard_data()
{
    QTest::addColumn<QByteArray>("event");
    QTest::addColumn<bool>("isUnread");
    QTest::newRow("connected") << CONNECTED << false;
    QTest::newRow("connected, not read yet") << CONNECTED << true;
    QTest::newRow("disconnected") << QByteArray("<3>CTRL-EVENT-DISCONNECTED reason=3") << false;
    QTest::newRow("step of EAP") << QByteArray("<3>CTRL-EVENT-EAP-STARTED EAP authentication started")
                                 << false;
}

void TestWpaSuppThreadStatus::asksNoSupplicantThatWasHeard()
{
    QFETCH(QByteArray, event);
    QFETCH(bool, isUnread);
    Attach();
    supervisor->Tick(4);

    if (isUnread)
        QVERIFY(supplicant->SendEvent(event));
    else
        supervisor->MessageReceived(QString::fromLatin1(event));
    supervisor->Tick(10);

    QCOMPARE(supplicant->Commands(), QStringList{"ATTACH"});
    QVERIFY(!supervisor->TakeMissedSuccess());
}

/// After a start they follow each other at once.
void TestWpaSuppThreadStatus::ticksThatWereHeldUpAreNoTimeToWait()
{
    Attach();
    supervisor->LagBehind(2);
    supervisor->Tick(10);
    QCOMPARE(supplicant->Commands(), QStringList{"ATTACH"});

    supervisor->LagBehind(1);
    supervisor->Tick(5);

    QCOMPARE(supplicant->Commands(), (QStringList{"ATTACH", "STATUS"}));
}

void TestWpaSuppThreadStatus::takesUpASuccessThatWasDropped_data()
{
    QTest::addColumn<bool>("isStatus");
    QTest::newRow("by the status itself") << true;
    QTest::newRow("by another command") << false;
}

void TestWpaSuppThreadStatus::takesUpASuccessThatWasDropped()
{
    QFETCH(bool, isStatus);
    SuperviseWithStatus("wpa_state=COMPLETED\n");
    if (isStatus) {
        ConnectDuring("STATUS", "wpa_state=COMPLETED\n");
        supervisor->AskForStatus();
    } else {
        ConnectDuring("RECONFIGURE", "OK\n");
        supervisor->Reconfigure();
    }
    QSignalSpy changes(supervisor.get(), &WpaSuppThread::associatedChanged);

    supervisor->Tick(5);

    // Asked once, where its own reply is not the answer.
    QCOMPARE(supplicant->Commands().filter("STATUS").size(), 1);
    QVERIFY(supervisor->IsAssociated());
    QCOMPARE(changes.size(), 0);
    QVERIFY(supervisor->TakeMissedSuccess());
    QVERIFY(!supervisor->TakeMissedSuccess());
}

void TestWpaSuppThreadStatus::takesUpNoSuccessThatNoEventWasMissedOf()
{
    supplicant.reset();
    supervisor->Supervise();
    supplicant = std::make_unique<FakeSupplicant>();
    supplicant->SetReply("STATUS", "wpa_state=COMPLETED\n");
    supervisor->Tick(); // Opens the connection, and asks.
    QVERIFY(supervisor->IsAssociated());
    QVERIFY(!supervisor->TakeMissedSuccess());

    supervisor->MessageReceived(QStringLiteral("<3>CTRL-EVENT-SIGNAL-CHANGE above=1"));
    supervisor->Tick();

    QCOMPARE(supplicant->Commands(), (QStringList{"ATTACH", "STATUS", "STATUS"}));
    QVERIFY(!supervisor->TakeMissedSuccess());
}

void TestWpaSuppThreadStatus::takesUpASuccessThatCameWithoutAConnection_data()
{
    QTest::addColumn<QString>("lastEvent");
    QTest::addColumn<QByteArray>("status");
    QTest::addColumn<bool>("expected");
    const QString disconnected = QStringLiteral("<3>CTRL-EVENT-DISCONNECTED reason=3");
    QTest::newRow("connects meanwhile") << disconnected << QByteArray("wpa_state=COMPLETED\n") << true;
    QTest::newRow("still tries") << disconnected << QByteArray("wpa_state=SCANNING\n") << false;
    QTest::newRow("was told before") << QString::fromLatin1(CONNECTED) << QByteArray("wpa_state=COMPLETED\n")
                                     << false;
}

void TestWpaSuppThreadStatus::takesUpASuccessThatCameWithoutAConnection()
{
    QFETCH(QString, lastEvent);
    QFETCH(QByteArray, status);
    supervisor->Supervise();
    supervisor->MessageReceived(lastEvent);
    supplicant->Die();
    supervisor->Tick(3);
    QVERIFY(!supervisor->IsControlOpen());
    supplicant.reset();
    supplicant = std::make_unique<FakeSupplicant>();
    supplicant->SetReply("STATUS", status);
    QSignalSpy changes(supervisor.get(), &WpaSuppThread::associatedChanged);

    supervisor->Tick(5);

    QCOMPARE(supplicant->Commands(), (QStringList{"ATTACH", "STATUS"}));
    QCOMPARE(changes.size(), 0);
    QTEST(supervisor->TakeMissedSuccess(), "expected");
    QVERIFY(!supervisor->TakeMissedSuccess());
    // A later status is no sign that anything was missed: its event would have been heard.
    supplicant->SetReply("STATUS", "wpa_state=COMPLETED\n");
    supervisor->AskForStatus();
    supervisor->Tick();
    QVERIFY(!supervisor->TakeMissedSuccess());
}

void TestWpaSuppThreadStatus::refusalIsOverWhereASuccessCameWithoutAConnection()
{
    supervisor->Supervise();
    supervisor->MessageReceived(QString::fromLatin1(CONNECTED));
    supervisor->MessageReceived(QStringLiteral("<3>CTRL-EVENT-EAP-FAILURE "));
    supplicant->Die();
    supervisor->Tick(3);
    supplicant.reset();
    supplicant = std::make_unique<FakeSupplicant>();
    supplicant->SetReply("STATUS", "wpa_state=COMPLETED\n");

    supervisor->Tick(5);

    QVERIFY(!supervisor->TakeMissedSuccess());
    QCOMPARE(supervisor->LastFailure().reason, QString());
}

/// Of several failures to connect again the last leads to a new connection object.
void TestWpaSuppThreadStatus::asksAfterALossHoweverItIsConnectedAgain()
{
    supervisor->Supervise();
    supplicant->Die();
    supervisor->Tick();
    supplicant.reset();
    supplicant = std::make_unique<FakeSupplicant>();
    supplicant->SetReply("STATUS", "wpa_state=COMPLETED\n");
    supervisor->RestartWpaCtl();

    supervisor->Tick(5);

    QCOMPARE(supplicant->Commands(), (QStringList{"ATTACH", "STATUS"}));
    QVERIFY(supervisor->TakeMissedSuccess());
}

void TestWpaSuppThreadStatus::takesUpNoSuccessThatWasTold()
{
    supervisor->Supervise();
    supervisor->MessageReceived(QStringLiteral("<3>CTRL-EVENT-CONNECTED - "));
    // Neither of these is told, so that the connection is the same to whoever listens.
    supervisor->MessageReceived(QStringLiteral("<3>CTRL-EVENT-EAP-FAILURE"));
    ConnectDuring("STATUS", "wpa_state=COMPLETED\n");
    supervisor->CheckStatus();
    QVERIFY(supervisor->IsAssociated());
    QVERIFY(!supervisor->TakeMissedSuccess());

    // Here the event comes once more, after the status and before it is taken up.
    supervisor->MessageReceived(QStringLiteral("<3>CTRL-EVENT-DISCONNECTED reason=3"));
    supervisor->CheckStatus();
    QSignalSpy changes(supervisor.get(), &WpaSuppThread::associatedChanged);
    QVERIFY(supplicant->SendEvent(CONNECTED));

    QVERIFY(!supervisor->TakeMissedSuccess());

    QCOMPARE(changes, (QList<QList<QVariant>>{{true}}));
}

void TestWpaSuppThreadStatus::takesUpNoSuccessThatIsOver()
{
    supervisor->Supervise();
    ConnectDuring("STATUS", "wpa_state=SCANNING\n");
    supervisor->CheckStatus();
    supplicant->SetReply("STATUS", "wpa_state=COMPLETED\n");
    supervisor->CheckStatus();

    QVERIFY(supervisor->IsAssociated());
    QVERIFY(!supervisor->TakeMissedSuccess());
}

void TestWpaSuppThreadStatus::asksAgainWhereTheReplyIsLostWithTheSuccess()
{
    supervisor->Supervise();
    FakeSupplicant::Answer answer;
    answer.eventsFirst = {CONNECTED};
    answer.silent = true;
    supplicant->SetAnswer("STATUS", answer);
    supervisor->CheckStatus();
    QVERIFY(!supervisor->IsAssociated());
    supplicant->SetReply("STATUS", "wpa_state=COMPLETED\n");

    supervisor->Tick(2);

    QVERIFY(supervisor->TakeMissedSuccess());
}

/// It is the same connection to whoever listens, but we ourselves are associated again.
void TestWpaSuppThreadStatus::takesUpADroppedSuccessAfterARefusal()
{
    supervisor->Supervise();
    supervisor->MessageReceived(QString::fromLatin1(CONNECTED));
    supervisor->MessageReceived(QStringLiteral("<3>CTRL-EVENT-EAP-FAILURE "));
    supplicant->SetReply("STATUS", "wpa_state=COMPLETED\n");
    ConnectDuring("RECONFIGURE", "OK\n");
    supervisor->Reconfigure();

    supervisor->Tick(2);

    QVERIFY(supervisor->IsAssociated());
    QVERIFY(!supervisor->TakeMissedSuccess());
    QCOMPARE(supervisor->LastFailure().reason, QString());
}

void TestWpaSuppThreadStatus::successThatWasTakenUpEndsWhatWasToldBefore()
{
    const auto refuse = [this] {
        supervisor->MessageReceived(QStringLiteral("<3>CTRL-EVENT-EAP-FAILURE "));
    };
    refuse();
    TakeUpASuccess();

    QCOMPARE(supervisor->LastFailure().reason, QString());
    QCOMPARE(supervisor->StatusText(), QStringLiteral("Associated"));
    QCOMPARE(TestSupport::LogText().count("MessageReceived -- connected"), 1);
    refuse();
    QCOMPARE(TestSupport::LogText().count("INVALID PASSWORD FOR NETWORK"), 2);
}

void TestWpaSuppThreadStatus::eventOfASuccessThatWasTakenUpConfirmsIt()
{
    TakeUpASuccess();
    QSignalSpy changes(supervisor.get(), &WpaSuppThread::associatedChanged);
    supervisor->CheckStatus(); // Once more the event is dropped.
    QVERIFY(!supervisor->TakeMissedSuccess());

    supervisor->MessageReceived(QString::fromLatin1(CONNECTED));
    QCOMPARE(changes.size(), 0);
    QCOMPARE(supervisor->StatusText(), QStringLiteral("Associated"));

    // The next one is news again, as of an access point that was changed for another.
    supervisor->MessageReceived(QString::fromLatin1(CONNECTED));
    QCOMPARE(changes, (QList<QList<QVariant>>{{true}}));
}

/// As of a DHCP client that took long: the ticks come before what was said meanwhile.
void TestWpaSuppThreadStatus::ticksThatWereHeldUpAreNoTimeForTheEvent()
{
    TakeUpASuccess();
    QSignalSpy changes(supervisor.get(), &WpaSuppThread::associatedChanged);
    supervisor->LagBehind(2);
    supervisor->Tick(10);

    supervisor->MessageReceived(QString::fromLatin1(CONNECTED));

    QCOMPARE(changes.size(), 0);
}

void TestWpaSuppThreadStatus::eventLongAfterWhatWasTakenUpIsTold()
{
    TakeUpASuccess();
    QSignalSpy changes(supervisor.get(), &WpaSuppThread::associatedChanged);
    supervisor->Tick(3);

    supervisor->MessageReceived(QString::fromLatin1(CONNECTED));

    QCOMPARE(changes, (QList<QList<QVariant>>{{true}}));
}

void TestWpaSuppThreadStatus::eventAfterTheEndOfWhatWasTakenUpIsTold_data()
{
    QTest::addColumn<QString>("event");
    QTest::addColumn<QByteArray>("status");
    QTest::addColumn<int>("told");
    QTest::newRow("disconnected") << "<3>CTRL-EVENT-DISCONNECTED reason=3" << QByteArray() << 2;
    QTest::newRow("refused") << "<3>CTRL-EVENT-EAP-FAILURE " << QByteArray() << 1;
    QTest::newRow("other status") << "<3>CTRL-EVENT-SIGNAL-CHANGE " << QByteArray("wpa_state=SCANNING\n")
                                  << 1;
}

void TestWpaSuppThreadStatus::eventAfterTheEndOfWhatWasTakenUpIsTold()
{
    QFETCH(QString, event);
    QFETCH(QByteArray, status);
    QFETCH(int, told);
    TakeUpASuccess();
    QSignalSpy changes(supervisor.get(), &WpaSuppThread::associatedChanged);
    supplicant->SetReply("STATUS", status);

    supervisor->MessageReceived(event);
    supervisor->Tick();
    QVERIFY(!supervisor->IsAssociated());
    supervisor->MessageReceived(QString::fromLatin1(CONNECTED));

    QCOMPARE(changes.size(), told);
    QCOMPARE(changes.last().first().toBool(), true);
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

void TestWpaSuppThreadStatus::readsTheStatusWhenItHasConnectedAnew_data()
{
    QTest::addColumn<bool>("wasConnected");
    QTest::newRow("was connected") << true;
    QTest::newRow("is connected") << false;
}

/// An event may have been lost since our own name went.
void TestWpaSuppThreadStatus::readsTheStatusWhenItHasConnectedAnew()
{
    QFETCH(bool, wasConnected);
    SuperviseWithStatus(wasConnected ? "wpa_state=DISCONNECTED\n" : "wpa_state=COMPLETED\n");
    if (wasConnected)
        supervisor->MessageReceived(QString::fromLatin1(CONNECTED));
    const QStringList names =
        QDir(QStringLiteral("/tmp")).entryList({QStringLiteral("wpa_ctrl_*")}, QDir::System);
    QCOMPARE(names.size(), 1);
    TestSupport::Remove(QStringLiteral("/tmp/") + names.first());

    supervisor->Tick(3);

    QCOMPARE(supplicant->Commands(), (QStringList{"ATTACH", "ATTACH", "STATUS"}));
    QCOMPARE(supervisor->IsAssociated(), !wasConnected);
    QCOMPARE(supervisor->TakeMissedSuccess(), !wasConnected);
}

QTEST_GUILESS_MAIN(TestWpaSuppThreadStatus)
#include "tst_wpasuppthread_status.moc"
