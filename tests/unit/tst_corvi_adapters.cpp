// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "corvipeer.h"
#include "resourcelimit.h"
#include "zebnetstatus.h"

#include <QPointer>
#include <QProcess>

using namespace CorviWorld;
using namespace TestSupport;

/// Interfaces that come and go while the service object runs.
class TestCorviAdapters : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void newInterfaceIsAddedAfterAWholeTick();
    void newInterfaceIsSorted();
    void otherDevicesKeepTheirNetwork();
    void interfaceThatGoesAgainIsNoChange();
    void interfaceThatCannotBeSeenIsNotGone();
    void interfaceThatGoesIsForgotten();
    void clientOfAnInterfaceThatGoesIsEnded();
    void interfaceInUseThatGoesIsReportedOnce();
    void interfaceMadeAnewIsAnotherOne();
    void interfaceInUseMadeAnewIsConfiguredAnew();
    void renamedInterfaceIsFollowed();
    void linksWithoutHardwareChangeNothing();
    void changesOfALinkChangeNothing();
    void changeIsToldWithTheNames();
    void bridgeIsToldToBeNoCable();
    void bridgeThatWasThereBeforeIsTold();
    void bridgeTakesAndReleasesItsPort();
    void portThatIsPutInIsKnownAtOnce();
    void wirelessInUseThatGoesIsForgotten_data();
    void wirelessInUseThatGoesIsForgotten();
    void spareWirelessThatGoesIsNotPublished_data();
    void spareWirelessThatGoesIsNotPublished();
    void changeBeforeARescanIsNoChangeAfterIt();
    void newModemIsAdopted();
    void otherModemIsAdoptedWhenTheOneInUseGoes();
    void modemThatWasGivenUpStaysSo();
    void changeUnderTheBondAsksForARescan();
    void lastInterfaceThatGoesIsForgotten();
    void adaptersThatCameOnceAreForgotten_data();
    void adaptersThatCameOnceAreForgotten();
};

namespace {

void Delete(const QString &interfaceName)
{
    RealIp({"link", "delete", "dev", interfaceName});
}

void TakeDown(const QString &interfaceName)
{
    RealIp({"link", "set", "dev", interfaceName, "down"});
}

/// The wired device carries and is configured.
void ConnectWired(CorviPeer &corvi)
{
    corvi.Tick(2);
    QVERIFY(corvi.IsWiredUp());
}

} // namespace

void TestCorviAdapters::init()
{
    StartFromNothing();
}

void TestCorviAdapters::newInterfaceIsAddedAfterAWholeTick()
{
    MakeMachine(LAN_STATIC, {"eth0"});
    CorviPeer corvi;
    ConnectWired(corvi);
    MakeInterface("eth1");

    corvi.Tick();
    QCOMPARE(corvi.AllInterfaces(), QStringList{"eth0"});
    corvi.Tick();

    QCOMPARE(corvi.AllInterfaces(), QStringList({"eth0", "eth1"}));
    QVERIFY(corvi.Device("eth1"));
    QCOMPARE(JournalOf("ifconfig eth1 up").size(), 1);
}

void TestCorviAdapters::newInterfaceIsSorted()
{
    MakeMachine(LAN_STATIC, {"eth1"});
    CorviPeer corvi;
    ConnectWired(corvi);
    MakeInterface("eth0");

    corvi.Tick(2);

    QCOMPARE(corvi.WiredInterfaces(), QStringList({"eth0", "eth1"}));
}

void TestCorviAdapters::otherDevicesKeepTheirNetwork()
{
    MakeMachine(LAN_STATIC, {"eth0"});
    EventListener listener;
    CorviPeer corvi;
    ConnectWired(corvi);
    const QPointer<NetworkDevice> device = corvi.Device("eth0");
    listener.Take();
    Forget();
    MakeInterface("eth1");
    PullCable("eth1");

    corvi.Tick(3);

    QCOMPARE(corvi.Device("eth0"), device.data());
    QCOMPARE(corvi.WiredDevice(), device.data());
    QCOMPARE(Journal(), QStringList{"ifconfig eth1 up"});
    QCOMPARE(listener.Take(), Events());
}

void TestCorviAdapters::interfaceThatGoesAgainIsNoChange()
{
    MakeMachine(LAN_STATIC, {"eth0"});
    CorviPeer corvi;
    ConnectWired(corvi);
    Forget();

    MakeInterface("eth1");
    corvi.Tick();
    Delete("eth1");
    corvi.Tick(2);

    QCOMPARE(corvi.AllInterfaces(), QStringList{"eth0"});
    QCOMPARE(LogLines(), QStringList());
}

void TestCorviAdapters::interfaceThatCannotBeSeenIsNotGone()
{
    MakeMachine(LAN_STATIC, {"eth0"});
    CorviPeer corvi;
    ConnectWired(corvi);
    const QPointer<NetworkDevice> device = corvi.Device("eth0");
    MakeInterface("eth1");
    {
        const ResourceLimit noDescriptorLeft(RLIMIT_NOFILE, 0);
        corvi.Tick(3);
    }
    QCOMPARE(corvi.AllInterfaces(), QStringList{"eth0"});
    QCOMPARE(corvi.Device("eth0"), device.data());

    // The change that it was told of before is not lost.
    corvi.Tick(2);

    QCOMPARE(corvi.AllInterfaces(), QStringList({"eth0", "eth1"}));
    QCOMPARE(corvi.Device("eth0"), device.data());
}

void TestCorviAdapters::interfaceThatGoesIsForgotten()
{
    MakeMachine(LAN_STATIC, {"eth0", "eth1"});
    PullCable("eth1");
    CorviPeer corvi;
    ConnectWired(corvi);
    const QPointer<NetworkDevice> device = corvi.Device("eth1");

    Delete("eth1");
    corvi.Tick(2);

    QVERIFY(!device);
    QVERIFY(!corvi.Device("eth1"));
    QCOMPARE(corvi.AllInterfaces(), QStringList{"eth0"});
    QCOMPARE(corvi.WiredInterfaces(), QStringList{"eth0"});
}

void TestCorviAdapters::clientOfAnInterfaceThatGoesIsEnded()
{
    MakeMachine(LAN_STATIC, {"eth0", "eth1"});
    PullCable("eth1");
    CorviPeer corvi;
    ConnectWired(corvi);
    WriteFile("/tmp/clients/dhclient", "#!/bin/sh\nwhile :; do read -r line; done\n");
    SetMode("/tmp/clients/dhclient", 0755);
    QProcess client;
    client.start("/tmp/clients/dhclient", {"-v", "eth1"});
    QVERIFY(client.waitForStarted());

    Delete("eth1");
    corvi.Tick(2);

    QVERIFY(client.waitForFinished());
}

void TestCorviAdapters::interfaceInUseThatGoesIsReportedOnce()
{
    MakeMachine(LAN_STATIC, {"eth0"});
    EventListener listener;
    CorviPeer corvi;
    ConnectWired(corvi);
    listener.Take();

    Delete("eth0");
    corvi.Tick(3);

    QCOMPARE(listener.Take(), Events{ASSOCIATION_DOWN});
    QVERIFY(!corvi.WiredDevice());
    QCOMPARE(corvi.DeviceCount(), 0);
}

void TestCorviAdapters::interfaceMadeAnewIsAnotherOne()
{
    MakeMachine(LAN_STATIC, {"eth0", "eth1"});
    PullCable("eth1");
    CorviPeer corvi;
    ConnectWired(corvi);
    const QPointer<NetworkDevice> device = corvi.Device("eth1");
    Forget();

    Delete("eth1");
    MakeInterface("eth1");
    PullCable("eth1");
    corvi.Tick(2);

    QVERIFY(!device);
    QVERIFY(corvi.Device("eth1"));
    QVERIFY(JournalOf("ifconfig eth1 up").size() >= 1);
}

void TestCorviAdapters::interfaceInUseMadeAnewIsConfiguredAnew()
{
    MakeMachine(LAN_STATIC, {"eth0"});
    EventListener listener;
    CorviPeer corvi;
    ConnectWired(corvi);
    listener.Take();
    Forget();

    Delete("eth0");
    MakeInterface("eth0");
    BringUp("eth0");
    corvi.Tick(4);

    QCOMPARE(listener.Take(), (Events{ASSOCIATION_DOWN, ASSOCIATION_UP, ADDRESS_PRESENT}));
    QCOMPARE(JournalOf("ifconfig eth0 10.1.0.2 netmask").size(), 1);
}

void TestCorviAdapters::renamedInterfaceIsFollowed()
{
    MakeMachine(LAN_STATIC, {"eth0", "eth1"});
    PullCable("eth1");
    CorviPeer corvi;
    ConnectWired(corvi);

    RealIp({"link", "set", "dev", "eth1", "down"});
    RealIp({"link", "set", "dev", "eth1", "name", "eth9"});
    corvi.Tick(2);

    QCOMPARE(corvi.AllInterfaces(), QStringList({"eth0", "eth9"}));
    QVERIFY(corvi.Device("eth9"));
    QVERIFY(!corvi.Device("eth1"));
}

void TestCorviAdapters::linksWithoutHardwareChangeNothing()
{
    MakeMachine(LAN_STATIC, {"eth0"});
    CorviPeer corvi;
    ConnectWired(corvi);
    Forget();

    RealIp({"tuntap", "add", "dev", "tun0", "mode", "tun"});
    corvi.Tick(3);
    Delete("tun0");
    corvi.Tick(3);

    QCOMPARE(LogLines(), QStringList());
    QCOMPARE(Journal(), QStringList());
}

void TestCorviAdapters::changesOfALinkChangeNothing()
{
    MakeMachine(LAN_STATIC, {"eth0"});
    CorviPeer corvi;
    ConnectWired(corvi);
    Forget();

    RealIp({"link", "set", "dev", "eth0", "promisc", "on"});
    corvi.Tick(3);

    QCOMPARE(LogLines(), QStringList());
    QCOMPARE(Journal(), QStringList());
}

void TestCorviAdapters::changeIsToldWithTheNames()
{
    MakeMachine(LAN_STATIC, {"eth0", "eth1"});
    PullCable("eth1");
    CorviPeer corvi;
    ConnectWired(corvi);
    Forget();

    Delete("eth1");
    MakeInterface("eth2");
    PullCable("eth2");
    corvi.Tick(2);

    QCOMPARE(LogLines(), QStringList{"Corvi::CheckAdapters - the interfaces changed, gone: eth1, new: eth2"});
}

void TestCorviAdapters::bridgeIsToldToBeNoCable()
{
    MakeMachine(LAN_STATIC, {"eth0"});
    CorviPeer corvi;
    ConnectWired(corvi);
    MakeInterface("eth1");
    RealIp({"link", "add", "name", "br0", "type", "bridge"});
    RealIp({"link", "set", "dev", "eth1", "master", "br0"});

    corvi.Tick(3);

    QCOMPARE(corvi.WiredInterfaces(), QStringList({"br0", "eth0", "eth1"}));
    const QString told = "Corvi::FindAllInterfaces() - managed like a cable, but none: br0 (bridge), "
                         "eth1 (port of br0) -- of all wired interfaces only the first by name that "
                         "carries is kept up";
    QCOMPARE(LogLines().count(told), 1);
    Delete("br0");
    corvi.Tick(2);
    QCOMPARE(LogLines().filter("managed like a cable").size(), 1);

    // The next one is news.
    RealIp({"link", "add", "name", "br0", "type", "bridge"});
    RealIp({"link", "set", "dev", "eth1", "master", "br0"});
    corvi.Tick(2);
    QCOMPARE(LogLines().count(told), 2);
}

void TestCorviAdapters::bridgeThatWasThereBeforeIsTold()
{
    MakeMachine(LAN_STATIC, {"eth0"});
    RealIp({"link", "add", "name", "br0", "type", "bridge"});
    CorviPeer corvi;

    corvi.Tick();

    QCOMPARE(LogLines().filter("managed like a cable, but none: br0 (bridge) --").size(), 1);
}

void TestCorviAdapters::bridgeTakesAndReleasesItsPort()
{
    MakeMachine(LAN_STATIC, {"eth0"});
    RealIp({"link", "add", "name", "br0", "type", "bridge"});
    RealIp({"link", "set", "dev", "eth0", "master", "br0"});
    CorviPeer corvi;
    corvi.FindAllInterfaces();
    QVERIFY(corvi.Device("eth0")->isBridgePort);
    QVERIFY(!corvi.Device("br0")->isBridgePort);

    RealIp({"link", "set", "dev", "eth0", "nomaster"});
    corvi.Tick();
    QVERIFY(!corvi.Device("eth0")->isBridgePort);

    RealIp({"link", "set", "dev", "eth0", "master", "br0"});
    corvi.Tick();
    QVERIFY(corvi.Device("eth0")->isBridgePort);
}

void TestCorviAdapters::portThatIsPutInIsKnownAtOnce()
{
    MakeMachine(LAN_STATIC, {"eth0"});
    RealIp({"link", "add", "name", "br0", "type", "bridge"});
    CorviPeer corvi(DISCOVERED);
    corvi.Tick(3);
    MakeInterface("eth1");
    RealIp({"link", "set", "dev", "eth1", "master", "br0"});

    for (int tick = 0; tick < 10 && !corvi.Device("eth1"); ++tick)
        corvi.Tick();

    QVERIFY(corvi.Device("eth1") && corvi.Device("eth1")->isBridgePort);
}

void TestCorviAdapters::wirelessInUseThatGoesIsForgotten_data()
{
    QTest::addColumn<bool>("isAssociated");
    QTest::addColumn<int>("events");
    QTest::newRow("associated, and the supplicant said nothing") << true << 1;
    QTest::newRow("the supplicant told of the end") << false << 0;
}

void TestCorviAdapters::wirelessInUseThatGoesIsForgotten()
{
    QFETCH(bool, isAssociated);
    QFETCH(int, events);
    MakeMachine(WLAN, {"wlan0"});
    CorviPeer corvi;
    corvi.Tick();
    corvi.AdoptWireless("wlan0");
    corvi.SettleSupplicant(isAssociated ? ASSOCIATED : RUNNING);
    FillSegment('x');
    EventListener listener;

    Delete("wlan0");
    corvi.Tick(3);

    QCOMPARE(listener.Take(), Events(events, ASSOCIATION_DOWN));
    ZebNetStatus published;
    QVERIFY(published.SetData(corvi.Segment()));
    QVERIFY(published.IsWireless() && !published.IsConnected());
    QVERIFY(!corvi.WirelessDevice());
    QVERIFY(!corvi.IsWirelessConfigured());
    QCOMPARE(corvi.WirelessInterfaces(), QStringList());
}

void TestCorviAdapters::spareWirelessThatGoesIsNotPublished_data()
{
    QTest::addColumn<QString>("other");
    QTest::newRow("a cable carries") << "eth0";
    QTest::newRow("a modem is in use") << "wwan0";
}

void TestCorviAdapters::spareWirelessThatGoesIsNotPublished()
{
    QFETCH(QString, other);
    MakeMachine(LAN_STATIC, {other, "wlan0"});
    WriteFile(KEEP_WIRELESS_FLAG, "");
    CorviPeer corvi(SET_UP);
    corvi.AdoptWireless("wlan0");
    FillSegment('x');

    Delete("wlan0");
    corvi.Tick(2);

    QVERIFY(!corvi.WirelessDevice());
    QCOMPARE(corvi.Segment(), QByteArray(SEGMENT_SIZE, 'x'));
}

void TestCorviAdapters::changeBeforeARescanIsNoChangeAfterIt()
{
    MakeMachine(LAN_STATIC, {"eth0", "eth1"});
    PullCable("eth1");
    CorviPeer corvi;
    ConnectWired(corvi);
    const auto rename = [](const QString &from, const QString &to) {
        TakeDown(from);
        RealIp({"link", "set", "dev", from, "name", to});
    };
    rename("eth1", "eth9");
    corvi.Tick();
    rename("eth9", "eth1");
    corvi.ForceRescan();
    corvi.Tick();

    // It is seen for the first time since the rescan.
    rename("eth1", "eth9");
    corvi.Tick();
    QCOMPARE(corvi.AllInterfaces(), QStringList({"eth0", "eth1"}));
    corvi.Tick();
    QCOMPARE(corvi.AllInterfaces(), QStringList({"eth0", "eth9"}));
}

void TestCorviAdapters::newModemIsAdopted()
{
    MakeMachine(LAN_STATIC, {"eth0"});
    CorviPeer corvi;
    ConnectWired(corvi);
    MakeInterface("wwan0");

    corvi.Tick(2);

    QVERIFY(corvi.ModemDevice());
    QCOMPARE(corvi.ModemDevice(), corvi.Device("wwan0"));
}

void TestCorviAdapters::otherModemIsAdoptedWhenTheOneInUseGoes()
{
    MakeMachine(LAN_STATIC, {"eth0", "wwan0", "wwan1"});
    CorviPeer corvi;
    ConnectWired(corvi);

    Delete("wwan0");
    corvi.Tick(2);

    QVERIFY(corvi.ModemDevice());
    QCOMPARE(corvi.ModemDevice(), corvi.Device("wwan1"));
}

void TestCorviAdapters::modemThatWasGivenUpStaysSo()
{
    MakeMachine(LAN_STATIC, {"eth0", "wwan0"});
    CorviPeer corvi;
    ConnectWired(corvi);
    corvi.GiveUpModem();
    MakeInterface("eth1");

    corvi.Tick(2);

    QVERIFY(corvi.Device("eth1"));
    QVERIFY(!corvi.ModemDevice());
}

void TestCorviAdapters::changeUnderTheBondAsksForARescan()
{
    WriteStore("<networkconfig><bonding_enable>true</bonding_enable></networkconfig>");
    MakeInterface("eth0");
    Answer("ip", "[ \"$2\" = add ] || exec ip \"$@\""); // There is no driver for the bond.
    CorviPeer corvi;
    corvi.Tick(4); // The name of the wired interface is free now, for the bond: a first change.
    QVERIFY(corvi.Bond().isBondingActive());
    LogFromHere(2);
    MakeInterface("usb0");

    corvi.Tick(2);

    QCOMPARE(LogCount("Corvi::Loop Force Rescan "), 1);
    QVERIFY(corvi.Device("usb0"));
}

void TestCorviAdapters::lastInterfaceThatGoesIsForgotten()
{
    MakeMachine(LAN_STATIC, {"eth0"});
    CorviPeer corvi;
    ConnectWired(corvi);

    Delete("eth0");
    corvi.Tick();
    QVERIFY(corvi.Device("eth0"));
    corvi.Tick();

    QVERIFY(!corvi.Device("eth0"));
}

void TestCorviAdapters::adaptersThatCameOnceAreForgotten_data()
{
    QTest::addColumn<bool>("isRescanned");
    QTest::newRow("at a rescan") << true;
    QTest::newRow("at a look") << false;
}

void TestCorviAdapters::adaptersThatCameOnceAreForgotten()
{
    QFETCH(bool, isRescanned);
    CorviPeer corvi({"eth0", "eth1"}, DISCOVERED);
    QString name = "eth1";
    for (int i = 0; i < 20; ++i) {
        TakeDown(name);
        const QString next = QStringLiteral("stick%1").arg(i);
        RealIp({"link", "set", "dev", name, "name", next});
        name = next;
        if (isRescanned)
            corvi.ForceRescan();
        corvi.Tick(2);
        QVERIFY(corvi.Device(name));
    }

    QCOMPARE(corvi.DeviceCount(), 2);
    QVERIFY2(corvi.RememberedInterfaces() <= 18, qPrintable(QString::number(corvi.RememberedInterfaces())));
}

QTEST_GUILESS_MAIN(TestCorviAdapters)
#include "tst_corvi_adapters.moc"
