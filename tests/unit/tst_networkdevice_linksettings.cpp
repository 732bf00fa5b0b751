// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "deviceworld.h"
#include "fakesysnet.h"
#include "logging.h"
#include "zebnetconfig.h"

#include <QtTest>

using TestSupport::Journal;
using TestSupport::LogText;

/// The speed and the MTU of a definition.
class TestNetworkDeviceLinkSettings : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void wiredSpeedIsSet_data();
    void wiredSpeedIsSet();
    void speedInForceIsNotSetAgain_data();
    void speedInForceIsNotSetAgain();
    void speedThatChangedIsSetAgain();
    void wrongSpeedIsToldOnce();
    void wirelessSpeedIsNotSet();
    void mtuIsSet_data();
    void mtuIsSet();
    void smallMtuIsRaisedForDhcp_data();
    void smallMtuIsRaisedForDhcp();
    void mtuIsSetAgainAfterARenewal();
    void renewalHasRoomForALargeAnswer();
    void mtuOfAServerIsTakenBack_data();
    void mtuOfAServerIsTakenBack();
    void refusedSettingIsToldOnce_data();
    void refusedSettingIsToldOnce();
    void longAnswerIsCut();
};

void TestNetworkDeviceLinkSettings::init()
{
    TestSupport::RestorePrograms();
    TestSupport::ClearAnswers();
    TestSupport::RemoveInterfaces();
    TestSupport::Remove("/tmp/config");
    TestSupport::Remove("/tmp/.hostlist");
    TestSupport::WriteNetworks(Network("lan"));
    TestSupport::ClearLog();
    TestSupport::ClearJournal();
    Logging::GetInstance(Logging::KEEP_LEVEL, false)->SetLoggingLevel(Level::TRACE);
}

void TestNetworkDeviceLinkSettings::wiredSpeedIsSet_data()
{
    QTest::addColumn<QString>("speed");
    QTest::addColumn<QString>("command");
    QTest::addColumn<bool>("wrong");

    QTest::newRow("auto") << "Auto"
                          << "" << false;
    QTest::newRow("empty") << ""
                           << "" << false;
    QTest::newRow("full") << "100 Mbps Full"
                          << "ethtool -s eth0 autoneg off speed 100 duplex full" << false;
    QTest::newRow("half") << "10 x Half"
                          << "ethtool -s eth0 autoneg off speed 10 duplex half" << false;
    QTest::newRow("any other word is half") << "1000 Mbps full"
                                            << "ethtool -s eth0 autoneg off speed 1000 duplex half" << false;
    QTest::newRow("empty middle part") << "100  Full"
                                       << "ethtool -s eth0 autoneg off speed 100 duplex full" << false;
    QTest::newRow("no number") << "x Mbps Full"
                               << "ethtool -s eth0 autoneg off speed 0 duplex full" << false;
    QTest::newRow("two words") << "1000 Full"
                               << "" << true;
    QTest::newRow("four words") << "1000 Mbps Full now"
                                << "" << true;
    QTest::newRow("other spelling of auto") << "auto"
                                            << "" << true;
}

void TestNetworkDeviceLinkSettings::wiredSpeedIsSet()
{
    QFETCH(QString, speed);
    QFETCH(QString, command);
    QFETCH(bool, wrong);
    Device device("eth0");
    device.getCurrentConfig()->speed = speed;

    device.ConfigureNetwork(false);

    QCOMPARE(Journal().mid(1).join("; "), command);
    QCOMPARE(LogText().contains(" ConfigureNetwork - Wrong format  " + speed + " \n"), wrong);
}

void TestNetworkDeviceLinkSettings::speedInForceIsNotSetAgain_data()
{
    QTest::addColumn<QString>("speed");
    QTest::addColumn<QByteArray>("sysfsSpeed");
    QTest::addColumn<QByteArray>("sysfsDuplex");
    QTest::addColumn<int>("runs");

    const QByteArray full = "full\n";
    const QByteArray half = "half\n";
    QTest::newRow("in force, full") << "100 Mbps Full" << QByteArray("100\n") << full << 1;
    QTest::newRow("in force, half") << "10 Mbps Half" << QByteArray("10\n") << half << 1;
    QTest::newRow("other speed") << "100 Mbps Full" << QByteArray("1000\n") << full << 3;
    QTest::newRow("other duplex") << "100 Mbps Full" << QByteArray("100\n") << half << 3;
    QTest::newRow("nothing to read") << "100 Mbps Full" << QByteArray() << full << 3;
}

void TestNetworkDeviceLinkSettings::speedInForceIsNotSetAgain()
{
    QFETCH(QString, speed);
    QFETCH(QByteArray, sysfsSpeed);
    QFETCH(QByteArray, sysfsDuplex);
    QFETCH(int, runs);
    FakeSysNet net;
    net.Write("eth0/speed", sysfsSpeed);
    net.Write("eth0/duplex", sysfsDuplex);
    Device device("eth0");
    device.getCurrentConfig()->speed = speed;

    // The first one sets it, in force or not: nobody else may have asked for it to stay.
    for (int i = 0; i < 3; ++i)
        device.ConfigureNetwork(false);

    QCOMPARE(Journal().filter("ethtool").size(), runs);
}

void TestNetworkDeviceLinkSettings::speedThatChangedIsSetAgain()
{
    FakeSysNet net;
    net.Write("eth0/speed", "100\n");
    net.Write("eth0/duplex", "full\n");
    Device device("eth0");

    for (const char *speed : {"100 Mbps Full", "10 Mbps Full", "100 Mbps Full"}) {
        device.getCurrentConfig()->speed = speed;
        device.ConfigureNetwork(false);
    }

    QCOMPARE(Journal().filter("ethtool").size(), 3);
}

void TestNetworkDeviceLinkSettings::wrongSpeedIsToldOnce()
{
    Device device("eth0");
    device.getCurrentConfig()->speed = "1000 Full";
    Logging::GetInstance(Logging::KEEP_LEVEL, false)->SetLoggingLevel(Level::NOTICE);

    device.ConfigureNetwork(false);
    device.ConfigureNetwork(false);

    QCOMPARE(LogText().count("Wrong format"), 1);
}

void TestNetworkDeviceLinkSettings::wirelessSpeedIsNotSet()
{
    TestSupport::WriteNetworks(Network("Office", "<speed>100 Mbps Full</speed><mtu>1400</mtu>"));
    Device device("wlan0", true);

    device.ConfigureNetwork(false);

    QCOMPARE(Journal().mid(Journal().indexOf("update_hosts")),
             (QStringList{"update_hosts", "ip link set wlan0 mtu 1400"}));
}

void TestNetworkDeviceLinkSettings::mtuIsSet_data()
{
    QTest::addColumn<QByteArray>("properties");
    QTest::addColumn<QStringList>("commands");

    QTest::newRow("none") << QByteArray() << QStringList();
    QTest::newRow("given") << QByteArray("<mtu>1400</mtu>") << QStringList{"ip link set eth0 mtu 1400"};
    QTest::newRow("after a wrong speed")
        << QByteArray("<mtu>1400</mtu>") << QStringList{"ip link set eth0 mtu 1400"};
}

void TestNetworkDeviceLinkSettings::mtuIsSet()
{
    QFETCH(QByteArray, properties);
    QFETCH(QStringList, commands);
    TestSupport::WriteNetworks(Network("lan", properties));
    Device device("eth0");
    if (QByteArray(QTest::currentDataTag()) == "after a wrong speed")
        device.getCurrentConfig()->speed = "fast";

    device.ConfigureNetwork(false);

    QCOMPARE(Journal().mid(1), commands);
}

void TestNetworkDeviceLinkSettings::smallMtuIsRaisedForDhcp_data()
{
    QTest::addColumn<QString>("mtu");
    QTest::addColumn<int>("failures");
    QTest::addColumn<QByteArray>("seen");
    QTest::newRow("no room for a request") << "327" << 0 << QByteArray("1500\n");
    QTest::newRow("room for a request") << "328" << 0 << QByteArray("328\n");
    QTest::newRow("no room for an answer") << "575" << 1 << QByteArray("1500\n");
    QTest::newRow("room for an answer") << "576" << 1 << QByteArray("576\n");
}

void TestNetworkDeviceLinkSettings::smallMtuIsRaisedForDhcp()
{
    QFETCH(QString, mtu);
    QFETCH(int, failures);
    GivenInterface();
    TestSupport::RealIp({"link", "set", "dev", "eth0", "mtu", mtu});
    TestSupport::WriteNetworks(Network("lan", "<mtu>" + mtu.toLatin1() + "</mtu>"));
    TestSupport::Answer("ip", "exec ip \"$@\"");
    TestSupport::Answer("dhclient", "cat /sys/class/net/eth0/mtu >/tmp/mtu.seen");
    Device device("eth0");
    device.dhcpFailures = failures;

    device.ConfigureNetwork(true);

    QTEST(TestSupport::ReadFile("/tmp/mtu.seen"), "seen");
    QCOMPARE(TestSupport::ReadFile("/sys/class/net/eth0/mtu").trimmed(), mtu.toLatin1());
}

void TestNetworkDeviceLinkSettings::mtuIsSetAgainAfterARenewal()
{
    GivenInterface();
    TestSupport::WriteNetworks(Network("lan", "<mtu>1400</mtu>"));
    Device device("eth0");
    device.ConfigureNetwork(true);
    TestSupport::ClearJournal();

    device.RenewLease();

    QCOMPARE(Journal().size(), 2);
    QVERIFY(Journal().first().startsWith("dhclient "));
    QCOMPARE(Journal().last(), "ip link set eth0 mtu 1400");
}

void TestNetworkDeviceLinkSettings::renewalHasRoomForALargeAnswer()
{
    GivenInterface();
    TestSupport::RealIp({"link", "set", "dev", "eth0", "mtu", "575"});
    Device device("eth0");
    device.ConfigureNetwork(true);
    TestSupport::ClearJournal();

    device.RenewLease();

    QCOMPARE(Journal().first(), "ip link set eth0 mtu 1500");
}

void TestNetworkDeviceLinkSettings::mtuOfAServerIsTakenBack_data()
{
    QTest::addColumn<QByteArray>("properties");
    QTest::addColumn<bool>("isTakenBack");

    const QByteArray fixed =
        "<staticIp>true</staticIp><ipAddress>10.0.0.5</ipAddress><netmask>255.0.0.0</netmask>";
    QTest::newRow("fixed address") << fixed << true;
    QTest::newRow("fixed address and MTU") << fixed + "<mtu>1300</mtu>" << false;
    QTest::newRow("address of a server") << QByteArray() << false;
}

void TestNetworkDeviceLinkSettings::mtuOfAServerIsTakenBack()
{
    QFETCH(QByteArray, properties);
    QFETCH(bool, isTakenBack);
    // Left by the client's hook: what was in force before a server asked for another one.
    const QString before = QStringLiteral("/run/corvi-mtu-before.eth0");
    TestSupport::WriteFile(before, "1500\n");
    const auto removal = qScopeGuard([before] { TestSupport::Remove(before); });
    TestSupport::WriteNetworks(Network("lan", properties));
    Device device("eth0");

    device.ConfigureNetwork(false);

    QCOMPARE(Journal().contains("ip link set eth0 mtu 1500"), isTakenBack);
    QCOMPARE(QFile::exists(before), !isTakenBack);
}

void TestNetworkDeviceLinkSettings::refusedSettingIsToldOnce_data()
{
    QTest::addColumn<QByteArray>("tool");
    QTest::addColumn<QByteArray>("answer");
    QTest::addColumn<QByteArray>("line");

    QTest::newRow("MTU") << QByteArray("ip") << QByteArray("Error: mtu greater than device maximum.")
                         << QByteArray(" NetworkDevice::SetMtu - the MTU 9000 is refused on eth0");
    QTest::newRow("speed") << QByteArray("ethtool") << QByteArray("netlink error: Operation not supported")
                           << QByteArray(" NetworkDevice::SetSpeed - 100 Mb/s, full duplex, is refused on "
                                         "eth0");
}

void TestNetworkDeviceLinkSettings::refusedSettingIsToldOnce()
{
    QFETCH(QByteArray, tool);
    QFETCH(QByteArray, answer);
    QFETCH(QByteArray, line);
    SetLevel(Level::NOTICE);
    TestSupport::WriteNetworks(Network("lan", "<speed>100 Mbps Full</speed><mtu>9000</mtu>"));
    Device device("eth0");
    const auto refuse = [&] {
        TestSupport::Answer(tool, "echo '" + answer + "' >&2; exit 2");
    };

    refuse();
    device.ConfigureNetwork(false);
    device.ConfigureNetwork(false);

    const QString told = QString::fromLatin1(QByteArray(line + " -- " + answer + " \n"));
    QCOMPARE(LogText().count(told), 1);
    QCOMPARE(LogText().count('\n'), 1);

    TestSupport::ClearAnswers();
    device.ConfigureNetwork(false);
    refuse();
    device.ConfigureNetwork(false);

    QCOMPARE(LogText().count(told), 2);
    QCOMPARE(LogText().count('\n'), 2);
}

void TestNetworkDeviceLinkSettings::longAnswerIsCut()
{
    TestSupport::Answer("ip", "head -c 300 /dev/zero | tr '\\0' x");
    Device device("eth0");

    device.SetMtu("eth0", "9000");

    QVERIFY(LogText().endsWith(" -- " + QString(200, 'x') + " \n"));
}

QTEST_GUILESS_MAIN(TestNetworkDeviceLinkSettings)
#include "tst_networkdevice_linksettings.moc"
