// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "logging.h"
#include "networkdevice.h"
#include "testsupport.h"

#include <QTimer>
#include <QtTest>

#include <functional>

namespace {

using Operation = std::function<void(NetworkDevice &)>;

} // namespace

Q_DECLARE_METATYPE(Operation)

/// The tools that link and address operations run.
class TestNetworkDeviceLink : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void operationRunsItsTool_data();
    void operationRunsItsTool();
    void operationIsLogged_data();
    void operationIsLogged();
    void operationIsLoggedBeforeItsTool_data();
    void operationIsLoggedBeforeItsTool();
    void upAndDownKeepTheLinkFlag_data();
    void upAndDownKeepTheLinkFlag();
    void failingToolChangesNothing();
    void routeByAnotherInterfaceIsMovedHere();
    void linkThatStaysDownWaitsForItsPause_data();
    void linkThatStaysDownWaitsForItsPause();
    void startingTwiceRunsTheToolOnce();
    void startingClearsStoppedAndPolls();
    void startingADeviceThatIsUpRunsNothing();
    void startingDoesNotLook();
    void firstStartRunsTheToolOnALinkThatIsUp();
    void stoppingAStartedDeviceTakesItDown();
    void stoppingADeviceThatWasNotStartedRunsNothing();
    void deviceCanBeStartedAgain();
};

void TestNetworkDeviceLink::init()
{
    TestSupport::RestorePrograms();
    TestSupport::ClearJournal();
    TestSupport::ClearAnswers();
    TestSupport::ClearLog();
    Logging::GetInstance(Logging::KEEP_LEVEL, false)->SetLoggingLevel(Level::TRACE);
}

void TestNetworkDeviceLink::operationRunsItsTool_data()
{
    QTest::addColumn<Operation>("operation");
    QTest::addColumn<QStringList>("journal");

    const auto row = [](const char *name, const Operation &operation, const QStringList &journal) {
        QTest::newRow(name) << operation << journal;
    };
    row("Up", [](NetworkDevice &d) { d.Up(); }, {"ifconfig eth0 up"});
    row("Up another", [](NetworkDevice &d) { d.Up("eth1"); }, {"ifconfig eth1 up"});
    row("Up with address", [](NetworkDevice &d) { d.Up("10.0.0.5", "255.0.0.0"); },
        {"ifconfig eth0 10.0.0.5 netmask 255.0.0.0 up"});
    row("Up another with address", [](NetworkDevice &d) { d.Up("eth1", "10.0.0.5", "255.0.0.0"); },
        {"ifconfig eth1 10.0.0.5 netmask 255.0.0.0 up"});
    row("Down", [](NetworkDevice &d) { d.Down(); }, {"ifconfig eth0 down"});
    row("Down another", [](NetworkDevice &d) { d.Down("eth1"); }, {"ifconfig eth1 down"});
    row("AutoNegotiate", [](NetworkDevice &d) { d.AutoNegotiate("eth0"); }, {"ethtool -s eth0 autoneg on"});
    row("SetSpeed half", [](NetworkDevice &d) { d.SetSpeed("eth0", 100, 0); },
        {"ethtool -s eth0 autoneg off speed 100 duplex half"});
    row("SetSpeed full", [](NetworkDevice &d) { d.SetSpeed("eth0", 1000, 1); },
        {"ethtool -s eth0 autoneg off speed 1000 duplex full"});
    row("SetSpeed any other duplex", [](NetworkDevice &d) { d.SetSpeed("eth0", 10, 2); },
        {"ethtool -s eth0 autoneg off speed 10 duplex half"});
    row("SetSpeed to nothing", [](NetworkDevice &d) { d.SetSpeed("eth0", 0, 1); },
        {"ethtool -s eth0 autoneg off speed 0 duplex full"});
    row("SetSpeed below nothing", [](NetworkDevice &d) { d.SetSpeed("eth0", -100, 1); },
        {"ethtool -s eth0 autoneg off speed -100 duplex full"});
    row("SetMtu", [](NetworkDevice &d) { d.SetMtu("eth0", "1400"); }, {"ip link set eth0 mtu 1400"});
    row("SetMtu, empty", [](NetworkDevice &d) { d.SetMtu("eth0", ""); }, {"ip link set eth0 mtu ''"});
    row("FlushIpAddress", [](NetworkDevice &d) { d.FlushIpAddress(); }, {"ip addr flush eth0"});
    row("SetGateway deletes first", [](NetworkDevice &d) { d.SetGateway("10.0.0.1"); },
        {"route del default", "route add default gw 10.0.0.1"});
    row("SetGateway, empty", [](NetworkDevice &d) { d.SetGateway(""); },
        {"route del default", "route add default gw ''"});
}

void TestNetworkDeviceLink::operationRunsItsTool()
{
    QFETCH(Operation, operation);
    NetworkDevice device("eth0", nullptr);

    operation(device);

    QTEST(TestSupport::Journal(), "journal");
}

void TestNetworkDeviceLink::operationIsLogged_data()
{
    QTest::addColumn<Operation>("operation");
    QTest::addColumn<QString>("line");

    const auto row = [](const char *name, const Operation &operation, const char *line) {
        QTest::newRow(name) << operation << QString(line);
    };
    row(
        "Up", [](NetworkDevice &d) { d.Up(); }, "NetworkDevice::Up eth0 ");
    row(
        "Up with address", [](NetworkDevice &d) { d.Up("10.0.0.5", "255.0.0.0"); },
        "NetworkDevice::Up eth0 10.0.0.5 255.0.0.0 ");
    row(
        "Down", [](NetworkDevice &d) { d.Down(); }, "NetworkDevice::Down eth0 ");
    row(
        "SetSpeed", [](NetworkDevice &d) { d.SetSpeed("eth0", 100, 1); }, "speed:  100  duplex:  full ");
    row(
        "SetMtu", [](NetworkDevice &d) { d.SetMtu("eth0", "1400"); }, "NetworkDevice::MTU -  eth0 1400 ");
    row(
        "SetGateway", [](NetworkDevice &d) { d.SetGateway("10.0.0.1"); },
        "NetworkDevice::SetGateway -   10.0.0.1 ");
}

void TestNetworkDeviceLink::operationIsLogged()
{
    QFETCH(Operation, operation);
    QFETCH(QString, line);
    NetworkDevice device("eth0", nullptr);
    TestSupport::ClearLog();

    operation(device);

    const QStringList lines = TestSupport::LogText().split('\n', Qt::SkipEmptyParts);
    QCOMPARE(lines.size(), 1);
    QCOMPARE(lines.first().mid(QStringLiteral("2025-05-03 17:05:01.234 :  ").size()), line);
}

void TestNetworkDeviceLink::operationIsLoggedBeforeItsTool_data()
{
    QTest::addColumn<Operation>("operation");
    QTest::addColumn<QString>("tool");
    QTest::addColumn<QString>("line");

    QTest::newRow("SetSpeed") << Operation([](NetworkDevice &d) { d.SetSpeed("eth0", 100, 1); }) << "ethtool"
                              << " speed:  100  duplex:  full \n";
    QTest::newRow("SetMtu") << Operation([](NetworkDevice &d) { d.SetMtu("eth0", "1400"); }) << "ip"
                            << " NetworkDevice::MTU -  eth0 1400 \n";
    QTest::newRow("SetGateway") << Operation([](NetworkDevice &d) { d.SetGateway("10.0.0.1"); }) << "route"
                                << " NetworkDevice::SetGateway -   10.0.0.1 \n";
}

void TestNetworkDeviceLink::operationIsLoggedBeforeItsTool()
{
    QFETCH(Operation, operation);
    QFETCH(QString, tool);
    QFETCH(QString, line);
    TestSupport::Remove("/tmp/log.seen");
    // What the first run of the tool finds.
    TestSupport::Answer(tool, "[ -e /tmp/log.seen ] || cp /var/log/corvi-mon.log /tmp/log.seen");
    NetworkDevice device("eth0", nullptr);

    operation(device);

    QVERIFY(TestSupport::ReadFile("/tmp/log.seen").contains(line.toLatin1()));
}

void TestNetworkDeviceLink::upAndDownKeepTheLinkFlag_data()
{
    QTest::addColumn<Operation>("operation");
    QTest::addColumn<bool>("before");
    QTest::addColumn<bool>("after");

    const auto row = [](const char *name, const Operation &operation, bool before, bool after) {
        QTest::newRow(name) << operation << before << after;
    };
    row(
        "Up", [](NetworkDevice &d) { d.Up(); }, false, true);
    row(
        "Up with address", [](NetworkDevice &d) { d.Up("10.0.0.5", "255.0.0.0"); }, false, true);
    row(
        "Up another", [](NetworkDevice &d) { d.Up("eth1"); }, false, false);
    row(
        "Up its own name", [](NetworkDevice &d) { d.Up("eth0"); }, false, false);
    row(
        "Down its own name", [](NetworkDevice &d) { d.Down("eth0"); }, true, true);
    row(
        "Up another with address", [](NetworkDevice &d) { d.Up("eth1", "10.0.0.5", "255.0.0.0"); }, false,
        false);
    row(
        "Down", [](NetworkDevice &d) { d.Down(); }, true, false);
    row(
        "Down another", [](NetworkDevice &d) { d.Down("eth1"); }, true, true);
    row(
        "Flush", [](NetworkDevice &d) { d.FlushIpAddress(); }, true, true);
}

void TestNetworkDeviceLink::upAndDownKeepTheLinkFlag()
{
    QFETCH(Operation, operation);
    QFETCH(bool, before);
    NetworkDevice device("eth0", nullptr);
    device.linkUp = before;

    operation(device);

    QTEST(device.linkUp, "after");
}

void TestNetworkDeviceLink::failingToolChangesNothing()
{
    TestSupport::RemoveProgram("ifconfig");
    TestSupport::Answer("route", "echo 'SIOCDELRT: No such process' >&2; exit 7");
    NetworkDevice device("eth0", nullptr);

    device.Up();
    device.SetGateway("10.0.0.1");

    QVERIFY(device.linkUp);
    QCOMPARE(TestSupport::Journal(), (QStringList{"route del default", "route add default gw 10.0.0.1"}));
}

/// The tool took the other one of two interfaces in one network.
void TestNetworkDeviceLink::routeByAnotherInterfaceIsMovedHere()
{
    TestSupport::MakeVeth("eth0", "lan0");
    const auto removal = qScopeGuard([] { TestSupport::RemoveInterfaces(); });
    TestSupport::RealIp({"link", "set", "dev", "lan0", "up"});
    TestSupport::RealIp({"addr", "add", "10.0.0.5/24", "dev", "lan0"});
    TestSupport::RealIp({"route", "add", "default", "via", "10.0.0.1", "dev", "lan0"});
    NetworkDevice device("eth0", nullptr);

    device.SetGateway("10.0.0.1");

    QCOMPARE(TestSupport::Journal(), (QStringList{"route del default", "route add default gw 10.0.0.1",
                                                  "ip route replace default via 10.0.0.1 dev eth0"}));
}

void TestNetworkDeviceLink::linkThatStaysDownWaitsForItsPause_data()
{
    QTest::addColumn<Operation>("operation");
    QTest::newRow("Up") << Operation([](NetworkDevice &d) { d.Up(); });
    QTest::newRow("Up with address") << Operation([](NetworkDevice &d) { d.Up("10.0.0.5", "255.0.0.0"); });
}

/// The tool does nothing.
void TestNetworkDeviceLink::linkThatStaysDownWaitsForItsPause()
{
    QFETCH(Operation, operation);
    TestSupport::MakeVeth("eth0", "peer0");
    NetworkDevice device("eth0", nullptr);

    operation(device);
    device.RefreshStatus();

    QVERIFY(device.linkUp);
    QVERIFY(!TestSupport::LogText().contains("bringing it up again"));
    TestSupport::RemoveInterfaces();
}

void TestNetworkDeviceLink::startingTwiceRunsTheToolOnce()
{
    NetworkDevice device("eth0", nullptr);

    QCOMPARE(device.StartDevice(), 1);
    QCOMPARE(device.StartDevice(), 1);

    QCOMPARE(TestSupport::Journal(), QStringList{"ifconfig eth0 up"});
}

void TestNetworkDeviceLink::startingClearsStoppedAndPolls()
{
    NetworkDevice device("eth0", nullptr);
    device.stopped = true;

    device.StartDevice();

    QVERIFY(!device.stopped);
    QVERIFY(device.timer->isActive());
    QVERIFY(!device.timer->isSingleShot());
    QCOMPARE(device.timer->interval(), 250);
}

void TestNetworkDeviceLink::startingADeviceThatIsUpRunsNothing()
{
    NetworkDevice device("eth0", nullptr);
    device.linkUp = true;
    device.stopped = true;

    device.StartDevice();

    QCOMPARE(TestSupport::Journal(), QStringList());
    QVERIFY(!device.stopped);
    QVERIFY(device.timer->isActive());
}

void TestNetworkDeviceLink::startingDoesNotLook()
{
    NetworkDevice device("eth0", nullptr);
    device.isRunning = true;
    device.ipAddress = "10.1.2.3";

    device.StartDevice();

    QVERIFY(device.isRunning);
    QCOMPARE(device.ipAddress, QString("10.1.2.3"));
}

void TestNetworkDeviceLink::firstStartRunsTheToolOnALinkThatIsUp()
{
    // The loopback is up already.
    NetworkDevice device("lo", nullptr);
    device.RefreshStatus();
    QVERIFY(device.isUp);

    device.StartDevice();

    QCOMPARE(TestSupport::Journal(), QStringList{"ifconfig lo up"});
}

void TestNetworkDeviceLink::stoppingAStartedDeviceTakesItDown()
{
    NetworkDevice device("eth0", nullptr);
    device.StartDevice();
    TestSupport::ClearJournal();

    QCOMPARE(device.StopDevice(), 1);

    QCOMPARE(TestSupport::Journal(), QStringList{"ifconfig eth0 down"});
    QVERIFY(device.stopped);
    QVERIFY(!device.linkUp);
    QVERIFY2(device.timer->isActive(), "the poll ends itself");
}

void TestNetworkDeviceLink::stoppingADeviceThatWasNotStartedRunsNothing()
{
    NetworkDevice device("eth0", nullptr);

    QCOMPARE(device.StopDevice(), 1);
    QCOMPARE(device.StopDevice(), 1);

    QCOMPARE(TestSupport::Journal(), QStringList());
    QVERIFY(device.stopped);
}

void TestNetworkDeviceLink::deviceCanBeStartedAgain()
{
    NetworkDevice device("eth0", nullptr);
    device.StartDevice();
    device.StopDevice();
    TestSupport::ClearJournal();

    device.StartDevice();

    QCOMPARE(TestSupport::Journal(), QStringList{"ifconfig eth0 up"});
    QVERIFY(!device.stopped);
}

QTEST_GUILESS_MAIN(TestNetworkDeviceLink)
#include "tst_networkdevice_link.moc"
