// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "deviceworld.h"
#include "logging.h"
#include "mountpoint.h"
#include "namednetwork.h"
#include "program.h"
#include "zebnetstatus.h"

#include <QtTest>

#include <stdexcept>

using TestSupport::Journal;
using TestSupport::LogText;
using TestSupport::RealIp;

namespace {

const QString RESOLV_CONF = QStringLiteral("/etc/resolv.conf");
const QByteArray DHCP_ANSWER = "ip addr add 10.0.0.5/24 broadcast 10.0.0.255 dev eth0; "
                               "echo bound to 10.0.0.5 -- renewal in 300 seconds.";
const QByteArray STATIC_ADDRESS = "<staticIp>true</staticIp><ipAddress>10.0.0.9</ipAddress>"
                                  "<netmask>255.255.255.0</netmask><gateway>10.0.0.1</gateway>";
const QByteArray STATIC_DNS = "<staticDns>true</staticDns><dns1>1.1.1.1</dns1><dns2>9.9.9.9</dns2>"
                              "<domain>example.org</domain>";

} // namespace

/// How a definition is applied.
class TestNetworkDeviceConfig : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void withoutConfigurationOneEventIsSent();
    void missingConfigurationIsLookedForAgain();
    void flagsBeginClear();
    void waitForAuthenticationGoesOn();
    void appliedConfigurationIsKept();
    void configurationIsLogged_data();
    void configurationIsLogged();
    void wiredSecurityModeDecidesSupplicant_data();
    void wiredSecurityModeDecidesSupplicant();
    void supplicantInUseStaysInUse();
    void wiredFallbackIsTakenFromTheDefinition_data();
    void wiredFallbackIsTakenFromTheDefinition();
    void wiredFallbackIsNotInForceAtOnce();
    void wirelessKeepsItsFlags();
    void staticAddressIsSet_data();
    void staticAddressIsSet();
    void staticAddressWithLeadingZerosIsRead_data();
    void staticAddressWithLeadingZerosIsRead();
    void staticAddressThatWasLeasedStays_data();
    void staticAddressThatWasLeasedStays();
    void staticAddressIsAnnounced();
    void gatewayThatIsTheDeviceItselfIsTold_data();
    void gatewayThatIsTheDeviceItselfIsTold();
    void leasedGatewayThatIsTheDeviceItselfIsTold();
    void dhcpIsRunOnce();
    void dhcpIsAnnouncedBeforeAndAfter();
    void addressOfARenewalIsKnownAtOnce();
    void dhcpIsLogged();
    void boundWithoutAddressIsNotAnnounced();
    void boundWithoutAddressIsAFailure();
    void failedDhcpIsLoggedAndTheRestApplied();
    void failedDhcpForgetsTheEarlierAddress();
    void repeatedFailureIsNoNews();
    void failureOfALinkThatWentIsNoNews();
    void withoutRenewDhcpIsNotRun();
    void withoutRenewAnAnnouncedAddressIsForgotten();
    void staticDnsIsWritten_data();
    void staticDnsIsWritten();
    void ownServersAreSaidToTheClient();
    void ownServersEndWithTheirDefinition();
    void ownServersThatCannotBeSaidAreLogged();
    void serversThatCannotBeSaidAreNewsAfterSomeThatCould();
    void hostsAreAlwaysWritten();
    void stepsComeInOrder();
    void stepsOfAStaticAddressComeInOrder();
    void exceptionSkipsTheRest();
    void exceptionIsNewsAfterAConfiguration();
    void exceptionWithoutConfigurationIsCaught();
    void exceptionAtAnAddressSkipsTheRest();
};

void TestNetworkDeviceConfig::init()
{
    TestSupport::RestorePrograms();
    TestSupport::ClearAnswers();
    TestSupport::RemoveInterfaces();
    TestSupport::Remove("/tmp/config");
    TestSupport::Remove(RESOLV_CONF);
    TestSupport::Remove("/tmp/.hostlist");
    TestSupport::WriteNetworks(Network("lan"));
    TestSupport::ClearLog();
    TestSupport::ClearJournal();
    Logging::GetInstance(Logging::KEEP_LEVEL, false)->SetLoggingLevel(Level::TRACE);
}

void TestNetworkDeviceConfig::withoutConfigurationOneEventIsSent()
{
    TestSupport::WriteNetworks("");
    Device device("eth0");
    device.usesSupplicant = true;

    device.ConfigureNetwork(true);

    QCOMPARE(device.events, QStringList{"1,-1"});
    QCOMPARE(Journal(), QStringList());
    QVERIFY(device.usesSupplicant);
    QVERIFY(!QFile::exists("/tmp/.hostlist"));
    QVERIFY(LogText().contains(" NetworkDevice::ConfigureNetwork -- Could not find configuration \n"));
    QVERIFY(!LogText().contains("ConfigureNetwork -- end"));
}

void TestNetworkDeviceConfig::missingConfigurationIsLookedForAgain()
{
    TestSupport::WriteNetworks("");
    Device device("eth0");
    device.ConfigureNetwork(false);
    TestSupport::WriteNetworks(Network("lan"));
    device.getNamedNetworksForDevice();

    device.ConfigureNetwork(false);

    QVERIFY(device.currentConfig != nullptr);
    QCOMPARE(Journal(), QStringList{"update_hosts"});
}

void TestNetworkDeviceConfig::flagsBeginClear()
{
    TestSupport::WriteNetworks("");
    Device device("eth0");
    device.fallbackEnabled = true;
    device.inFallback = true;
    device.ipAnnounced = true;

    device.ConfigureNetwork(true);

    QVERIFY(!device.fallbackEnabled);
    QVERIFY(!device.inFallback);
    QVERIFY(!device.ipAnnounced);
}

void TestNetworkDeviceConfig::waitForAuthenticationGoesOn()
{
    Device device("eth0");
    device.authWaitTicks = 7;

    device.ConfigureNetwork(false);

    QCOMPARE(device.authWaitTicks, 7);
}

void TestNetworkDeviceConfig::appliedConfigurationIsKept()
{
    TestSupport::WriteNetworks(Network("lan1") + Network("lan2"));
    Device device("eth0");
    ZebNetConfig *const second = device.namedNetworks.value("lan2")->Config();

    device.ConfigureNetwork(false);
    QCOMPARE(device.currentConfig, device.namedNetworks.value("lan1")->Config());

    device.currentConfig = second;
    device.ConfigureNetwork(false);
    QCOMPARE(device.currentConfig, second);
}

void TestNetworkDeviceConfig::configurationIsLogged_data()
{
    QTest::addColumn<QByteArray>("properties");
    QTest::addColumn<QString>("line");

    // The label speaks of the name servers while the value is that of the address.
    QTest::newRow("DHCP") << STATIC_DNS << " NetworkDevice::ConfigureNetwork  Name= lan Use Static DNS= 0 \n";
    QTest::newRow("static") << STATIC_ADDRESS
                            << " NetworkDevice::ConfigureNetwork  Name= lan Use Static DNS= 1 \n";
}

void TestNetworkDeviceConfig::configurationIsLogged()
{
    QFETCH(QByteArray, properties);
    QFETCH(QString, line);
    TestSupport::WriteNetworks(Network("lan", properties));
    Device device("eth0");

    device.ConfigureNetwork(false);

    QVERIFY2(LogText().contains(line), qPrintable(LogText()));
    QVERIFY(LogText().contains(" NetworkDevice::ConfigureNetwork -- start  eth0 \n"));
    QVERIFY(LogText().endsWith(" NetworkDevice::ConfigureNetwork -- end \n"));
}

void TestNetworkDeviceConfig::wiredSecurityModeDecidesSupplicant_data()
{
    QTest::addColumn<QString>("mode");
    QTest::addColumn<bool>("uses");

    QTest::newRow("as stored") << "Unsecured" << false;
    QTest::newRow("lower case") << "unsecured" << false;
    QTest::newRow("any mix") << "uNSECUREd" << false;
    QTest::newRow("802.1X") << "802.1X (PEAP/MSCHAPv2)" << true;
    QTest::newRow("mode key") << "wired_tls" << true;
    QTest::newRow("nothing") << "" << true;
    QTest::newRow("only begins so") << "Unsecured network" << true;
}

void TestNetworkDeviceConfig::wiredSecurityModeDecidesSupplicant()
{
    QFETCH(QString, mode);
    QFETCH(bool, uses);
    Device device("eth0");
    device.getCurrentConfig()->securityMode = mode;

    device.ConfigureNetwork(false);

    QCOMPARE(device.usesSupplicant, uses);
}

void TestNetworkDeviceConfig::supplicantInUseStaysInUse()
{
    Device device("eth0");
    device.usesSupplicant = true;

    device.ConfigureNetwork(false);

    QVERIFY(device.usesSupplicant);
}

void TestNetworkDeviceConfig::wiredFallbackIsTakenFromTheDefinition_data()
{
    QTest::addColumn<QString>("value");
    QTest::addColumn<bool>("enabled");

    QTest::newRow("enabled") << "fallback" << true;
    QTest::newRow("capital letter") << "Fallback" << false;
    QTest::newRow("empty") << "" << false;
}

void TestNetworkDeviceConfig::wiredFallbackIsTakenFromTheDefinition()
{
    QFETCH(QString, value);
    QFETCH(bool, enabled);
    Device device("eth0");
    device.getCurrentConfig()->dot1xFallback = value;

    device.ConfigureNetwork(false);

    QCOMPARE(device.fallbackEnabled, enabled);
    QVERIFY(LogText().contains(
        QStringLiteral(" NetworkDevice::ConfigureNetwork 8021x Fallback enabled= %1 inFallback = 0 \n")
            .arg(enabled)));
}

void TestNetworkDeviceConfig::wiredFallbackIsNotInForceAtOnce()
{
    Device device("eth0");
    device.getCurrentConfig()->dot1xFallback = "fallback";
    device.inFallback = true;

    device.ConfigureNetwork(false);

    QVERIFY(device.fallbackEnabled);
    QVERIFY(!device.inFallback);
}

void TestNetworkDeviceConfig::wirelessKeepsItsFlags()
{
    TestSupport::WriteNetworks(Network("Office", "<dot1xFallback>fallback</dot1xFallback>"));
    Device device("wlan0", true);
    device.usesSupplicant = true;

    device.ConfigureNetwork(false);

    QVERIFY(device.usesSupplicant);
    QVERIFY(!device.fallbackEnabled);
    QVERIFY(!LogText().contains("8021x Fallback"));
}

void TestNetworkDeviceConfig::staticAddressIsSet_data()
{
    QTest::addColumn<bool>("renew");

    QTest::newRow("renew") << true;
    QTest::newRow("no renew") << false;
}

void TestNetworkDeviceConfig::staticAddressIsSet()
{
    QFETCH(bool, renew);
    TestSupport::WriteNetworks(Network("lan", STATIC_ADDRESS));
    Device device("eth0");

    device.ConfigureNetwork(renew);

    QCOMPARE(Journal(), (QStringList{"ifconfig eth0 10.0.0.9 netmask 255.255.255.0 up", "route del default",
                                     "route add default gw 10.0.0.1", "update_hosts"}));
    QVERIFY(device.linkUp);
    QCOMPARE(device.events, QStringList());
    QVERIFY(LogText().contains(" NetworkDevice::ConfigureNetwork - using static IP \n"));
    QVERIFY(LogText().contains(" NetworkDevice::ConfigureNetwork - set gateway \n"));
    QVERIFY2(!QFile::exists(RESOLV_CONF), "without static name servers the file is left as it was");
}

void TestNetworkDeviceConfig::staticAddressWithLeadingZerosIsRead_data()
{
    QTest::addColumn<QString>("gateway");
    QTest::addColumn<QString>("set");

    QTest::newRow("address") << "010.000.100.001"
                             << "10.0.100.1";
    QTest::newRow("host name") << "router-01.lan"
                               << "router-01.lan";
    QTest::newRow("none") << ""
                          << "''";
}

void TestNetworkDeviceConfig::staticAddressWithLeadingZerosIsRead()
{
    QFETCH(QString, gateway);
    QFETCH(QString, set);
    Device device("eth0");
    device.currentConfig = device.getCurrentConfig();
    // Not by our own store, which refuses them.
    device.currentConfig->staticIp = true;
    device.currentConfig->ipAddress = "010.000.100.09";
    device.currentConfig->netmask = "255.255.255.000";
    device.currentConfig->gateway = gateway;

    device.ConfigureNetwork(true);

    QCOMPARE(Journal().mid(0, 3), (QStringList{"ifconfig eth0 10.0.100.9 netmask 255.255.255.0 up",
                                               "route del default", "route add default gw " + set}));
}

void TestNetworkDeviceConfig::staticAddressThatWasLeasedStays_data()
{
    QTest::addColumn<QString>("leased");
    QTest::addColumn<bool>("isToStay");

    QTest::newRow("the same") << "10.0.0.9/24" << true;
    QTest::newRow("another netmask") << "10.0.0.9/16" << false;
    QTest::newRow("another") << "10.0.0.8/24" << false;
}

/// By `ifconfig` it would go on to end with the lease.
void TestNetworkDeviceConfig::staticAddressThatWasLeasedStays()
{
    QFETCH(QString, leased);
    QFETCH(bool, isToStay);
    GivenInterface();
    RealIp({"addr", "add", leased, "broadcast", "+", "dev", "eth0", "valid_lft", "4000", "preferred_lft",
            "4000"});
    RealIp({"route", "add", "default", "via", "10.0.0.1", "dev", "eth0"});
    const auto shown = [] {
        return RealIp({"-4", "-o", "addr", "show", "dev", "eth0"}).simplified();
    };
    const QByteArray before = shown();
    const QByteArray routes = RealIp({"route"});
    TestSupport::WriteNetworks(Network("lan", STATIC_ADDRESS));
    Device device("eth0");

    device.ConfigureNetwork(true);

    const QByteArray after = shown();
    QCOMPARE(after.contains(" valid_lft forever"), isToStay);
    QCOMPARE(after.left(after.indexOf(" scope")), before.left(before.indexOf(" scope")));
    QCOMPARE(RealIp({"route"}), routes);
}

void TestNetworkDeviceConfig::staticAddressIsAnnounced()
{
    GivenInterface();
    TestSupport::WriteNetworks(Network("lan", STATIC_ADDRESS));
    TestSupport::Answer("ifconfig", "ip addr add $2/24 dev $1");
    Device device("eth0");

    device.ConfigureNetwork(false);

    QCOMPARE(device.events, QStringList{"1,1"});
    QVERIFY(device.ipAnnounced);
    QCOMPARE(device.status->GetIp(), QString("10.0.0.9"));
}

void TestNetworkDeviceConfig::gatewayThatIsTheDeviceItselfIsTold_data()
{
    QTest::addColumn<QByteArray>("gateway");
    QTest::addColumn<int>("times");
    QTest::newRow("itself") << QByteArray("10.0.0.9") << 1;
    QTest::newRow("another") << QByteArray("10.0.0.1") << 0;
    QTest::newRow("none") << QByteArray() << 0;
}

void TestNetworkDeviceConfig::gatewayThatIsTheDeviceItselfIsTold()
{
    QFETCH(QByteArray, gateway);
    TestSupport::WriteNetworks(Network("lan", "<staticIp>true</staticIp><ipAddress>10.0.0.9</ipAddress>"
                                              "<netmask>255.255.255.0</netmask><gateway>" +
                                                  gateway + "</gateway>"));
    SetLevel(Level::NOTICE);
    Device device("eth0");

    device.ConfigureNetwork(true);
    device.ConfigureNetwork(true);

    const QStringList told =
        TestSupport::LogLines().filter("NetworkDevice::TellOfOwnGateway - the default route leads to no "
                                       "other host on eth0: the gateway ");
    QTEST(int(told.size()), "times");
    QCOMPARE(told.filter("the gateway 10.0.0.9 is its own address"), told);
}

void TestNetworkDeviceConfig::leasedGatewayThatIsTheDeviceItselfIsTold()
{
    GivenInterface();
    TestSupport::WriteNetworks(Network("lan"));
    TestSupport::Answer("dhclient", DHCP_ANSWER + "; ip route add default via 10.0.0.5 dev eth0");
    SetLevel(Level::NOTICE);
    Device device("eth0");

    device.ConfigureNetwork(true);

    QVERIFY(TestSupport::LogLines().contains(
        "NetworkDevice::TellOfOwnGateway - the default route leads to no other "
        "host on eth0: the gateway 10.0.0.5 is its own address"));
}

void TestNetworkDeviceConfig::dhcpIsRunOnce()
{
    TestSupport::Answer("dhclient", "echo No DHCPOFFERS received.");
    Device device("eth0");

    device.ConfigureNetwork(true);

    QCOMPARE(Journal(), (QStringList{"stop_dhclient.sh", "ip addr flush eth0",
                                     "dhclient -v -cf /etc/dhcp/dhclient.conf eth0", "update_hosts"}));
}

void TestNetworkDeviceConfig::dhcpIsAnnouncedBeforeAndAfter()
{
    GivenInterface();
    TestSupport::Answer("dhclient", DHCP_ANSWER);
    Device device("eth0");

    device.ConfigureNetwork(true);

    QCOMPARE(device.events, (QStringList{"1,0", "1,1"}));
    QCOMPARE(device.programsAtEvent.at(0), QString());
    QVERIFY(device.programsAtEvent.at(1).endsWith("dhclient -v -cf /etc/dhcp/dhclient.conf eth0"));
    QCOMPARE(device.ipAddress, QString("10.0.0.5"));
    QCOMPARE(device.status->GetIp(), QString("10.0.0.5"));
    QVERIFY(device.ipAnnounced);
}

void TestNetworkDeviceConfig::addressOfARenewalIsKnownAtOnce()
{
    GivenInterface();
    Device device("eth0");
    device.ConfigureNetwork(true);
    QCOMPARE(device.ipAddress, QString());
    TestSupport::Answer("dhclient", DHCP_ANSWER);

    device.RenewLease();

    QCOMPARE(device.ipAddress, QString("10.0.0.5"));
}

void TestNetworkDeviceConfig::dhcpIsLogged()
{
    GivenInterface();
    TestSupport::Answer("dhclient", DHCP_ANSWER);
    Device device("eth0");

    device.ConfigureNetwork(true);

    for (const char *line : {" NetworkDevice::ConfigureNetwork - renew ip address \n",
                             " NetworkDevice::ConfigureNetwork  Interface eth0 \n",
                             " NetworkDevice::ConfigureNetwork - start event (dhcp) sent  \n",
                             " NetworkDevice::ConfigureNetwork - renewing ip address \n",
                             " NetworkDevice::ConfigureNetwork - status refreshed \n",
                             " NetworkDevice::ConfigureNetwork - dhcp status succeeded, IP is set \n"})
        QVERIFY2(LogText().contains(line), line);
}

void TestNetworkDeviceConfig::boundWithoutAddressIsNotAnnounced()
{
    GivenInterface();
    TestSupport::Answer("dhclient", "echo bound to 10.0.0.5");
    Device device("eth0");

    device.ConfigureNetwork(true);

    QCOMPARE(device.events, QStringList{"1,0"});
    QVERIFY(LogText().contains("- status refreshed"));
    QVERIFY(!LogText().contains("IP is set"));
}

void TestNetworkDeviceConfig::boundWithoutAddressIsAFailure()
{
    GivenInterface();
    TestSupport::Answer("dhclient", "echo bound to 10.0.0.5");
    Device device("eth0");

    device.ConfigureNetwork(true);
    device.ConfigureNetwork(true);

    QCOMPARE(device.dhcpFailures, 2);
    QVERIFY(Program::Faults().contains(
        "dhclient has an address that its script does not set: see /tmp/dhclient.log"));
}

void TestNetworkDeviceConfig::failedDhcpIsLoggedAndTheRestApplied()
{
    TestSupport::WriteNetworks(Network("lan", STATIC_DNS + "<mtu>1400</mtu><speed>100 Mbps Full</speed>"));
    Logging::GetInstance(Logging::KEEP_LEVEL, false)->SetLoggingLevel(Level::NOTICE);
    Device device("eth0");

    device.ConfigureNetwork(true);

    QVERIFY(LogText().contains(" NetworkDevice::ConfigureNetwork -dhclient(eth0) failed \n"));
    QCOMPARE(Journal().mid(3),
             (QStringList{"update_hosts", "ethtool -s eth0 autoneg off speed 100 duplex full",
                          "ip link set eth0 mtu 1400"}));
    QVERIFY(TestSupport::ReadFile(RESOLV_CONF).contains("nameserver 1.1.1.1"));
}

void TestNetworkDeviceConfig::failedDhcpForgetsTheEarlierAddress()
{
    GivenInterface();
    RealIp({"addr", "add", "10.0.0.5/24", "dev", "eth0"});
    Device device("eth0");
    device.RefreshStatus();
    QCOMPARE(device.ipAddress, QString("10.0.0.5"));

    device.ConfigureNetwork(true);

    QCOMPARE(device.events, QStringList{"1,0"});
    QCOMPARE(device.ipAddress + device.broadcast + device.netmask, QString());
    QVERIFY(!device.macAddress.isEmpty());
    QCOMPARE(device.status->GetIp(), QString());
    QVERIFY(!device.ipAnnounced);
}

void TestNetworkDeviceConfig::repeatedFailureIsNoNews()
{
    GivenInterface();
    Logging::GetInstance(Logging::KEEP_LEVEL, false)->SetLoggingLevel(Level::NOTICE);
    Device device("eth0");
    device.ConfigureNetwork(true);
    QVERIFY(LogText().contains("-dhclient(eth0) failed"));
    TestSupport::ClearLog();

    device.ConfigureNetwork(true);
    QCOMPARE(LogText(), QString());

    TestSupport::Answer("dhclient", DHCP_ANSWER);
    device.ConfigureNetwork(true);
    TestSupport::ClearAnswers();
    device.ConfigureNetwork(true);
    QCOMPARE(LogText().count("-dhclient(eth0) failed"), 1);
}

void TestNetworkDeviceConfig::failureOfALinkThatWentIsNoNews()
{
    GivenInterface();
    RealIp({"link", "set", "eth0", "up"});
    Logging::GetInstance(Logging::KEEP_LEVEL, false)->SetLoggingLevel(Level::NOTICE);
    Device device("eth0");
    device.RefreshStatus();
    QVERIFY(device.isRunning);
    TestSupport::Answer("dhclient", "ip link set eth0 down");

    device.ConfigureNetwork(true);

    QCOMPARE(LogText(), QString());
}

void TestNetworkDeviceConfig::withoutRenewDhcpIsNotRun()
{
    GivenInterface();
    RealIp({"addr", "add", "10.0.0.5/24", "dev", "eth0"});
    Device device("eth0");
    device.RefreshStatus();

    device.ConfigureNetwork(false);

    QCOMPARE(Journal(), QStringList{"update_hosts"});
    QCOMPARE(device.events, QStringList());
    QCOMPARE(device.ipAddress, QString("10.0.0.5"));
    QVERIFY(!LogText().contains("NetworkDevice::UpdateIpInformation"));
    QVERIFY(QFile::exists("/tmp/.hostlist"));
}

void TestNetworkDeviceConfig::withoutRenewAnAnnouncedAddressIsForgotten()
{
    GivenInterface();
    RealIp({"addr", "add", "10.0.0.5/24", "dev", "eth0"});
    Device device("eth0");
    device.RefreshStatus();
    device.ipAnnounced = true;

    device.ConfigureNetwork(false);

    QVERIFY(!device.ipAnnounced);
    QCOMPARE(device.events, QStringList());
}

void TestNetworkDeviceConfig::staticDnsIsWritten_data()
{
    QTest::addColumn<QByteArray>("properties");
    QTest::addColumn<QByteArray>("contents");

    const QByteArray written = "nameserver 1.1.1.1\nnameserver 9.9.9.9\nsearch example.org\n";
    QTest::newRow("with DHCP") << STATIC_DNS << written;
    QTest::newRow("with a static address") << STATIC_ADDRESS + STATIC_DNS << written;
    QTest::newRow("servers without the flag")
        << QByteArray("<dns1>1.1.1.1</dns1><dns2>9.9.9.9</dns2>") << QByteArray("nameserver 192.0.2.1\n");
}

void TestNetworkDeviceConfig::staticDnsIsWritten()
{
    QFETCH(QByteArray, properties);
    TestSupport::WriteFile(RESOLV_CONF, "nameserver 192.0.2.1\n");
    TestSupport::WriteNetworks(Network("lan", properties));
    Device device("eth0");

    device.ConfigureNetwork(false);

    QTEST(TestSupport::ReadFile(RESOLV_CONF), "contents");
}

void TestNetworkDeviceConfig::ownServersAreSaidToTheClient()
{
    const QString said = "/run/corvi-own-resolver.eth0";
    TestSupport::WriteNetworks(Network("lan", STATIC_DNS));
    TestSupport::Answer("dhclient", "[ ! -e " + said.toUtf8() + " ] || touch /tmp/said");
    {
        Device device("eth0");
        device.ConfigureNetwork(true);
    }
    // Before the client may get a lease.
    QVERIFY(QFile::exists("/tmp/said"));

    TestSupport::WriteNetworks(Network("lan"));
    Device device("eth0");
    device.ConfigureNetwork(true);

    QVERIFY(!QFile::exists(said));
}

void TestNetworkDeviceConfig::ownServersEndWithTheirDefinition()
{
    const QString said = "/run/corvi-own-resolver.eth0";
    TestSupport::WriteNetworks(Network("lan", STATIC_DNS));
    {
        Device device("eth0");
        device.ConfigureNetwork(false);
    }
    QVERIFY(QFile::exists(said));

    TestSupport::WriteNetworks("");
    Device device("eth0");
    device.ConfigureNetwork(true);

    QVERIFY(!QFile::exists(said));
}

void TestNetworkDeviceConfig::ownServersThatCannotBeSaidAreLogged()
{
    const QString said = "/run/corvi-own-resolver.eth0";
    QVERIFY(QDir().mkpath(said));
    const auto remover = qScopeGuard([&said] { QDir().rmdir(said); });
    const MountPoint taken(said);
    TestSupport::WriteNetworks(Network("lan", STATIC_DNS));
    Device device("eth0");

    device.ConfigureNetwork(false);

    // The resolver itself was written.
    QVERIFY2(!LogText().contains("Unable to access resolv.conf"), qPrintable(LogText()));
    QVERIFY(
        LogText().contains("NetworkDevice::ClaimResolver - the DHCP client cannot be told to leave the name "
                           "servers alone: " +
                           said));
}

void TestNetworkDeviceConfig::serversThatCannotBeSaidAreNewsAfterSomeThatCould()
{
    const QString said = "/run/corvi-own-resolver.eth0";
    TestSupport::WriteNetworks(Network("lan", STATIC_DNS));
    Device device("eth0");
    Logging::GetInstance(Logging::KEEP_LEVEL, false)->SetLoggingLevel(Level::NOTICE);

    for (int i = 1; i <= 2; ++i) {
        QVERIFY(QDir().mkpath(said));
        {
            const MountPoint taken(said);
            device.ConfigureNetwork(false);
            device.ConfigureNetwork(false);
        }
        QCOMPARE(LogText().count("NetworkDevice::ClaimResolver"), i);
        QVERIFY(QDir().rmdir(said));
        device.ConfigureNetwork(false);
        QVERIFY(QFile::remove(said));
    }
}

void TestNetworkDeviceConfig::hostsAreAlwaysWritten()
{
    TestSupport::WriteNetworks(
        Network("lan", "<hosts><host>10.0.0.9 printer</host><host>10.0.0.1 gate</host></hosts>"));
    Device device("eth0");

    device.ConfigureNetwork(false);

    QVERIFY(TestSupport::ReadFile("/tmp/.hostlist").startsWith("10.0.0.9 printer\n10.0.0.1 gate\n127.0.0.1"));
    QCOMPARE(Journal(), QStringList{"update_hosts"});
}

void TestNetworkDeviceConfig::stepsComeInOrder()
{
    GivenInterface();
    TestSupport::WriteNetworks(Network("lan", STATIC_DNS + "<speed>100 Mbps Full</speed><mtu>1400</mtu>"));
    TestSupport::Answer("dhclient", DHCP_ANSWER);
    TestSupport::Answer("update_hosts", "cp /etc/resolv.conf /tmp/resolver.seen");
    Device device("eth0");

    device.ConfigureNetwork(true);

    QCOMPARE(Journal(),
             (QStringList{"stop_dhclient.sh", "ip addr flush eth0",
                          "dhclient -v -cf /etc/dhcp/dhclient.conf eth0", "update_hosts",
                          "ethtool -s eth0 autoneg off speed 100 duplex full", "ip link set eth0 mtu 1400"}));
    QVERIFY(TestSupport::ReadFile("/tmp/resolver.seen").contains("1.1.1.1"));
}

void TestNetworkDeviceConfig::stepsOfAStaticAddressComeInOrder()
{
    TestSupport::WriteNetworks(
        Network("lan", STATIC_ADDRESS + "<speed>100 Mbps Full</speed><mtu>1400</mtu>"));
    Device device("eth0");

    device.ConfigureNetwork(true);

    QCOMPARE(Journal(),
             (QStringList{"ifconfig eth0 10.0.0.9 netmask 255.255.255.0 up", "route del default",
                          "route add default gw 10.0.0.1", "update_hosts",
                          "ethtool -s eth0 autoneg off speed 100 duplex full", "ip link set eth0 mtu 1400"}));
}

void TestNetworkDeviceConfig::exceptionSkipsTheRest()
{
    Device device("eth0");
    connect(&device, &NetworkDevice::SendEventMessage, &device,
            [](int, int, NetworkDevice *) { throw std::runtime_error("receiver"); });

    device.ConfigureNetwork(true);

    QCOMPARE(Journal(), QStringList());
    QVERIFY(LogText().endsWith(" NetworkDevice::ConfigureNetwork -- Failed \n"));
}

void TestNetworkDeviceConfig::exceptionIsNewsAfterAConfiguration()
{
    Device device("eth0");
    Logging::GetInstance(Logging::KEEP_LEVEL, false)->SetLoggingLevel(Level::NOTICE);
    bool isThrown = true;
    connect(&device, &NetworkDevice::SendEventMessage, &device, [&isThrown](int, int, NetworkDevice *) {
        if (isThrown)
            throw std::runtime_error("receiver");
    });
    const auto failures = [] {
        return LogText().count("NetworkDevice::ConfigureNetwork -- Failed");
    };

    device.ConfigureNetwork(true);
    device.ConfigureNetwork(true);
    QCOMPARE(failures(), 1);

    isThrown = false;
    device.ConfigureNetwork(true);
    isThrown = true;
    device.ConfigureNetwork(true);
    QCOMPARE(failures(), 2);
}

void TestNetworkDeviceConfig::exceptionWithoutConfigurationIsCaught()
{
    TestSupport::WriteNetworks("");
    Device device("eth0");
    connect(&device, &NetworkDevice::SendEventMessage, &device,
            [](int, int, NetworkDevice *) { throw std::runtime_error("receiver"); });

    device.ConfigureNetwork(true);

    QCOMPARE(device.events, QStringList{"1,-1"});
    QVERIFY(LogText().endsWith(" NetworkDevice::ConfigureNetwork -- Failed \n"));
}

void TestNetworkDeviceConfig::exceptionAtAnAddressSkipsTheRest()
{
    GivenInterface();
    TestSupport::WriteNetworks(
        Network("lan", STATIC_ADDRESS + STATIC_DNS + "<speed>100 Mbps Full</speed><mtu>1400</mtu>"));
    TestSupport::Answer("ifconfig", "ip addr add $2/24 dev $1");
    Device device("eth0");
    connect(&device, &NetworkDevice::SendEventMessage, &device,
            [](int, int, NetworkDevice *) { throw std::runtime_error("receiver"); });

    device.ConfigureNetwork(true);

    QCOMPARE(device.events, QStringList{"1,1"});
    QCOMPARE(Journal(), (QStringList{"ifconfig eth0 10.0.0.9 netmask 255.255.255.0 up", "route del default",
                                     "route add default gw 10.0.0.1"}));
    QVERIFY(!QFile::exists(RESOLV_CONF));
    QVERIFY(LogText().endsWith(" NetworkDevice::ConfigureNetwork -- Failed \n"));
}

QTEST_GUILESS_MAIN(TestNetworkDeviceConfig)
#include "tst_networkdevice_config.moc"
