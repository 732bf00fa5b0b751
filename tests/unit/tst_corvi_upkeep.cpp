// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "corvipeer.h"
#include "fakesysnet.h"
#include "fastclock.h"
#include "mountpoint.h"

#include "zebnetconfig.h"
#include "zebnetstatus.h"

#include <chrono>
#include <memory>

using namespace CorviWorld;
using namespace std::chrono_literals;
using namespace TestSupport;

/// What is follows what was asked for, and what is published follows what is, whoever undid it.
class TestCorviUpkeep : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    // The link
    void linkThatIsTakenDownIsBroughtUpAtOnce();
    void linkThatDoesNotComeUpWaits();
    void answerOfALinkThatDoesNotComeUpIsTold();
    void linkThatIsTakenDownAgainAndAgainWaits();
    void wirelessInUseThatIsTakenDownIsBroughtUp();
    void radioThatIsSwitchedOffIsBroughtUpOnceItIsOn();
    void modemInUseThatIsTakenDownIsBroughtUp();
    void sleepOfTheMachineReportsTheLinkAgain();
    void stoppedSecondPortStaysDown();

    // What is published
    void otherAddressIsReported();
    void lateAddressIsReported();
    void lostAddressIsPublishedWithoutAnEvent();
    void addressThatIsBackIsTold();
    void netmaskThatChangesIsPublishedWithoutAnEvent();
    void addressThatStaysIsNotReportedAgain();

    // The static address
    void lostStaticAddressIsSetAgain();
    void staticAddressLostAtOnceIsSetAgain();
    void lostDefaultRouteIsSetAgain();
    void defaultRouteThatIsLostAgainIsNews();
    void defaultRouteThatCannotBeSetWaits();
    void gatewayOutOfReachCostsNobodyHisRoute();
    void gatewayThatIsNoAddressIsTold();
    void gatewayThatIsABroadcastAddressIsTold();
    void reasonThatChangesIsTold();
    void staticAddressThatCannotBeSetWaits();
    void staticAddressWaitsForAuthentication();

    // The files of names
    void resolverThatCannotBeWrittenIsTriedAgain();
    void resolverLinkIntoAFolderThatIsGoneBecomesAFile();
    void hostsThatCannotBeWrittenAreTriedAgain();
    void hostsThatCannotBeMergedAreTriedAgain();
    void hostsAreNotTriedAgainOnEveryTick();
    void namesThatAreWrittenAreLeftAlone();

    // At the end, as it puts the clock forward by more than Qt lets the next function take
    void lastStateOfALinkThatFlappedIsTold();
};

namespace {

const QByteArray LAN_STATIC_DNS =
    "<networkconfig><network><name>lan</name><staticIp>true</staticIp><ipAddress>10.1.0.2</ipAddress>"
    "<netmask>255.255.255.0</netmask><gateway>10.1.0.1</gateway><staticDns>true</staticDns>"
    "<dns1>10.1.0.53</dns1></network></networkconfig>";

/// `route` that acts on the routes, where the gateway can be reached.
void UseWorkingRoute()
{
    Answer("route", "case $1 in del) ip route del default ;; add) ip route add default via $4 ;; esac");
}

void Flush(const QString &interfaceName)
{
    RealIp({"addr", "flush", "dev", interfaceName});
}

void TakeDown(const QString &interfaceName)
{
    RealIp({"link", "set", "dev", interfaceName, "down"});
}

void ExpectHostsOnceAfterAPause(CorviPeer &corvi)
{
    corvi.Tick();
    QCOMPARE(JournalOf("update_hosts").size(), 0);
    FastClock::Advance(10s);
    corvi.Tick();
    QCOMPARE(JournalOf("update_hosts").size(), 1);

    FastClock::Advance(60s);
    corvi.Tick(2);
    QCOMPARE(JournalOf("update_hosts").size(), 1);
}

} // namespace

void TestCorviUpkeep::init()
{
    StartFromNothing();
}

void TestCorviUpkeep::linkThatIsTakenDownIsBroughtUpAtOnce()
{
    CorviPeer corvi(LAN_STATIC, {"eth0"}, SET_UP);
    Forget();

    TakeDown("eth0");
    corvi.Tick();

    QCOMPARE(JournalOf("ifconfig eth0 up").size(), 1);
    QVERIFY(
        LogLines().contains("NetworkDevice::RefreshStatus -- the link is down, bringing it up again: eth0"));
    corvi.Tick();
    QVERIFY(corvi.IsWiredUp());
}

void TestCorviUpkeep::linkThatDoesNotComeUpWaits()
{
    Answer("ifconfig", "exit 1");
    CorviPeer corvi(LAN_STATIC, {"eth0"}, DISCOVERED);
    QCOMPARE(JournalOf("ifconfig eth0 up").size(), 1);

    corvi.Tick(5);

    QCOMPARE(JournalOf("ifconfig eth0 up").size(), 1);
}

void TestCorviUpkeep::answerOfALinkThatDoesNotComeUpIsTold()
{
    Answer("ifconfig", "echo SIOCSIFFLAGS: Input/output error; exit 1");
    CorviPeer corvi(LAN_STATIC, {"eth0"}, DISCOVERED);
    Forget();

    FastClock::Advance(10s);
    corvi.Tick();

    QCOMPARE(LogLines().filter("bringing it up again"),
             QStringList{"NetworkDevice::RefreshStatus -- the link is down, bringing it up again: eth0, last "
                         "answer: SIOCSIFFLAGS: Input/output error"});
}

void TestCorviUpkeep::linkThatIsTakenDownAgainAndAgainWaits()
{
    CorviPeer corvi(LAN_STATIC, {"eth0"}, SET_UP);
    Forget();

    for (int i = 0; i < 20; ++i) {
        TakeDown("eth0");
        corvi.Tick();
        corvi.Device("eth0")->RefreshStatus(); // As the poll between two ticks does.
    }

    const auto attempts = JournalOf("ifconfig eth0 up").size();
    QVERIFY2(attempts >= 2 && attempts <= 4, qPrintable(QString::number(attempts)));
}

void TestCorviUpkeep::wirelessInUseThatIsTakenDownIsBroughtUp()
{
    CorviPeer corvi(WLAN, {"wlan0"}, DISCOVERED);
    corvi.AdoptWireless("wlan0");
    corvi.WirelessDevice()->StartDevice();
    corvi.SettleSupplicant(RUNNING);
    corvi.WirelessDevice()->RefreshStatus();
    Forget();

    TakeDown("wlan0");
    corvi.WirelessNetworkSetup(false);

    QCOMPARE(Journal(), QStringList{"ifconfig wlan0 up"});
}

void TestCorviUpkeep::radioThatIsSwitchedOffIsBroughtUpOnceItIsOn()
{
    CorviPeer corvi(WLAN, {"wlan0"}, DISCOVERED);
    corvi.AdoptWireless("wlan0");
    corvi.WirelessDevice()->StartDevice();
    corvi.SettleSupplicant(RUNNING);
    corvi.WirelessDevice()->RefreshStatus();
    FakeSysNet sysNet;
    sysNet.Write("wlan0/phy80211/rfkill0/soft", "1\n");
    Forget();

    TakeDown("wlan0");
    for (int i = 0; i < 3; ++i) {
        FastClock::Advance(30s);
        corvi.WirelessNetworkSetup(false);
    }

    QCOMPARE(Journal(), QStringList());
    QCOMPARE(LogCount("NetworkDevice::RefreshStatus -- the radio is switched off by software wlan0"), 1);

    sysNet.Write("wlan0/phy80211/rfkill0/soft", "0\n");
    corvi.WirelessNetworkSetup(false);

    QCOMPARE(Journal(), QStringList{"ifconfig wlan0 up"});

    // The next time is news.
    corvi.WirelessDevice()->RefreshStatus();
    sysNet.Write("wlan0/phy80211/rfkill0/soft", "1\n");
    TakeDown("wlan0");
    corvi.WirelessNetworkSetup(false);
    QCOMPARE(LogCount("NetworkDevice::RefreshStatus -- the radio is switched off by software wlan0"), 2);

    // Also where somebody else was quicker to bring it up.
    sysNet.Write("wlan0/phy80211/rfkill0/soft", "0\n");
    BringUp("wlan0");
    corvi.WirelessDevice()->RefreshStatus();
    sysNet.Write("wlan0/phy80211/rfkill0/soft", "1\n");
    TakeDown("wlan0");
    corvi.WirelessNetworkSetup(false);
    QCOMPARE(LogCount("NetworkDevice::RefreshStatus -- the radio is switched off by software wlan0"), 3);
}

void TestCorviUpkeep::sleepOfTheMachineReportsTheLinkAgain()
{
    CorviPeer corvi(LAN_STATIC, {"eth0"}, SET_UP);
    QSignalSpy changes(&corvi, &Corvi::wiredStateChange);
    corvi.Tick(2);
    QCOMPARE(changes.size(), 0);

    FastClock::Sleep(8h);
    corvi.Tick(3);

    QCOMPARE(changes.size(), 1);
    QVERIFY(changes.first().first().toBool());
    QCOMPARE(LogCount("Corvi::CheckBounce - the machine has slept, configuring anew: eth0"), 1);
}

void TestCorviUpkeep::modemInUseThatIsTakenDownIsBroughtUp()
{
    CorviPeer corvi({"wwan0"}, DISCOVERED);
    corvi.Tick();
    corvi.ModemDevice()->RefreshStatus();
    Forget();

    TakeDown("wwan0");
    corvi.ModemDevice()->RefreshStatus();
    corvi.Tick();

    QCOMPARE(JournalOf("ifconfig wwan0 up").size(), 1);
}

void TestCorviUpkeep::stoppedSecondPortStaysDown()
{
    CorviPeer corvi(LAN_STATIC, {"eth0", "eth1"}, SET_UP);
    QVERIFY(corvi.Device("eth1")->stopped);
    Forget();

    corvi.Tick(3);

    QCOMPARE(JournalOf("ifconfig eth1 up").size(), 0);
}

void TestCorviUpkeep::otherAddressIsReported()
{
    UseDhcpServer();
    EventListener listener;
    CorviPeer corvi(LAN_DHCP, {"eth0"}, SET_UP);
    listener.Take();
    const QByteArray before = corvi.Segment();

    Flush("eth0");
    RealIp({"addr", "add", "10.0.0.77/24", "dev", "eth0"});
    corvi.Tick(3);

    QCOMPARE(listener.Take(), Events{ADDRESS_PRESENT});
    QVERIFY(corvi.Segment() != before);
}

void TestCorviUpkeep::lateAddressIsReported()
{
    EventListener listener;
    CorviPeer corvi(LAN_DHCP, {"eth0"}, SET_UP);
    QCOMPARE(listener.Take(), Events({ASSOCIATION_UP, DHCP_STARTED}));

    RealIp({"addr", "add", "10.0.0.77/24", "dev", "eth0"});
    corvi.Tick(2);

    QCOMPARE(listener.Take(), Events{ADDRESS_PRESENT});
    QVERIFY(corvi.WiredDevice()->ipAnnounced);
}

void TestCorviUpkeep::lostAddressIsPublishedWithoutAnEvent()
{
    UseDhcpServer();
    EventListener listener;
    CorviPeer corvi(LAN_DHCP, {"eth0"}, SET_UP);
    listener.Take();
    const QByteArray before = corvi.Segment();

    Flush("eth0");
    corvi.Tick(2);

    QCOMPARE(listener.Take(), Events());
    QVERIFY(corvi.Segment() != before);
    QVERIFY(!corvi.WiredDevice()->ipAnnounced);
    QCOMPARE(LogCount("Corvi::PublishAddress - the address is gone: eth0"), 1);
}

void TestCorviUpkeep::addressThatIsBackIsTold()
{
    UseDhcpServer();
    CorviPeer corvi(LAN_DHCP, {"eth0"}, SET_UP);
    Flush("eth0");
    corvi.Tick(2);
    Forget();

    FastClock::Advance(10s);
    corvi.Tick();

    QCOMPARE(LogLines().filter("NetworkDevice::UpdateIpInformation").size(), 1);
}

/// As at a renewal of the lease.
void TestCorviUpkeep::netmaskThatChangesIsPublishedWithoutAnEvent()
{
    UseDhcpServer();
    EventListener listener;
    CorviPeer corvi(LAN_DHCP, {"eth0"}, SET_UP);
    listener.Take();

    RealIp({"addr", "del", "10.0.0.5/24", "dev", "eth0"});
    RealIp({"addr", "add", "10.0.0.5/16", "dev", "eth0"});
    corvi.Tick();

    ZebNetStatus published;
    QVERIFY(published.SetData(corvi.Segment()));
    QCOMPARE(published.GetNetmask(), QString("255.255.0.0"));
    QCOMPARE(listener.Take(), Events());
}

void TestCorviUpkeep::addressThatStaysIsNotReportedAgain()
{
    UseDhcpServer();
    EventListener listener;
    CorviPeer corvi(LAN_DHCP, {"eth0"}, SET_UP);
    listener.Take();

    corvi.Tick(5);

    QCOMPARE(listener.Take(), Events());
}

void TestCorviUpkeep::lostStaticAddressIsSetAgain()
{
    UseWorkingRoute();
    CorviPeer corvi(LAN_STATIC, {"eth0"}, SET_UP);
    corvi.Tick();
    EventListener listener;
    Forget();

    Flush("eth0");
    corvi.Tick();

    QCOMPARE(JournalOf("ifconfig eth0 10.1.0.2 netmask").size(), 1);
    QVERIFY(LogLines().contains(
        "NetworkDevice::KeepStaticAddress - the static address is missing, setting it again on eth0"));
    QCOMPARE(listener.Take().last(), ADDRESS_PRESENT);
    Forget();
    corvi.Tick(3);
    QCOMPARE(Journal(), QStringList());
}

/// Somebody is quicker than the tick: the look that follows the setting has seen it in force.
void TestCorviUpkeep::staticAddressLostAtOnceIsSetAgain()
{
    UseWorkingRoute();
    Answer("update_hosts", "ip addr flush dev eth0");
    CorviPeer corvi(LAN_STATIC, {"eth0"}, SET_UP);
    const auto attempts = JournalOf("ifconfig eth0 10.1.0.2 netmask").size();

    corvi.Tick();

    QCOMPARE(JournalOf("ifconfig eth0 10.1.0.2 netmask").size(), attempts + 1);
}

void TestCorviUpkeep::lostDefaultRouteIsSetAgain()
{
    UseWorkingRoute();
    CorviPeer corvi(LAN_STATIC, {"eth0"}, SET_UP);
    corvi.Tick();
    EventListener listener;
    Forget();

    RealIp({"route", "del", "default"});
    corvi.Tick();

    QCOMPARE(Journal(), QStringList{"ip route replace default via 10.1.0.1 dev eth0"});
    QCOMPARE(LogLines(), QStringList{"NetworkDevice::KeepStaticAddress - the default route is missing, "
                                     "setting it again on eth0"});
    QCOMPARE(listener.Take(), Events());
    Forget();
    corvi.Tick(3);
    QCOMPARE(Journal(), QStringList());
}

void TestCorviUpkeep::defaultRouteThatIsLostAgainIsNews()
{
    UseWorkingRoute();
    CorviPeer corvi(LAN_STATIC, {"eth0"}, SET_UP);
    corvi.Tick();

    for (int i = 0; i < 2; ++i) {
        Forget();
        RealIp({"route", "del", "default"});
        corvi.Tick(2);

        QCOMPARE(LogLines(), QStringList{"NetworkDevice::KeepStaticAddress - the default route is missing, "
                                         "setting it again on eth0"});
    }
}

void TestCorviUpkeep::defaultRouteThatCannotBeSetWaits()
{
    UseWorkingRoute();
    Answer("ip", "[ $1 = route ] || exec ip \"$@\"");
    CorviPeer corvi(LAN_STATIC, {"eth0"}, SET_UP);
    corvi.Tick();
    Forget();

    RealIp({"route", "del", "default"});
    corvi.Tick(2);
    QCOMPARE(JournalOf("ip route").size(), 1);

    FastClock::Advance(10s);
    corvi.Tick();
    QCOMPARE(JournalOf("ip route").size(), 2);
}

void TestCorviUpkeep::gatewayOutOfReachCostsNobodyHisRoute()
{
    UseWorkingRoute();
    CorviPeer corvi(LAN_STATIC, {"eth0"}, SET_UP);
    corvi.Tick();
    corvi.WiredDevice()->currentConfig->gateway = "10.9.9.9";
    RealIp({"route", "del", "default"});
    MakeInterface("other0");
    BringUp("other0");
    RealIp({"addr", "add", "10.8.0.2/24", "dev", "other0"});
    RealIp({"route", "add", "default", "via", "10.8.0.1", "dev", "other0"});
    Forget();

    corvi.WiredDevice()->KeepStaticAddress();

    QCOMPARE(JournalOf("route"), QStringList());
    QCOMPARE(JournalOf("ip route replace default via 10.9.9.9").size(), 1);
    QCOMPARE(LogLines(), QStringList{"NetworkDevice::KeepStaticAddress - the default route is missing, "
                                     "setting it again on eth0: the gateway 10.9.9.9 is outside its subnet"});
    QVERIFY(RealIp({"route", "show", "default"}).contains("via 10.8.0.1"));
}

void TestCorviUpkeep::gatewayThatIsNoAddressIsTold()
{
    UseWorkingRoute();
    CorviPeer corvi(LAN_STATIC, {"eth0"}, SET_UP);
    corvi.Tick();
    corvi.WiredDevice()->currentConfig->gateway = "router.lan"; // Not by our own store, which checks it.
    Forget();

    corvi.WiredDevice()->KeepStaticAddress();

    QCOMPARE(LogLines(), QStringList{"NetworkDevice::KeepStaticAddress - the default route is missing, "
                                     "setting it again on eth0: the gateway router.lan is no address"});
}

void TestCorviUpkeep::gatewayThatIsABroadcastAddressIsTold()
{
    UseWorkingRoute();
    CorviPeer corvi(LAN_STATIC, {"eth0"}, SET_UP);
    corvi.Tick();
    corvi.WiredDevice()->currentConfig->gateway = "10.1.0.255";
    Forget();

    corvi.WiredDevice()->KeepStaticAddress();

    QCOMPARE(LogLines(),
             QStringList{"NetworkDevice::KeepStaticAddress - the default route is missing, setting it "
                         "again on eth0: the gateway 10.1.0.255 is the broadcast address of its subnet"});
}

void TestCorviUpkeep::reasonThatChangesIsTold()
{
    UseWorkingRoute();
    Answer("ip", "[ $1 = route ] || exec ip \"$@\""); // Nothing brings the route back.
    CorviPeer corvi(LAN_STATIC, {"eth0"}, SET_UP);
    corvi.Tick();
    RealIp({"route", "del", "default"});
    corvi.Tick();
    Forget();

    corvi.WiredDevice()->currentConfig->gateway = "10.9.9.9";
    FastClock::Advance(std::chrono::minutes(1));
    corvi.Tick();

    QCOMPARE(LogLines(), QStringList{"NetworkDevice::KeepStaticAddress - the default route is missing, "
                                     "setting it again on eth0: the gateway 10.9.9.9 is outside its subnet"});
}

void TestCorviUpkeep::staticAddressThatCannotBeSetWaits()
{
    Answer("ifconfig", "[ $2 = up ] && ip link set dev $1 up");
    CorviPeer corvi(LAN_STATIC, {"eth0"}, SET_UP);
    QCOMPARE(JournalOf("ifconfig eth0 10.1.0.2 netmask").size(), 1);

    corvi.Tick(5);

    QCOMPARE(JournalOf("ifconfig eth0 10.1.0.2 netmask").size(), 1);
}

void TestCorviUpkeep::staticAddressWaitsForAuthentication()
{
    UseWorkingRoute();
    CorviPeer corvi(LAN_8021X_STATIC, {"eth0"}, SET_UP);
    corvi.SettleSupplicant(ASSOCIATED);
    corvi.Tick();
    corvi.SettleSupplicant(RUNNING);
    Forget();

    Flush("eth0");
    corvi.Tick();
    QCOMPARE(JournalOf("ifconfig eth0 10.1.0.2 netmask").size(), 0);

    corvi.SettleSupplicant(ASSOCIATED);
    corvi.Tick();
    QCOMPARE(JournalOf("ifconfig eth0 10.1.0.2 netmask").size(), 1);
}

void TestCorviUpkeep::resolverThatCannotBeWrittenIsTriedAgain()
{
    Remove("/etc/resolv.conf");
    QVERIFY(QDir().mkpath("/etc/resolv.conf/filled"));
    CorviPeer corvi(LAN_STATIC_DNS, {"eth0"}, SET_UP);
    Forget();
    Remove("/etc/resolv.conf");

    corvi.Tick();
    QVERIFY(!QFile::exists("/etc/resolv.conf"));
    FastClock::Advance(10s);
    corvi.Tick();

    QCOMPARE(ReadFile("/etc/resolv.conf"), QByteArray("nameserver 10.1.0.53\nnameserver \n"));
    QCOMPARE(JournalOf("update_hosts").size(), 0);
}

void TestCorviUpkeep::resolverLinkIntoAFolderThatIsGoneBecomesAFile()
{
    // As a resolver service leaves it behind when it ends.
    Remove("/etc/resolv.conf");
    QVERIFY(QFile::link("/run/gone/resolv.conf", "/etc/resolv.conf"));
    CorviPeer corvi(LAN_STATIC_DNS, {"eth0"}, SET_UP);
    QVERIFY(QFileInfo("/etc/resolv.conf").isSymLink());
    Forget();

    corvi.Tick();
    FastClock::Advance(10s);
    corvi.Tick();

    QVERIFY(!QFileInfo("/etc/resolv.conf").isSymLink());
    QCOMPARE(ReadFile("/etc/resolv.conf"), QByteArray("nameserver 10.1.0.53\nnameserver \n"));
    QVERIFY(LogText().contains(" NetworkDevice::ApplyResolverAgain - a file takes the place of the link "
                               "/etc/resolv.conf into a folder that is gone \n"));
}

void TestCorviUpkeep::hostsThatCannotBeWrittenAreTriedAgain()
{
    const QString list = QStringLiteral("/tmp/.hostlist");
    Remove(list);
    QVERIFY(QDir().mkpath(list));
    auto taken = std::make_unique<MountPoint>(list);
    CorviPeer corvi(LAN_STATIC_DNS, {"eth0"}, SET_UP);
    Forget();
    taken.reset();
    WriteFile("/etc/resolv.conf", "nameserver 192.0.2.1\n");

    ExpectHostsOnceAfterAPause(corvi);
    QCOMPARE(ReadFile("/etc/resolv.conf"), QByteArray("nameserver 192.0.2.1\n"));
}

void TestCorviUpkeep::hostsThatCannotBeMergedAreTriedAgain()
{
    Answer("update_hosts", "exit 1");
    CorviPeer corvi(LAN_STATIC_DNS, {"eth0"}, SET_UP);
    QCOMPARE(JournalOf("update_hosts").size(), 1);
    QCOMPARE(
        LogCount("NetworkDevice::SetHosts - update_hosts fails, the hosts of eth0 are tried again later"), 1);
    Answer("update_hosts", "exit 0");
    Forget();

    ExpectHostsOnceAfterAPause(corvi);
}

void TestCorviUpkeep::hostsAreNotTriedAgainOnEveryTick()
{
    Answer("update_hosts", "exit 1");
    CorviPeer corvi(LAN_STATIC_DNS, {"eth0"}, SET_UP);
    Forget();

    corvi.Tick();
    FastClock::Advance(10s);
    corvi.Tick(5);

    QCOMPARE(JournalOf("update_hosts").size(), 1);
}

void TestCorviUpkeep::namesThatAreWrittenAreLeftAlone()
{
    CorviPeer corvi(LAN_STATIC_DNS, {"eth0"}, SET_UP);
    Forget();
    WriteFile("/etc/resolv.conf", "nameserver 192.0.2.1\n");

    FastClock::Advance(10s);
    corvi.Tick();
    FastClock::Advance(60s);
    corvi.Tick();

    QCOMPARE(ReadFile("/etc/resolv.conf"), QByteArray("nameserver 192.0.2.1\n"));
    QCOMPARE(JournalOf("update_hosts").size(), 0);
}

void TestCorviUpkeep::lastStateOfALinkThatFlappedIsTold()
{
    CorviPeer corvi(LAN_STATIC, {"eth0"}, SET_UP);
    for (int i = 0; i < 4; ++i) {
        PullCable("eth0");
        corvi.Tick();
        PlugCable("eth0");
        corvi.Tick();
    }
    Forget();

    FastClock::Advance(31min);
    corvi.Tick(2);

    QCOMPARE(
        LogLines()
            .filter(QRegularExpression("the link has come to rest, connected 1 eth0 -- [0-9]+ times since"))
            .size(),
        1);
}

QTEST_GUILESS_MAIN(TestCorviUpkeep)
#include "tst_corvi_upkeep.moc"
