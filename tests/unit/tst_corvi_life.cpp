// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "corvipeer.h"
#include "fakesupplicant.h"

#include <QLocale>
#include <QPointer>
#include <QProcess>
#include <QSharedMemory>

using namespace CorviWorld;
using namespace TestSupport;

namespace {

/// What the last constructed object wrote to the debug output.
QStringList debugOutput;
QtMessageHandler previousHandler = nullptr;

void KeepDebugOutput(QtMsgType type, const QMessageLogContext &context, const QString &text)
{
    if (type == QtDebugMsg)
        debugOutput << text;
    previousHandler(type, context, text);
}

bool WasEchoed(const QString &text)
{
    return !debugOutput.filter(QStringLiteral("Logging::LogMessage \"") + text + QLatin1Char('"')).isEmpty();
}

} // namespace

/// The service object's life, its tick and the flag files.
class TestCorviLife : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();
    void init();

    // Construction
    void constructionIsLoggedAndEchoed();
    void debugFlagSetsTheLevelAtConstruction_data();
    void debugFlagSetsTheLevelAtConstruction();
    void constructionStartsFromTheInitialValues();
    void constructionRemovesAStaleKillFile();
    void hostNameIsInitialisedWithoutAClientConfiguration_data();
    void hostNameIsInitialisedWithoutAClientConfiguration();
    void supervisorIsStoppedWithTheModeOfItsUse();
    void supervisorSignalsReachTheService();
    void bondIsSetUpToTakeOverTheName();
    void startArmsTheTimer();
    void destructionGivesTheSegmentBack();
    void destructionDeletesTheDevices();
    void stopEndsTheProcess_data();
    void stopEndsTheProcess();

    // The tick
    void firstTickTellsThatTheLoopStarted();
    void firstTickOnlyRescans();
    void secondTickSetsUp();
    void rescanTellsTheLevel();
    void debugFlagCountsAtARescanOnly();
    void rescanForgetsTheNetworksInUse();
    void rescanDeletesTheDevicesInUse();
    void rescanSetsUpTheResolver();
    void rescanIsTracedInOrder();

    // Reload
    void reloadFileForcesOneRescan();
    void reloadFileAtStartGivesOneRescan();
    void reloadFileThatStaysRescansEveryTick();
    void reloadsApartAreAllTold();
    void lateWirelessCarrierForcesOneRescan();
    void wirelessCarrierAtStartForcesNoRescan();
    void wirelessCarrierForcesNoRescanWhileWiredIsUp();
    void carrierFileCountsByItsExistence();

    // Precedence
    void wiredTakesWirelessDown();
    void wiredWithoutWirelessCallsNothing();
    void wiredTakesOneOfSeveralModemsDown_data();
    void wiredTakesOneOfSeveralModemsDown();
    void modemComesBeforeWireless();
    void wirelessWaitsTwoTicks();
    void wiredArmsTheWaitAgain();
    void modemThatIsReadyIsCalledLast_data();
    void modemThatIsReadyIsCalledLast();
};

void TestCorviLife::initTestCase()
{
    previousHandler = qInstallMessageHandler(KeepDebugOutput);
}

void TestCorviLife::cleanupTestCase()
{
    qInstallMessageHandler(nullptr);
}

void TestCorviLife::init()
{
    StartFromNothing();
    debugOutput.clear();
}

void TestCorviLife::constructionIsLoggedAndEchoed()
{
    const CorviPeer corvi;

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
        QVERIFY2(WasEchoed(line), qPrintable(line));
    QCOMPARE(lines.last(), own.last());
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

void TestCorviLife::constructionRemovesAStaleKillFile()
{
    WriteFile(KILL_FLAG, "");

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

void TestCorviLife::supervisorIsStoppedWithTheModeOfItsUse()
{
    WriteFile(DEBUG_FLAG, "");
    CorviPeer corvi;
    QCOMPARE(LogLines().filter("WpaSuppThread::Stop"), QStringList{"WpaSuppThread::Stop 2 false 0"});
    ClearLog();

    corvi.ReinitSupThread();

    QCOMPARE(LogLines(), QStringList{"WpaSuppThread::Stop 1 false 0"});
}

void TestCorviLife::supervisorSignalsReachTheService()
{
    CorviPeer corvi;
    LogFromHere(4);

    emit WpaSuppThread::GetInstance()->associatedChanged(true);
    emit WpaSuppThread::GetInstance()->wifiConnected();
    emit WpaSuppThread::GetInstance()->scanningFailed();
    emit corvi.wiredStateChange(false);

    QCOMPARE(LogLines(), QStringList({"Corvi::onAssociatedChanged(bool state) 1",
                                      "Wireless and Wired devices not defined", "Corvi::onWifiConnected()",
                                      "Corvi::onWiredStateChange(bool state) 0", "WIRED DEVICE UNDEFINED",
                                      "Corvi::onWiredStateChange(bool state)  complete"}));
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
    debugOutput.clear();

    corvi.Start();

    QCOMPARE(LogLines(), QStringList{"Corvi::Start()"});
    QVERIFY(!WasEchoed("Corvi::Start()"));
    QVERIFY(corvi.LoopTimer().isActive());
    QVERIFY(!corvi.LoopTimer().isSingleShot());
    QCOMPARE(corvi.LoopTimer().interval(), 1000);
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

void TestCorviLife::firstTickTellsThatTheLoopStarted()
{
    CorviPeer corvi;
    debugOutput.clear();

    corvi.Tick(3);

    QCOMPARE(LogCount("Corvi::LoopTimer started"), 1);
    QVERIFY(!WasEchoed("Corvi::LoopTimer started"));
    QVERIFY(corvi.Flags().contains("loopStarted"));
}

void TestCorviLife::firstTickOnlyRescans()
{
    MakeInterface("wlan0");
    WriteFile(DEBUG_FLAG, "");
    CorviPeer corvi;

    corvi.Tick();

    QCOMPARE(LogCount("Corvi::Loop Force Rescan "), 1);
    QVERIFY(!corvi.Flags().contains("forceRescan"));
    QVERIFY(corvi.IsReconfigureWanted());
    QCOMPARE(corvi.AllInterfaces(), QStringList{"wlan0"});
    QCOMPARE(corvi.WirelessDelay(), 2);
    QVERIFY(LogLines().filter("WirelessNetworkSetup").isEmpty());
}

void TestCorviLife::secondTickSetsUp()
{
    MakeMachine(LAN_STATIC, {"eth0"});
    CorviPeer corvi;

    corvi.Tick(2);

    QCOMPARE(LogCount("Corvi::Loop Force Rescan "), 1);
    QVERIFY(corvi.IsWiredUp());
    QCOMPARE(corvi.WiredDevice(), corvi.Device("eth0"));
    QCOMPARE(JournalOf("ifconfig").last(), QString("ifconfig eth0 10.1.0.2 netmask 255.255.255.0 up"));
}

void TestCorviLife::rescanTellsTheLevel()
{
    WriteStore("<networkconfig/>");
    CorviPeer corvi;
    ClearLog();
    debugOutput.clear();

    corvi.Tick();

    QCOMPARE(LogLines(),
             QStringList({"Corvi::LoopTimer started", "Logginglevel = 2", "Corvi::Loop Force Rescan "}));
    QVERIFY(WasEchoed("Logginglevel = 2"));
    QVERIFY(!WasEchoed("Corvi::Loop Force Rescan "));
}

void TestCorviLife::debugFlagCountsAtARescanOnly()
{
    CorviPeer corvi;
    corvi.Tick();

    WriteFile(DEBUG_FLAG, "");
    corvi.Tick();
    QCOMPARE(Logging::CurrentLevel(), 2);

    corvi.ForceRescan();
    corvi.Tick();
    QCOMPARE(Logging::CurrentLevel(), 5);

    Remove(DEBUG_FLAG);
    corvi.Tick();
    QCOMPARE(Logging::CurrentLevel(), 5);

    corvi.ForceRescan();
    corvi.Tick();
    QCOMPARE(Logging::CurrentLevel(), 2);
}

void TestCorviLife::rescanForgetsTheNetworksInUse()
{
    CorviPeer corvi;
    corvi.RaiseEveryFlag();

    corvi.Init();

    QCOMPARE(corvi.Flags(), QStringList({"loopStarted", "forceRescan", "reconfigureWpa"}));
}

void TestCorviLife::rescanDeletesTheDevicesInUse()
{
    for (const char *name : {"eth0", "wlan0", "wwan0"})
        MakeInterface(name);
    CorviPeer corvi;
    corvi.Tick();
    corvi.AdoptWired("eth0");
    corvi.PickWireless("wlan0");
    QCOMPARE(corvi.ModemDevice(), corvi.Device("wwan0"));
    const QVector<QPointer<NetworkDevice>> before{corvi.WiredDevice(), corvi.WirelessDevice(),
                                                  corvi.ModemDevice()};

    corvi.Init();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);

    for (const QPointer<NetworkDevice> &device : before)
        QVERIFY(!device);
    QVERIFY(!corvi.WiredDevice());
    QVERIFY(!corvi.WirelessDevice());
    // Discovery has adopted the new one.
    QCOMPARE(corvi.ModemDevice(), corvi.Device("wwan0"));
    QCOMPARE(corvi.DeviceCount(), 3);
}

void TestCorviLife::rescanSetsUpTheResolver()
{
    CorviPeer corvi;
    MakeInterface("eth0");

    corvi.Tick();

    // Before the devices are found.
    QCOMPARE(Journal(), QStringList({"setup_resolved", "ifconfig eth0 up"}));
}

void TestCorviLife::rescanIsTracedInOrder()
{
    CorviPeer corvi;
    LogFromHere(4);

    corvi.Init();

    const QStringList lines = LogLines();
    QCOMPARE(lines.first(), QString("Corvi::Init()"));
    QCOMPARE(lines.at(1), QString("Corvi::FindAllInterfaces()"));
    QCOMPARE(lines.last(), QString("Corvi::Init() Complete"));
}

void TestCorviLife::reloadFileForcesOneRescan()
{
    WriteFile(DEBUG_FLAG, "");
    CorviPeer corvi;
    corvi.Tick(2);
    Forget();

    WriteFile(RELOAD_FLAG, "any contents");
    corvi.Tick(2);

    QVERIFY(!QFile::exists(RELOAD_FLAG));
    QCOMPARE(LogCount("Reload forced"), 1);
    QCOMPARE(LogCount("Corvi::Loop Force Rescan "), 1);
    QCOMPARE(JournalOf("setup_resolved").size(), 1);
}

void TestCorviLife::reloadFileAtStartGivesOneRescan()
{
    WriteFile(RELOAD_FLAG, "");
    CorviPeer corvi;

    corvi.Tick(3);

    QVERIFY(!QFile::exists(RELOAD_FLAG));
    QCOMPARE(LogCount("Corvi::Loop Force Rescan "), 1);
}

void TestCorviLife::reloadFileThatStaysRescansEveryTick()
{
    // A folder that is not empty cannot be removed like a file.
    WriteFile(RELOAD_FLAG + "/file", "");
    CorviPeer corvi;

    corvi.Tick(3);

    QCOMPARE(JournalOf("setup_resolved").size(), 3);
    // The log would be full of nothing else.
    QCOMPARE(LogCount("Corvi::Loop Force Rescan "), 1);
}

void TestCorviLife::reloadsApartAreAllTold()
{
    CorviPeer corvi;
    corvi.Tick(2);

    for (int reload = 0; reload < 3; ++reload) {
        WriteFile(RELOAD_FLAG, "");
        corvi.Tick(2);
    }

    QCOMPARE(LogCount("Logginglevel = 2"), 5);
    QCOMPARE(LogCount("Corvi::Loop Force Rescan "), 4);
}

void TestCorviLife::lateWirelessCarrierForcesOneRescan()
{
    CorviPeer corvi;
    corvi.Tick(2);
    QVERIFY(!corvi.Flags().contains("wirelessCarrierSeen"));
    Forget();

    MakeInterface("wlan0");
    corvi.Tick(3);

    QVERIFY(corvi.Flags().contains("wirelessCarrierSeen"));
    QCOMPARE(LogCount("Corvi::Loop Force Rescan "), 1);
    QCOMPARE(corvi.WirelessInterfaces(), QStringList{"wlan0"});
}

void TestCorviLife::wirelessCarrierAtStartForcesNoRescan()
{
    MakeInterface("wlan0");
    CorviPeer corvi;

    corvi.Tick(3);

    QCOMPARE(LogCount("Corvi::Loop Force Rescan "), 1);
}

void TestCorviLife::wirelessCarrierForcesNoRescanWhileWiredIsUp()
{
    MakeMachine(LAN_STATIC, {"eth0"});
    CorviPeer corvi;
    corvi.Tick(2);
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

void TestCorviLife::wiredTakesWirelessDown()
{
    MakeMachine(LAN_STATIC, {"eth0", "wlan0"});
    CorviPeer corvi;
    corvi.Tick();
    corvi.PickWireless("wlan0");
    LogFromHere(6);

    corvi.Tick();

    const QStringList lines = LogLines();
    const int calling = lines.indexOf("Calling WirelessNetworkSetup 2");
    const int called = lines.indexOf("Called WirelessNetworkSetup 2");
    QVERIFY(calling != -1);
    QVERIFY(lines.indexOf("Corvi::Loop:: Stopping wireless device") > calling);
    QVERIFY(called > lines.indexOf("Corvi::Loop:: Stopping wireless device"));
    QVERIFY(!corvi.WirelessDevice());
    QVERIFY(!lines.contains("Wired not connected"));
}

void TestCorviLife::wiredWithoutWirelessCallsNothing()
{
    MakeMachine(LAN_STATIC, {"eth0", "wlan0"});
    CorviPeer corvi;
    corvi.Tick();
    LogFromHere(6);

    corvi.Tick(2);

    QVERIFY(corvi.IsWiredUp());
    QVERIFY(LogLines().filter("WirelessNetworkSetup").isEmpty());
}

void TestCorviLife::wiredTakesOneOfSeveralModemsDown_data()
{
    QTest::addColumn<QStringList>("modems");
    QTest::addColumn<bool>("isCalled");
    QTest::newRow("no modem") << QStringList() << false;
    QTest::newRow("one modem is left alone") << QStringList{"wwan0"} << false;
    QTest::newRow("two modems") << QStringList{"wwan0", "wwan1"} << true;
}

void TestCorviLife::wiredTakesOneOfSeveralModemsDown()
{
    QFETCH(QStringList, modems);
    QFETCH(bool, isCalled);
    MakeMachine(LAN_STATIC, QStringList{"eth0"} + modems);
    CorviPeer corvi;
    corvi.Tick();
    LogFromHere(6);

    corvi.Tick();

    QCOMPARE(LogCount("Calling ModemNetworkSetup 3"), int(isCalled));
    QCOMPARE(LogCount("Called ModemNetworkSetup 3"), int(isCalled));
    QCOMPARE(JournalOf("modem-tool.sh"), isCalled ? QStringList{"modem-tool.sh disconnect"} : QStringList());
}

void TestCorviLife::modemComesBeforeWireless()
{
    MakeInterface("wwan0");
    MakeInterface("wlan0");
    CorviPeer corvi;
    corvi.Tick();
    LogFromHere(6);

    corvi.Tick(4);

    QCOMPARE(LogCount("Wired not connected"), 4);
    QCOMPARE(LogCount("Calling ModemNetworkSetup wwan0"), 4);
    QCOMPARE(LogCount("Called ModemNetworkSetup "), 4);
    QVERIFY(LogLines().filter("WirelessNetworkSetup").isEmpty());
    QCOMPARE(corvi.WirelessDelay(), 2);
}

void TestCorviLife::wirelessWaitsTwoTicks()
{
    CorviPeer corvi;
    corvi.Tick();
    SetLevel(6);

    corvi.Tick(2);
    QCOMPARE(LogCount("Wired not connected"), 2);
    QVERIFY(LogLines().filter("WirelessNetworkSetup").isEmpty());
    QCOMPARE(corvi.WirelessDelay(), 0);

    corvi.Tick();
    QCOMPARE(LogCount("Calling WirelessNetworkSetup 0"), 1);
    QCOMPARE(LogCount("Called WirelessNetworkSetup 0"), 1);

    corvi.Tick();
    QCOMPARE(LogCount("Calling WirelessNetworkSetup 0"), 2);
}

void TestCorviLife::wiredArmsTheWaitAgain()
{
    MakeMachine(LAN_STATIC, {"eth0"});
    PullCable("eth0");
    CorviPeer corvi;
    corvi.Tick(4);
    QCOMPARE(corvi.WirelessDelay(), 0);

    PlugCable("eth0");
    corvi.Tick();
    QCOMPARE(corvi.WirelessDelay(), 2);

    PullCable("eth0");
    SetLevel(6);
    corvi.Tick(2);
    QVERIFY(LogLines().filter("Calling WirelessNetworkSetup").isEmpty());
    corvi.Tick();
    QCOMPARE(LogCount("Calling WirelessNetworkSetup 0"), 1);
}

void TestCorviLife::modemThatIsReadyIsCalledLast_data()
{
    QTest::addColumn<int>("modemNames");
    QTest::addColumn<bool>("hasWireless");
    QTest::addColumn<bool>("hasModem");
    QTest::addColumn<QByteArray>("status");
    QTest::addColumn<bool>("isCalled");
    QTest::newRow("two names, ready") << 2 << false << false << QByteArray("disconnected") << true;
    QTest::newRow("two names, no output") << 2 << false << false << QByteArray() << true;
    QTest::newRow("two names, not there") << 2 << false << false << QByteArray("cannot find modem") << false;
    QTest::newRow("one name") << 1 << false << false << QByteArray("disconnected") << false;
    QTest::newRow("wireless in use") << 2 << true << false << QByteArray("disconnected") << false;
    QTest::newRow("modem in use") << 2 << false << true << QByteArray("disconnected") << false;
}

void TestCorviLife::modemThatIsReadyIsCalledLast()
{
    QFETCH(int, modemNames);
    QFETCH(bool, hasWireless);
    QFETCH(bool, hasModem);
    QFETCH(QByteArray, status);
    QFETCH(bool, isCalled);
    for (int i = 0; i < modemNames; ++i)
        MakeInterface(QString("wwan%1").arg(i));
    MakeInterface("wlan0");
    Answer("modem-tool.sh", "echo '" + status + "'");
    CorviPeer corvi;
    corvi.Tick();
    if (!hasModem)
        corvi.GiveUpModem();
    if (hasWireless)
        corvi.PickWireless("wlan0");
    LogFromHere(6);

    corvi.Tick();

    QCOMPARE(LogCount("Calling ModemNetworkSetup 2"), int(isCalled));
    QCOMPARE(LogCount("Called ModemNetworkSetup 2"), int(isCalled));
}

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    if (application.arguments().value(1) == QLatin1String("--stop")) {
        // A process of its own, for Stop() does not return.
        Corvi corvi(nullptr);
        corvi.Start();
        Supervisor::Connect();
        corvi.Stop(application.arguments().value(2).toInt());
    }
    TestCorviLife test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_corvi_life.moc"
