// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "corvipeer.h"

using namespace CorviWorld;
using namespace TestSupport;

/// What is logged at which level. The log has no rotation of its own, and the daemon runs for months: a state
/// that lasts must not write to it.
class TestCorviQuiet : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void lastingStateIsSilent_data();
    void lastingStateIsSilent();
    void vanishedInterfaceIsSilent();
    void deviceMadeAnewIsNoNews_data();
    void deviceMadeAnewIsNoNews();
    void idleTickStartsNoProgram();
    void lineHasItsLevel_data();
    void lineHasItsLevel();

private:
    QStringList LinesAtLevel(int level);

    QHash<int, QStringList> linesAtLevel;
};

void TestCorviQuiet::init()
{
    StartFromNothing();
}

void TestCorviQuiet::lastingStateIsSilent_data()
{
    QTest::addColumn<QByteArray>("store");
    QTest::addColumn<QStringList>("interfaces");
    QTest::addColumn<QStringList>("pulled");
    QTest::addColumn<bool>("running");
    QTest::addColumn<bool>("associated");
    QTest::addColumn<QByteArray>("modemStatus");
    const QStringList none;
    const QStringList eth0{"eth0"};
    const QByteArray empty = "<networkconfig/>";
    QTest::newRow("nothing at all") << empty << none << none << false << false << QByteArray();
    QTest::newRow("no cable") << LAN_STATIC << eth0 << eth0 << false << false << QByteArray();
    QTest::newRow("wired, static") << LAN_STATIC << eth0 << none << false << false << QByteArray();
    QTest::newRow("wired, no DHCP server") << LAN_DHCP << eth0 << none << false << false << QByteArray();
    QTest::newRow("wired, no definition") << empty << eth0 << none << false << false << QByteArray();
    QTest::newRow("two cables") << LAN_STATIC << QStringList({"eth0", "eth1"}) << none << false << false
                                << QByteArray();
    QTest::newRow("second of two ports")
        << LAN_STATIC << QStringList({"eth0", "eth1"}) << eth0 << false << false << QByteArray();
    QTest::newRow("802.1X, waiting") << LAN_8021X_STATIC << eth0 << none << true << false << QByteArray();
    QTest::newRow("802.1X, authenticated")
        << LAN_8021X_STATIC << eth0 << none << true << true << QByteArray();
    QTest::newRow("wireless, not associated")
        << WLAN << QStringList{"wlan0"} << QStringList{"wlan0"} << true << false << QByteArray();
    QTest::newRow("wireless, associated, no DHCP server")
        << WLAN << QStringList{"wlan0"} << none << true << true << QByteArray();
    QTest::newRow("wireless, no definition")
        << empty << QStringList{"wlan0"} << QStringList{"wlan0"} << true << false << QByteArray();
    QTest::newRow("modem, connected")
        << empty << QStringList{"wwan0"} << none << false << false << QByteArray("connected");
    QTest::newRow("modem given up") << empty << QStringList{"wwan0"} << QStringList{"wwan0"} << false << false
                                    << QByteArray("cannot find modem");
    QTest::newRow("two modems given up")
        << empty << QStringList({"wwan0", "wwan1"}) << QStringList({"wwan0", "wwan1"}) << false << false
        << QByteArray("disconnected");
    QTest::newRow("wired and two modems") << LAN_STATIC << QStringList({"eth0", "wwan0", "wwan1"}) << none
                                          << false << false << QByteArray("disconnected");
    QTest::newRow("wired and wireless")
        << LAN_STATIC << QStringList({"eth0", "wlan0"}) << none << false << false << QByteArray();
}

void TestCorviQuiet::lastingStateIsSilent()
{
    QFETCH(QByteArray, store);
    QFETCH(QStringList, interfaces);
    QFETCH(QStringList, pulled);
    QFETCH(bool, running);
    QFETCH(bool, associated);
    QFETCH(QByteArray, modemStatus);
    MakeMachine(store, interfaces);
    for (const QString &name : pulled)
        PullCable(name);
    Answer("modem-tool.sh", "[ \"$1\" = status ] && echo '" + modemStatus + "'\nexit 0");
    CorviPeer corvi;
    corvi.Tick(4);
    corvi.SettleSupplicant({running, false, associated});
    corvi.Tick(11);
    QCOMPARE(Logging::CurrentLevel(), 2);
    ClearLog();

    corvi.Tick(30);

    QCOMPARE(LogLines(), QStringList());
}

void TestCorviQuiet::vanishedInterfaceIsSilent()
{
    MakeMachine(LAN_STATIC, {"eth0"});
    CorviPeer corvi;
    corvi.Tick(3);
    RemoveInterfaces();
    corvi.Tick(2);
    ClearLog();

    corvi.Tick(20);

    QCOMPARE(LogLines(), QStringList());
    QVERIFY(!corvi.IsWiredUp());
}

void TestCorviQuiet::deviceMadeAnewIsNoNews_data()
{
    QTest::addColumn<bool>("isReload");
    QTest::newRow("reload after reload") << true;
    QTest::newRow("adapter that is loose") << false;
}

/// A device object lives until the next rescan; what was told of its interface was told for longer.
void TestCorviQuiet::deviceMadeAnewIsNoNews()
{
    QFETCH(bool, isReload);
    MakeMachine(LAN_STATIC, {"eth0"});
    CorviPeer corvi;
    corvi.Tick(3);
    QCOMPARE(LogLines().filter("UpdateIpInformation").size(), 1);

    for (int i = 0; i < 10; ++i) {
        if (isReload) {
            WriteFile(RELOAD_FLAG, "");
        } else {
            RealIp({"link", "delete", "dev", "eth0"});
            MakeInterface("eth0");
        }
        corvi.Tick(4);
        QVERIFY(corvi.IsWiredUp());
    }

    QCOMPARE(LogLines().filter("UpdateIpInformation").size(), 1);
}

void TestCorviQuiet::idleTickStartsNoProgram()
{
    MakeMachine(LAN_STATIC, {"eth0", "eth1", "wlan0", "wwan0"});
    CorviPeer corvi;
    corvi.Tick(4);
    Forget();

    corvi.Tick(20);

    QCOMPARE(Journal(), QStringList());
}

/// What the service logs at this level from a rescan over wireless, which is begun, to a wired link that
/// comes, and a modem.
QStringList TestCorviQuiet::LinesAtLevel(int level)
{
    if (linesAtLevel.contains(level))
        return linesAtLevel.value(level);
    StartFromNothing();
    const QStringList interfaces{"eth0", "wlan0", "wwan0", "wwan1"};
    MakeMachine(LAN_8021X_STATIC, interfaces);
    for (const QString &name : interfaces)
        PullCable(name);
    CorviPeer corvi(DISCOVERED);
    SetLevel(level);
    corvi.Init();
    corvi.Tick();
    corvi.GiveUpModem();
    corvi.Tick(4);
    PlugCable("eth0");
    corvi.Tick(2);
    corvi.AdoptModem("wwan0");
    corvi.Tick();
    PullCable("eth0");
    corvi.Tick();
    WriteFile(RELOAD_FLAG, "");
    corvi.CheckReload();
    linesAtLevel.insert(level, LogLines());
    return linesAtLevel.value(level);
}

void TestCorviQuiet::lineHasItsLevel_data()
{
    QTest::addColumn<QString>("line");
    QTest::addColumn<int>("level");
    const auto add = [](int level, const QVector<const char *> &lines) {
        for (const char *const line : lines)
            QTest::newRow(line) << QString(line) << level;
    };
    add(2,
        {"Corvi::WiredNetworkSetup:: Device Change", "Wired Device Connected 1", "Wired Device Connected 0",
         "Start Wireless interface", "Corvi::Loop:: Stopping wireless device"});
    add(4, {"Corvi::Init()",
            "Corvi::Init() Complete",
            "Corvi::FindAllInterfaces()",
            "Corvi::FindAllInterfaces  Cleanup network Devices",
            "Corvi::FindAllInterfaces()  bonding 0",
            "found interface eth0",
            "Corvi::FindAllInterfaces() -- wired eth0",
            "Reload forced",
            "Corvi::WiredNetworkSetup:: starting wired connected 0",
            "Corvi::WiredNetworkSetup:: Start Wpa supplicant",
            "Corvi::ReconfigureWpa 2",
            "Corvi::ReconfigureWpa in Holdoff",
            "Corvi::onWiredStateChange(bool state) 1",
            "Configure Wired Network",
            "Configure Wired Network Complete",
            "Corvi::onWiredStateChange(bool state)  complete",
            "Corvi::WirelessNetworkSetup -- Wireless Device not defined",
            "Corvi::WirelessNetworkSetup -- Wireless Device defined",
            "Check for wireless already connected",
            "Wireless not Connected ",
            "Wireless Start up wpa supplicant",
            "Setup wpa config file",
            "Set wireless device to 0",
            "UpdateWpaConfFile -- Get NetworkDevice",
            "UpdateWpaConfFile -- isActive 0",
            "Corvi::ModemNetworkSetup",
            "SendEvent()  Start",
            "ShareStatus()  Start"});
    add(6, {"Corvi::WiredNetworkSetup::  eth0 active", "Corvi::WiredNetworkSetup:: status 1",
            "Corvi::WiredNetworkSetup:: status 0", "Wired not connected",
            "Calling ModemNetworkSetup wwan0, wwan1", "Called ModemNetworkSetup ",
            "Calling WirelessNetworkSetup 0", "Called WirelessNetworkSetup 0",
            "Calling WirelessNetworkSetup 2", "Called WirelessNetworkSetup 2", "Calling ModemNetworkSetup 2",
            "Called ModemNetworkSetup 2", "Calling ModemNetworkSetup 3", "Called ModemNetworkSetup 3",
            "ShareStatus BA Size 512 _shm.size 512"});
}

void TestCorviQuiet::lineHasItsLevel()
{
    QFETCH(QString, line);
    QFETCH(int, level);

    QVERIFY(LinesAtLevel(level).contains(line));
    QVERIFY(level == 2 || !LinesAtLevel(level - 1).contains(line));
}

QTEST_GUILESS_MAIN(TestCorviQuiet)
#include "tst_corvi_quiet.moc"
