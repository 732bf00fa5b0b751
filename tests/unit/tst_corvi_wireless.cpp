// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "corvipeer.h"

#include "zebnetstatus.h"

using namespace CorviWorld;
using namespace TestSupport;

namespace {

const QString START = "Corvi::Loop:: Start wpa_supplicant, Driver= wext,nl80211";

/// What the service itself logs, without the devices and the supplicant's file.
QStringList OwnLines()
{
    return LogLines().filter(QRegularExpression(
        "^(Corvi::|Check for|!wired|Wireless |Setup |Start |Restart |Set |wirelessInter|2: )"));
}

QByteArray SupplicantFile()
{
    return ReadFile(SUPPLICANT_FILE);
}

} // namespace

/// The wireless network and the supplicant's file. The supervisor's state is set by hand.
class TestCorviWireless : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    // Wired has precedence
    void wiredStopsAndForgetsWireless();
    void keepFileLeavesWirelessAsItIs();
    void wiredWithoutWirelessDoesNothing();
    void wirelessIsPickedAfreshAfterWired();

    // Without a device
    void noWirelessInterfaceDoesNothing();
    void missingDeviceIsSkipped();
    void firstDeviceByNameIsUsed();
    void firstBringUpStartsTheDevice();
    void fileThatIsCurrentIsNotWrittenAgain();
    void carrierThatIsThereIsUsed();

    // With a device
    void unconfiguredDeviceBeginsTheHoldOff();
    void holdOffGoesOnEveryTick();
    void nothingIsToDoWhileTheSupplicantRuns();
    void supplicantThatIsGoneIsStartedAgain();
    void supplicantThatRestartsIsNotStartedAgain();
    void changedFileStopsTheSupplicant();
    void resultTellsWhetherWirelessIsConfigured();

    // DHCP retries
    void addressIsRetriedWhileAssociated_data();
    void addressIsRetriedWhileAssociated();
    void deviceThatMissedItsEventIsConfigured();

    // Association
    void associationConfiguresWireless();
    void lossOfAssociationIsOnlyReported();
    void associationOfAWiredDevice_data();
    void associationOfAWiredDevice();
    void associationWithoutDevices_data();
    void associationWithoutDevices();
    void slotsOfSilentSignalsOnlyLog();

    // The supplicant's file
    void fileHoldsTheNamedInterface_data();
    void fileHoldsTheNamedInterface();
    void fileHoldsWhoContributes_data();
    void fileHoldsWhoContributes();
    void fileIsTracedByInterface();
    void fileThatCannotBeWrittenIsLogged();
};

void TestCorviWireless::init()
{
    StartFromNothing();
}

void TestCorviWireless::wiredStopsAndForgetsWireless()
{
    MakeInterface("wlan0");
    CorviPeer corvi;
    corvi.Tick();
    corvi.AdoptWireless("wlan0");
    corvi.WirelessDevice()->Up();
    LogFromHere(4);

    corvi.WirelessNetworkSetup(true);

    QCOMPARE(OwnLines(), QStringList({"Corvi::Loop:: Stopping wireless device", "Set wireless device to 0"}));
    QCOMPARE(Journal(), QStringList{"ifconfig wlan0 down"});
    QVERIFY(corvi.Device("wlan0")->stopped);
    QVERIFY(!corvi.WirelessDevice());
    QVERIFY(!corvi.IsWirelessConfigured());
}

void TestCorviWireless::keepFileLeavesWirelessAsItIs()
{
    MakeInterface("wlan0");
    CorviPeer corvi;
    corvi.Tick();
    corvi.AdoptWireless("wlan0");
    corvi.WirelessDevice()->Up();
    WriteFile(KEEP_WIRELESS_FLAG, "");
    LogFromHere(4);

    corvi.WirelessNetworkSetup(true);

    QCOMPARE(LogLines(), QStringList());
    QCOMPARE(Journal(), QStringList());
    QCOMPARE(corvi.WirelessDevice(), corvi.Device("wlan0"));
    QVERIFY(corvi.IsWirelessConfigured());
}

void TestCorviWireless::wiredWithoutWirelessDoesNothing()
{
    MakeInterface("wlan0");
    CorviPeer corvi;
    corvi.Tick();
    LogFromHere(6);

    corvi.WirelessNetworkSetup(true);

    QCOMPARE(LogLines(), QStringList());
    QCOMPARE(Journal(), QStringList());
}

void TestCorviWireless::wirelessIsPickedAfreshAfterWired()
{
    MakeMachine(LAN_STATIC, {"eth0", "wlan0"});
    PullCable("eth0");
    CorviPeer corvi;
    corvi.Tick(4);
    QCOMPARE(corvi.WirelessDevice(), corvi.Device("wlan0"));

    PlugCable("eth0");
    corvi.Tick();
    QVERIFY(!corvi.WirelessDevice());
    QVERIFY(!corvi.IsWirelessConfigured());

    PullCable("eth0");
    corvi.Tick(2);
    QVERIFY(!corvi.WirelessDevice());
    corvi.Tick();
    QCOMPARE(corvi.WirelessDevice(), corvi.Device("wlan0"));
}

void TestCorviWireless::noWirelessInterfaceDoesNothing()
{
    CorviPeer corvi;
    corvi.Tick();
    LogFromHere(4);

    corvi.WirelessNetworkSetup(false);

    QCOMPARE(LogLines(), QStringList{"Corvi::WirelessNetworkSetup -- Wireless Device not defined"});
    QCOMPARE(Journal(), QStringList());
}

void TestCorviWireless::missingDeviceIsSkipped()
{
    MakeInterface("wlan1");
    CorviPeer corvi;
    corvi.Tick();
    corvi.LoseInterface("wlan0");
    LogFromHere(4);

    corvi.WirelessNetworkSetup(false);

    QCOMPARE(OwnLines().mid(0, 3),
             QStringList({"Corvi::WirelessNetworkSetup -- Wireless Device not defined",
                          "2: Could not find device for  wlan0", "Check for wireless already connected"}));
    QCOMPARE(corvi.WirelessDevice(), corvi.Device("wlan1"));
}

void TestCorviWireless::firstDeviceByNameIsUsed()
{
    MakeInterface("wlan1");
    MakeInterface("wlan0");
    CorviPeer corvi;
    corvi.Tick();
    Forget();

    corvi.WirelessNetworkSetup(false);

    QCOMPARE(corvi.WirelessDevice(), corvi.Device("wlan0"));
    QCOMPARE(JournalOf("ifconfig wlan1"), QStringList());
}

void TestCorviWireless::firstBringUpStartsTheDevice()
{
    MakeMachine(WLAN, {"wlan0"});
    PullCable("wlan0");
    CorviPeer corvi;
    corvi.Tick();
    corvi.LeaveHoldOff(0);
    Corvi::conn_counter = 5;
    LogFromHere(4);

    corvi.WirelessNetworkSetup(false);

    QCOMPARE(OwnLines(),
             QStringList({"Corvi::WirelessNetworkSetup -- Wireless Device not defined",
                          "Check for wireless already connected", "Wireless not Connected ",
                          "Wireless Start up wpa supplicant", "Setup wpa config file",
                          "Start Wireless interface", "wirelessInterfaces: named networks:  Office", START,
                          "Corvi::ReconfigureWpa 2", "Corvi::ReconfigureWpa in Holdoff"}));
    // Started, then brought up once more.
    QCOMPARE(JournalOf("ifconfig"), QStringList({"ifconfig wlan0 up", "ifconfig wlan0 up"}));
    QVERIFY(corvi.Device("wlan0")->timer->isActive());
    QVERIFY(SupplicantFile().contains("Office"));
    QCOMPARE(corvi.HoldOff(), 1);
    QVERIFY(corvi.IsReconfigureWanted());
    QVERIFY(corvi.Flags().contains("wpaConfUpdated"));
    QVERIFY(corvi.IsWirelessConfigured());
    QCOMPARE(corvi.WirelessDevice(), corvi.Device("wlan0"));
    QCOMPARE(Corvi::conn_counter, 5);
}

void TestCorviWireless::fileThatIsCurrentIsNotWrittenAgain()
{
    MakeMachine(WLAN, {"wlan0"});
    CorviPeer corvi;
    corvi.Tick();
    corvi.NoteFileWritten(true);
    LogFromHere(4);

    corvi.WirelessNetworkSetup(false);

    QCOMPARE(LogCount("Setup wpa config file"), 0);
    QVERIFY(!QFile::exists(SUPPLICANT_FILE));
    QCOMPARE(LogCount("Start Wireless interface"), 1);
}

void TestCorviWireless::carrierThatIsThereIsUsed()
{
    MakeMachine(WLAN, {"wlan0"});
    BringUp("wlan0");
    CorviPeer corvi;
    corvi.Tick();
    Corvi::conn_counter = 5;
    LogFromHere(4);

    corvi.WirelessNetworkSetup(false);

    QCOMPARE(OwnLines(),
             QStringList({"Corvi::WirelessNetworkSetup -- Wireless Device not defined",
                          "Check for wireless already connected", "!wiredConnected, wireless connected"}));
    QCOMPARE(Corvi::conn_counter, 0);
    QCOMPARE(corvi.WirelessDevice(), corvi.Device("wlan0"));
    QVERIFY(!corvi.IsWirelessConfigured());
    // It is up already.
    QCOMPARE(Journal(), QStringList());
}

void TestCorviWireless::unconfiguredDeviceBeginsTheHoldOff()
{
    MakeMachine(WLAN, {"wlan0"});
    CorviPeer corvi;
    corvi.Tick();
    corvi.PickWireless("wlan0");
    corvi.LeaveHoldOff(0);
    LogFromHere(4);

    corvi.WirelessNetworkSetup(false);

    // Once for the beginning, once for the tick.
    QCOMPARE(OwnLines(), QStringList({"Corvi::WirelessNetworkSetup -- Wireless Device defined",
                                      "Corvi::ReconfigureWpa 2", "Corvi::ReconfigureWpa in Holdoff",
                                      "Corvi::WirelessNetworkSetup wirelessConnected  0  reconfigureWpa ",
                                      "Corvi::Loop:: reconfigureWpa -- Update conf File",
                                      "Corvi::ReconfigureWpa 1", "Corvi::ReconfigureWpa in Holdoff"}));
    QVERIFY(corvi.IsWirelessConfigured());
    QVERIFY(corvi.IsReconfigureWanted());
    QCOMPARE(corvi.HoldOff(), 0);
}

void TestCorviWireless::holdOffGoesOnEveryTick()
{
    MakeMachine(WLAN, {"wlan0"});
    CorviPeer corvi;
    corvi.Tick();
    corvi.AdoptWireless("wlan0");
    corvi.BeginHoldOff();

    corvi.WirelessNetworkSetup(false);
    QCOMPARE(corvi.HoldOff(), 1);

    // Something else starts one meanwhile: it is stopped, and nothing is counted.
    Supervisor::Set(RUNNING);
    corvi.WirelessNetworkSetup(false);
    QCOMPARE(corvi.HoldOff(), 1);
    QVERIFY(Supervisor::IsStopRequested());

    Supervisor::Set(GONE);
    corvi.WirelessNetworkSetup(false);
    QCOMPARE(corvi.HoldOff(), 0);
    QVERIFY(corvi.IsReconfigureWanted());
}

void TestCorviWireless::nothingIsToDoWhileTheSupplicantRuns()
{
    MakeInterface("wlan0");
    CorviPeer corvi;
    corvi.Tick();
    corvi.AdoptWireless("wlan0");
    corvi.SettleSupplicant(RUNNING);
    LogFromHere(4);

    corvi.WirelessNetworkSetup(false);

    QCOMPARE(LogLines(), QStringList{"Corvi::WirelessNetworkSetup -- Wireless Device defined"});
    QCOMPARE(Journal(), QStringList());
}

void TestCorviWireless::supplicantThatIsGoneIsStartedAgain()
{
    MakeInterface("wlan0");
    CorviPeer corvi;
    corvi.Tick();
    corvi.AdoptWireless("wlan0");
    corvi.LeaveHoldOff(0);
    corvi.SettleSupplicant(GONE);
    ClearLog();

    corvi.WirelessNetworkSetup(false);

    QCOMPARE(LogCount("Restart Wireless interface"), 1);
    QVERIFY(corvi.IsReconfigureWanted());
    QCOMPARE(corvi.HoldOff(), 1);

    corvi.WirelessNetworkSetup(false);
    QCOMPARE(LogCount("Restart Wireless interface"), 1);
    QCOMPARE(corvi.HoldOff(), 0);
}

void TestCorviWireless::supplicantThatRestartsIsNotStartedAgain()
{
    MakeInterface("wlan0");
    CorviPeer corvi;
    corvi.Tick();
    corvi.AdoptWireless("wlan0");
    corvi.SettleSupplicant(RESTARTING);
    ClearLog();

    corvi.WirelessNetworkSetup(false);

    QCOMPARE(LogLines(), QStringList());
    QVERIFY(!corvi.IsReconfigureWanted());
}

void TestCorviWireless::changedFileStopsTheSupplicant()
{
    MakeInterface("wlan0");
    CorviPeer corvi;
    corvi.Tick();
    corvi.AdoptWireless("wlan0");
    corvi.BeginHoldOff();
    Supervisor::Set(ASSOCIATED);
    LogFromHere(4);

    corvi.WirelessNetworkSetup(false);

    QCOMPARE(LogLines().filter("WpaSuppThread"), QStringList{"WpaSuppThread::Stop 4 true 1"});
}

void TestCorviWireless::resultTellsWhetherWirelessIsConfigured()
{
    CorviPeer corvi;
    corvi.Tick();
    QCOMPARE(corvi.WirelessNetworkSetup(false), 0);

    MakeInterface("wlan0");
    corvi.ForceRescan();
    corvi.Tick();
    QCOMPARE(corvi.WirelessNetworkSetup(false), 1);
    QCOMPARE(corvi.WirelessNetworkSetup(true), 0);
}

void TestCorviWireless::addressIsRetriedWhileAssociated_data()
{
    QTest::addColumn<bool>("associated");
    QTest::addColumn<bool>("hasCarrier");
    QTest::addColumn<bool>("hasAddress");
    QTest::addColumn<int>("ageSeconds");
    QTest::addColumn<int>("attempts");
    QTest::newRow("associated, no address, due") << true << true << false << 10 << 1;
    QTest::newRow("not due yet") << true << true << false << 9 << 0;
    QTest::newRow("not associated") << false << true << false << 10 << 0;
    QTest::newRow("no carrier") << true << false << false << 10 << 0;
    QTest::newRow("has an address") << true << true << true << 10 << 0;
}

void TestCorviWireless::addressIsRetriedWhileAssociated()
{
    QFETCH(bool, associated);
    QFETCH(bool, hasCarrier);
    QFETCH(bool, hasAddress);
    QFETCH(int, ageSeconds);
    MakeMachine(WLAN, {"wlan0"});
    BringUp("wlan0");
    if (!hasCarrier)
        PullCable("wlan0");
    CorviPeer corvi;
    corvi.Tick();
    corvi.AdoptWireless("wlan0");
    corvi.WirelessDevice()->ConfigureNetwork(true);
    if (hasAddress)
        RealIp({"addr", "add", "10.0.0.5/24", "dev", "wlan0"});
    corvi.SettleSupplicant({true, false, associated});
    corvi.AgeWirelessRetry(0, std::chrono::seconds(ageSeconds));
    Forget();

    corvi.WirelessNetworkSetup(false);

    QTEST(DhcpAttempts(), "attempts");
}

void TestCorviWireless::deviceThatMissedItsEventIsConfigured()
{
    // The supplicant was connected before anybody listened to it.
    MakeMachine(WLAN, {"wlan0"});
    UseDhcpServer();
    BringUp("wlan0");
    CorviPeer corvi;
    corvi.Tick();
    corvi.AdoptWireless("wlan0");
    corvi.SettleSupplicant(ASSOCIATED);
    corvi.AgeWirelessRetry(0, std::chrono::seconds(10));

    corvi.WirelessNetworkSetup(false);

    QCOMPARE(corvi.WirelessDevice()->ipAddress, QString("10.0.0.5"));
}

void TestCorviWireless::associationConfiguresWireless()
{
    MakeMachine(WLAN, {"eth0", "wlan0"});
    UseDhcpServer();
    BringUp("wlan0");
    EventListener listener;
    CorviPeer corvi;
    corvi.Tick();
    // Wireless comes first where there is a wired device too.
    corvi.AdoptWired("eth0");
    corvi.PickWireless("wlan0");
    LogFromHere(4);

    corvi.onAssociatedChanged(true);

    QCOMPARE(listener.Take(), Events({ASSOCIATION_UP, DHCP_STARTED, ADDRESS_PRESENT}));
    QCOMPARE(OwnLines(), QStringList({"Corvi::onAssociatedChanged(bool state) 1",
                                      "Corvi::onAssociatedChanged start on_wifi_assoc"}));
    QVERIFY(WaitForJournal(Journal().size() + (JournalOf("on_wifi_assoc").isEmpty() ? 1 : 0)));
    const QStringList journal = Journal();
    QCOMPARE(journal.mid(journal.size() - 3),
             QStringList({"killall -9 on_wifi_assoc", "killall -9 qwebauth", "on_wifi_assoc"}));
    QVERIFY(journal.indexOf("dhclient -v -cf /etc/dhcp/dhclient.conf wlan0") < journal.size() - 3);
    QVERIFY(corvi.WirelessDevice()->isRunning);
}

void TestCorviWireless::lossOfAssociationIsOnlyReported()
{
    MakeMachine(WLAN, {"wlan0"});
    EventListener listener;
    CorviPeer corvi;
    corvi.Tick();
    corvi.PickWireless("wlan0");
    BringUp("wlan0");
    Forget();

    corvi.onAssociatedChanged(false);

    QCOMPARE(listener.Take(), Events({ASSOCIATION_DOWN}));
    QCOMPARE(Journal(), QStringList());
    // Read again before it is published.
    QVERIFY(corvi.WirelessDevice()->isRunning);
    ZebNetStatus published;
    QVERIFY(published.SetData(corvi.Segment()));
    QVERIFY(published.IsConnected());
}

void TestCorviWireless::associationOfAWiredDevice_data()
{
    QTest::addColumn<bool>("state");
    QTest::newRow("associated") << true;
    QTest::newRow("lost") << false;
}

void TestCorviWireless::associationOfAWiredDevice()
{
    QFETCH(bool, state);
    MakeMachine(LAN_DHCP, {"eth0"});
    UseDhcpServer();
    BringUp("eth0");
    EventListener listener;
    CorviPeer corvi;
    corvi.Tick();
    corvi.AdoptWired("eth0");
    LogFromHere(4);

    corvi.onAssociatedChanged(state);

    QCOMPARE(OwnLines(), QStringList({QString("Corvi::onAssociatedChanged(bool state) %1").arg(int(state)),
                                      "Wireless device not defined"}));
    QCOMPARE(listener.Take(),
             state ? Events({ASSOCIATION_UP, DHCP_STARTED, ADDRESS_PRESENT}) : Events({ASSOCIATION_DOWN}));
    QCOMPARE(DhcpAttempts(), int(state));
    QCOMPARE(JournalOf("killall"), QStringList());
}

void TestCorviWireless::associationWithoutDevices_data()
{
    QTest::addColumn<bool>("state");
    QTest::newRow("associated") << true;
    QTest::newRow("lost") << false;
}

void TestCorviWireless::associationWithoutDevices()
{
    QFETCH(bool, state);
    EventListener listener;
    CorviPeer corvi;
    corvi.Tick();
    LogFromHere(4);

    corvi.onAssociatedChanged(state);

    QCOMPARE(LogLines(), QStringList({QString("Corvi::onAssociatedChanged(bool state) %1").arg(int(state)),
                                      "Wireless and Wired devices not defined"}));
    QCOMPARE(listener.Take(), Events());
    QCOMPARE(Journal(), QStringList());
}

void TestCorviWireless::slotsOfSilentSignalsOnlyLog()
{
    CorviPeer corvi;
    LogFromHere(4);

    corvi.onWifiConnected();
    corvi.onScanningFailed();

    QCOMPARE(LogLines(), QStringList({"Corvi::onWifiConnected()", "Corvi::onScanningFailed()"}));
    QCOMPARE(Journal(), QStringList());
}

void TestCorviWireless::fileHoldsTheNamedInterface_data()
{
    QTest::addColumn<QString>("interfaceName");
    QTest::addColumn<bool>("hasWired");
    QTest::addColumn<bool>("hasWireless");
    QTest::newRow("every one") << "" << true << true;
    QTest::newRow("wired") << "eth0" << true << false;
    QTest::newRow("wireless") << "wlan0" << false << true;
    QTest::newRow("unknown") << "eth7" << false << false;
}

void TestCorviWireless::fileHoldsTheNamedInterface()
{
    QFETCH(QString, interfaceName);
    QFETCH(bool, hasWired);
    QFETCH(bool, hasWireless);
    MakeMachine(WLAN_AND_8021X, {"eth0", "wlan0"});
    CorviPeer corvi;
    corvi.Tick(2);
    QVERIFY(corvi.Device("eth0")->usesSupplicant && corvi.Device("eth0")->isRunning);
    corvi.NoteFileWritten(false);

    corvi.UpdateWpaConfFile(interfaceName);

    const QByteArray file = SupplicantFile();
    QCOMPARE(file.contains("IEEE8021X"), hasWired);
    QCOMPARE(file.contains("\"Office\""), hasWireless);
    QCOMPARE(corvi.FileContents().contains("IEEE8021X"), hasWired);
    QCOMPARE(corvi.FileContents().contains("\"Office\""), hasWireless);
    QVERIFY(corvi.Flags().contains("wpaConfUpdated"));
}

void TestCorviWireless::fileHoldsWhoContributes_data()
{
    QTest::addColumn<QString>("interfaceName");
    QTest::addColumn<bool>("usesSupplicant");
    QTest::addColumn<bool>("isRunning");
    QTest::addColumn<bool>("contributes");
    QTest::newRow("wired, 802.1X, carrier") << "eth0" << true << true << true;
    QTest::newRow("wired, 802.1X, no carrier") << "eth0" << true << false << false;
    QTest::newRow("wired, unsecured") << "eth0" << false << true << false;
    QTest::newRow("wireless, carrier") << "wlan0" << true << true << true;
    QTest::newRow("wireless, no carrier") << "wlan0" << true << false << true;
    QTest::newRow("wireless without the supplicant") << "wlan0" << false << true << false;
}

void TestCorviWireless::fileHoldsWhoContributes()
{
    QFETCH(QString, interfaceName);
    QFETCH(bool, usesSupplicant);
    QFETCH(bool, isRunning);
    QFETCH(bool, contributes);
    MakeMachine(WLAN_AND_8021X, {interfaceName});
    CorviPeer corvi;
    corvi.Tick();
    corvi.Device(interfaceName)->usesSupplicant = usesSupplicant;
    corvi.Device(interfaceName)->isRunning = isRunning;

    corvi.UpdateWpaConfFile(QString());

    QCOMPARE(SupplicantFile().contains("network={"), contributes);
}

void TestCorviWireless::fileIsTracedByInterface()
{
    MakeInterface("wlan0");
    MakeInterface("eth0");
    CorviPeer corvi;
    corvi.Tick();
    corvi.LoseInterface("zz0");
    corvi.Device("wlan0")->isRunning = true;
    LogFromHere(4);

    corvi.UpdateWpaConfFile(QString());

    QCOMPARE(LogLines().filter("UpdateWpaConfFile"),
             QStringList({"UpdateWpaConfFile -- Get NetworkDevice", "UpdateWpaConfFile -- isActive 0",
                          "UpdateWpaConfFile -- Get NetworkDevice", "UpdateWpaConfFile -- isActive 1",
                          "UpdateWpaConfFile -- Get NetworkDevice"}));
    // Sorted in a copy only.
    QCOMPARE(corvi.AllInterfaces(), QStringList({"zz0", "eth0", "wlan0"}));
}

void TestCorviWireless::fileThatCannotBeWrittenIsLogged()
{
    CorviPeer corvi;
    QDir().mkpath(SUPPLICANT_FILE);
    ClearLog();

    corvi.UpdateWpaConfFile(QString());

    QCOMPARE(LogCount("UpdateWpaConfFile -- the supplicant's file cannot be written"), 1);
}

QTEST_GUILESS_MAIN(TestCorviWireless)
#include "tst_corvi_wireless.moc"
