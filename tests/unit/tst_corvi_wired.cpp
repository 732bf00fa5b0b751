// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "corvipeer.h"

#include <QFileInfo>
#include <QSignalSpy>

#include <sys/stat.h>

using namespace CorviWorld;
using namespace TestSupport;

namespace {

/// The decisions about the supplicant, of all that a wired tick logs.
QStringList Decisions()
{
    return LogLines().filter(QRegularExpression("^(Corvi::WiredNetworkSetup:: (starting|Start|Wired|Set)"
                                                "|Corvi::ReconfigureWpa|WpaSuppThread::Stop)"));
}

/// What is logged about a change of the wired state.
QStringList StateLines()
{
    return LogLines().filter(QRegularExpression("^(Wired Device|Configure|Corvi::onWired)"));
}

using States = QVector<bool>;

/// The states reported since the last call.
States TakeStates(QSignalSpy &changes)
{
    States states;
    while (!changes.isEmpty())
        states << changes.takeFirst().first().toBool();
    return states;
}

} // namespace

/// The wired network, 802.1X and its fallback. The supervisor's state is set by hand.
class TestCorviWired : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    // Choice of the device
    void firstDeviceThatCarriesIsChosen();
    void deviceWithoutACableIsNotConnected();
    void noDeviceIsNotConnected();
    void missingDeviceIsSkipped();
    void deviceThatIsDownIsStarted();
    void secondCableIsStopped();
    void secondCableIsToldToStopOnEveryTick();
    void secondCableTakesOver();
    void cableInTheSecondPortIsFound();
    void changeOfDeviceIsAnnounced();
    void tickWithoutACarrierKeepsTheDevice();
    void deviceWithAnAddressIsReadOnceATick();

    // The supplicant
    void supplicantFollowsTheState_data();
    void supplicantFollowsTheState();
    void linkUpClearsTheFallback();
    void authenticationTogglesTheCount_data();
    void authenticationTogglesTheCount();
    void waitIsCountedByTicks();
    void announcedPortFallsBackAfterElevenTicks();
    void fallbackAfterElevenTicksNeedsBothFlags_data();
    void fallbackAfterElevenTicksNeedsBothFlags();
    void fallbackIsForcedAfterSixtyTicks();
    void portInFallbackIsLeftAlone();

    // Reconfigure
    void holdOffWithoutNeedStopsTheSupplicant_data();
    void holdOffWithoutNeedStopsTheSupplicant();
    void holdOffCountsOneStepACall();
    void holdOffStopsAnActiveSupplicant_data();
    void holdOffStopsAnActiveSupplicant();
    void holdOffWaitsForAPendingStop();
    void reconfigureWithoutNeedOnlyWritesTheFile();

    // Changes of state
    void linkUpConfiguresTheDevice();
    void linkLossFlushesTheDevice();
    void stateChangeWithoutDeviceIsLogged_data();
    void stateChangeWithoutDeviceIsLogged();
    void stateChangeRewritesTheSupplicantFile_data();
    void stateChangeRewritesTheSupplicantFile();
    void stateIsReportedOnChangeOnly();
    void stateIsInForceWhenItIsReported();
    void refreshFileReportsTheStateAgain();
    void refreshFileWithoutLinkIsConsumed_data();
    void refreshFileWithoutLinkIsConsumed();
    void refreshFileDoesNotHideALoss();
    void refreshFileReadsTheDeviceAgain();

    // DHCP retries
    void failedDhcpIsRetriedAfterGrowingPauses();
    void lateServerIsFound();
    void retryNeedsAReason_data();
    void retryNeedsAReason();
    void addressThatCameInTheSameTickNeedsNoRetry();
    void retriesStopFillingTheLog();
    void lostLinkStartsThePausesAnew();

    // Hook of the DHCP client
    void dhcpEventUpdatesTheDevicesItNames_data();
    void dhcpEventUpdatesTheDevicesItNames();
    void dhcpEventIsReadOnce();
    void dhcpEventIsAPlainFile_data();
    void dhcpEventIsAPlainFile();
};

void TestCorviWired::init()
{
    StartFromNothing();
}

void TestCorviWired::firstDeviceThatCarriesIsChosen()
{
    MakeMachine(LAN_STATIC, {"eth1", "eth0"});
    CorviPeer corvi;
    corvi.Tick();
    LogFromHere(6);

    QVERIFY(corvi.WiredNetworkSetup());

    QCOMPARE(corvi.WiredDevice(), corvi.Device("eth0"));
    QCOMPARE(LogCount("Corvi::WiredNetworkSetup::  eth0 active"), 1);
    QCOMPARE(LogCount("Corvi::WiredNetworkSetup::  eth1 active"), 0);
    QCOMPARE(LogCount("Corvi::WiredNetworkSetup:: status 1"), 1);
}

void TestCorviWired::deviceWithoutACableIsNotConnected()
{
    MakeMachine(LAN_STATIC, {"eth0"});
    PullCable("eth0");
    CorviPeer corvi;
    corvi.Tick();
    QSignalSpy changes(&corvi, &Corvi::wiredStateChange);
    LogFromHere(6);

    QVERIFY(!corvi.WiredNetworkSetup());

    QVERIFY(corvi.Device("eth0")->isUp);
    QVERIFY(!corvi.WiredDevice());
    QCOMPARE(TakeStates(changes), States());
    QCOMPARE(LogCount("Corvi::WiredNetworkSetup:: status 0"), 1);
    QCOMPARE(Journal(), QStringList());
}

void TestCorviWired::noDeviceIsNotConnected()
{
    CorviPeer corvi;
    corvi.Tick();

    QVERIFY(!corvi.WiredNetworkSetup());
}

void TestCorviWired::missingDeviceIsSkipped()
{
    MakeMachine(LAN_STATIC, {"eth1"});
    CorviPeer corvi;
    corvi.Tick();
    corvi.LoseInterface("eth0");
    LogFromHere(4);

    QVERIFY(corvi.WiredNetworkSetup());

    QCOMPARE(LogLines().first(), QString("1: Could not find device for  eth0"));
    QCOMPARE(corvi.WiredDevice(), corvi.Device("eth1"));
}

void TestCorviWired::deviceThatIsDownIsStarted()
{
    MakeInterface("eth0");
    CorviPeer corvi;
    corvi.Tick();
    RealIp({"link", "set", "dev", "eth0", "down"});
    corvi.Device("eth0")->linkUp = false;
    LogFromHere(4);

    QVERIFY(!corvi.WiredNetworkSetup());

    QCOMPARE(LogLines().first(), QString("eth0  is not up so start it"));
    QCOMPARE(Journal(), QStringList{"ifconfig eth0 up"});
}

void TestCorviWired::secondCableIsStopped()
{
    MakeMachine(LAN_STATIC, {"eth0", "eth1", "eth2"});
    CorviPeer corvi;
    corvi.Tick();
    Forget();

    corvi.Tick();

    QCOMPARE(LogCount("Corvi::WiredNetworkSetup::  eth0  is up but  eth1 is also up."), 1);
    QCOMPARE(LogCount("Corvi::WiredNetworkSetup::  eth0  is up but  eth2 is also up."), 1);
    QCOMPARE(JournalOf("ifconfig eth1"), QStringList{"ifconfig eth1 down"});
    QCOMPARE(JournalOf("ifconfig eth2"), QStringList{"ifconfig eth2 down"});
    QVERIFY(corvi.Device("eth1")->stopped);

    Forget();
    corvi.Tick(5);

    QCOMPARE(LogLines(), QStringList());
    QCOMPARE(Journal(), QStringList());
    QVERIFY(!corvi.Device("eth1")->isUp);
}

void TestCorviWired::secondCableIsToldToStopOnEveryTick()
{
    MakeMachine(LAN_STATIC, {"eth0", "eth1"});
    CorviPeer corvi;
    corvi.Tick(3);
    // Somebody else brings it up.
    corvi.Device("eth1")->Up();
    Forget();

    corvi.Tick();

    QCOMPARE(JournalOf("ifconfig"), QStringList{"ifconfig eth1 down"});
}

void TestCorviWired::secondCableTakesOver()
{
    MakeMachine(LAN_STATIC, {"eth0", "eth1"});
    CorviPeer corvi;
    corvi.Tick(3);
    Forget();

    PullCable("eth0");
    corvi.Tick();
    QCOMPARE(Journal(), QStringList({"ifconfig eth1 up", "ip addr flush eth0"}));
    QVERIFY(!corvi.IsWiredUp());

    corvi.Tick();
    QVERIFY(corvi.IsWiredUp());
    QCOMPARE(corvi.WiredDevice(), corvi.Device("eth1"));

    PlugCable("eth0");
    corvi.Tick();
    QCOMPARE(corvi.WiredDevice(), corvi.Device("eth0"));
    QVERIFY(corvi.Device("eth1")->stopped);
}

void TestCorviWired::cableInTheSecondPortIsFound()
{
    MakeMachine(LAN_STATIC, {"eth0", "eth1"});
    PullCable("eth0");
    CorviPeer corvi;

    corvi.Tick(2);

    QCOMPARE(corvi.WiredDevice(), corvi.Device("eth1"));
    QVERIFY(corvi.IsWiredUp());
    QVERIFY(corvi.Device("eth0")->isUp);
}

void TestCorviWired::changeOfDeviceIsAnnounced()
{
    MakeMachine(LAN_STATIC, {"eth0", "eth1"});
    PullCable("eth0");
    CorviPeer corvi;
    corvi.Tick(2);
    QCOMPARE(LogCount("Corvi::WiredNetworkSetup:: Device Change"), 1);
    corvi.WaitForWireless(0);
    QSignalSpy changes(&corvi, &Corvi::wiredStateChange);
    ClearLog();

    PlugCable("eth0");
    corvi.Tick(2);

    QCOMPARE(LogCount("Corvi::WiredNetworkSetup:: Device Change"), 1);
    QCOMPARE(corvi.WirelessDelay(), 2);
    QCOMPARE(TakeStates(changes), States{true});
}

void TestCorviWired::tickWithoutACarrierKeepsTheDevice()
{
    MakeMachine(LAN_STATIC, {"eth0"});
    CorviPeer corvi;
    corvi.Tick(2);
    corvi.WaitForWireless(1);

    PullCable("eth0");
    QVERIFY(!corvi.WiredNetworkSetup());

    QCOMPARE(corvi.WiredDevice(), corvi.Device("eth0"));
    QCOMPARE(corvi.WirelessDelay(), 1);
}

void TestCorviWired::deviceWithAnAddressIsReadOnceATick()
{
    MakeMachine(LAN_STATIC, {"eth0", "eth1"});
    CorviPeer corvi;
    corvi.Tick(2);
    // The second port is stopped when the first one has been read.
    corvi.Device("eth1")->Up();
    Answer("ifconfig", "ip addr flush dev eth0; ip addr add 10.0.0.5/24 dev eth0");
    Forget();

    QVERIFY(corvi.WiredNetworkSetup());

    QCOMPARE(JournalOf("ifconfig"), QStringList{"ifconfig eth1 down"});
    QCOMPARE(corvi.WiredDevice()->ipAddress, QString("10.1.0.2"));
}

void TestCorviWired::supplicantFollowsTheState_data()
{
    QTest::addColumn<bool>("wiredUp");
    QTest::addColumn<bool>("usesSupplicant");
    QTest::addColumn<bool>("running");
    QTest::addColumn<bool>("restarting");
    QTest::addColumn<bool>("reconfigure");
    QTest::addColumn<QStringList>("decisions");
    QTest::addColumn<int>("holdoff");
    const QString starting = "Corvi::WiredNetworkSetup:: starting wired connected %1";
    const QString start = "Corvi::WiredNetworkSetup:: Start Wpa supplicant";
    const QString reconfigure = "Corvi::WiredNetworkSetup:: Wired 802.1x Reconfigure";

    QTest::newRow("link stays, no supplicant wanted, none there")
        << true << false << false << false << false << QStringList() << 2;
    QTest::newRow("link stays, no supplicant wanted, one runs")
        << true << false << true << false << false << QStringList{"WpaSuppThread::Stop 6 true 1"} << 2;
    QTest::newRow("link stays, no supplicant wanted, one restarts")
        << true << false << false << true << false << QStringList{"WpaSuppThread::Stop 6 false 1"} << 2;
    QTest::newRow("link stays, supplicant wanted, none there")
        << true << true << false << false << false
        << QStringList{start, "Corvi::ReconfigureWpa 1", "Corvi::ReconfigureWpa in Holdoff"} << 0;
    QTest::newRow("link stays, supplicant wanted, none there, file changed")
        << true << true << false << false << true
        << QStringList{start, "Corvi::ReconfigureWpa 1", "Corvi::ReconfigureWpa in Holdoff"} << 0;
    QTest::newRow("link stays, supplicant wanted, one runs")
        << true << true << true << false << false << QStringList() << 1;
    QTest::newRow("link stays, supplicant wanted, one restarts")
        << true << true << false << true << false << QStringList() << 1;
    QTest::newRow("link stays, supplicant wanted, one runs, file changed")
        << true << true << true << false << true
        << QStringList{starting.arg(1), reconfigure, "Corvi::ReconfigureWpa 1",
                       "WpaSuppThread::Stop 4 true 1"}
        << 1;
    QTest::newRow("link stays, supplicant wanted, one restarts, file changed")
        << true << true << false << true << true
        << QStringList{starting.arg(1), reconfigure, "Corvi::ReconfigureWpa 1",
                       "WpaSuppThread::Stop 4 false 1"}
        << 1;

    QTest::newRow("link came up, no supplicant wanted, none there")
        << false << false << false << false << false << QStringList{starting.arg(0)} << 2;
    QTest::newRow("link came up, no supplicant wanted, one runs")
        << false << false << true << false << false
        << QStringList{starting.arg(0), "WpaSuppThread::Stop 6 true 1"} << 2;
    QTest::newRow("link came up, supplicant wanted, none there")
        << false << true << false << false << false
        << QStringList{starting.arg(1), start, "Corvi::ReconfigureWpa 2", "Corvi::ReconfigureWpa in Holdoff"}
        << 1;
    QTest::newRow("link came up, supplicant wanted, one runs")
        << false << true << true << false << false
        << QStringList{starting.arg(1), reconfigure, "Corvi::ReconfigureWpa 2",
                       "WpaSuppThread::Stop 4 true 1"}
        << 2;
    QTest::newRow("link came up, supplicant wanted, one restarts")
        << false << true << false << true << false
        << QStringList{starting.arg(1), reconfigure, "Corvi::ReconfigureWpa 2",
                       "WpaSuppThread::Stop 4 false 1"}
        << 2;
}

void TestCorviWired::supplicantFollowsTheState()
{
    QFETCH(bool, wiredUp);
    QFETCH(bool, usesSupplicant);
    QFETCH(bool, running);
    QFETCH(bool, restarting);
    QFETCH(bool, reconfigure);
    QFETCH(int, holdoff);
    MakeMachine(usesSupplicant ? LAN_8021X_STATIC : LAN_STATIC, {"eth0"});
    CorviPeer corvi;
    corvi.Tick(2);
    QCOMPARE(corvi.WiredDevice()->usesSupplicant, usesSupplicant);
    corvi.NoteWiredUp(wiredUp);
    if (reconfigure)
        corvi.BeginHoldOff(1);
    else
        corvi.LeaveHoldOff(1);
    Supervisor::Set({running, restarting, false});
    LogFromHere(4);

    QVERIFY(corvi.WiredNetworkSetup());

    QTEST(Decisions(), "decisions");
    QCOMPARE(corvi.HoldOff(), holdoff);
    QVERIFY(!usesSupplicant || wiredUp || corvi.IsReconfigureWanted());
}

void TestCorviWired::linkUpClearsTheFallback()
{
    MakeMachine(LAN_8021X_STATIC, {"eth0"});
    CorviPeer corvi;
    corvi.Tick(2);
    corvi.WiredDevice()->inFallback = true;
    corvi.NoteWiredUp(false);
    corvi.NoteReconfigured(true);
    // Configuring the device would do the same.
    corvi.disconnect(&corvi, &Corvi::wiredStateChange, &corvi, nullptr);

    corvi.WiredNetworkSetup();

    QVERIFY(!corvi.WiredDevice()->inFallback);
    QVERIFY(corvi.IsReconfigureWanted());
}

void TestCorviWired::authenticationTogglesTheCount_data()
{
    QTest::addColumn<int>("before");
    QTest::addColumn<int>("after");
    QTest::newRow("from 0") << 0 << 1;
    QTest::newRow("from 1") << 1 << 0;
    QTest::newRow("from a long wait") << 42 << 0;
}

void TestCorviWired::authenticationTogglesTheCount()
{
    QFETCH(int, before);
    QFETCH(int, after);
    MakeMachine(LAN_8021X_STATIC, {"eth0"});
    CorviPeer corvi;
    corvi.Tick(2);
    corvi.SettleSupplicant(ASSOCIATED);
    corvi.WiredDevice()->authWaitTicks = before;

    corvi.WiredNetworkSetup();
    QCOMPARE(corvi.WiredDevice()->authWaitTicks, after);

    corvi.WiredNetworkSetup();
    QCOMPARE(corvi.WiredDevice()->authWaitTicks, after == 0 ? 1 : 0);
}

void TestCorviWired::waitIsCountedByTicks()
{
    MakeMachine(LAN_8021X_STATIC, {"eth0"});
    CorviPeer corvi;
    corvi.Tick(2);
    corvi.SettleSupplicant(RUNNING);

    corvi.Tick(7);

    QCOMPARE(corvi.WiredDevice()->authWaitTicks, 7);
}

void TestCorviWired::announcedPortFallsBackAfterElevenTicks()
{
    MakeMachine(LAN_8021X_STATIC, {"eth0"});
    CorviPeer corvi;
    corvi.Tick(2);
    NetworkDevice *const device = corvi.WiredDevice();
    device->fallbackEnabled = true;
    QVERIFY(device->ipAnnounced);
    corvi.SettleSupplicant(RUNNING);
    LogFromHere(4);

    corvi.Tick(11);
    QVERIFY(!device->inFallback);
    QCOMPARE(device->authWaitTicks, 11);

    corvi.Tick();
    QVERIFY(device->inFallback);
    QCOMPARE(device->authWaitTicks, 11);
    QCOMPARE(Decisions(), QStringList({"Corvi::WiredNetworkSetup:: Set in fallback mode eth0",
                                       "WpaSuppThread::Stop 0 true 1"}));
    QVERIFY(Supervisor::IsStopRequested());
    QCOMPARE(JournalOf("ifconfig"), QStringList());
}

void TestCorviWired::fallbackAfterElevenTicksNeedsBothFlags_data()
{
    QTest::addColumn<bool>("isAnnounced");
    QTest::addColumn<bool>("isEnabled");
    QTest::newRow("no address announced") << false << true;
    QTest::newRow("fallback not enabled") << true << false;
    QTest::newRow("neither") << false << false;
}

void TestCorviWired::fallbackAfterElevenTicksNeedsBothFlags()
{
    QFETCH(bool, isAnnounced);
    QFETCH(bool, isEnabled);
    MakeMachine(LAN_8021X_STATIC, {"eth0"});
    CorviPeer corvi;
    corvi.Tick(2);
    corvi.WiredDevice()->fallbackEnabled = isEnabled;
    corvi.WiredDevice()->ipAnnounced = isAnnounced;
    corvi.SettleSupplicant(RUNNING);

    corvi.Tick(60);

    QVERIFY(!corvi.WiredDevice()->inFallback);
    QCOMPARE(corvi.WiredDevice()->authWaitTicks, 60);
    QCOMPARE(LogLines().filter("allback"), QStringList());
}

void TestCorviWired::fallbackIsForcedAfterSixtyTicks()
{
    MakeMachine(LAN_8021X_STATIC, {"eth0"});
    CorviPeer corvi;
    corvi.Tick(2);
    corvi.SettleSupplicant(RUNNING);
    corvi.Tick(60);
    bool wasInFallbackWhenStopped = false;
    connect(WpaSuppThread::GetInstance(), &WpaSuppThread::TriggerStopSupplicant, &corvi,
            [&] { wasInFallbackWhenStopped = corvi.WiredDevice()->inFallback; });
    LogFromHere(4);

    corvi.Tick();

    const QStringList lines = LogLines();
    const int decision = lines.indexOf("Corvi::WiredNetworkSetup:: Wired 802.1x Fallback eth0");
    QVERIFY(decision != -1);
    QCOMPARE(lines.at(decision + 1), QString("WpaSuppThread::Stop 5 true 1"));
    QCOMPARE(lines.at(decision + 2), QString("NetworkDevice::ConfigureNetwork -- start  eth0"));
    QCOMPARE(JournalOf("ifconfig"), QStringList{"ifconfig eth0 10.1.0.2 netmask 255.255.255.0 up"});
    QVERIFY(Supervisor::IsStopRequested());
    QVERIFY(wasInFallbackWhenStopped);
    // An unsecured attempt now, and authentication again: the configuration clears the flag.
    QVERIFY(!corvi.WiredDevice()->inFallback);
}

void TestCorviWired::portInFallbackIsLeftAlone()
{
    MakeMachine(LAN_8021X_STATIC, {"eth0"});
    CorviPeer corvi;
    corvi.Tick(2);
    corvi.WiredDevice()->inFallback = true;
    corvi.WiredDevice()->authWaitTicks = 5;
    Supervisor::Set(GONE);
    LogFromHere(4);

    corvi.Tick(3);

    QCOMPARE(Decisions(), QStringList());
    QCOMPARE(corvi.WiredDevice()->authWaitTicks, 5);
    QVERIFY(corvi.WiredDevice()->inFallback);

    // The cable out and in again ends it.
    corvi.WiredDevice()->fallbackEnabled = true;
    PullCable("eth0");
    corvi.Tick();
    QVERIFY(!corvi.WiredDevice()->inFallback);
}

void TestCorviWired::holdOffWithoutNeedStopsTheSupplicant_data()
{
    QTest::addColumn<bool>("running");
    QTest::addColumn<bool>("restarting");
    QTest::addColumn<QStringList>("stop");
    QTest::newRow("none there") << false << false << QStringList();
    QTest::newRow("running") << true << false << QStringList{"WpaSuppThread::Stop 3 true 1"};
    QTest::newRow("restarting") << false << true << QStringList{"WpaSuppThread::Stop 3 false 1"};
}

void TestCorviWired::holdOffWithoutNeedStopsTheSupplicant()
{
    QFETCH(bool, running);
    QFETCH(bool, restarting);
    QFETCH(QStringList, stop);
    MakeInterface("eth0");
    CorviPeer corvi;
    corvi.Tick();
    corvi.BeginHoldOff();
    Supervisor::Set({running, restarting, false});
    LogFromHere(4);

    corvi.ReconfigureWpa(corvi.Device("eth0"));

    QCOMPARE(LogLines(),
             QStringList({"Corvi::ReconfigureWpa 2", "Corvi::ReconfigureWpa wpa not required"}) + stop);
    QVERIFY(!corvi.IsReconfigureWanted());
    QCOMPARE(corvi.HoldOff(), 0);
}

void TestCorviWired::holdOffCountsOneStepACall()
{
    MakeInterface("eth0");
    CorviPeer corvi;
    corvi.Tick();
    NetworkDevice *const device = corvi.Device("eth0");
    device->usesSupplicant = true;
    corvi.BeginHoldOff();
    LogFromHere(4);

    corvi.ReconfigureWpa(device);
    QCOMPARE(corvi.HoldOff(), 1);
    corvi.ReconfigureWpa(device);
    QCOMPARE(corvi.HoldOff(), 0);

    QCOMPARE(LogLines(), QStringList({"Corvi::ReconfigureWpa 2", "Corvi::ReconfigureWpa in Holdoff",
                                      "Corvi::ReconfigureWpa 1", "Corvi::ReconfigureWpa in Holdoff"}));
    QVERIFY(corvi.IsReconfigureWanted());
    QVERIFY(!QFile::exists(SUPPLICANT_FILE));
}

void TestCorviWired::holdOffStopsAnActiveSupplicant_data()
{
    QTest::addColumn<bool>("running");
    QTest::addColumn<bool>("restarting");
    QTest::addColumn<QString>("stop");
    QTest::newRow("running") << true << false << "WpaSuppThread::Stop 4 true 1";
    QTest::newRow("restarting") << false << true << "WpaSuppThread::Stop 4 false 1";
}

void TestCorviWired::holdOffStopsAnActiveSupplicant()
{
    QFETCH(bool, running);
    QFETCH(bool, restarting);
    QFETCH(QString, stop);
    MakeInterface("eth0");
    CorviPeer corvi;
    corvi.Tick();
    NetworkDevice *const device = corvi.Device("eth0");
    device->usesSupplicant = true;
    corvi.BeginHoldOff();
    Supervisor::Set({running, restarting, false});
    LogFromHere(4);

    corvi.ReconfigureWpa(device);

    QCOMPARE(LogLines(), QStringList({"Corvi::ReconfigureWpa 2", stop}));
    QCOMPARE(corvi.HoldOff(), 2);
    QVERIFY(corvi.IsReconfigureWanted());
}

void TestCorviWired::holdOffWaitsForAPendingStop()
{
    MakeInterface("eth0");
    CorviPeer corvi;
    corvi.Tick();
    NetworkDevice *const device = corvi.Device("eth0");
    device->usesSupplicant = true;
    corvi.BeginHoldOff();
    Supervisor::Set(RUNNING);
    Supervisor::SetStopPending(true);
    LogFromHere(4);

    corvi.ReconfigureWpa(device);

    QCOMPARE(LogLines(),
             QStringList({"Corvi::ReconfigureWpa 2", "Corvi::ReconfigureWpa in Holdoff, wst stopping"}));
    QCOMPARE(corvi.HoldOff(), 2);
}

void TestCorviWired::reconfigureWithoutNeedOnlyWritesTheFile()
{
    MakeInterface("eth0");
    CorviPeer corvi;
    corvi.Tick();
    NetworkDevice *const device = corvi.Device("eth0");
    device->authWaitTicks = 5;
    device->inFallback = true;
    corvi.BeginHoldOff(0);
    LogFromHere(4);

    corvi.ReconfigureWpa(device);

    QCOMPARE(LogLines().filter("Corvi::"),
             QStringList({"Corvi::ReconfigureWpa 0", "Corvi::ReconfigureWpa Set reconfigureWpa to false"}));
    QVERIFY(QFile::exists(SUPPLICANT_FILE));
    QVERIFY(!corvi.IsReconfigureWanted());
    QCOMPARE(device->authWaitTicks, 0);
    QVERIFY(!device->inFallback);
    QCOMPARE(JournalOf("wpa_supplicant"), QStringList());
}

void TestCorviWired::linkUpConfiguresTheDevice()
{
    MakeMachine(LAN_DHCP, {"eth0"});
    UseDhcpServer();
    EventListener listener;
    CorviPeer corvi;
    corvi.Tick();
    LogFromHere(4);

    corvi.Tick();

    QCOMPARE(listener.Take(), Events({ASSOCIATION_UP, DHCP_STARTED, ADDRESS_PRESENT}));
    QCOMPARE(StateLines(),
             QStringList({"Wired Device Connected 1 eth0", "Corvi::onWiredStateChange(bool state) 1",
                          "Configure Wired Network", "Configure Wired Network Complete",
                          "Corvi::onWiredStateChange(bool state)  complete"}));
    QCOMPARE(corvi.WiredDevice()->ipAddress, QString("10.0.0.5"));
}

void TestCorviWired::linkLossFlushesTheDevice()
{
    MakeMachine(LAN_STATIC, {"eth0"});
    EventListener listener;
    CorviPeer corvi;
    corvi.Tick(2);
    listener.Take();
    LogFromHere(4);

    PullCable("eth0");
    corvi.Tick();

    QCOMPARE(Journal(), QStringList{"ip addr flush eth0"});
    QCOMPARE(listener.Take(), Events({ASSOCIATION_DOWN}));
    QCOMPARE(StateLines(),
             QStringList({"Wired Device Connected 0 eth0", "Corvi::onWiredStateChange(bool state) 0",
                          "Corvi::onWiredStateChange(bool state)  complete"}));
    QVERIFY(!QFile::exists(SUPPLICANT_FILE));
}

void TestCorviWired::stateChangeWithoutDeviceIsLogged_data()
{
    QTest::addColumn<bool>("state");
    QTest::newRow("up") << true;
    QTest::newRow("down") << false;
}

void TestCorviWired::stateChangeWithoutDeviceIsLogged()
{
    QFETCH(bool, state);
    EventListener listener;
    CorviPeer corvi;
    corvi.Tick();
    LogFromHere(4);

    corvi.onWiredStateChange(state);

    QCOMPARE(LogLines(),
             QStringList({QString("Corvi::onWiredStateChange(bool state) %1").arg(int(state)),
                          "WIRED DEVICE UNDEFINED", "Corvi::onWiredStateChange(bool state)  complete"}));
    QCOMPARE(listener.Take(), Events());
    QCOMPARE(Journal(), QStringList());
}

void TestCorviWired::stateChangeRewritesTheSupplicantFile_data()
{
    QTest::addColumn<bool>("state");
    QTest::addColumn<bool>("usesSupplicant");
    QTest::newRow("up, 802.1X") << true << true;
    QTest::newRow("down, 802.1X") << false << true;
    QTest::newRow("up, unsecured") << true << false;
    QTest::newRow("down, unsecured") << false << false;
}

void TestCorviWired::stateChangeRewritesTheSupplicantFile()
{
    QFETCH(bool, state);
    QFETCH(bool, usesSupplicant);
    MakeMachine(usesSupplicant ? WLAN_AND_8021X : LAN_STATIC, {"eth0", "wlan0"});
    CorviPeer corvi;
    corvi.Tick(2);
    Remove(SUPPLICANT_FILE);
    corvi.NoteReconfigured(true);

    corvi.onWiredStateChange(state);

    QCOMPARE(QFile::exists(SUPPLICANT_FILE), usesSupplicant);
    // From every interface, not from the wired one alone.
    QCOMPARE(ReadFile(SUPPLICANT_FILE).contains("\"Office\""), usesSupplicant);
    QCOMPARE(corvi.IsReconfigureWanted(), usesSupplicant);
}

void TestCorviWired::stateIsReportedOnChangeOnly()
{
    MakeMachine(LAN_STATIC, {"eth0"});
    CorviPeer corvi;
    QSignalSpy changes(&corvi, &Corvi::wiredStateChange);

    corvi.Tick(4);
    QCOMPARE(TakeStates(changes), States{true});

    PullCable("eth0");
    corvi.Tick(3);
    QCOMPARE(TakeStates(changes), States{false});

    PlugCable("eth0");
    corvi.Tick(3);
    QCOMPARE(TakeStates(changes), States{true});
}

void TestCorviWired::stateIsInForceWhenItIsReported()
{
    MakeMachine(LAN_STATIC, {"eth0"});
    CorviPeer corvi;
    States inForce;
    connect(&corvi, &Corvi::wiredStateChange, &corvi, [&] { inForce << corvi.IsWiredUp(); });

    corvi.Tick(2);
    PullCable("eth0");
    corvi.Tick();

    QCOMPARE(inForce, States({true, false}));
}

void TestCorviWired::refreshFileReportsTheStateAgain()
{
    MakeMachine(LAN_STATIC, {"eth0"});
    CorviPeer corvi;
    corvi.Tick(3);
    QSignalSpy changes(&corvi, &Corvi::wiredStateChange);
    Forget();

    WriteFile(REFRESH_FLAG, "");
    corvi.Tick();

    QVERIFY(!QFile::exists(REFRESH_FLAG));
    QCOMPARE(TakeStates(changes), States{true});
    QCOMPARE(JournalOf("ifconfig"), QStringList{"ifconfig eth0 10.1.0.2 netmask 255.255.255.0 up"});

    corvi.Tick();
    QCOMPARE(TakeStates(changes), States());
}

void TestCorviWired::refreshFileWithoutLinkIsConsumed_data()
{
    QTest::addColumn<bool>("hasDevice");
    QTest::newRow("no device") << false;
    QTest::newRow("device without a cable") << true;
}

void TestCorviWired::refreshFileWithoutLinkIsConsumed()
{
    QFETCH(bool, hasDevice);
    WriteStore(LAN_STATIC);
    CorviPeer corvi;
    if (hasDevice)
        MakeInterface("eth0");
    corvi.Tick(2);
    if (hasDevice) {
        PullCable("eth0");
        corvi.Tick();
    }
    QSignalSpy changes(&corvi, &Corvi::wiredStateChange);

    WriteFile(REFRESH_FLAG, "");
    corvi.Tick();

    QVERIFY(!QFile::exists(REFRESH_FLAG));
    QCOMPARE(TakeStates(changes), States());
}

void TestCorviWired::refreshFileDoesNotHideALoss()
{
    MakeMachine(LAN_STATIC, {"eth0"});
    CorviPeer corvi;
    corvi.Tick(3);
    QSignalSpy changes(&corvi, &Corvi::wiredStateChange);
    Forget();

    PullCable("eth0");
    WriteFile(REFRESH_FLAG, "");
    corvi.Tick();

    QCOMPARE(TakeStates(changes), States{false});
    QCOMPARE(Journal(), QStringList{"ip addr flush eth0"});
}

void TestCorviWired::refreshFileReadsTheDeviceAgain()
{
    MakeInterface("eth0");
    CorviPeer corvi;
    corvi.Tick();
    corvi.AdoptWired("eth0");
    corvi.WiredDevice()->ipAddress = "10.0.0.5";
    RealIp({"addr", "add", "10.0.0.7/24", "dev", "eth0"});
    // Without a name among the wired ones, nothing else reads the device.
    corvi.ForgetWiredInterfaces();
    WriteFile(REFRESH_FLAG, "");

    QVERIFY(!corvi.WiredNetworkSetup());

    QCOMPARE(corvi.WiredDevice()->ipAddress, QString("10.0.0.7"));
}

void TestCorviWired::failedDhcpIsRetriedAfterGrowingPauses()
{
    MakeMachine(LAN_DHCP, {"eth0"});
    CorviPeer corvi;
    corvi.Tick(2);
    QCOMPARE(DhcpAttempts(), 1);

    int expected = 1;
    int attempt = 0;
    for (const int pauseSeconds : {10, 20, 40, 60, 60}) {
        corvi.AgeWiredRetry(attempt, std::chrono::seconds(pauseSeconds - 1));
        corvi.Tick();
        QCOMPARE(DhcpAttempts(), expected);

        corvi.AgeWiredRetry(attempt, std::chrono::seconds(pauseSeconds));
        corvi.Tick(3);
        ++expected;
        ++attempt;
        QCOMPARE(DhcpAttempts(), expected);
    }
}

void TestCorviWired::lateServerIsFound()
{
    MakeMachine(LAN_DHCP, {"eth0"});
    EventListener listener;
    CorviPeer corvi;
    corvi.Tick(2);
    QCOMPARE(listener.Take(), Events({ASSOCIATION_UP, DHCP_STARTED}));

    UseDhcpServer();
    corvi.AgeWiredRetry(0, std::chrono::seconds(10));
    corvi.Tick();

    QCOMPARE(listener.Take(), Events({DHCP_STARTED, ADDRESS_PRESENT}));
    QCOMPARE(LogCount("Corvi::RetryDhcp - no address, trying again on eth0"), 1);

    // The address is there: the next loss starts with the shortest pause.
    corvi.Tick();
    QVERIFY(!corvi.IsWiredRetryDue(std::chrono::seconds(0)));
    QVERIFY(corvi.IsWiredRetryDue(std::chrono::seconds(10)));
}

void TestCorviWired::retryNeedsAReason_data()
{
    QTest::addColumn<QByteArray>("store");
    QTest::addColumn<bool>("associated");
    QTest::addColumn<bool>("inFallback");
    QTest::addColumn<bool>("isRetried");
    QTest::newRow("DHCP without an address") << LAN_DHCP << false << false << true;
    QTest::newRow("static address") << LAN_STATIC << false << false << false;
    QTest::newRow("no definition") << QByteArray("<networkconfig/>") << false << false << false;
    QTest::newRow("waits for authentication") << LAN_8021X << false << false << false;
    QTest::newRow("authenticated") << LAN_8021X << true << false << true;
    QTest::newRow("in fallback") << LAN_8021X << false << true << true;
}

void TestCorviWired::retryNeedsAReason()
{
    QFETCH(QByteArray, store);
    QFETCH(bool, associated);
    QFETCH(bool, inFallback);
    QFETCH(bool, isRetried);
    MakeMachine(store, {"eth0"});
    CorviPeer corvi;
    corvi.Tick(2);
    corvi.WiredDevice()->inFallback = inFallback;
    corvi.SettleSupplicant({true, false, associated});
    RealIp({"addr", "flush", "dev", "eth0"});
    corvi.AgeWiredRetry(0, std::chrono::seconds(10));
    Forget();

    corvi.Tick();

    QCOMPARE(DhcpAttempts(), int(isRetried));
    QCOMPARE(LogLines().filter("RetryDhcp").size(), int(isRetried));
}

void TestCorviWired::addressThatCameInTheSameTickNeedsNoRetry()
{
    MakeMachine(LAN_DHCP, {"eth0", "eth1"});
    CorviPeer corvi;
    corvi.Tick(2);
    // The second port is stopped when the first one has been looked at.
    corvi.Device("eth1")->Up();
    Answer("ifconfig", "ip addr add 10.0.0.5/24 dev eth0");
    corvi.AgeWiredRetry(0, std::chrono::seconds(10));
    Forget();

    corvi.Tick();

    QCOMPARE(JournalOf("ifconfig"), QStringList{"ifconfig eth1 down"});
    QCOMPARE(DhcpAttempts(), 0);
    QCOMPARE(corvi.WiredDevice()->ipAddress, QString("10.0.0.5"));
}

void TestCorviWired::retriesStopFillingTheLog()
{
    MakeMachine(LAN_DHCP, {"eth0"});
    CorviPeer corvi;
    corvi.Tick(2);

    for (int attempt = 0; attempt < 6; ++attempt) {
        corvi.AgeWiredRetry(attempt, std::chrono::seconds(60));
        corvi.Tick();
    }

    QCOMPARE(DhcpAttempts(), 7);
    QCOMPARE(LogCount("Corvi::RetryDhcp - no address, trying again on eth0"), 1);
}

void TestCorviWired::lostLinkStartsThePausesAnew()
{
    MakeMachine(LAN_DHCP, {"eth0"});
    CorviPeer corvi;
    corvi.Tick(2);
    corvi.AgeWiredRetry(3, std::chrono::seconds(0));

    PullCable("eth0");
    corvi.Tick();

    QVERIFY(!corvi.IsWiredRetryDue(std::chrono::seconds(0)));
    QVERIFY(corvi.IsWiredRetryDue(std::chrono::seconds(10)));
}

void TestCorviWired::dhcpEventUpdatesTheDevicesItNames_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QStringList>("updated");
    QTest::newRow("wired") << QByteArray("BOUND eth0\n") << QStringList{"eth0"};
    QTest::newRow("wireless") << QByteArray("BOUND wlan0\n") << QStringList{"wlan0"};
    QTest::newRow("wireless of the other name") << QByteArray("BOUND mlan0\n") << QStringList{"wlan0"};
    QTest::newRow("modem") << QByteArray("BOUND wwan0\n") << QStringList{"wwan0"};
    QTest::newRow("all") << QByteArray("eth wlan wwan") << QStringList{"eth0", "wlan0", "wwan0"};
    QTest::newRow("none") << QByteArray("usb0") << QStringList();
    QTest::newRow("empty") << QByteArray() << QStringList();
}

void TestCorviWired::dhcpEventUpdatesTheDevicesItNames()
{
    QFETCH(QByteArray, text);
    EventListener listener;
    for (const char *name : {"eth0", "wlan0", "wwan0"})
        MakeInterface(name);
    CorviPeer corvi;
    corvi.Tick();
    corvi.AdoptWired("eth0");
    corvi.PickWireless("wlan0");
    for (const char *name : {"eth0", "wlan0", "wwan0"}) {
        corvi.Device(name)->ipAddress = "10.0.0.5";
        corvi.Device(name)->isUp = true;
    }
    WriteFile(DHCP_EVENT, text);

    corvi.CheckDhcpEvent();

    QStringList updated;
    for (const char *name : {"eth0", "wlan0", "wwan0"}) {
        if (corvi.Device(name)->ipAnnounced)
            updated << name;
    }
    QTEST(updated, "updated");
    QCOMPARE(listener.Take(), Events(updated.size(), ADDRESS_PRESENT));
    QVERIFY(!QFile::exists(DHCP_EVENT));
}

void TestCorviWired::dhcpEventIsReadOnce()
{
    EventListener listener;
    CorviPeer corvi;

    corvi.CheckDhcpEvent();
    WriteFile(DHCP_EVENT, "eth0 wlan0 wwan0");
    corvi.CheckDhcpEvent();

    QVERIFY(!QFile::exists(DHCP_EVENT));
    QCOMPARE(listener.Take(), Events());
}

void TestCorviWired::dhcpEventIsAPlainFile_data()
{
    QTest::addColumn<bool>("isPipe");
    QTest::newRow("named pipe") << true;
    QTest::newRow("symbolic link") << false;
}

void TestCorviWired::dhcpEventIsAPlainFile()
{
    QFETCH(bool, isPipe);
    EventListener listener;
    MakeInterface("eth0");
    CorviPeer corvi;
    corvi.Tick();
    corvi.AdoptWired("eth0");
    corvi.WiredDevice()->ipAddress = "10.0.0.5";
    corvi.WiredDevice()->isUp = true;
    WriteFile("/tmp/event_elsewhere", "BOUND eth0");
    if (isPipe)
        QCOMPARE(::mkfifo(QFile::encodeName(DHCP_EVENT).constData(), 0600), 0);
    else
        QVERIFY(QFile::link("/tmp/event_elsewhere", DHCP_EVENT));

    corvi.CheckDhcpEvent();

    QVERIFY(!corvi.WiredDevice()->ipAnnounced);
    QCOMPARE(listener.Take(), Events());
    QVERIFY(!QFileInfo(DHCP_EVENT).isSymLink() && !QFile::exists(DHCP_EVENT));
    QVERIFY(QFile::exists("/tmp/event_elsewhere"));
}

QTEST_GUILESS_MAIN(TestCorviWired)
#include "tst_corvi_wired.moc"
