// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "fakesupplicant.h"
#include "logging.h"
#include "testsupport.h"
#include "wpasupplicantcontrol.h"
#include "wpasuppthreadpeer.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QSignalSpy>
#include <QTest>

namespace {

const QString SUPPLICANT_LOG = QStringLiteral("/var/log/wpa_supplicant.log");
const QString CONFIGURATION = QStringLiteral("/tmp/wpa_supplicant.conf");

int LocalNames()
{
    return TestSupport::EntryCount(QStringLiteral("/tmp"), {QStringLiteral("wpa_ctrl_*")});
}

/// Deletes what was scheduled for deletion.
void DeleteLater()
{
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

/// The log without its time stamps.
QStringList LogLines()
{
    QStringList lines;
    const QStringList stamped = TestSupport::LogText().split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    for (const QString &line : stamped) {
        lines.append(line.mid(line.indexOf(QLatin1String(" :  ")) + 4));
    }
    return lines;
}

} // namespace

class TestWpaSuppThread : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup();

    void startsWithTheseValues();
    void reinitializesTheStateOnly();
    void describesItself();

    void asksForAStopOnly();
    void logsTheStop_data();
    void logsTheStop();
    void asksForAReconfiguration();
    void asksForTheEnd();

    void tellsTheSupplicantToTerminate_data();
    void tellsTheSupplicantToTerminate();
    void fallsBackToTheCommandLineTool();
    void doesNotSignalWithoutConnection_data();
    void doesNotSignalWithoutConnection();
    void terminatesOnlyOnce();

    void createsTheControlConnection();
    void createsAConnectionThatFails();
    void takesTheFolderOutOfTheInterfaceName();
    void namesTheSocketInUtf8();
    void deletesTheConnectionLater();
    void deletesNoConnection();
    void recreatesTheConnection();
    void deletesTheConnectionInItsDestructor();

    void launches_data();
    void launches();
    void removesTheOldSupplicantLog_data();
    void removesTheOldSupplicantLog();
    void launchesNothingWithoutConfiguration_data();
    void launchesNothingWithoutConfiguration();
    void recomputesWired();
    void launchesThoughTheProgramIsMissing();
    void logsTheAnswerOfTheLaunch();

    void endsAStopInOneTick();
    void dropsAStopThatASuccessMakesPointless_data();
    void dropsAStopThatASuccessMakesPointless();
    void stopsAfterASuccessAllTheSame_data();
    void stopsAfterASuccessAllTheSame();
    void dropsNoLaterStop();
    void prefersAStopToEverythingElse();
    void finishesAStopBeforeTheRest();
    void reconfiguresBeforeItStarts();
    void opensTheConnectionAndThenAsksForTheStatus();
    void countsNothingWhenIdle();
    void goesOnWithTheTickWhenAskedToQuit();
};

void TestWpaSuppThread::init()
{
    Logging::GetInstance(Logging::KEEP_LEVEL, false)->SetLoggingLevel(Level::TRACE);
    TestSupport::ClearLog();
    TestSupport::ClearJournal();
    TestSupport::ClearAnswers();
    TestSupport::WriteFile(CONFIGURATION, "ctrl_interface=/var/run/wpa_supplicant\n");
}

void TestWpaSuppThread::cleanup()
{
    DeleteLater();
    QCOMPARE(LocalNames(), 0);
    TestSupport::RestorePrograms();
    TestSupport::Remove(QStringLiteral("/usr/network/wpa_supplicant.eapfast"));
    TestSupport::Remove(QStringLiteral("/var/run/wpa_supplicant"));
}

void TestWpaSuppThread::startsWithTheseValues()
{
    WpaSuppThreadPeer supervisor;

    QCOMPARE(supervisor.Requested(), (QStringList{QString(), QString(), QString()}));
    QCOMPARE(supervisor.Interface(), QStringLiteral("wlan0"));
    QCOMPARE(supervisor.Driver(), QStringLiteral("nl80211,wext"));
    QCOMPARE(supervisor.StatusText(), QStringLiteral("Thread Created"));
    QCOMPARE(supervisor.ConfigurationPath(), CONFIGURATION);
    QCOMPARE(supervisor.Method(), QString());
    QCOMPARE(supervisor.Ssid(), QString());
    QCOMPARE(supervisor.DebugLevel(), 0);
    QCOMPARE(supervisor.OpenFailures(), 0);
    QCOMPARE(supervisor.UnassociatedTicks(), 0);
    QCOMPARE(supervisor.Flags(), QStringList());
    QVERIFY(!supervisor.Control());
}

void TestWpaSuppThread::reinitializesTheStateOnly()
{
    WpaSuppThreadPeer supervisor;
    supervisor.RaiseEveryFlag();
    supervisor.NoteCounts(3, 4);
    supervisor.UseDebugLevel(2);
    supervisor.NoteSsid(QStringLiteral("MyNet"));
    supervisor.NoteStatus(QStringLiteral("Associated"));
    supervisor.AimAt(QStringLiteral("eth0"), QStringLiteral("wired"));
    supervisor.UseMethod(QStringLiteral("peap"));
    QCOMPARE(supervisor.Flags().size(), 14);

    supervisor.Reinit();

    QCOMPARE(supervisor.Flags(), QStringList());
    QCOMPARE(supervisor.OpenFailures(), 0);
    QCOMPARE(supervisor.UnassociatedTicks(), 0);
    QCOMPARE(supervisor.Ssid(), QString());
    QCOMPARE(supervisor.DebugLevel(), 2);
    QCOMPARE(supervisor.StatusText(), QStringLiteral("Associated"));
    QCOMPARE(supervisor.Interface(), QStringLiteral("eth0"));
    QCOMPARE(supervisor.Driver(), QStringLiteral("wired"));
    QCOMPARE(supervisor.Method(), QStringLiteral("peap"));
}

void TestWpaSuppThread::describesItself()
{
    WpaSuppThreadPeer supervisor;
    QCOMPARE(supervisor.toString(),
             QStringLiteral("Running = no\nStatus = Thread Created\nAssociated = no\nSSID = "));

    supervisor.Become({true, false, true});
    supervisor.NoteStatus(QStringLiteral("%4"));
    supervisor.NoteSsid(QStringLiteral("My Net"));

    QCOMPARE(supervisor.toString(),
             QStringLiteral("Running = yes\nStatus = %4\nAssociated = yes\nSSID = My Net"));
}

void TestWpaSuppThread::asksForAStopOnly()
{
    FakeSupplicant supplicant;
    WpaSuppThreadPeer supervisor;
    supervisor.Supervise();
    supplicant.ClearCommands();

    supervisor.Stop(WpaSuppThread::STOP_FALLBACK);

    QVERIFY(supervisor.IsStopRequested());
    QVERIFY(supervisor.IsRunning());
    QVERIFY(!supervisor.IsEnding());
    QCOMPARE(supplicant.Commands(), QStringList());
}

void TestWpaSuppThread::logsTheStop_data()
{
    QTest::addColumn<bool>("running");
    QTest::addColumn<bool>("restarting");
    QTest::addColumn<QString>("expected");
    QTest::newRow("idle") << false << false << "WpaSuppThread::Stop 5 false 0 ";
    QTest::newRow("running") << true << false << "WpaSuppThread::Stop 5 true 1 ";
    QTest::newRow("restarting") << false << true << "WpaSuppThread::Stop 5 false 1 ";
}

void TestWpaSuppThread::logsTheStop()
{
    QFETCH(bool, running);
    QFETCH(bool, restarting);
    WpaSuppThreadPeer supervisor;
    supervisor.Become({running, restarting, false});

    supervisor.Stop(WpaSuppThread::STOP_FALLBACK);

    QTEST(LogLines().last(), "expected");
}

void TestWpaSuppThread::asksForAReconfiguration()
{
    FakeSupplicant supplicant;
    WpaSuppThreadPeer supervisor;
    supervisor.Supervise();
    supplicant.ClearCommands();

    supervisor.Reconfigure();
    QCOMPARE(supplicant.Commands(), QStringList());
    supervisor.Tick(2);

    QCOMPARE(supplicant.Commands(), QStringList{"RECONFIGURE"});
}

void TestWpaSuppThread::asksForTheEnd()
{
    WpaSuppThreadPeer supervisor;

    supervisor.Quit();

    QVERIFY(supervisor.IsQuitRequested());
    QCOMPARE(LogLines(), QStringList{"WpaSuppThread::Quit "});
}

void TestWpaSuppThread::tellsTheSupplicantToTerminate_data()
{
    QTest::addColumn<QByteArray>("reply");
    QTest::newRow("OK") << QByteArray("OK\n");
    QTest::newRow("begins with OK") << QByteArray("OKAY");
    QTest::newRow("the error text") << QByteArray("WPA_CTRL_ERROR whatever");
}

void TestWpaSuppThread::tellsTheSupplicantToTerminate()
{
    QFETCH(QByteArray, reply);
    FakeSupplicant supplicant;
    supplicant.SetReply("TERMINATE", reply);
    WpaSuppThreadPeer supervisor;
    supervisor.Supervise();
    TestSupport::ClearLog();

    supervisor.StopSupplicant();

    QCOMPARE(supplicant.Commands(), (QStringList{"ATTACH", "TERMINATE"}));
    QVERIFY(supervisor.IsAcknowledged());
    QVERIFY(supervisor.IsEnding());
    QCOMPARE(LogLines().first(), QStringLiteral("WpaSupplicant::StopSupplicant STOP wpa "));
    QCOMPARE(LogLines().at(1),
             "WpaSupplicant::StopSupplicant " + QString::fromLatin1(reply).remove(QLatin1Char('\n')) + ' ');
    QCOMPARE(TestSupport::Journal(), QStringList());
}

void TestWpaSuppThread::fallsBackToTheCommandLineTool()
{
    FakeSupplicant supplicant;
    supplicant.SetReply("TERMINATE", "FAIL\n");
    WpaSuppThreadPeer supervisor;
    supervisor.Supervise();

    supervisor.StopSupplicant();

    QVERIFY(TestSupport::WaitForJournal(1));
    QCOMPARE(TestSupport::Journal(), QStringList{"wpa_cli TERMINATE"});
    QVERIFY(!supervisor.IsAcknowledged());
    QVERIFY(supervisor.IsEnding());
}

void TestWpaSuppThread::doesNotSignalWithoutConnection_data()
{
    QTest::addColumn<bool>("hasControl");
    QTest::newRow("no control object") << false;
    QTest::newRow("control object not open") << true;
}

void TestWpaSuppThread::doesNotSignalWithoutConnection()
{
    QFETCH(bool, hasControl);
    WpaSuppThreadPeer supervisor;
    if (hasControl)
        supervisor.CreateWpaCtl();
    FakeSupplicant supplicant;

    supervisor.StopSupplicant();

    QCOMPARE(supplicant.Commands(), QStringList());
    QCOMPARE(TestSupport::Journal(), QStringList());
    QVERIFY(supervisor.IsAcknowledged());
    QVERIFY(supervisor.IsEnding());
}

void TestWpaSuppThread::terminatesOnlyOnce()
{
    FakeSupplicant supplicant;
    WpaSuppThreadPeer supervisor;
    supervisor.Supervise();
    supervisor.StopSupplicant();
    supervisor.NoteAcknowledged(false);

    supervisor.StopSupplicant();

    QCOMPARE(supplicant.Commands(), (QStringList{"ATTACH", "TERMINATE"}));
    QVERIFY(supervisor.IsAcknowledged());
}

void TestWpaSuppThread::createsTheControlConnection()
{
    FakeSupplicant supplicant(QStringLiteral("eth0"));
    WpaSuppThreadPeer supervisor;
    supervisor.AimAt(QStringLiteral("eth0"));
    supervisor.SuspectPassword();
    QSignalSpy changes(&supervisor, &WpaSuppThread::associatedChanged);

    supervisor.CreateWpaCtl();

    QVERIFY(supervisor.IsControlOpen());
    QVERIFY(!supervisor.Control()->parent());
    QCOMPARE(supervisor.Control()->thread(), QCoreApplication::instance()->thread());
    QVERIFY(!supervisor.SuspectsPassword());
    QCOMPARE(LogLines().last(), QStringLiteral("WpaSuppThread::CreateWpaCtl() Open wpactl eth0 1 "));
    QVERIFY(supplicant.SendEvent("<3>CTRL-EVENT-CONNECTED - "));
    QTRY_COMPARE(changes.size(), 1);
}

void TestWpaSuppThread::createsAConnectionThatFails()
{
    WpaSuppThreadPeer supervisor;

    supervisor.CreateWpaCtl();

    QVERIFY(supervisor.Control());
    QVERIFY(!supervisor.IsControlOpen());
    QCOMPARE(LogLines().last(), QStringLiteral("WpaSuppThread::CreateWpaCtl() Open wpactl wlan0 0 "));
}

void TestWpaSuppThread::takesTheFolderOutOfTheInterfaceName()
{
    FakeSupplicant supplicant(QStringLiteral("eth0"));
    WpaSuppThreadPeer supervisor;
    supervisor.AimAt(QStringLiteral("/var/run/wpa_supplicant/eth/var/run/wpa_supplicant/0"));

    supervisor.CreateWpaCtl();

    QVERIFY(supervisor.IsControlOpen());
}

void TestWpaSuppThread::namesTheSocketInUtf8()
{
    QVERIFY(QDir().mkpath(QStringLiteral("/var/run/wpa_supplicant")));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    qstrncpy(address.sun_path, "/var/run/wpa_supplicant/l\xc3\xa4n0", sizeof address.sun_path);
    FakeSupplicant supplicant(address);
    WpaSuppThreadPeer supervisor;
    supervisor.AimAt(QStringLiteral("l\u00e4n0"));

    supervisor.CreateWpaCtl();

    QVERIFY(supervisor.IsControlOpen());
}

void TestWpaSuppThread::deletesTheConnectionLater()
{
    FakeSupplicant supplicant;
    WpaSuppThreadPeer supervisor;
    supervisor.CreateWpaCtl();
    QSignalSpy destroyed(supervisor.Control(), &QObject::destroyed);
    QSignalSpy changes(&supervisor, &WpaSuppThread::associatedChanged);
    QVERIFY(supplicant.SendEvent("<3>CTRL-EVENT-CONNECTED - "));

    supervisor.DeleteWpaCtl();

    QVERIFY(!supervisor.Control());
    QCOMPARE(supplicant.Commands(), QStringList{"ATTACH"});
    // Its connections are cut at once: the event that waits reaches nobody.
    QCoreApplication::processEvents();
    QCOMPARE(changes.size(), 0);
    DeleteLater();
    QCOMPARE(supplicant.Commands(), (QStringList{"ATTACH", "DETACH"}));
}

void TestWpaSuppThread::deletesNoConnection()
{
    WpaSuppThreadPeer supervisor;

    supervisor.DeleteWpaCtl();

    QVERIFY(!supervisor.Control());
}

void TestWpaSuppThread::recreatesTheConnection()
{
    FakeSupplicant supplicant;
    WpaSuppThreadPeer supervisor;
    supervisor.CreateWpaCtl();
    const WpaSupplicantControl *before = supervisor.Control();
    TestSupport::ClearLog();

    supervisor.RestartWpaCtl();

    QVERIFY(supervisor.Control() != before);
    QVERIFY(supervisor.IsControlOpen());
    QCOMPARE(LogLines().first(), QStringLiteral("WpaSuppThread::RestartWpaCtl "));
    QCOMPARE(LogLines().last(), QStringLiteral("WpaSuppThread::RestartWpaCtl  Complete "));
}

void TestWpaSuppThread::deletesTheConnectionInItsDestructor()
{
    FakeSupplicant supplicant;
    {
        WpaSuppThreadPeer supervisor;
        supervisor.CreateWpaCtl();
    }
    QCOMPARE(supplicant.Commands(), (QStringList{"ATTACH", "DETACH"}));
}

void TestWpaSuppThread::launches_data()
{
    QTest::addColumn<int>("debugLevel");
    QTest::addColumn<QString>("method");
    QTest::addColumn<bool>("hasEapFastProgram");
    QTest::addColumn<QString>("expected");
    const QString logOption = QStringLiteral(" -f/var/log/wpa_supplicant.log");
    const QString rest = QStringLiteral(" -iwlan0 -Dnl80211,wext -c/tmp/wpa_supplicant.conf");
    QTest::newRow("defaults") << 0 << "" << false << "wpa_supplicant -B ''" + rest + logOption;
    QTest::newRow("debug level 1") << 1 << "" << false << "wpa_supplicant -B ' -d'" + rest + logOption;
    QTest::newRow("debug level 2") << 2 << "" << false << "wpa_supplicant -B ' -dd'" + rest + logOption;
    QTest::newRow("debug level 9") << 9 << "" << false << "wpa_supplicant -B ' -dd'" + rest + logOption;
    QTest::newRow("EAP-FAST with its program") << 0 << " eap_fast\n"
                                               << true << "wpa_supplicant.eapfast -B ''" + rest;
    QTest::newRow("EAP-FAST without its program")
        << 0 << "eap_fast" << false << "wpa_supplicant -B ''" + rest + logOption;
    QTest::newRow("another case") << 0 << "EAP_FAST" << true << "wpa_supplicant -B ''" + rest + logOption;
    QTest::newRow("another method") << 0 << "peap" << true << "wpa_supplicant -B ''" + rest + logOption;
}

void TestWpaSuppThread::launches()
{
    QFETCH(int, debugLevel);
    QFETCH(QString, method);
    QFETCH(bool, hasEapFastProgram);
    if (hasEapFastProgram) {
        const QString recorder = QFile::symLinkTarget(QStringLiteral("/tmp/standins/bin/wpa_supplicant"));
        QVERIFY(QFile::link(recorder, QStringLiteral("/usr/network/wpa_supplicant.eapfast")));
    }
    WpaSuppThreadPeer supervisor;
    supervisor.UseDebugLevel(debugLevel);
    supervisor.UseMethod(method);
    supervisor.NoteAcknowledged(true);
    supervisor.OnStopSupplicant();

    supervisor.LaunchSupplicant();

    QFETCH(QString, expected);
    QCOMPARE(TestSupport::Journal(), QStringList{expected});
    QCOMPARE(supervisor.StatusText(), QStringLiteral("Starting"));
    QVERIFY(supervisor.IsStarting());
    QVERIFY(!supervisor.IsAcknowledged());
    QVERIFY(!supervisor.IsStopRequested());
    QVERIFY(!supervisor.IsRunning());
}

void TestWpaSuppThread::removesTheOldSupplicantLog_data()
{
    QTest::addColumn<int>("debugLevel");
    QTest::addColumn<bool>("expected");
    QTest::newRow("level 0") << 0 << false;
    QTest::newRow("level 1") << 1 << false;
    QTest::newRow("level 2 keeps it") << 2 << true;
}

void TestWpaSuppThread::removesTheOldSupplicantLog()
{
    QFETCH(int, debugLevel);
    TestSupport::WriteFile(SUPPLICANT_LOG, "old");
    WpaSuppThreadPeer supervisor;
    supervisor.UseDebugLevel(debugLevel);

    supervisor.LaunchSupplicant();

    QTEST(QFile::exists(SUPPLICANT_LOG), "expected");
}

void TestWpaSuppThread::launchesNothingWithoutConfiguration_data()
{
    QTest::addColumn<bool>("isLink");
    QTest::newRow("no file") << false;
    QTest::newRow("a link, as another user may leave it") << true;
}

void TestWpaSuppThread::launchesNothingWithoutConfiguration()
{
    QFETCH(bool, isLink);
    TestSupport::Remove(CONFIGURATION);
    if (isLink)
        QVERIFY(QFile::link(QStringLiteral("/etc/hosts"), CONFIGURATION));
    WpaSuppThreadPeer supervisor;
    supervisor.Become({false, true, false});
    supervisor.ExpectSupplicant();

    supervisor.LaunchSupplicant();

    QCOMPARE(TestSupport::Journal(), QStringList());
    QCOMPARE(LogLines(), QStringList{"WpaSupplicant::Start No configuration file -- Stopping "});
    QVERIFY(!supervisor.IsStarting());
    QVERIFY(!supervisor.IsRunning());
    QVERIFY(supervisor.IsRestarting());
    TestSupport::Remove(CONFIGURATION);
}

void TestWpaSuppThread::recomputesWired()
{
    WpaSuppThreadPeer supervisor;
    supervisor.AimAt(QStringLiteral("eth0"), QStringLiteral("wired"));

    supervisor.LaunchSupplicant();

    QVERIFY(supervisor.IsWired());
    QVERIFY(LogLines().contains(QStringLiteral(" WpaSuppThread::Start Driver= wired 1 ")));
    supervisor.AimAt(QStringLiteral("eth0"), QStringLiteral("Wired"));
    supervisor.LaunchSupplicant();
    QVERIFY(!supervisor.IsWired());
}

void TestWpaSuppThread::launchesThoughTheProgramIsMissing()
{
    TestSupport::RemoveProgram(QStringLiteral("wpa_supplicant"));
    WpaSuppThreadPeer supervisor;

    supervisor.LaunchSupplicant();
    supervisor.Tick();

    // What is not there is noticed by the ticks that follow.
    QVERIFY(supervisor.IsRunning());
    QVERIFY(!supervisor.IsControlOpen());
}

void TestWpaSuppThread::logsTheAnswerOfTheLaunch()
{
    TestSupport::Answer(QStringLiteral("wpa_supplicant"), "echo one; echo two; echo hidden >&2");
    WpaSuppThreadPeer supervisor;

    supervisor.LaunchSupplicant();

    QCOMPARE(LogLines(),
             (QStringList{"WpaSuppThread::Start -- Start wpa_supplicant ",
                          " WpaSuppThread::Start execute wpa_supplicant -B, , -iwlan0, -Dnl80211,wext, "
                          "-c/tmp/wpa_supplicant.conf, -f/var/log/wpa_supplicant.log ",
                          " WpaSuppThread::Start Driver= nl80211,wext 0 ",
                          " WpaSuppThread::Start response= one, two,  "}));
}

void TestWpaSuppThread::endsAStopInOneTick()
{
    FakeSupplicant supplicant;
    WpaSuppThreadPeer supervisor;
    supervisor.Supervise();
    supervisor.Become({true, true, true});
    supervisor.NoteSsid(QStringLiteral("MyNet"));
    supervisor.Stop(WpaSuppThread::STOP_FALLBACK);
    TestSupport::ClearLog();

    supervisor.Tick();

    QCOMPARE(supplicant.Commands(), (QStringList{"ATTACH", "TERMINATE"}));
    QVERIFY(!supervisor.Control());
    QVERIFY(!supervisor.IsRunning());
    QVERIFY(!supervisor.IsRestarting());
    QVERIFY(!supervisor.IsAssociated());
    QVERIFY(!supervisor.IsEnding());
    QVERIFY(!supervisor.IsStopRequested());
    QCOMPARE(supervisor.Ssid(), QString());
    QCOMPARE(
        LogLines(),
        (QStringList{"WpaSuppThread::run  stopRunning set ", "WpaSupplicant::StopSupplicant STOP wpa ",
                     "WpaSupplicant::StopSupplicant OK ", "WpaSuppThread::run  stoppingSupplicant set "}));
}

void TestWpaSuppThread::dropsAStopThatASuccessMakesPointless_data()
{
    QTest::addColumn<int>("reason");
    QTest::addColumn<bool>("isUnread");
    for (const int reason : {0, 5}) {
        QTest::addRow("reason %d, heard before the tick", reason) << reason << false;
        QTest::addRow("reason %d, still unread", reason) << reason << true;
    }
}

void TestWpaSuppThread::dropsAStopThatASuccessMakesPointless()
{
    QFETCH(int, reason);
    QFETCH(bool, isUnread);
    FakeSupplicant supplicant;
    WpaSuppThreadPeer supervisor;
    supervisor.Supervise();
    QSignalSpy changes(&supervisor, &WpaSuppThread::associatedChanged);
    supervisor.Stop(reason);

    QVERIFY(supplicant.SendEvent("<3>CTRL-EVENT-CONNECTED - "));
    if (!isUnread)
        supervisor.HearUnread();
    supervisor.Tick(3);

    QVERIFY(supervisor.IsRunning());
    QVERIFY(supervisor.IsAssociated());
    QCOMPARE(supplicant.Commands(), QStringList{"ATTACH"});
    QCOMPARE(changes, (QList<QList<QVariant>>{{true}}));
}

void TestWpaSuppThread::stopsAfterASuccessAllTheSame_data()
{
    QTest::addColumn<QList<int>>("reasons");
    for (const int reason : {1, 2, 3, 4, 6})
        QTest::addRow("reason %d", reason) << QList<int>{reason};
    QTest::newRow("a second reason") << QList<int>{5, 4};
    QTest::newRow("a first reason") << QList<int>{4, 5};
}

void TestWpaSuppThread::stopsAfterASuccessAllTheSame()
{
    QFETCH(QList<int>, reasons);
    FakeSupplicant supplicant;
    WpaSuppThreadPeer supervisor;
    supervisor.Supervise();
    for (const int reason : qAsConst(reasons))
        supervisor.Stop(reason);

    supervisor.MessageReceived(QStringLiteral("<3>CTRL-EVENT-CONNECTED - "));
    supervisor.Tick();

    QVERIFY(!supervisor.IsRunning());
}

void TestWpaSuppThread::dropsNoLaterStop()
{
    FakeSupplicant supplicant;
    WpaSuppThreadPeer supervisor;
    supervisor.Supervise();
    supervisor.Stop(WpaSuppThread::STOP_FALLBACK);
    supervisor.Tick();
    supervisor.Supervise();

    supervisor.MessageReceived(QStringLiteral("<3>CTRL-EVENT-TERMINATING "));
    supervisor.MessageReceived(QStringLiteral("<3>CTRL-EVENT-CONNECTED - "));
    supervisor.Tick();

    QVERIFY(!supervisor.IsRunning());
}

void TestWpaSuppThread::prefersAStopToEverythingElse()
{
    FakeSupplicant supplicant;
    WpaSuppThreadPeer supervisor;
    supervisor.Supervise();
    supplicant.ClearCommands();
    supervisor.OnStopSupplicant();
    supervisor.Reconfigure();
    supervisor.ExpectSupplicant();
    supervisor.AskForStatus();

    supervisor.Tick(3);

    // The stop took the other requests with it.
    QCOMPARE(supplicant.Commands(), QStringList{"TERMINATE"});
    QVERIFY(!supervisor.IsRunning());
}

void TestWpaSuppThread::finishesAStopBeforeTheRest()
{
    FakeSupplicant supplicant;
    WpaSuppThreadPeer supervisor;
    supervisor.Supervise();
    supplicant.ClearCommands();
    supervisor.ExpectEnd();
    supervisor.ExpectSupplicant();
    supervisor.Reconfigure();

    supervisor.Tick(3);

    // Nothing is sent: the stop had been issued before.
    QCOMPARE(supplicant.Commands(), QStringList());
    QVERIFY(!supervisor.IsRunning());
    QVERIFY(!supervisor.Control());
}

void TestWpaSuppThread::reconfiguresBeforeItStarts()
{
    FakeSupplicant supplicant;
    WpaSuppThreadPeer supervisor;
    supervisor.ExpectSupplicant();
    supervisor.Reconfigure();

    supervisor.Tick();
    QVERIFY(supervisor.IsStarting());
    QVERIFY(!supervisor.IsReconfigureRequested());
    QVERIFY(!supervisor.Control());
    supervisor.Tick();

    QVERIFY(supervisor.IsControlOpen());
    // Without a connection the request was lost.
    QCOMPARE(supplicant.Commands(), QStringList{"ATTACH"});
}

void TestWpaSuppThread::opensTheConnectionAndThenAsksForTheStatus()
{
    FakeSupplicant supplicant;
    supplicant.SetReply("STATUS", "ssid=office\nwpa_state=COMPLETED\n");
    WpaSuppThreadPeer supervisor;
    supervisor.Become({false, true, false});
    supervisor.ExpectSupplicant();

    supervisor.Tick();

    QCOMPARE(supplicant.Commands(), QStringList{"ATTACH"});
    QVERIFY(supervisor.IsRunning());
    QVERIFY(!supervisor.IsRestarting());
    QVERIFY(!supervisor.IsStarting());
    QVERIFY(TestSupport::LogText().contains("WpaSuppThread::run  startingSupplicant set \n"));
    QVERIFY(!supervisor.IsAssociated());
    // A supplicant that connected when nobody was there to hear it says so here.
    supervisor.Tick();
    QCOMPARE(supplicant.Commands(), (QStringList{"ATTACH", "STATUS"}));
    QVERIFY(supervisor.IsAssociated());
    QCOMPARE(supervisor.Ssid(), QStringLiteral("office"));
}

void TestWpaSuppThread::countsNothingWhenIdle()
{
    WpaSuppThreadPeer supervisor;
    supervisor.NoteCounts(3, 30);
    supervisor.SuspectPassword();

    supervisor.Tick();

    QCOMPARE(supervisor.OpenFailures(), 0);
    QCOMPARE(supervisor.UnassociatedTicks(), 0);
    // Nothing is reported either.
    QVERIFY(supervisor.SuspectsPassword());
    QCOMPARE(LogLines(), QStringList());
}

void TestWpaSuppThread::goesOnWithTheTickWhenAskedToQuit()
{
    FakeSupplicant supplicant;
    WpaSuppThreadPeer supervisor;
    supervisor.Supervise();
    supervisor.Quit();
    supervisor.Stop(WpaSuppThread::STOP_GIVEN_UP);

    supervisor.Tick();

    QVERIFY(supplicant.Commands().contains("TERMINATE"));
    QVERIFY(!supervisor.IsRunning());
}

QTEST_GUILESS_MAIN(TestWpaSuppThread)
#include "tst_wpasuppthread.moc"
