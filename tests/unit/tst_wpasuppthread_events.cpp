// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "supervisorworld.h"
#include "wpasupplicantcontrol.h"

#include <QCoreApplication>
#include <QDir>
#include <QSignalSpy>
#include <QTest>

#include <memory>

namespace {

const QString WARNING = QStringLiteral("warning 2 'Invalid password for '\\''%1'\\''' "
                                       "'Please use the network applet to correct this issue'");

} // namespace

class TestWpaSuppThreadEvents : public QObject, private SupervisedSupplicant
{
    Q_OBJECT
private slots:
    void init() { Make(); }
    void cleanup() { End(); }

    void extractsTheSsid_data();
    void extractsTheSsid();
    void takesADisabledSsidForABadPassword();
    void takesADisabledSsidForAWiredFailure();
    void connects();
    void disconnects();
    void tellsEveryEventOfTheConnection_data();
    void tellsEveryEventOfTheConnection();
    void emitsForThreeReasonsOnly();
    void successInTimeCallsOffTheStopForWantOfIt_data();
    void successInTimeCallsOffTheStopForWantOfIt();
    void nothingCallsOffTheStopOfOneThatHasEnded();
    void takesAnEapFailure_data();
    void takesAnEapFailure();
    void keepsTheFirstOfEqualFailures();
    void keepsTheReasonOfAFailure_data();
    void keepsTheReasonOfAFailure();
    void namesWhatIsWrongWithAnAuthentication();
    void endsWithTheSupplicant();
    void asksForTheStatusOnASignalChange();
    void logsEverythingElse_data();
    void logsEverythingElse();
    void hearsTheSupplicant();

    void warnsOncePerEpisode();
    void warnsOfTheNetwork_data();
    void warnsOfTheNetwork();
    void warnsAgainAfterAnotherStatus();
    void warnsOfNothingThatIsOverByTheTick();
    void neverWarnsOfAWiredNetwork();
    void logsThatItCannotWarn();
};

void TestWpaSuppThreadEvents::extractsTheSsid_data()
{
    QTest::addColumn<QString>("message");
    QTest::addColumn<QString>("expected");
    const QString event = QStringLiteral("<3>CTRL-EVENT-SSID-TEMP-DISABLED ");
    QTest::newRow("in quotes") << event + "id=0 ssid=\"MyNet\" auth_failures=1 duration=10"
                               << "MyNet";
    QTest::newRow("with blanks") << event + "id=0 ssid=\"My Net\" auth_failures=1"
                                 << "My Net";
    QTest::newRow("quotes first, whatever they hold") << event + "reason=\"WRONG KEY\" ssid=\"MyNet\""
                                                      << "WRONG KEY";
    QTest::newRow("empty in quotes") << event + "id=0 ssid=\"\" duration=10"
                                     << "";
    QTest::newRow("escaped in quotes")
        << event + "id=0 ssid=\"\\xc3\\xa9\" duration=10" << QString(QChar(0xe9));
    QTest::newRow("token") << event + "id=0 ssid=MyNet auth_failures=1"
                           << "MyNet";
    QTest::newRow("last token wins") << event + "ssid=one ssid=two"
                                     << "two";
    QTest::newRow("escaped token") << event + "ssid=a\\x20b"
                                   << "a b";
    QTest::newRow("bssid is another token") << event + "bssid=one"
                                            << "network";
    QTest::newRow("one quote is none") << event + "ssid=a\"b"
                                       << "a\"b";
    QTest::newRow("neither") << event + "id=0"
                             << "network";
}

void TestWpaSuppThreadEvents::extractsTheSsid()
{
    QFETCH(QString, message);

    supervisor->MessageReceived(message);

    QTEST(supervisor->Ssid(), "expected");
}

void TestWpaSuppThreadEvents::takesADisabledSsidForABadPassword()
{
    QSignalSpy changes(supervisor.get(), &WpaSuppThread::associatedChanged);
    supervisor->TakeForAssociated();

    supervisor->MessageReceived(QStringLiteral("<3>CTRL-EVENT-SSID-TEMP-DISABLED id=0 ssid=\"MyNet\""));

    QVERIFY(supervisor->SuspectsPassword());
    QVERIFY(supervisor->IsAssociated());
    QCOMPARE(LastLogLine(), QStringLiteral("INVALID PASSWORD FOR NETWORK MyNet "));
    QCOMPARE(changes.size(), 0);
}

void TestWpaSuppThreadEvents::takesADisabledSsidForAWiredFailure()
{
    supervisor->TakeForWired();

    supervisor->MessageReceived(
        QStringLiteral("<3>CTRL-EVENT-SSID-TEMP-DISABLED id=0 ssid=\"\" duration=10"));

    QVERIFY(!supervisor->SuspectsPassword());
    QCOMPARE(LastLogLine(), QStringLiteral("FILED TO CONNECT TO WIRED SERVER  "));
}

void TestWpaSuppThreadEvents::connects()
{
    QSignalSpy changes(supervisor.get(), &WpaSuppThread::associatedChanged);
    supervisor->SuspectPassword();

    supervisor->MessageReceived(QStringLiteral("<3>CTRL-EVENT-CONNECTED - Connection to x completed"));

    QVERIFY(supervisor->IsAssociated());
    QVERIFY(!supervisor->SuspectsPassword());
    QCOMPARE(supervisor->StatusText(), QStringLiteral("Associated"));
    QCOMPARE(LastLogLine(), QStringLiteral("WpaSuppThread::MessageReceived -- connected "));
    QCOMPARE(changes, (QList<QList<QVariant>>{{true}}));
}

void TestWpaSuppThreadEvents::disconnects()
{
    QSignalSpy changes(supervisor.get(), &WpaSuppThread::associatedChanged);
    supervisor->TakeForAssociated();
    supervisor->SuspectPassword();

    supervisor->MessageReceived(QStringLiteral("<3>CTRL-EVENT-DISCONNECTED bssid=x reason=3"));

    QVERIFY(!supervisor->IsAssociated());
    QVERIFY(!supervisor->SuspectsPassword());
    QCOMPARE(supervisor->StatusText(), QStringLiteral("Disconnected"));
    QCOMPARE(LastLogLine(), QStringLiteral("WpaSuppThread::MessageReceived -- disconnected "));
    QCOMPARE(changes, (QList<QList<QVariant>>{{false}}));
}

void TestWpaSuppThreadEvents::tellsEveryEventOfTheConnection_data()
{
    QTest::addColumn<QString>("event");
    QTest::addColumn<bool>("isConnected");
    QTest::addColumn<QString>("status");
    QTest::newRow("connected") << "<3>CTRL-EVENT-CONNECTED - " << true << "Associated";
    QTest::newRow("disconnected") << "<3>CTRL-EVENT-DISCONNECTED reason=3" << false << "Disconnected";
}

void TestWpaSuppThreadEvents::tellsEveryEventOfTheConnection()
{
    QFETCH(QString, event);
    QFETCH(bool, isConnected);
    QFETCH(QString, status);
    QSignalSpy changes(supervisor.get(), &WpaSuppThread::associatedChanged);
    if (!isConnected)
        supervisor->TakeForAssociated();
    // A slot finds the new state in force.
    QStringList seen;
    connect(supervisor.get(), &WpaSuppThread::associatedChanged, supervisor.get(),
            [&] { seen << supervisor->StatusText() + QString::number(supervisor->IsAssociated()); });

    supervisor->MessageReceived(event);
    supervisor->MessageReceived(event);

    QCOMPARE(changes, (QList<QList<QVariant>>{{isConnected}, {isConnected}}));
    const QString expected = status + QString::number(isConnected);
    QCOMPARE(seen, (QStringList{expected, expected}));
}

/// The third reason is a restart.
void TestWpaSuppThreadEvents::emitsForThreeReasonsOnly()
{
    supplicant->SetReply("STATUS", "wpa_state=COMPLETED\n");
    QSignalSpy changes(supervisor.get(), &WpaSuppThread::associatedChanged);
    supervisor->Supervise();
    supervisor->MessageReceived(QStringLiteral("<3>CTRL-EVENT-CONNECTED - "));
    supervisor->MessageReceived(QStringLiteral("<3>CTRL-EVENT-EAP-FAILURE"));
    supervisor->AskForStatus();
    supervisor->Tick();
    QVERIFY(supervisor->IsAssociated());
    supervisor->MessageReceived(QStringLiteral("<3>CTRL-EVENT-DISCONNECTED reason=3"));
    supervisor->MessageReceived(QStringLiteral("<3>CTRL-EVENT-CONNECTED - "));
    supervisor->Stop(WpaSuppThread::STOP_UNNEEDED);

    supervisor->Tick();

    QVERIFY(!supervisor->IsAssociated());
    QCOMPARE(changes, (QList<QList<QVariant>>{{true}, {false}, {true}}));
    // What it was before the stop.
    QCOMPARE(supervisor->StatusText(), QStringLiteral("Associated"));
}

void TestWpaSuppThreadEvents::successInTimeCallsOffTheStopForWantOfIt_data()
{
    using Reasons = QVector<int>;
    QTest::addColumn<Reasons>("reasons");
    QTest::addColumn<bool>("succeeds");
    QTest::addColumn<bool>("isStopped");
    QTest::newRow("fallback") << Reasons{WpaSuppThread::STOP_FALLBACK} << true << false;
    QTest::newRow("given up") << Reasons{WpaSuppThread::STOP_GIVEN_UP} << true << false;
    QTest::newRow("asked twice") << Reasons{WpaSuppThread::STOP_FALLBACK, WpaSuppThread::STOP_GIVEN_UP}
                                 << true << false;
    QTest::newRow("no success") << Reasons{WpaSuppThread::STOP_FALLBACK} << false << true;
    QTest::newRow("not needed") << Reasons{WpaSuppThread::STOP_UNNEEDED} << true << true;
    QTest::newRow("not needed since")
        << Reasons{WpaSuppThread::STOP_FALLBACK, WpaSuppThread::STOP_UNNEEDED} << true << true;
    QTest::newRow("not needed before")
        << Reasons{WpaSuppThread::STOP_UNNEEDED, WpaSuppThread::STOP_FALLBACK} << true << true;
}

void TestWpaSuppThreadEvents::successInTimeCallsOffTheStopForWantOfIt()
{
    QFETCH(QVector<int>, reasons);
    QFETCH(bool, succeeds);
    QFETCH(bool, isStopped);
    supervisor->Supervise();
    for (const int reason : reasons)
        supervisor->Stop(reason);
    if (succeeds)
        supervisor->MessageReceived(QStringLiteral("<3>CTRL-EVENT-CONNECTED - "));

    supervisor->Tick();

    QCOMPARE(supplicant->Commands().contains("TERMINATE"), isStopped);
    QCOMPARE(LogLines().count("WpaSuppThread -- In time: it is not stopped "), isStopped ? 0 : 1);
}

void TestWpaSuppThreadEvents::nothingCallsOffTheStopOfOneThatHasEnded()
{
    supervisor->Supervise();
    supervisor->Stop(WpaSuppThread::STOP_FALLBACK);
    supervisor->MessageReceived(QStringLiteral("<3>CTRL-EVENT-TERMINATING "));

    supervisor->MessageReceived(QStringLiteral("<3>CTRL-EVENT-CONNECTED - "));
    supervisor->Tick();

    QVERIFY(supplicant->Commands().contains("TERMINATE"));
}

void TestWpaSuppThreadEvents::takesAnEapFailure_data()
{
    QTest::addColumn<bool>("wired");
    QTest::newRow("wireless") << false;
    QTest::newRow("wired") << true;
}

void TestWpaSuppThreadEvents::takesAnEapFailure()
{
    QFETCH(bool, wired);
    QSignalSpy changes(supervisor.get(), &WpaSuppThread::associatedChanged);
    if (wired)
        supervisor->TakeForWired();
    supervisor->TakeForAssociated();
    supervisor->AimAt(QStringLiteral("eth0"));

    supervisor->MessageReceived(QStringLiteral("<3>CTRL-EVENT-EAP-FAILURE EAP authentication failed"));

    QVERIFY(!supervisor->IsAssociated());
    QCOMPARE(supervisor->SuspectsPassword(), !wired);
    QCOMPARE(supervisor->StatusText(), QStringLiteral("Thread Created"));
    QVERIFY(TestSupport::LogText().contains(
        " :  WpaSuppThread::MessageReceived --EAP Authentication Error eth0 \n"));
    QCOMPARE(LastLogLine(), QStringLiteral("INVALID PASSWORD FOR NETWORK eth0 "));
    QCOMPARE(changes.size(), 0);
}

void TestWpaSuppThreadEvents::keepsTheFirstOfEqualFailures()
{
    const auto failure = QStringLiteral("<3>CTRL-EVENT-EAP-FAILURE EAP authentication failed");
    supervisor->MessageReceived(failure);
    const QDateTime since = supervisor->LastFailure().since;
    QVERIFY(since.isValid());
    QTest::qWait(5); // The clock of the next one shows another time.

    supervisor->MessageReceived(failure);
    QCOMPARE(supervisor->LastFailure().since, since);

    supervisor->MessageReceived(QStringLiteral("<3>CTRL-EVENT-CONNECTED - "));
    QCOMPARE(supervisor->LastFailure().reason, QString());
}

void TestWpaSuppThreadEvents::keepsTheReasonOfAFailure_data()
{
    QTest::addColumn<QStringList>("messages");
    QTest::addColumn<QString>("expected");
    const QString eap = "<3>CTRL-EVENT-EAP-FAILURE EAP authentication failed";
    const QString disabled = "<3>CTRL-EVENT-SSID-TEMP-DISABLED id=0 ssid=\"x\" auth_failures=1 duration=10 ";
    QTest::newRow("EAP") << QStringList{eap} << "EAP authentication failed";
    QTest::newRow("key") << QStringList{disabled + "reason=WRONG_KEY"} << "the network refused the key";
    QTest::newRow("other") << QStringList{disabled + "reason=CONN_FAILED"}
                           << "the network refused the attempts";
    QTest::newRow("EAP, as the network says too")
        << QStringList{eap, disabled + "reason=AUTH_FAILED"} << "EAP authentication failed";
    QTest::newRow("key after another")
        << QStringList{eap, disabled + "reason=WRONG_KEY"} << "the network refused the key";

    const QString status = "<3>CTRL-EVENT-EAP-STATUS status='%1' parameter='%2'";
    const QString certificate = "remote certificate verification";
    const QString expired = status.arg(certificate, "certificate has expired");
    QTest::newRow("server's certificate")
        << QStringList{expired, status.arg("local TLS alert", "certificate expired"), eap}
        << "the server's certificate is refused: certificate has expired";
    QTest::newRow("old TLS") << QStringList{status.arg("local TLS alert", "protocol version"), eap}
                             << "the server's TLS is refused: protocol version";
    QTest::newRow("our certificate") << QStringList{status.arg("remote TLS alert", "unknown CA"), eap}
                                     << "the server refuses our certificate or TLS: unknown CA";
    QTest::newRow("other method") << QStringList{status.arg("refuse proposed method", "MD5"), eap}
                                  << "the server wants another EAP method: MD5";
    QTest::newRow("key that its password does not open")
        << QStringList{status.arg("accept proposed method", "TLS"),
                       "<3>EAP: Failed to initialize EAP method: vendor 0 method 13 (TLS)",
                       status.arg("completion", "failure"), eap}
        << "a certificate or key of the definition cannot be used: TLS";
    QTest::newRow("another method is taken") << QStringList{status.arg("refuse proposed method", "MD5"),
                                                            status.arg("accept proposed method", "PEAP"), eap}
                                             << "EAP authentication failed";
    QTest::newRow("end of TLS") << QStringList{status.arg("remote TLS alert", "close notify"), eap}
                                << "EAP authentication failed";
    QTest::newRow("certificate that is fine")
        << QStringList{status.arg(certificate, "success"), status.arg("completion", "failure"), eap}
        << "EAP authentication failed";
    QTest::newRow("certificate of the attempt before")
        << QStringList{expired, "<3>CTRL-EVENT-EAP-STARTED EAP authentication started", eap}
        << "EAP authentication failed";
    QTest::newRow("certificate of the failure before")
        << QStringList{expired, eap, eap} << "EAP authentication failed";
}

void TestWpaSuppThreadEvents::keepsTheReasonOfAFailure()
{
    QFETCH(QStringList, messages);

    for (const QString &message : qAsConst(messages))
        supervisor->MessageReceived(message);

    QTEST(supervisor->LastFailure().reason, "expected");
}

/// More than a failure that "INVALID PASSWORD" follows.
void TestWpaSuppThreadEvents::namesWhatIsWrongWithAnAuthentication()
{
    supervisor->AimAt(QStringLiteral("eth0"));

    supervisor->MessageReceived(
        QStringLiteral("<3>CTRL-EVENT-EAP-STATUS status='local TLS alert' parameter='protocol version'"));
    supervisor->MessageReceived(QStringLiteral("<3>CTRL-EVENT-EAP-FAILURE EAP authentication failed"));

    QVERIFY(LogLines().contains("WpaSuppThread -- The authentication fails on eth0 - "
                                "the server's TLS is refused: protocol version "));
}

void TestWpaSuppThreadEvents::endsWithTheSupplicant()
{
    QSignalSpy changes(supervisor.get(), &WpaSuppThread::associatedChanged);
    supervisor->TakeForAssociated();
    supervisor->SuspectPassword();

    supervisor->MessageReceived(QStringLiteral("<3>CTRL-EVENT-TERMINATING "));

    QVERIFY(!supervisor->IsAssociated());
    QVERIFY(!supervisor->SuspectsPassword());
    QVERIFY(supervisor->IsStopRequested());
    QVERIFY(supervisor->IsAcknowledged());
    QCOMPARE(supervisor->StatusText(), QStringLiteral("Thread Created"));
    QCOMPARE(LastLogLine(), QStringLiteral("WpaSuppThread::MessageReceived -- Terminating "));
    QCOMPARE(changes.size(), 0);
}

void TestWpaSuppThreadEvents::asksForTheStatusOnASignalChange()
{
    supervisor->MessageReceived(QStringLiteral("<3>CTRL-EVENT-SIGNAL-CHANGE above=1 signal=-40"));

    QVERIFY(supervisor->IsStatusRequested());
    QCOMPARE(LogLineCount(), 0);
}

void TestWpaSuppThreadEvents::logsEverythingElse_data()
{
    QTest::addColumn<QString>("message");
    for (const char *message : {"<3>Trying to associate with 02:00:00:00:01:00", "<2>CTRL-EVENT-CONNECTED - ",
                                "<3>ctrl-event-connected", "CTRL-EVENT-DISCONNECTED",
                                " <3>CTRL-EVENT-TERMINATING", "<3>CTRL-EVENT-SSID-REENABLED id=0",
                                "<3>CTRL-EVENT-EAP-SUCCESS", "IFNAME=wlan0 <3>CTRL-EVENT-CONNECTED - ", ""})
        QTest::newRow(message) << QString::fromLatin1(message);
}

void TestWpaSuppThreadEvents::logsEverythingElse()
{
    QFETCH(QString, message);
    QSignalSpy changes(supervisor.get(), &WpaSuppThread::associatedChanged);
    const QString before = supervisor->toString();

    supervisor->MessageReceived(message);

    QCOMPARE(LastLogLine(), "WpaSuppThread::MessageReceived -- " + message + ' ');
    QCOMPARE(supervisor->toString(), before);
    QVERIFY(!supervisor->IsStopRequested() && !supervisor->SuspectsPassword() &&
            !supervisor->IsStatusRequested());
    QCOMPARE(changes.size(), 0);
}

void TestWpaSuppThreadEvents::hearsTheSupplicant()
{
    QSignalSpy changes(supervisor.get(), &WpaSuppThread::associatedChanged);
    supervisor->Supervise();

    QVERIFY(supplicant->SendEvent("<3>CTRL-EVENT-CONNECTED - Connection to x completed"));

    QTRY_COMPARE(changes.size(), 1);
    QVERIFY(supervisor->IsAssociated());
}

void TestWpaSuppThreadEvents::warnsOncePerEpisode()
{
    supervisor->Supervise();
    for (int i = 0; i < 5; ++i) {
        supervisor->MessageReceived(QStringLiteral("<3>CTRL-EVENT-SSID-TEMP-DISABLED id=0 ssid=\"MyNet\""));
        supervisor->Tick(3);
    }
    supervisor->MessageReceived(QStringLiteral("<3>CTRL-EVENT-EAP-FAILURE"));
    supervisor->Tick(3);

    QVERIFY(TestSupport::WaitForJournal(1));
    QTest::qWait(200);
    QCOMPARE(TestSupport::Journal(), QStringList{WARNING.arg("MyNet")});
    QCOMPARE(supervisor->StatusText(), QStringLiteral("BadPassword"));
    // The flag of the later reports waits.
    QVERIFY(supervisor->SuspectsPassword());
}

void TestWpaSuppThreadEvents::warnsOfTheNetwork_data()
{
    QTest::addColumn<QString>("ssid");
    QTest::addColumn<QString>("expected");
    QTest::newRow("by name") << "My Net"
                             << "My Net";
    QTest::newRow("without name") << ""
                                  << "network";
    QTest::newRow("with a place holder") << "%1 %2"
                                         << "%1 %2";
}

void TestWpaSuppThreadEvents::warnsOfTheNetwork()
{
    QFETCH(QString, ssid);
    QFETCH(QString, expected);
    supervisor->Supervise();
    supervisor->NoteSsid(ssid);
    supervisor->SuspectPassword();
    TestSupport::ClearLog();

    supervisor->Tick();

    QVERIFY(TestSupport::WaitForJournal(1));
    QCOMPARE(TestSupport::Journal(), QStringList{QString(WARNING).replace("%1", expected)});
    QVERIFY(!supervisor->SuspectsPassword());
    QVERIFY(TestSupport::LogText().contains(
        " :  BAD PASSWORD -- warning 2, Invalid password for '" + expected +
        "', Please use the network applet to correct this issue " + ssid + " wlan0 \n"));
    QCOMPARE(LastLogLine(), QStringLiteral("Spawned preccess returned  1 "));
}

void TestWpaSuppThreadEvents::warnsAgainAfterAnotherStatus()
{
    supervisor->Supervise();
    supervisor->SuspectPassword();
    supervisor->Tick();
    supervisor->MessageReceived(QStringLiteral("<3>CTRL-EVENT-DISCONNECTED"));
    supervisor->MessageReceived(QStringLiteral("<3>CTRL-EVENT-SSID-TEMP-DISABLED ssid=\"MyNet\""));

    supervisor->Tick();

    QVERIFY(TestSupport::WaitForJournal(2));
}

void TestWpaSuppThreadEvents::warnsOfNothingThatIsOverByTheTick()
{
    supervisor->Supervise();
    supervisor->MessageReceived(QStringLiteral("<3>CTRL-EVENT-SSID-TEMP-DISABLED id=0 ssid=\"MyNet\""));
    supervisor->MessageReceived(QStringLiteral("<3>CTRL-EVENT-DISCONNECTED reason=15"));

    supervisor->Tick(3);

    QCOMPARE(supervisor->StatusText(), QStringLiteral("Disconnected"));
    QVERIFY(!TestSupport::LogText().contains(QStringLiteral("BAD PASSWORD")));
}

void TestWpaSuppThreadEvents::neverWarnsOfAWiredNetwork()
{
    supervisor->Supervise(QStringLiteral("wlan0"), QStringLiteral("wired"));

    supervisor->MessageReceived(QStringLiteral("<3>CTRL-EVENT-EAP-FAILURE"));
    supervisor->MessageReceived(QStringLiteral("<3>CTRL-EVENT-SSID-TEMP-DISABLED ssid=\"\""));
    supervisor->Tick(5);
    QTest::qWait(200);

    QCOMPARE(TestSupport::Journal(), QStringList());
    QCOMPARE(supervisor->StatusText(), QStringLiteral("Thread Created"));
}

void TestWpaSuppThreadEvents::logsThatItCannotWarn()
{
    TestSupport::RemoveProgram(QStringLiteral("warning"));
    supervisor->Supervise();
    supervisor->SuspectPassword();

    supervisor->Tick();

    QCOMPARE(LastLogLine(), QStringLiteral("Spawned preccess returned  0 "));
    QVERIFY(!supervisor->SuspectsPassword());
}

QTEST_GUILESS_MAIN(TestWpaSuppThreadEvents)
#include "tst_wpasuppthread_events.moc"
