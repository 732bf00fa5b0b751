// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

// Stopping and launching the supplicant, without the 7.1 s of a restart.

#include "fakesysnet.h"
#include "supervisorworld.h"
#include "wpasupplicantcontrol.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QSignalSpy>
#include <QTest>

#include <sys/mount.h>

namespace {

const QString SUPPLICANT_LOG = QStringLiteral("/var/log/wpa_supplicant.log");
const QString CONFIGURATION = QStringLiteral("/tmp/wpa_supplicant.conf");

} // namespace

class TestWpaSuppThreadStart : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup();

    void tellsTheSupplicantToTerminate_data();
    void tellsTheSupplicantToTerminate();
    void fallsBackToTheCommandLineTool_data();
    void fallsBackToTheCommandLineTool();
    void doesNotSignalWithoutConnection_data();
    void doesNotSignalWithoutConnection();
    void terminatesOnlyOnce();
    void launches_data();
    void launches();
    void removesTheOldSupplicantLog_data();
    void removesTheOldSupplicantLog();
    void clearsTheNameOfTheSocket_data();
    void clearsTheNameOfTheSocket();
    void tellsOfANameThatItCannotClear();
    void leavesASocketAndItsFolder_data();
    void leavesASocketAndItsFolder();
    void launchesNothingWithoutConfiguration_data();
    void launchesNothingWithoutConfiguration();
    void launchesOnTheNameOfASocket();
    void recomputesWired();
    void bringsUpAWiredLinkBeforeTheLaunch_data();
    void bringsUpAWiredLinkBeforeTheLaunch();
    void launchesThoughTheProgramIsMissing();
    void logsTheAnswerOfTheLaunch();
    void endsAStopInOneTick();
    void dropsAStopThatASuccessMakesPointless_data();
    void dropsAStopThatASuccessMakesPointless();
    void stopsAfterASuccessAllTheSame_data();
    void stopsAfterASuccessAllTheSame();
    void dropsNoLaterStop();
};

void TestWpaSuppThreadStart::init()
{
    Logging::GetInstance(Logging::KEEP_LEVEL, false)->SetLoggingLevel(Level::TRACE);
    TestSupport::ClearLog();
    TestSupport::ClearJournal();
    TestSupport::ClearAnswers();
    TestSupport::WriteFile(CONFIGURATION, "ctrl_interface=/var/run/wpa_supplicant\n");
}

void TestWpaSuppThreadStart::cleanup()
{
    DeleteLater();
    QCOMPARE(LocalNames(), 0);
    TestSupport::RestorePrograms();
    TestSupport::Remove(QStringLiteral("/usr/network/wpa_supplicant.eapfast"));
    TestSupport::Remove(QStringLiteral("/var/run/wpa_supplicant"));
}

void TestWpaSuppThreadStart::tellsTheSupplicantToTerminate_data()
{
    QTest::addColumn<QByteArray>("reply");
    QTest::newRow("OK") << QByteArray("OK\n");
    QTest::newRow("begins with OK") << QByteArray("OKAY");
    QTest::newRow("the error text") << QByteArray("WPA_CTRL_ERROR whatever");
}

void TestWpaSuppThreadStart::tellsTheSupplicantToTerminate()
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

void TestWpaSuppThreadStart::fallsBackToTheCommandLineTool_data()
{
    QTest::addColumn<QByteArray>("reply");
    QTest::newRow("refused") << QByteArray("FAIL\n");
    QTest::newRow("an empty reply") << QByteArray("");
}

void TestWpaSuppThreadStart::fallsBackToTheCommandLineTool()
{
    QFETCH(QByteArray, reply);
    FakeSupplicant supplicant;
    supplicant.SetReply("TERMINATE", reply);
    WpaSuppThreadPeer supervisor;
    supervisor.Supervise();

    supervisor.StopSupplicant();

    QVERIFY(TestSupport::WaitForJournal(1));
    QCOMPARE(TestSupport::Journal(), QStringList{"wpa_cli TERMINATE"});
    QVERIFY(!supervisor.IsAcknowledged());
    QVERIFY(supervisor.IsEnding());
    // The rest is the tick's.
    QVERIFY(supervisor.IsControlOpen());
    QVERIFY(supervisor.IsRunning());
}

void TestWpaSuppThreadStart::doesNotSignalWithoutConnection_data()
{
    QTest::addColumn<bool>("hasControl");
    QTest::newRow("no control object") << false;
    QTest::newRow("control object not open") << true;
}

void TestWpaSuppThreadStart::doesNotSignalWithoutConnection()
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

void TestWpaSuppThreadStart::terminatesOnlyOnce()
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

void TestWpaSuppThreadStart::launches_data()
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

void TestWpaSuppThreadStart::launches()
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

void TestWpaSuppThreadStart::removesTheOldSupplicantLog_data()
{
    QTest::addColumn<int>("debugLevel");
    QTest::addColumn<bool>("expected");
    QTest::newRow("level 0") << 0 << false;
    QTest::newRow("level 1") << 1 << false;
    QTest::newRow("level 2 keeps it") << 2 << true;
}

void TestWpaSuppThreadStart::removesTheOldSupplicantLog()
{
    QFETCH(int, debugLevel);
    TestSupport::WriteFile(SUPPLICANT_LOG, "old");
    WpaSuppThreadPeer supervisor;
    supervisor.UseDebugLevel(debugLevel);

    supervisor.LaunchSupplicant();

    QTEST(QFile::exists(SUPPLICANT_LOG), "expected");
}

void TestWpaSuppThreadStart::clearsTheNameOfTheSocket_data()
{
    QTest::addColumn<QString>("obstacle");
    QTest::addColumn<QString>("cleared");
    const QString folder = QStringLiteral("/var/run/wpa_supplicant");
    const QString socket = FakeSupplicant::SocketPath(QStringLiteral("wlan0"));
    QTest::newRow("folder") << "/bin/mkdir -p " + socket + "/full" << socket;
    QTest::newRow("file") << "touch " + socket << socket;
    QTest::newRow("link into nothing") << "ln -s /nowhere " + socket << socket;
    QTest::newRow("file in the place of the folder") << "touch " + folder << folder;
    QTest::newRow("link in the place of the folder") << "ln -s /nowhere " + folder << folder;
}

/// The supplicant would end there, as often as it is started.
void TestWpaSuppThreadStart::clearsTheNameOfTheSocket()
{
    QFETCH(QString, obstacle);
    QFETCH(QString, cleared);
    TestSupport::Remove(QStringLiteral("/var/run/wpa_supplicant"));
    QVERIFY(QDir().mkpath(QFileInfo(cleared).path()));
    QCOMPARE(QProcess::execute(QStringLiteral("sh"), {QStringLiteral("-c"), obstacle}), 0);
    WpaSuppThreadPeer supervisor;

    supervisor.MakeControlFolder();

    QVERIFY(!QFileInfo::exists(cleared));
    QVERIFY(!QFileInfo(cleared).isSymLink());
    QCOMPARE(TestSupport::Journal(), QStringList{"mkdir -p /var/run/wpa_supplicant"});
    QVERIFY2(LastLogLine().endsWith("the supplicant's control socket is removed: " + cleared + ' '),
             qPrintable(LastLogLine()));
}

void TestWpaSuppThreadStart::tellsOfANameThatItCannotClear()
{
    const QByteArray socket = FakeSupplicant::SocketPath(QStringLiteral("wlan0")).toLatin1();
    QVERIFY(QDir().mkpath(socket));
    QCOMPARE(::mount("none", socket.constData(), "tmpfs", 0, nullptr), 0);
    WpaSuppThreadPeer supervisor;
    supervisor.AimAt(QStringLiteral("wlan0"));

    supervisor.MakeControlFolder();

    QCOMPARE(::umount(socket.constData()), 0);
    QVERIFY2(LastLogLine().endsWith("the supplicant's control socket cannot be removed: " + socket + ' '),
             qPrintable(LastLogLine()));
}

void TestWpaSuppThreadStart::leavesASocketAndItsFolder_data()
{
    QTest::addColumn<QString>("interfaceName");
    QTest::newRow("socket") << "wlan0";
    QTest::newRow("no interface") << "";
}

/// It may be that of a supplicant that runs.
void TestWpaSuppThreadStart::leavesASocketAndItsFolder()
{
    QFETCH(QString, interfaceName);
    const FakeSupplicant supplicant;
    WpaSuppThreadPeer supervisor;
    supervisor.AimAt(interfaceName);

    supervisor.MakeControlFolder();

    QVERIFY(QFileInfo::exists(FakeSupplicant::SocketPath(QStringLiteral("wlan0"))));
    QCOMPARE(LogLineCount(), 0);
}

void TestWpaSuppThreadStart::launchesNothingWithoutConfiguration_data()
{
    QTest::addColumn<bool>("isLink");
    QTest::newRow("no file") << false;
    QTest::newRow("a link, as another user may leave it") << true;
}

void TestWpaSuppThreadStart::launchesNothingWithoutConfiguration()
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

void TestWpaSuppThreadStart::launchesOnTheNameOfASocket()
{
    FakeSupplicant supplicant;
    WpaSuppThreadPeer supervisor;
    supervisor.AimAt(QStringLiteral("/var/run/wpa_supplicant/wlan0"));

    supervisor.LaunchSupplicant();
    supervisor.Tick();

    QVERIFY(TestSupport::Journal().first().contains(QStringLiteral(" -i/var/run/wpa_supplicant/wlan0 ")));
    QVERIFY(supervisor.IsControlOpen());
}

void TestWpaSuppThreadStart::recomputesWired()
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

void TestWpaSuppThreadStart::bringsUpAWiredLinkBeforeTheLaunch_data()
{
    QTest::addColumn<QString>("driver");
    QTest::addColumn<QByteArray>("flags");
    QTest::addColumn<QStringList>("expected");
    const QStringList broughtUp{"ifconfig", "wpa_supplicant"};
    const QStringList onlyLaunched{"wpa_supplicant"};
    QTest::newRow("down") << "wired" << QByteArray("0x1002\n") << broughtUp;
    QTest::newRow("up") << "wired" << QByteArray("0x1003\n") << onlyLaunched;
    QTest::newRow("not there") << "wired" << QByteArray() << onlyLaunched;
    // The supplicant brings a radio up and takes it down, and no other start comes of that.
    QTest::newRow("a radio") << "nl80211,wext" << QByteArray("0x1002\n") << onlyLaunched;
}

void TestWpaSuppThreadStart::bringsUpAWiredLinkBeforeTheLaunch()
{
    QFETCH(QString, driver);
    QFETCH(QByteArray, flags);
    FakeSysNet folder;
    if (!flags.isEmpty()) {
        folder.Add(QStringLiteral("eth0"));
        folder.Write(QStringLiteral("eth0/flags"), flags);
    }
    WpaSuppThreadPeer supervisor;
    supervisor.AimAt(QStringLiteral("eth0"), driver);

    supervisor.LaunchSupplicant();

    const QStringList journal = TestSupport::Journal();
    QStringList programs;
    for (const QString &line : journal)
        programs << line.section(QLatin1Char(' '), 0, 0);
    QTEST(programs, "expected");
    QVERIFY(programs.size() == 1 || journal.first() == QStringLiteral("ifconfig eth0 up"));
}

void TestWpaSuppThreadStart::launchesThoughTheProgramIsMissing()
{
    TestSupport::RemoveProgram(QStringLiteral("wpa_supplicant"));
    WpaSuppThreadPeer supervisor;

    supervisor.LaunchSupplicant();
    supervisor.Tick();

    // What is not there is noticed by the ticks that follow.
    QVERIFY(supervisor.IsRunning());
    QVERIFY(!supervisor.IsControlOpen());
}

void TestWpaSuppThreadStart::logsTheAnswerOfTheLaunch()
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

void TestWpaSuppThreadStart::endsAStopInOneTick()
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

void TestWpaSuppThreadStart::dropsAStopThatASuccessMakesPointless_data()
{
    QTest::addColumn<int>("reason");
    QTest::addColumn<bool>("isUnread");
    for (const int reason : {0, 5}) {
        QTest::addRow("reason %d, heard before the tick", reason) << reason << false;
        QTest::addRow("reason %d, still unread", reason) << reason << true;
    }
}

void TestWpaSuppThreadStart::dropsAStopThatASuccessMakesPointless()
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

void TestWpaSuppThreadStart::stopsAfterASuccessAllTheSame_data()
{
    QTest::addColumn<QList<int>>("reasons");
    for (const int reason : {1, 2, 3, 4, 6})
        QTest::addRow("reason %d", reason) << QList<int>{reason};
    QTest::newRow("a second reason") << QList<int>{5, 4};
    QTest::newRow("a first reason") << QList<int>{4, 5};
}

void TestWpaSuppThreadStart::stopsAfterASuccessAllTheSame()
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

void TestWpaSuppThreadStart::dropsNoLaterStop()
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

QTEST_GUILESS_MAIN(TestWpaSuppThreadStart)
#include "tst_wpasuppthread_start.moc"
