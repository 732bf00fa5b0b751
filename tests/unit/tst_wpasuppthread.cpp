// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "supervisorworld.h"
#include "wpasupplicantcontrol.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QSignalSpy>
#include <QTest>

namespace {

const QString CONFIGURATION = QStringLiteral("/tmp/wpa_supplicant.conf");

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

    void createsTheControlConnection();
    void createsAConnectionThatFails();
    void takesTheFolderOutOfTheInterfaceName();
    void namesTheSocketInUtf8();
    void deletesTheConnectionLater();
    void deletesNoConnection();
    void recreatesTheConnection();
    void letsGoWithoutAWord();
    void deletesTheConnectionInItsDestructor();

    void prefersAStopToEverythingElse();
    void finishesAStopBeforeTheRest();
    void reconfiguresBeforeItStarts();
    void opensTheConnection();
    void countsNothingWhenIdle();
    void stopsThoughNothingRuns();
    void makesEachTickThatItIsGiven();
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
    WpaSupplicantControl *const before = supervisor.Control();
    TestSupport::ClearLog();

    supervisor.RestartWpaCtl();

    QVERIFY(supervisor.Control() != before);
    QVERIFY(supervisor.IsControlOpen());
    QCOMPARE(LogLines().first(), QStringLiteral("WpaSuppThread::RestartWpaCtl "));
    QCOMPARE(LogLines().last(), QStringLiteral("WpaSuppThread::RestartWpaCtl  Complete "));
    // Nobody hears the one before any more.
    emit before->MessageReady(QStringLiteral("<3>CTRL-EVENT-CONNECTED - "));
    QVERIFY(!supervisor.IsAssociated());
}

void TestWpaSuppThread::letsGoWithoutAWord()
{
    FakeSupplicant supplicant;
    WpaSuppThreadPeer supervisor;
    supervisor.LetGo(); // There is nothing yet.
    supervisor.CreateWpaCtl();

    supervisor.LetGo();

    QVERIFY(!supervisor.IsControlOpen());
    QCOMPARE(supplicant.Commands(), QStringList{"ATTACH"});
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

void TestWpaSuppThread::opensTheConnection()
{
    FakeSupplicant supplicant;
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

void TestWpaSuppThread::stopsThoughNothingRuns()
{
    WpaSuppThreadPeer supervisor;
    supervisor.Stop(WpaSuppThread::STOP_FIRST);

    supervisor.Tick();

    QCOMPARE(
        LogLines().filter(QStringLiteral("WpaSuppThread::run")),
        (QStringList{"WpaSuppThread::run  stopRunning set ", "WpaSuppThread::run  stoppingSupplicant set "}));
    QCOMPARE(supervisor.Flags(), QStringList());
}

void TestWpaSuppThread::makesEachTickThatItIsGiven()
{
    FakeSupplicant supplicant;
    WpaSuppThreadPeer supervisor;
    supervisor.Supervise();

    for (const int ticks : {1, 2}) {
        supervisor.QueueTick();
        QCoreApplication::sendPostedEvents(&supervisor);
        QCOMPARE(supervisor.UnassociatedTicks(), ticks);
    }
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
