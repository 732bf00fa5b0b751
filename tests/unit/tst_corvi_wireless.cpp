// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "corvipeer.h"
#include "fakesysnet.h"

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

/// The wireless network. The supervisor's state is set by hand.
class TestCorviWireless : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    // Wired has precedence
    void wiredStopsAndForgetsWireless();
    void keepFileLeavesWirelessAsItIs();
    void wirelessIsStoppedWhenTheKeepFileGoes();
    void wiredWithoutWirelessDoesNothing();
    void wirelessIsPickedAfreshAfterWired();

    // Without a device
    void noWirelessInterfaceDoesNothing();
    void missingDeviceIsSkipped();
    void firstDeviceByNameIsUsed();
    void firstBringUpStartsTheDevice();
    void firstBringUpWritesTheFileForItself();
    void fileThatIsCurrentIsNotWrittenAgain();
    void carrierThatIsThereIsUsed();
    void carrierBesideASupplicantIsConfigured();

    // With a device
    void unconfiguredDeviceBeginsTheHoldOff();
    void holdOffGoesOnEveryTick();
    void nothingIsToDoWhileTheSupplicantRuns();
    void supplicantThatIsGoneIsStartedAgain();
    void supplicantIsStartedAgainOnceTheRadioIsOn();
    void supplicantThatRestartsIsNotStartedAgain();
    void supplicantThatPausesIsNotStartedAgain();
    void changedFileStopsTheSupplicant();
    void resultTellsWhetherWirelessIsConfigured();
};

void TestCorviWireless::init()
{
    StartFromNothing();
}

void TestCorviWireless::wiredStopsAndForgetsWireless()
{
    CorviPeer corvi({"wlan0"}, DISCOVERED);
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
    CorviPeer corvi({"wlan0"}, DISCOVERED);
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

void TestCorviWireless::wirelessIsStoppedWhenTheKeepFileGoes()
{
    CorviPeer corvi(LAN_STATIC, {"eth0", "wlan0"}, DISCOVERED);
    corvi.AdoptWireless("wlan0");
    corvi.WirelessDevice()->Up();
    WriteFile(KEEP_WIRELESS_FLAG, "");
    corvi.Tick(2);
    QVERIFY(corvi.IsWiredUp());
    QVERIFY(corvi.WirelessDevice());
    Forget();

    Remove(KEEP_WIRELESS_FLAG);
    corvi.Tick();

    QVERIFY(!corvi.WirelessDevice());
    QCOMPARE(JournalOf("ifconfig wlan0"), QStringList{"ifconfig wlan0 down"});
}

void TestCorviWireless::wiredWithoutWirelessDoesNothing()
{
    CorviPeer corvi({"wlan0"}, DISCOVERED);
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
    CorviPeer corvi(DISCOVERED);
    LogFromHere(4);

    corvi.WirelessNetworkSetup(false);

    QCOMPARE(LogLines(), QStringList{"Corvi::WirelessNetworkSetup -- Wireless Device not defined"});
    QCOMPARE(Journal(), QStringList());
}

void TestCorviWireless::missingDeviceIsSkipped()
{
    CorviPeer corvi({"wlan1"}, DISCOVERED);
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
    CorviPeer corvi({"wlan1", "wlan0"}, DISCOVERED);
    Forget();

    corvi.WirelessNetworkSetup(false);

    QCOMPARE(corvi.WirelessDevice(), corvi.Device("wlan0"));
    QCOMPARE(JournalOf("ifconfig wlan1"), QStringList());
}

void TestCorviWireless::firstBringUpStartsTheDevice()
{
    MakeMachine(WLAN, {"wlan0"});
    PullCable("wlan0");
    CorviPeer corvi(DISCOVERED);
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

void TestCorviWireless::firstBringUpWritesTheFileForItself()
{
    CorviPeer corvi(WLAN_AND_8021X, {"eth0", "wlan0"}, SET_UP);
    QVERIFY(corvi.Device("eth0")->usesSupplicant && corvi.Device("eth0")->isRunning);
    Remove(SUPPLICANT_FILE);
    corvi.NoteFileWritten(false);

    corvi.WirelessNetworkSetup(false);

    QVERIFY(SupplicantFile().contains("\"Office\""));
    QVERIFY(!SupplicantFile().contains("IEEE8021X"));
}

void TestCorviWireless::fileThatIsCurrentIsNotWrittenAgain()
{
    CorviPeer corvi(WLAN, {"wlan0"}, DISCOVERED);
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
    CorviPeer corvi(DISCOVERED);
    Corvi::conn_counter = 5;
    corvi.LeaveHoldOff(0);
    LogFromHere(4);

    corvi.WirelessNetworkSetup(false);

    QCOMPARE(OwnLines(),
             QStringList({"Corvi::WirelessNetworkSetup -- Wireless Device not defined",
                          "Check for wireless already connected", "!wiredConnected, wireless connected"}));
    QCOMPARE(Corvi::conn_counter, 0);
    QCOMPARE(corvi.WirelessDevice(), corvi.Device("wlan0"));
    QVERIFY(!corvi.IsWirelessConfigured());
    // A supplicant of before a rescan is stopped first.
    QCOMPARE(corvi.HoldOff(), 2);
    // It is up already.
    QCOMPARE(Journal(), QStringList());
}

void TestCorviWireless::carrierBesideASupplicantIsConfigured()
{
    MakeMachine(WLAN, {"wlan0"});
    BringUp("wlan0");
    CorviPeer corvi(DISCOVERED);
    corvi.SettleSupplicant(RUNNING);

    corvi.WirelessNetworkSetup(false);

    QVERIFY(corvi.IsWirelessConfigured());
}

void TestCorviWireless::unconfiguredDeviceBeginsTheHoldOff()
{
    CorviPeer corvi(WLAN, {"wlan0"}, DISCOVERED);
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
    CorviPeer corvi(WLAN, {"wlan0"}, DISCOVERED);
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
    CorviPeer corvi({"wlan0"}, DISCOVERED);
    corvi.AdoptWireless("wlan0");
    BringUp("wlan0");
    corvi.SettleSupplicant(RUNNING);
    LogFromHere(4);

    corvi.WirelessNetworkSetup(false);

    QCOMPARE(LogLines(), QStringList{"Corvi::WirelessNetworkSetup -- Wireless Device defined"});
    QCOMPARE(Journal(), QStringList());
}

void TestCorviWireless::supplicantThatIsGoneIsStartedAgain()
{
    CorviPeer corvi({"wlan0"}, DISCOVERED);
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

void TestCorviWireless::supplicantIsStartedAgainOnceTheRadioIsOn()
{
    CorviPeer corvi({"wlan0"}, DISCOVERED);
    corvi.AdoptWireless("wlan0");
    corvi.LeaveHoldOff(0);
    corvi.SettleSupplicant(GONE);
    FakeSysNet sysNet;
    sysNet.Write("wlan0/phy80211/rfkill0/soft", "1\n");

    corvi.WirelessNetworkSetup(false);
    QVERIFY(!corvi.IsReconfigureWanted());

    sysNet.Write("wlan0/phy80211/rfkill0/soft", "0\n");
    corvi.WirelessNetworkSetup(false);
    QVERIFY(corvi.IsReconfigureWanted());
}

void TestCorviWireless::supplicantThatRestartsIsNotStartedAgain()
{
    CorviPeer corvi({"wlan0"}, DISCOVERED);
    corvi.AdoptWireless("wlan0");
    corvi.SettleSupplicant(RESTARTING);
    ClearLog();

    corvi.WirelessNetworkSetup(false);

    QCOMPARE(LogLines(), QStringList());
    QVERIFY(!corvi.IsReconfigureWanted());
}

void TestCorviWireless::supplicantThatPausesIsNotStartedAgain()
{
    CorviPeer corvi({"wlan0"}, DISCOVERED);
    corvi.AdoptWireless("wlan0");
    corvi.SettleSupplicant(GONE);
    Supervisor::Pause(2);
    ClearLog();

    corvi.WirelessNetworkSetup(false);

    QCOMPARE(LogLines(), QStringList());
    QVERIFY(!corvi.IsReconfigureWanted());
}

void TestCorviWireless::changedFileStopsTheSupplicant()
{
    CorviPeer corvi({"wlan0"}, DISCOVERED);
    corvi.AdoptWireless("wlan0");
    corvi.BeginHoldOff();
    Supervisor::Set(ASSOCIATED);
    LogFromHere(4);

    corvi.WirelessNetworkSetup(false);

    QCOMPARE(LogLines().filter("WpaSuppThread"), QStringList{"WpaSuppThread::Stop 4 true 1"});
}

void TestCorviWireless::resultTellsWhetherWirelessIsConfigured()
{
    CorviPeer corvi(DISCOVERED);
    QCOMPARE(corvi.WirelessNetworkSetup(false), 0);

    MakeInterface("wlan0");
    corvi.ForceRescan();
    corvi.Tick();
    QCOMPARE(corvi.WirelessNetworkSetup(false), 1);
    QCOMPARE(corvi.WirelessNetworkSetup(true), 0);
}

QTEST_GUILESS_MAIN(TestCorviWireless)
#include "tst_corvi_wireless.moc"
