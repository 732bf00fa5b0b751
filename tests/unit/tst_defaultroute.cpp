// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "defaultroute.h"
#include "networkdevice.h"
#include "testsupport.h"

#include <QtTest>

using namespace TestSupport;

/// The kernel's default routes, and a gateway that another interface reaches, too.
class TestDefaultRoute : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();

    void noRoute();
    void routesComeInTheOrderInWhichTheyCount();
    void routeWithoutAGateway();
    void otherRoutesAreNoDefaultRoutes();
    void halvesOfAllAddressesGoTogether();
    void gatewayThatAnotherInterfaceReachesIsOurs();
    void gatewayIsLeftToTheTool_data();
    void gatewayIsLeftToTheTool();
};

void TestDefaultRoute::initTestCase()
{
    // As a cable and a radio in one office.
    MakeVeth("eth0", "port0");
    MakeVeth("wlan0", "port1");
    for (const char *name : {"eth0", "port0", "wlan0", "port1"})
        RealIp({"link", "set", "dev", name, "up"});
    RealIp({"addr", "add", "192.0.2.10/24", "dev", "wlan0"});
    RealIp({"addr", "add", "192.0.2.20/24", "dev", "eth0"});
}

void TestDefaultRoute::init()
{
    RealIp({"-4", "route", "flush", "default"});
    ClearJournal();
    ClearAnswers();
}

void TestDefaultRoute::noRoute()
{
    QVERIFY(ReadDefaultRoutes().isEmpty());
}

void TestDefaultRoute::routesComeInTheOrderInWhichTheyCount()
{
    RealIp({"route", "add", "default", "via", "192.0.2.129", "dev", "wlan0", "metric", "600"});
    RealIp({"route", "add", "default", "via", "192.0.2.1", "dev", "eth0"});

    const QVector<DefaultRoute> routes = ReadDefaultRoutes();

    QCOMPARE(routes.size(), 2);
    QCOMPARE(routes.at(0).interfaceName, QString("eth0"));
    QCOMPARE(routes.at(0).gateway, QString("192.0.2.1"));
    QCOMPARE(routes.at(0).metric, 0);
    QCOMPARE(routes.at(1).interfaceName, QString("wlan0"));
    QCOMPARE(routes.at(1).gateway, QString("192.0.2.129"));
    QCOMPARE(routes.at(1).metric, 600);
}

void TestDefaultRoute::routeWithoutAGateway()
{
    RealIp({"route", "add", "default", "dev", "eth0"});

    QCOMPARE(ReadDefaultRoutes().size(), 1);
    QCOMPARE(ReadDefaultRoutes().first().gateway, QString("0.0.0.0"));
}

void TestDefaultRoute::otherRoutesAreNoDefaultRoutes()
{
    // The destination is that of a default route, the mask is not.
    RealIp({"route", "add", "0.0.0.0/1", "via", "192.0.2.1", "dev", "eth0"});

    QVERIFY(ReadDefaultRoutes().isEmpty());

    RealIp({"route", "del", "0.0.0.0/1"});
}

void TestDefaultRoute::halvesOfAllAddressesGoTogether()
{
    RealIp({"route", "add", "default", "via", "192.0.2.1", "dev", "eth0"});
    QVERIFY(!HasRoutesForBothHalves());

    RealIp({"route", "add", "0.0.0.0/1", "via", "192.0.2.1", "dev", "eth0"});
    QVERIFY(!HasRoutesForBothHalves());
    RealIp({"route", "add", "128.0.0.0/1", "via", "192.0.2.1", "dev", "wlan0"});
    QVERIFY(HasRoutesForBothHalves());
    RealIp({"route", "del", "0.0.0.0/1"});
    QVERIFY(!HasRoutesForBothHalves());

    RealIp({"route", "del", "128.0.0.0/1"});
}

void TestDefaultRoute::gatewayThatAnotherInterfaceReachesIsOurs()
{
    // Of two interfaces in one network the tool takes the one that was there first.
    Answer("route", "[ \"$1\" = del ] || ip route add default via 192.0.2.1");
    Answer("ip", "ip \"$@\"");
    NetworkDevice device("eth0", nullptr);

    device.SetGateway("192.0.2.1");

    QCOMPARE(Journal(), (QStringList{"route del default", "route add default gw 192.0.2.1",
                                     "ip route replace default via 192.0.2.1 dev eth0"}));
    QCOMPARE(ReadDefaultRoutes().size(), 1);
    QCOMPARE(ReadDefaultRoutes().first().interfaceName, QString("eth0"));
}

void TestDefaultRoute::gatewayIsLeftToTheTool_data()
{
    QTest::addColumn<QStringList>("route");
    QTest::newRow("ours") << QStringList{"via", "192.0.2.1", "dev", "eth0"};
    QTest::newRow("another gateway") << QStringList{"via", "192.0.2.2", "dev", "wlan0"};
    QTest::newRow("none") << QStringList();
}

void TestDefaultRoute::gatewayIsLeftToTheTool()
{
    QFETCH(QStringList, route);
    if (!route.isEmpty())
        RealIp(QStringList{"route", "add", "default"} + route);
    NetworkDevice device("eth0", nullptr);

    device.SetGateway("192.0.2.1");

    QCOMPARE(Journal(), (QStringList{"route del default", "route add default gw 192.0.2.1"}));
}

QTEST_GUILESS_MAIN(TestDefaultRoute)
#include "tst_defaultroute.moc"
