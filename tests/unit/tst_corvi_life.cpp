// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "corvipeer.h"
#include "debugoutput.h"
#include "fakesupplicant.h"
#include "mountpoint.h"

#include <QPointer>
#include <QProcess>
#include <QSemaphore>
#include <QSharedMemory>
#include <QThread>

#include <cstdio>
#include <cstdlib>

using namespace CorviWorld;
using namespace TestSupport;

/// The service object's life: its construction and end, what asks for a rescan.
class TestCorviLife : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    // Construction
    void constructionIsLoggedAndEchoed();
    void constructionKeepsTheEarlierLog();
    void debugFlagSetsTheLevelAtConstruction_data();
    void debugFlagSetsTheLevelAtConstruction();
    void constructionStartsFromTheInitialValues();
    void constructionRemovesAStaleKillFile_data();
    void constructionRemovesAStaleKillFile();
    void hostNameIsInitialisedWithoutAClientConfiguration_data();
    void hostNameIsInitialisedWithoutAClientConfiguration();
    void killFileGoesBeforeTheHostNameAndTheSegment();
    void bondIsSetUpToTakeOverTheName();
    void startArmsTheTimer();
    void destructionGivesTheSegmentBack();
    void destructionDeletesTheDevices();
    void stopEndsTheProcess_data();
    void stopEndsTheProcess();
    void stopTearsNothingDownUnderTheWorker_data();
    void stopTearsNothingDownUnderTheWorker();

    // Reload
    void reloadFileForcesOneRescan();
    void reloadIsTracedAtTheLevelBefore();
    void reloadFileThatOthersMayWriteIsNotObeyed();
    void reloadFileAtStartGivesOneRescan();
    void anotherManagerOfAnInterfaceIsToldOnce();
    void reloadFileThatStaysRescansEveryTick();
    void eachOfAFewReloadsIsTold_data();
    void eachOfAFewReloadsIsTold();
    void folderCountsAsAFlagFile();
    void reloadThatIsAskedForRescansOnce();
    void lateWirelessCarrierForcesOneRescan();
    void wirelessCarrierThatComesIsFoundAtOnce();
    void wirelessCarrierAtStartForcesNoRescan();
    void wirelessCarrierForcesNoRescanWhileWiredIsUp();
    void carrierFileCountsByItsExistence();
};

void TestCorviLife::init()
{
    StartFromNothing();
}

void TestCorviLife::constructionIsLoggedAndEchoed()
{
    const DebugOutput output;

    const CorviPeer corvi;

    const QStringList echoed = output.Take();
    const QStringList lines = LogLines();
    // The supervisor tells of its stop in between.
    const QStringList own = lines.filter(QRegularExpression("^(Corvi::|BUILD|Logging)"));
    QCOMPARE(own.size(), 4);
    QCOMPARE(own.at(0), QString("Corvi::Corvi"));
    const QRegularExpression buildTime("^BUILD TIME [A-Z][a-z]{2} [ 123]\\d \\d{4}T\\d\\d:\\d\\d:\\d\\d$");
    QVERIFY2(buildTime.match(own.at(1)).hasMatch(), qPrintable(own.at(1)));
    QCOMPARE(own.at(2), QString("Logginglevel = 2"));
    QCOMPARE(own.at(3), QString("Corvi::Corvi  Created"));
    for (const QString &line : own)
        QVERIFY2(WasEchoed(line, echoed), qPrintable(line));
    QCOMPARE(lines.last(), own.last());
}

void TestCorviLife::constructionKeepsTheEarlierLog()
{
    Log(Level::NOTICE) << "why the daemon before ended";

    const CorviPeer corvi;

    QCOMPARE(LogLines().value(0), QString("why the daemon before ended"));
}

void TestCorviLife::debugFlagSetsTheLevelAtConstruction_data()
{
    QTest::addColumn<bool>("present");
    QTest::addColumn<int>("level");
    QTest::newRow("no flag file") << false << 2;
    QTest::newRow("flag file") << true << 5;
}

void TestCorviLife::debugFlagSetsTheLevelAtConstruction()
{
    QFETCH(bool, present);
    QFETCH(int, level);
    SetLevel(3);
    if (present)
        WriteFile(DEBUG_FLAG, "");

    const CorviPeer corvi;

    QCOMPARE(Logging::CurrentLevel(), level);
    QCOMPARE(LogCount(QString("Logginglevel = %1").arg(level)), 1);
}

void TestCorviLife::constructionStartsFromTheInitialValues()
{
    const CorviPeer corvi;

    QCOMPARE(corvi.WirelessDelay(), 2);
    QCOMPARE(corvi.HoldOff(), 2);
    QCOMPARE(corvi.Flags(), QStringList{"forceRescan"});
    for (const QStringList &list :
         {corvi.AllInterfaces(), corvi.WiredInterfaces(), corvi.WirelessInterfaces(), corvi.ModemInterfaces(),
          corvi.OperstateFiles()})
        QCOMPARE(list, QStringList());
    QCOMPARE(corvi.DeviceCount(), 0);
    QVERIFY(corvi.FileContents().isEmpty());
    for (const NetworkDevice *device : {corvi.WiredDevice(), corvi.WirelessDevice(), corvi.ModemDevice()})
        QVERIFY(!device);
    QCOMPARE(Corvi::conn_counter, 0);
    QVERIFY(!corvi.LoopTimer().isActive());
}

void TestCorviLife::constructionRemovesAStaleKillFile_data()
{
    QTest::addColumn<QString>("file");
    QTest::newRow("file") << KILL_FLAG;
    QTest::newRow("folder that is not empty") << KILL_FLAG + "/file";
}

void TestCorviLife::constructionRemovesAStaleKillFile()
{
    QFETCH(QString, file);
    WriteFile(file, "");

    const CorviPeer corvi;

    QVERIFY(!QFile::exists(KILL_FLAG));
}

void TestCorviLife::hostNameIsInitialisedWithoutAClientConfiguration_data()
{
    QTest::addColumn<bool>("present");
    QTest::addColumn<QStringList>("expected");
    QTest::newRow("configuration present") << true << QStringList();
    QTest::newRow("configuration absent") << false << QStringList{"init_hostname"};
}

void TestCorviLife::hostNameIsInitialisedWithoutAClientConfiguration()
{
    QFETCH(bool, present);
    if (!present)
        Remove(DHCLIENT_CONF);

    const CorviPeer corvi;

    QTEST(Journal(), "expected");
}

void TestCorviLife::killFileGoesBeforeTheHostNameAndTheSegment()
{
    Remove(DHCLIENT_CONF);
    WriteFile(KILL_FLAG, "");
    Answer("init_hostname", "ls /tmp/kill_corvi >/tmp/seen 2>&1; cat /proc/sysvipc/shm >>/tmp/seen");

    const CorviPeer corvi;

    const QByteArray seen = ReadFile("/tmp/seen");
    QVERIFY2(seen.contains("No such file"), seen.constData());
    // The list's heading, and no segment.
    QCOMPARE(seen.count('\n'), 2);
    QCOMPARE(ReadFile("/proc/sysvipc/shm").count('\n'), 2);
}

void TestCorviLife::bondIsSetUpToTakeOverTheName()
{
    const CorviPeer corvi;
    SetLevel(4);
    Answer("ip", "");
    ClearLog();

    corvi.Bond().EnableBonding();

    QCOMPARE(LogLines().first(), QString("Renaming 1 BringUp 0 usePrimary 1"));
}

void TestCorviLife::startArmsTheTimer()
{
    CorviPeer corvi;
    ClearLog();
    const DebugOutput output;

    corvi.Start();

    QCOMPARE(LogLines(), QStringList{"Corvi::Start()"});
    QVERIFY(!WasEchoed("Corvi::Start()", output.Take()));
    QVERIFY(corvi.LoopTimer().isActive());
    QVERIFY(!corvi.LoopTimer().isSingleShot());
    QCOMPARE(corvi.LoopTimer().interval(), 1000);
    QCOMPARE(corvi.LoopTimer().timerType(), Qt::PreciseTimer);
    QTRY_COMPARE_WITH_TIMEOUT(LogCount("Corvi::Loop Force Rescan "), 1, 3000);
}

void TestCorviLife::destructionGivesTheSegmentBack()
{
    {
        const CorviPeer corvi;
        QCOMPARE(corvi.Segment().size(), 512);
    }

    QSharedMemory other("com.qarbo.zebnetstatus");
    QVERIFY(!other.attach());
}

void TestCorviLife::destructionDeletesTheDevices()
{
    MakeInterface("eth0");
    QPointer<NetworkDevice> device;
    {
        CorviPeer corvi;
        corvi.Tick();
        device = corvi.Device("eth0");
        QVERIFY(device);
    }

    QVERIFY(!device);
}

void TestCorviLife::stopEndsTheProcess_data()
{
    QTest::addColumn<int>("status");
    QTest::newRow("success") << 0;
    QTest::newRow("another status") << 3;
}

void TestCorviLife::stopEndsTheProcess()
{
    QFETCH(int, status);
    WriteFile(DEBUG_FLAG, "");
    FakeSupplicant supplicant;
    QProcess process;

    process.start(QCoreApplication::applicationFilePath(), {"--stop", QString::number(status)});

    QVERIFY(process.waitForFinished(10000));
    QCOMPARE(process.exitStatus(), QProcess::NormalExit);
    QCOMPARE(process.exitCode(), status);
    QVERIFY2(!process.readAllStandardError().contains("QThread"), "the supervisor's thread was not ended");
    QCOMPARE(LogLines().filter("WpaSuppThread::Stop").last(), QString("WpaSuppThread::Stop 0 false 0"));
    QCOMPARE(LogLines().last(), QString("WpaSuppThread::run() End Exec"));
    // The supplicant runs on and is told nothing; our end of the connection leaves no name behind.
    QCOMPARE(supplicant.Commands(), QStringList{"ATTACH"});
    QCOMPARE(QDir("/tmp").entryList({"wpa_ctrl_*"}, QDir::System), QStringList());
}

void TestCorviLife::stopTearsNothingDownUnderTheWorker_data()
{
    QTest::addColumn<QString>("worker");
    QTest::addColumn<bool>("isTornDown");
    QTest::newRow("has ended") << "idle" << true;
    QTest::newRow("still runs") << "busy" << false;
}

void TestCorviLife::stopTearsNothingDownUnderTheWorker()
{
    QFETCH(QString, worker);
    QFETCH(bool, isTornDown);
    QProcess process;

    process.start(QCoreApplication::applicationFilePath(), {"--stop", "3", worker});

    QVERIFY(process.waitForFinished(30000));
    QCOMPARE(process.exitStatus(), QProcess::NormalExit);
    QCOMPARE(process.exitCode(), 3);
    QCOMPARE(process.readAllStandardError().contains("torn down"), isTornDown);
}

void TestCorviLife::reloadFileForcesOneRescan()
{
    WriteFile(DEBUG_FLAG, "");
    CorviPeer corvi(SET_UP);
    Forget();

    WriteFile(RELOAD_FLAG, "any contents");
    corvi.Tick(2);

    QVERIFY(!QFile::exists(RELOAD_FLAG));
    QCOMPARE(LogCount("Reload forced"), 1);
    QCOMPARE(LogCount("Corvi::Loop Force Rescan "), 1);
    QCOMPARE(JournalOf("setup_resolved").size(), 1);
}

void TestCorviLife::reloadIsTracedAtTheLevelBefore()
{
    CorviPeer corvi(SET_UP);

    for (const bool isTraced : {false, true}) {
        if (isTraced)
            Remove(DEBUG_FLAG);
        else
            WriteFile(DEBUG_FLAG, "");
        ClearLog();
        WriteFile(RELOAD_FLAG, "");
        corvi.Tick();
        QCOMPARE(LogCount("Reload forced"), int(isTraced));
    }
}

void TestCorviLife::reloadFileThatOthersMayWriteIsNotObeyed()
{
    CorviPeer corvi(SET_UP);
    Forget();
    WriteFile(RELOAD_FLAG, "");
    SetMode(RELOAD_FLAG, 0666);

    corvi.Tick(3);

    QCOMPARE(JournalOf("setup_resolved").size(), 0);
    QCOMPARE(LogCount("PlatformFile::Exists - " + RELOAD_FLAG + " is not obeyed: " + RELOAD_FLAG +
                      " may be written by others than its owner"),
             1);
}

void TestCorviLife::reloadFileAtStartGivesOneRescan()
{
    WriteFile(RELOAD_FLAG, "");
    CorviPeer corvi;

    corvi.Tick(3);

    QVERIFY(!QFile::exists(RELOAD_FLAG));
    QCOMPARE(LogCount("Corvi::Loop Force Rescan "), 1);
}

void TestCorviLife::anotherManagerOfAnInterfaceIsToldOnce()
{
    WriteFile("/run/network/ifstate", "lo=lo\neth0=eth0\n");
    WriteFile("/run/dhcpcd/pid", "1\n");
    const auto removal = qScopeGuard([] { Remove("/run/network"), Remove("/run/dhcpcd"); });
    MakeInterface("eth0");
    CorviPeer corvi;

    corvi.Tick(1);
    WriteFile(RELOAD_FLAG, "");
    corvi.Tick(1);

    const QString told = "Corvi::Init() - managed by others, too: ifupdown (eth0), dhcpcd (eth0) -- switch "
                         "these off, or each undoes what the other does";
    QCOMPARE(LogCount(told), 1);

    // Once they were off they are news again.
    Remove("/run/network");
    Remove("/run/dhcpcd");
    corvi.ForceRescan();
    corvi.Tick();
    QCOMPARE(LogLines().filter("managed by others").size(), 1);
    WriteFile("/run/network/ifstate", "lo=lo\neth0=eth0\n");
    WriteFile("/run/dhcpcd/pid", "1\n");
    corvi.ForceRescan();
    corvi.Tick();
    QCOMPARE(LogCount(told), 2);
}

void TestCorviLife::reloadFileThatStaysRescansEveryTick()
{
    QVERIFY(QDir().mkpath(RELOAD_FLAG));
    const MountPoint taken(RELOAD_FLAG);
    CorviPeer corvi;

    corvi.Tick(8);

    QCOMPARE(JournalOf("setup_resolved").size(), 8);
    // The log would be full of nothing else.
    QCOMPARE(LogCount("Corvi::Loop Force Rescan "), 5);
    QCOMPARE(LogLines().filter("cannot be removed"),
             QStringList{"Corvi::RemoveFlag - cannot be removed, so it is obeyed again and again: "
                         "/tmp/config/files/network/reload Device or resource busy"});
}

void TestCorviLife::eachOfAFewReloadsIsTold_data()
{
    QTest::addColumn<int>("ticks");
    QTest::newRow("one after the other") << 1;
    QTest::newRow("apart") << 2;
}

void TestCorviLife::eachOfAFewReloadsIsTold()
{
    QFETCH(int, ticks);
    CorviPeer corvi(SET_UP);

    for (int reload = 0; reload < 4; ++reload) {
        WriteFile(RELOAD_FLAG, "");
        corvi.Tick(ticks);
    }

    QCOMPARE(LogCount("Logginglevel = 2"), 6);
    QCOMPARE(LogCount("Corvi::Loop Force Rescan "), 5);
}

void TestCorviLife::folderCountsAsAFlagFile()
{
    WriteFile(RELOAD_FLAG + "/file", "");
    CorviPeer corvi;

    corvi.Tick(3);

    QCOMPARE(LogCount("Corvi::Loop Force Rescan "), 1);
    QVERIFY(!QFile::exists(RELOAD_FLAG));
}

void TestCorviLife::reloadThatIsAskedForRescansOnce()
{
    CorviPeer corvi;
    corvi.Tick(2);
    QCOMPARE(LogCount("Corvi::Loop Force Rescan "), 1);

    Logging::GetInstance(Logging::KEEP_LEVEL, false)->SetLoggingLevel(Level::TRACE);
    corvi.RequestReload();
    QCOMPARE(LogCount("Corvi::RequestReload()"), 1);
    corvi.Tick(3);

    QCOMPARE(LogCount("Corvi::Loop Force Rescan "), 2);
}

void TestCorviLife::lateWirelessCarrierForcesOneRescan()
{
    CorviPeer corvi(SET_UP);
    QVERIFY(!corvi.Flags().contains("wirelessCarrierSeen"));
    Forget();

    MakeInterface("wlan0");
    corvi.Tick(3);

    QVERIFY(corvi.Flags().contains("wirelessCarrierSeen"));
    QCOMPARE(LogCount("Corvi::Loop Force Rescan "), 1);
    QCOMPARE(corvi.WirelessInterfaces(), QStringList{"wlan0"});
}

void TestCorviLife::wirelessCarrierThatComesIsFoundAtOnce()
{
    CorviPeer corvi(SET_UP);
    Forget();

    MakeInterface("wlan0");
    corvi.Tick();
    QCOMPARE(LogCount("Corvi::Loop Force Rescan "), 1);

    // Once it was seen, it may come and go.
    RemoveInterfaces();
    corvi.Tick();
    MakeInterface("wlan0");
    corvi.Tick(2);
    QCOMPARE(LogCount("Corvi::Loop Force Rescan "), 1);
}

void TestCorviLife::wirelessCarrierAtStartForcesNoRescan()
{
    CorviPeer corvi({"wlan0"});

    corvi.Tick(3);

    QCOMPARE(LogCount("Corvi::Loop Force Rescan "), 1);
}

void TestCorviLife::wirelessCarrierForcesNoRescanWhileWiredIsUp()
{
    CorviPeer corvi(LAN_STATIC, {"eth0"}, SET_UP);
    QVERIFY(corvi.IsWiredUp());

    MakeInterface("wlan0");
    corvi.Tick(2);
    QCOMPARE(LogCount("Corvi::Loop Force Rescan "), 1);
    QVERIFY(!corvi.Flags().contains("wirelessCarrierSeen"));

    // The tick that loses the wired link still had it when it looked.
    PullCable("eth0");
    corvi.Tick();
    QCOMPARE(LogCount("Corvi::Loop Force Rescan "), 1);
    corvi.Tick();
    QCOMPARE(LogCount("Corvi::Loop Force Rescan "), 2);
}

void TestCorviLife::carrierFileCountsByItsExistence()
{
    const CorviPeer corvi;
    QVERIFY(!corvi.CheckIfWirelessCarrierExists());

    // Down: the kernel refuses to tell the carrier.
    MakeInterface("wlan0");
    QVERIFY(corvi.CheckIfWirelessCarrierExists());

    RemoveInterfaces();
    MakeInterface("wlan1");
    QVERIFY(!corvi.CheckIfWirelessCarrierExists());
}

namespace {

/// Keeps the supervisor's worker from leaving its event loop.
void OccupyWorker()
{
    static QSemaphore isBusy;
    auto *const work = new QObject;
    work->moveToThread(WpaSuppThread::GetInstance());
    QMetaObject::invokeMethod(
        work,
        [] {
            isBusy.release();
            QThread::sleep(60); // Longer than any process of a test lasts.
        },
        Qt::QueuedConnection);
    isBusy.acquire();
}

/// A process of its own, for Stop() does not return.
[[noreturn]] void RunAndStop(const QStringList &arguments)
{
    Corvi corvi(nullptr);
    corvi.Start();
    Supervisor::Connect();
    if (arguments.value(3) == QLatin1String("busy"))
        OccupyWorker();
    // Called with the destructors of static objects.
    std::atexit([] { std::fputs("torn down\n", stderr); });
    corvi.Stop(arguments.value(2).toInt());
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    if (application.arguments().value(1) == QLatin1String("--stop"))
        RunAndStop(application.arguments());
    TestCorviLife test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_corvi_life.moc"
