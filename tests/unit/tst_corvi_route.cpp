// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "corvipeer.h"

#include <memory>

using namespace CorviWorld;
using namespace TestSupport;

/// The default route that a lease brought is kept as the static one is, whoever takes it away, but for those
/// who have another way out.
class TestCorviRoute : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup() { corvi.reset(); }

    void lostRouteOfALeaseIsSetAgain();
    void routeThatWentWithItsSubnetIsSetAgain();
    void routeByAGatewayOutsideTheSubnetIsSetAgain();
    void routeOfAnotherInTheSubnetStays();
    void routeThatCannotBeSetWaits();
    void routeOfALeaseKeepsItsMetric();
    void routeThatSomebodySetInstead();
    void routeOfAnEarlierAddressIsForgotten();
    void routeOfAnEarlierLeaseIsForgotten();
    void routeBehindAnotherIsLearnt();
    void tunnelThatTakesEveryAddressIsLeftAlone();
    void halfATunnelIsNoWayOut();
    void routeThatRefusesIsLeftAlone();
    void gatewayThatTheServerTookBackIsForgotten();
    void everyLossOfTheRouteIsTold();

private:
    /// The DHCP client's script sets the route of its lease, and the daemon sees it.
    void LearnRoute();
    static void LoseRoute();
    static void MakeTunnel();

    /// A cable with a lease.
    std::unique_ptr<CorviPeer> corvi;
};

void TestCorviRoute::init()
{
    StartFromNothing();
    UseDhcpServer();
    corvi = std::make_unique<CorviPeer>(LAN_DHCP, QStringList{"eth0"}, SET_UP);
}

void TestCorviRoute::LearnRoute()
{
    RealIp({"route", "add", "default", "via", "10.0.0.1", "dev", "eth0"});
    corvi->Tick();
}

void TestCorviRoute::LoseRoute()
{
    RealIp({"route", "del", "default"});
}

void TestCorviRoute::MakeTunnel()
{
    MakeInterface("vpn0");
    BringUp("vpn0");
}

void TestCorviRoute::lostRouteOfALeaseIsSetAgain()
{
    LearnRoute();
    EventListener listener;
    Forget();

    LoseRoute();
    corvi->Tick();

    QCOMPARE(Journal(), QStringList{"ip route replace default via 10.0.0.1 dev eth0"});
    QCOMPARE(LogLines(),
             QStringList{
                 "NetworkDevice::KeepLeasedRoute - the default route is missing, setting it again on eth0"});
    QCOMPARE(listener.Take(), Events());
    Forget();
    corvi->Tick(3);
    QCOMPARE(Journal(), QStringList());
}

void TestCorviRoute::routeThatWentWithItsSubnetIsSetAgain()
{
    LearnRoute();
    const QByteArray before = RealIp({"route"});

    RealIp({"route", "flush", "dev", "eth0"});
    corvi->Tick();

    QCOMPARE(RealIp({"route"}), before);
}

void TestCorviRoute::routeByAGatewayOutsideTheSubnetIsSetAgain()
{
    RealIp({"addr", "flush", "dev", "eth0"});
    RealIp({"addr", "add", "10.0.0.6/32", "dev", "eth0"});
    // As the client's script does for such a lease.
    RealIp({"route", "add", "192.0.2.1", "dev", "eth0"});
    RealIp({"route", "add", "default", "via", "192.0.2.1", "dev", "eth0"});
    corvi->Tick(2);

    RealIp({"route", "flush", "dev", "eth0"});
    corvi->Tick();

    QVERIFY(RealIp({"route", "show", "dev", "eth0"}).contains("default via 192.0.2.1"));
}

void TestCorviRoute::routeOfAnotherInTheSubnetStays()
{
    LearnRoute();
    MakeInterface("other0");
    BringUp("other0");
    RealIp({"addr", "add", "10.0.0.6/24", "dev", "other0"});

    RealIp({"route", "flush", "dev", "eth0"});
    corvi->Tick();

    QCOMPARE(RealIp({"route", "show", "dev", "other0"}).simplified(),
             QByteArray("10.0.0.0/24 proto kernel scope link src 10.0.0.6"));
    QVERIFY(RealIp({"route", "show", "dev", "eth0"}).contains("default via 10.0.0.1"));
}

void TestCorviRoute::routeThatCannotBeSetWaits()
{
    LearnRoute();
    Answer("ip", "[ $1 = route ] || exec ip \"$@\"");
    Forget();

    LoseRoute();
    corvi->Tick(2);

    QCOMPARE(JournalOf("ip route").size(), 1);
}

void TestCorviRoute::routeOfALeaseKeepsItsMetric()
{
    RealIp({"route", "add", "default", "via", "10.0.0.1", "dev", "eth0", "metric", "600"});
    corvi->Tick();
    Forget();

    LoseRoute();
    corvi->Tick();

    QCOMPARE(Journal(), QStringList{"ip route replace default via 10.0.0.1 dev eth0 metric 600"});
}

void TestCorviRoute::routeThatSomebodySetInstead()
{
    LearnRoute();
    MakeTunnel();
    Forget();

    RealIp({"route", "replace", "default", "dev", "vpn0"});
    corvi->WiredDevice()->KeepLeasedRoute();

    QCOMPARE(Journal(), QStringList());
}

void TestCorviRoute::routeOfAnEarlierAddressIsForgotten()
{
    LearnRoute();
    Forget();

    RealIp({"addr", "flush", "dev", "eth0"});
    RealIp({"addr", "add", "10.0.0.6/24", "dev", "eth0"});
    corvi->Tick(2);

    QCOMPARE(JournalOf("ip route"), QStringList());
}

void TestCorviRoute::routeOfAnEarlierLeaseIsForgotten()
{
    LearnRoute();
    Forget();

    LoseRoute();
    corvi->WiredDevice()->ConfigureNetwork(true);
    corvi->Tick();

    QCOMPARE(JournalOf("ip route"), QStringList());
}

void TestCorviRoute::routeBehindAnotherIsLearnt()
{
    MakeTunnel();
    RealIp({"route", "add", "default", "dev", "vpn0"});
    RealIp({"route", "add", "default", "via", "10.0.0.1", "dev", "eth0", "metric", "1"});
    corvi->WiredDevice()->KeepLeasedRoute();
    Forget();

    RealIp({"route", "flush", "default"});
    corvi->WiredDevice()->KeepLeasedRoute();

    QCOMPARE(Journal(), QStringList{"ip route replace default via 10.0.0.1 dev eth0 metric 1"});
}

void TestCorviRoute::tunnelThatTakesEveryAddressIsLeftAlone()
{
    LearnRoute();
    MakeTunnel();
    RealIp({"route", "add", "0.0.0.0/1", "dev", "vpn0"});
    RealIp({"route", "add", "128.0.0.0/1", "dev", "vpn0"});
    Forget();

    // As one does that lets nothing past itself.
    LoseRoute();
    corvi->WiredDevice()->KeepLeasedRoute();
    QCOMPARE(Journal(), QStringList());
    QCOMPARE(corvi->WiredDevice()->ExpectedGateway(), QString());

    RealIp({"link", "del", "dev", "vpn0"});
    QCOMPARE(corvi->WiredDevice()->ExpectedGateway(), QString("10.0.0.1"));
    corvi->WiredDevice()->KeepLeasedRoute();
    QCOMPARE(Journal(), QStringList{"ip route replace default via 10.0.0.1 dev eth0"});
}

void TestCorviRoute::halfATunnelIsNoWayOut()
{
    LearnRoute();
    MakeTunnel();
    RealIp({"route", "add", "0.0.0.0/1", "dev", "vpn0"});
    Forget();

    LoseRoute();
    corvi->WiredDevice()->KeepLeasedRoute();

    QCOMPARE(Journal(), QStringList{"ip route replace default via 10.0.0.1 dev eth0"});
}

void TestCorviRoute::routeThatRefusesIsLeftAlone()
{
    LearnRoute();
    // As a VPN that lets nothing past itself keeps one for when it is down.
    RealIp({"route", "add", "unreachable", "default", "metric", "9999"});
    const auto cleaner = qScopeGuard([] { RealIp({"route", "del", "unreachable", "default"}); });
    Forget();

    RealIp({"route", "del", "default", "dev", "eth0"});
    corvi->Tick();

    QCOMPARE(Journal(), QStringList());
    QCOMPARE(corvi->WiredDevice()->ExpectedGateway(), QString());
}

void TestCorviRoute::gatewayThatTheServerTookBackIsForgotten()
{
    LearnRoute();
    Forget();

    // As the client's hook says of a renewal without a router.
    WriteFile("/run/corvi-no-router.eth0", "");
    LoseRoute();
    corvi->WiredDevice()->KeepLeasedRoute();
    QVERIFY(QFile::remove("/run/corvi-no-router.eth0"));
    corvi->WiredDevice()->KeepLeasedRoute();

    QCOMPARE(Journal(), QStringList());
}

void TestCorviRoute::everyLossOfTheRouteIsTold()
{
    LearnRoute();
    Forget();

    for (int i = 0; i < 2; ++i) {
        LoseRoute();
        corvi->Tick(2);
    }

    QCOMPARE(LogCount("NetworkDevice::KeepLeasedRoute - the default route is missing, "
                      "setting it again on eth0"),
             2);
}

QTEST_GUILESS_MAIN(TestCorviRoute)
#include "tst_corvi_route.moc"
