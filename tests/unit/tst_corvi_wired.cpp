// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "corvipeer.h"
#include "fakesysnet.h"

#include <QSignalSpy>

using namespace CorviWorld;
using namespace TestSupport;

namespace {

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

/// The wired network: the choice of the device, changes of its state.
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
    void portOfABridgeIsNotChosen();
    void portOfABridgeIsNotStopped();
    void deviceBelowTheFirstOneIsNotStopped_data();
    void deviceBelowTheFirstOneIsNotStopped();
    void deviceThatIsDownIsStarted();
    void secondCableIsStopped();
    void manyLinksAreToldOfInAFewLines();
    void secondCableIsToldToStopOnEveryTick();
    void secondCableTakesOver();
    void cableInTheSecondPortIsFound();
    void changeOfDeviceIsAnnounced();
    void tickWithoutACarrierKeepsTheDevice();
    void everyTickWithACarrierArmsTheWait();
    void deviceWithAnAddressIsReadOnceATick();

    // Changes of state
    void linkUpConfiguresTheDevice();
    void linkLossFlushesTheDevice();
    void onlyConcreteDevicesAreLookedAt();
    void stateChangeWithoutDeviceIsLogged_data();
    void stateChangeWithoutDeviceIsLogged();
    void stateChangeRewritesTheSupplicantFile_data();
    void stateChangeRewritesTheSupplicantFile();
    void stateIsReportedOnChangeOnly();
    void stateIsInForceWhenItIsReported();
    void refreshFileReportsTheStateAgain();
    void refreshFileWithoutLinkIsConsumed_data();
    void refreshFileWithoutLinkIsConsumed();
    void refreshFolderReportsTheStateOnce();
    void refreshFileDoesNotHideALoss();
    void refreshFileReadsTheDeviceAgain();
};

void TestCorviWired::init()
{
    StartFromNothing();
}

void TestCorviWired::firstDeviceThatCarriesIsChosen()
{
    CorviPeer corvi(LAN_STATIC, {"eth1", "eth0"}, DISCOVERED);
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
    CorviPeer corvi(DISCOVERED);
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
    CorviPeer corvi(DISCOVERED);

    QVERIFY(!corvi.WiredNetworkSetup());
}

void TestCorviWired::missingDeviceIsSkipped()
{
    CorviPeer corvi(LAN_STATIC, {"eth1"}, DISCOVERED);
    corvi.LoseInterface("eth0");
    LogFromHere(4);

    QVERIFY(corvi.WiredNetworkSetup());

    QCOMPARE(LogLines().first(), QString("1: Could not find device for  eth0"));
    QCOMPARE(corvi.WiredDevice(), corvi.Device("eth1"));
}

void TestCorviWired::portOfABridgeIsNotChosen()
{
    CorviPeer corvi(LAN_STATIC, {"eth0", "eth1"}, DISCOVERED);
    corvi.Device("eth0")->isBridgePort = true;

    QVERIFY(corvi.WiredNetworkSetup());

    QCOMPARE(corvi.WiredDevice(), corvi.Device("eth1"));
}

void TestCorviWired::portOfABridgeIsNotStopped()
{
    CorviPeer corvi(LAN_STATIC, {"eth0", "eth1"}, DISCOVERED);
    corvi.Device("eth1")->isBridgePort = true;
    Forget();

    QVERIFY(corvi.WiredNetworkSetup());

    QVERIFY(!corvi.Device("eth1")->stopped);
    QCOMPARE(JournalOf("ifconfig eth1"), QStringList());
    QCOMPARE(LogLines().filter("is also up"), QStringList());
}

void TestCorviWired::deviceBelowTheFirstOneIsNotStopped_data()
{
    QTest::addColumn<QString>("upper");
    QTest::addColumn<bool>("isStopped");
    QTest::newRow("below it") << "eth0" << false;
    QTest::newRow("below another") << "data0" << true;
}

/// As the adapter of a VLAN, whose carrier goes with its own.
void TestCorviWired::deviceBelowTheFirstOneIsNotStopped()
{
    QFETCH(QString, upper);
    CorviPeer corvi(LAN_STATIC, {"eth0", "eth1"}, DISCOVERED);
    FakeSysNet folder;
    folder.Add("eth1");
    folder.Write("eth0/carrier", "1\n");
    folder.Write("eth1/carrier", "1\n");
    QVERIFY(QFile::link("../" + upper, FakeSysNet::Path("eth1/upper_" + upper)));
    Forget();

    QVERIFY(corvi.WiredNetworkSetup());

    QTEST(corvi.Device("eth1")->stopped, "isStopped");
    QTEST(!JournalOf("ifconfig eth1").isEmpty(), "isStopped");
}

void TestCorviWired::deviceThatIsDownIsStarted()
{
    CorviPeer corvi({"eth0"}, DISCOVERED);
    RealIp({"link", "set", "dev", "eth0", "down"});
    corvi.Device("eth0")->linkUp = false;
    LogFromHere(4);

    QVERIFY(!corvi.WiredNetworkSetup());

    QCOMPARE(LogLines().first(), QString("eth0  is not up so start it"));
    QCOMPARE(Journal(), QStringList{"ifconfig eth0 up"});
}

/// As those of a hundred containers.
void TestCorviWired::manyLinksAreToldOfInAFewLines()
{
    QStringList names{"eth0"};
    for (int i = 10; i < 20; ++i)
        names << QString("veth%1").arg(i);
    CorviPeer corvi(LAN_STATIC, names, DISCOVERED);
    Forget();

    corvi.Tick();

    const auto told = LogLines().filter("is also up").size();
    QVERIFY2(told >= 1 && told <= 5, qPrintable(QString::number(told)));
    QCOMPARE(JournalOf("ifconfig veth").size(), 10);
}

void TestCorviWired::secondCableIsStopped()
{
    CorviPeer corvi(LAN_STATIC, {"eth0", "eth1", "eth2"}, DISCOVERED);
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
    CorviPeer corvi(SET_UP);
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
    CorviPeer corvi(LAN_STATIC, {"eth0"}, SET_UP);
    corvi.WaitForWireless(1);

    PullCable("eth0");
    QVERIFY(!corvi.WiredNetworkSetup());

    QCOMPARE(corvi.WiredDevice(), corvi.Device("eth0"));
    QCOMPARE(corvi.WirelessDelay(), 1);
}

void TestCorviWired::everyTickWithACarrierArmsTheWait()
{
    CorviPeer corvi(LAN_STATIC, {"eth0"}, SET_UP);
    PullCable("eth0");
    corvi.Tick(3);
    QCOMPARE(corvi.WirelessDelay(), 0);

    PlugCable("eth0");
    corvi.Tick();

    // Without a change of the device.
    QCOMPARE(corvi.WirelessDelay(), 2);
}

void TestCorviWired::deviceWithAnAddressIsReadOnceATick()
{
    CorviPeer corvi(LAN_STATIC, {"eth0", "eth1"}, SET_UP);
    // The second port is stopped when the first one has been read.
    corvi.Device("eth1")->Up();
    Answer("ifconfig", "ip addr flush dev eth0; ip addr add 10.0.0.5/24 dev eth0");
    Forget();

    QVERIFY(corvi.WiredNetworkSetup());

    QCOMPARE(JournalOf("ifconfig"), QStringList{"ifconfig eth1 down"});
    QCOMPARE(corvi.WiredDevice()->ipAddress, QString("10.1.0.2"));
}

void TestCorviWired::linkUpConfiguresTheDevice()
{
    MakeMachine(LAN_DHCP, {"eth0"});
    UseDhcpServer();
    EventListener listener;
    CorviPeer corvi(DISCOVERED);
    LogFromHere(4);

    corvi.Tick();

    QCOMPARE(listener.Take(), Events({ASSOCIATION_UP, DHCP_STARTED, ADDRESS_PRESENT}));
    QCOMPARE(StateLines(), QStringList({"Wired Device Connected 1", "Corvi::onWiredStateChange(bool state) 1",
                                        "Configure Wired Network", "Configure Wired Network Complete",
                                        "Corvi::onWiredStateChange(bool state)  complete"}));
    QCOMPARE(corvi.WiredDevice()->ipAddress, QString("10.0.0.5"));
}

void TestCorviWired::linkLossFlushesTheDevice()
{
    MakeMachine(LAN_STATIC, {"eth0"});
    EventListener listener;
    CorviPeer corvi(SET_UP);
    listener.Take();
    LogFromHere(4);

    PullCable("eth0");
    corvi.Tick();

    QCOMPARE(Journal(), QStringList{"ip addr flush eth0"});
    QCOMPARE(listener.Take(), Events({ASSOCIATION_DOWN}));
    QCOMPARE(StateLines(), QStringList({"Wired Device Connected 0", "Corvi::onWiredStateChange(bool state) 0",
                                        "Corvi::onWiredStateChange(bool state)  complete"}));
    QVERIFY(!QFile::exists(SUPPLICANT_FILE));
}

void TestCorviWired::onlyConcreteDevicesAreLookedAt()
{
    CorviPeer corvi(LAN_STATIC, {"eth0"}, SET_UP);
    corvi.Device("eth0")->configurable = true;
    PullCable("eth0");

    corvi.Tick();
    QVERIFY(corvi.Device("eth0")->isRunning);

    corvi.Device("eth0")->configurable = false;
    corvi.Tick();
    QVERIFY(!corvi.Device("eth0")->isRunning);
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
    CorviPeer corvi(DISCOVERED);
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
    CorviPeer corvi(usesSupplicant ? WLAN_AND_8021X : LAN_STATIC, {"eth0", "wlan0"}, SET_UP);
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
    CorviPeer corvi(LAN_STATIC, {"eth0"});
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
    CorviPeer corvi(LAN_STATIC, {"eth0"});
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

void TestCorviWired::refreshFolderReportsTheStateOnce()
{
    MakeMachine(LAN_STATIC, {"eth0"});
    CorviPeer corvi;
    corvi.Tick(3);
    QSignalSpy changes(&corvi, &Corvi::wiredStateChange);

    WriteFile(REFRESH_FLAG + "/file", "");
    corvi.Tick(3);

    QVERIFY(!QFile::exists(REFRESH_FLAG));
    QCOMPARE(TakeStates(changes), States{true});
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
    CorviPeer corvi({"eth0"}, DISCOVERED);
    corvi.AdoptWired("eth0");
    corvi.WiredDevice()->ipAddress = "10.0.0.5";
    RealIp({"addr", "add", "10.0.0.7/24", "dev", "eth0"});
    // Without a name among the wired ones, nothing else reads the device.
    corvi.ForgetWiredInterfaces();
    WriteFile(REFRESH_FLAG, "");

    QVERIFY(!corvi.WiredNetworkSetup());

    QCOMPARE(corvi.WiredDevice()->ipAddress, QString("10.0.0.7"));
}

QTEST_GUILESS_MAIN(TestCorviWired)
#include "tst_corvi_wired.moc"
