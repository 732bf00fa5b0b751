// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "corvipeer.h"
#include "debugoutput.h"

#include <QPointer>
#include <QSignalSpy>

using namespace CorviWorld;
using namespace TestSupport;

/// The supervision tick: when it rescans, and the order of precedence when it sets up.
class TestCorviTick : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    // The tick
    void firstTickTellsThatTheLoopStarted();
    void firstTickOnlyRescans();
    void secondTickSetsUp();
    void changedStoreWaitsForARescan();
    void rescanTellsTheLevel();
    void debugFlagCountsAtARescanOnly();
    void rescanForgetsTheNetworksInUse();
    void rescanDeletesTheDevicesInUse();
    void rescanSetsUpTheResolver();
    void rescanMakesEveryDeviceAnew();
    void rescanReportsNoState();
    void rescanIsTracedInOrder();
    void nothingElseRunsDuringATick();
    void slowTickIsFollowedByOne();

    // Precedence
    void wiredTakesWirelessDown();
    void wiredWithoutWirelessCallsNothing();
    void wiredTakesOneOfSeveralModemsDown_data();
    void wiredTakesOneOfSeveralModemsDown();
    void wiredTakesWirelessAndModemDownAtOnce();
    void modemComesBeforeWireless();
    void wirelessWaitsTwoTicks();
    void wiredArmsTheWaitAgain();
    void modemThatIsReadyIsCalledLast_data();
    void modemThatIsReadyIsCalledLast();
};

void TestCorviTick::init()
{
    StartFromNothing();
}

void TestCorviTick::firstTickTellsThatTheLoopStarted()
{
    CorviPeer corvi;
    const DebugOutput output;

    corvi.Tick(3);

    QCOMPARE(LogCount("Corvi::LoopTimer started"), 1);
    QVERIFY(!WasEchoed("Corvi::LoopTimer started", output.Take()));
    QVERIFY(corvi.Flags().contains("loopStarted"));
}

void TestCorviTick::firstTickOnlyRescans()
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

void TestCorviTick::secondTickSetsUp()
{
    CorviPeer corvi(LAN_STATIC, {"eth0"});

    corvi.Tick(2);

    QCOMPARE(LogCount("Corvi::Loop Force Rescan "), 1);
    QVERIFY(corvi.IsWiredUp());
    QCOMPARE(corvi.WiredDevice(), corvi.Device("eth0"));
    QCOMPARE(JournalOf("ifconfig").last(), QString("ifconfig eth0 10.1.0.2 netmask 255.255.255.0 up"));
}

void TestCorviTick::changedStoreWaitsForARescan()
{
    CorviPeer corvi(LAN_STATIC, {"eth0"}, SET_UP);
    Forget();

    WriteStore(QByteArray(LAN_STATIC).replace("10.1.0.2", "10.1.0.3"));
    corvi.Tick(20);
    QCOMPARE(Journal(), QStringList());

    WriteFile(RELOAD_FLAG, "");
    corvi.Tick(2);
    QCOMPARE(JournalOf("ifconfig").last(), QString("ifconfig eth0 10.1.0.3 netmask 255.255.255.0 up"));
}

void TestCorviTick::rescanTellsTheLevel()
{
    WriteStore("<networkconfig/>");
    CorviPeer corvi;
    ClearLog();
    const DebugOutput output;

    corvi.Tick();

    QCOMPARE(LogLines(),
             QStringList({"Corvi::LoopTimer started", "Logginglevel = 2", "Corvi::Loop Force Rescan "}));
    const QStringList echoed = output.Take();
    QVERIFY(WasEchoed("Logginglevel = 2", echoed));
    QVERIFY(!WasEchoed("Corvi::Loop Force Rescan ", echoed));
}

void TestCorviTick::debugFlagCountsAtARescanOnly()
{
    CorviPeer corvi(DISCOVERED);

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

void TestCorviTick::rescanForgetsTheNetworksInUse()
{
    CorviPeer corvi;
    corvi.RaiseEveryFlag();

    corvi.Init();

    QCOMPARE(corvi.Flags(), QStringList({"loopStarted", "forceRescan", "reconfigureWpa"}));
}

void TestCorviTick::rescanDeletesTheDevicesInUse()
{
    CorviPeer corvi({"eth0", "wlan0", "wwan0"}, DISCOVERED);
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

void TestCorviTick::rescanSetsUpTheResolver()
{
    CorviPeer corvi;
    MakeInterface("eth0");

    corvi.Tick();

    // Before the devices are found.
    QCOMPARE(Journal(), QStringList({"setup_resolved", "ifconfig eth0 up"}));
}

void TestCorviTick::rescanMakesEveryDeviceAnew()
{
    CorviPeer corvi({"eth0", "wlan0"}, DISCOVERED);
    const QVector<QPointer<NetworkDevice>> before{corvi.Device("eth0"), corvi.Device("wlan0")};

    corvi.ForceRescan();
    corvi.Tick();

    for (const QPointer<NetworkDevice> &device : before)
        QVERIFY(!device);
    QCOMPARE(corvi.DeviceCount(), 2);
}

void TestCorviTick::rescanReportsNoState()
{
    CorviPeer corvi(LAN_STATIC, {"eth0"}, SET_UP);
    QSignalSpy changes(&corvi, &Corvi::wiredStateChange);

    corvi.ForceRescan();
    corvi.Tick();
    QCOMPARE(changes.size(), 0);

    corvi.Tick();
    QCOMPARE(changes.size(), 1);
}

void TestCorviTick::rescanIsTracedInOrder()
{
    CorviPeer corvi;
    LogFromHere(4);

    corvi.Init();

    const QStringList lines = LogLines();
    QCOMPARE(lines.first(), QString("Corvi::Init()"));
    QCOMPARE(lines.at(1), QString("Corvi::FindAllInterfaces()"));
    QCOMPARE(lines.last(), QString("Corvi::Init() Complete"));
}

void TestCorviTick::nothingElseRunsDuringATick()
{
    Answer("ifconfig", "sleep 0.3");
    CorviPeer corvi({"eth0"});
    int others = 0;
    QTimer timer;
    connect(&timer, &QTimer::timeout, &corvi, [&others] { ++others; });
    timer.start(0);
    QMetaObject::invokeMethod(
        &corvi, [&others] { ++others; }, Qt::QueuedConnection);

    corvi.Tick();

    QCOMPARE(JournalOf("ifconfig"), QStringList{"ifconfig eth0 up"});
    QCOMPARE(others, 0);
}

void TestCorviTick::slowTickIsFollowedByOne()
{
    // Three times the timer's interval passes meanwhile.
    Answer("setup_resolved", "sleep 3.2");
    CorviPeer corvi;
    corvi.Start();
    while (Journal().isEmpty())
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    LogFromHere(6);
    QElapsedTimer since;
    since.start();

    for (int i = 0; i < 10; ++i)
        QCoreApplication::processEvents();

    // The one that is due, and what time brings on a busy machine.
    QVERIFY(LogCount("Wired not connected") <= 2 + since.elapsed() / 1000);
}

void TestCorviTick::wiredTakesWirelessDown()
{
    CorviPeer corvi(LAN_STATIC, {"eth0", "wlan0"}, DISCOVERED);
    corvi.PickWireless("wlan0");
    LogFromHere(6);

    corvi.Tick();

    const QStringList lines = LogLines();
    const auto calling = lines.indexOf("Calling WirelessNetworkSetup 2");
    const auto called = lines.indexOf("Called WirelessNetworkSetup 2");
    QVERIFY(calling != -1);
    QVERIFY(lines.indexOf("Corvi::Loop:: Stopping wireless device") > calling);
    QVERIFY(called > lines.indexOf("Corvi::Loop:: Stopping wireless device"));
    QVERIFY(!corvi.WirelessDevice());
    QVERIFY(!lines.contains("Wired not connected"));
}

void TestCorviTick::wiredWithoutWirelessCallsNothing()
{
    CorviPeer corvi(LAN_STATIC, {"eth0", "wlan0"}, DISCOVERED);
    LogFromHere(6);

    corvi.Tick(2);

    QVERIFY(corvi.IsWiredUp());
    QVERIFY(LogLines().filter("WirelessNetworkSetup").isEmpty());
}

void TestCorviTick::wiredTakesOneOfSeveralModemsDown_data()
{
    QTest::addColumn<QStringList>("modems");
    QTest::addColumn<bool>("isCalled");
    QTest::newRow("no modem") << QStringList() << false;
    QTest::newRow("one modem is left alone") << QStringList{"wwan0"} << false;
    QTest::newRow("two modems") << QStringList{"wwan0", "wwan1"} << true;
}

void TestCorviTick::wiredTakesOneOfSeveralModemsDown()
{
    QFETCH(QStringList, modems);
    QFETCH(bool, isCalled);
    CorviPeer corvi(LAN_STATIC, QStringList{"eth0"} + modems, DISCOVERED);
    LogFromHere(6);

    corvi.Tick();

    QCOMPARE(LogCount("Calling ModemNetworkSetup 3"), int(isCalled));
    QCOMPARE(LogCount("Called ModemNetworkSetup 3"), int(isCalled));
    QCOMPARE(JournalOf("modem-tool.sh"), isCalled ? QStringList{"modem-tool.sh disconnect"} : QStringList());
}

void TestCorviTick::wiredTakesWirelessAndModemDownAtOnce()
{
    CorviPeer corvi(LAN_STATIC, {"eth0", "wlan0", "wwan0", "wwan1"}, DISCOVERED);
    corvi.AdoptWireless("wlan0");
    corvi.WirelessDevice()->Up();
    Forget();

    corvi.Tick();

    QVERIFY(!corvi.WirelessDevice());
    QCOMPARE(JournalOf("ifconfig wlan0"), QStringList{"ifconfig wlan0 down"});
    QCOMPARE(JournalOf("modem-tool.sh"), QStringList{"modem-tool.sh disconnect"});
}

void TestCorviTick::modemComesBeforeWireless()
{
    CorviPeer corvi({"wwan0", "wlan0"}, DISCOVERED);
    LogFromHere(6);

    corvi.Tick(4);

    QCOMPARE(LogCount("Wired not connected"), 4);
    QCOMPARE(LogCount("Calling ModemNetworkSetup wwan0"), 4);
    QCOMPARE(LogCount("Called ModemNetworkSetup "), 4);
    QVERIFY(LogLines().filter("WirelessNetworkSetup").isEmpty());
    QCOMPARE(corvi.WirelessDelay(), 2);
}

void TestCorviTick::wirelessWaitsTwoTicks()
{
    CorviPeer corvi(DISCOVERED);
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

void TestCorviTick::wiredArmsTheWaitAgain()
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

void TestCorviTick::modemThatIsReadyIsCalledLast_data()
{
    QTest::addColumn<int>("modemNames");
    QTest::addColumn<bool>("hasWireless");
    QTest::addColumn<bool>("hasModem");
    QTest::addColumn<QByteArray>("status");
    QTest::addColumn<bool>("isCalled");
    QTest::addColumn<int>("questions");
    QTest::newRow("two names, ready") << 2 << false << false << QByteArray("disconnected") << true << 1;
    QTest::newRow("two names, no output") << 2 << false << false << QByteArray() << true << 1;
    QTest::newRow("two names, not there")
        << 2 << false << false << QByteArray("cannot find modem") << false << 1;
    QTest::newRow("one name") << 1 << false << false << QByteArray("disconnected") << false << 0;
    QTest::newRow("wireless in use") << 2 << true << false << QByteArray("disconnected") << false << 0;
    QTest::newRow("modem in use") << 2 << false << true << QByteArray("disconnected") << false << 1;
}

void TestCorviTick::modemThatIsReadyIsCalledLast()
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
    CorviPeer corvi(DISCOVERED);
    if (!hasModem)
        corvi.GiveUpModem();
    if (hasWireless)
        corvi.PickWireless("wlan0");
    LogFromHere(6);

    corvi.Tick();

    QCOMPARE(LogCount("Calling ModemNetworkSetup 2"), int(isCalled));
    QCOMPARE(LogCount("Called ModemNetworkSetup 2"), int(isCalled));
    // The readiness is asked for last; a modem in use is asked whether it is connected.
    QTEST(static_cast<int>(JournalOf("modem-tool.sh status").size()), "questions");
}

QTEST_GUILESS_MAIN(TestCorviTick)
#include "tst_corvi_tick.moc"
