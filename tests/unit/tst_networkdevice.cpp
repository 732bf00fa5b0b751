// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "networkdevice.h"

#include "allocationcounter.h"
#include "logging.h"
#include "namednetwork.h"
#include "testsupport.h"
#include "zebnetstatus.h"

#include <QPointer>
#include <QSignalSpy>
#include <QTimer>
#include <QtTest>

#include <fcntl.h>
#include <unistd.h>

using TestSupport::RealIp;

namespace {

void SetLevel(int level)
{
    Logging::GetInstance(Logging::KEEP_LEVEL, false)->SetLoggingLevel(level);
}

/// An interface that is up, its cable in, with an address.
void GivenConfiguredInterface(const QString &name)
{
    TestSupport::MakeVeth(name, "peer0");
    RealIp({"link", "set", "dev", name, "address", "02:00:5e:0a:bc:0f", "up"});
    RealIp({"addr", "add", "10.1.2.3/20", "broadcast", "10.1.15.255", "dev", name});
    TestSupport::SetCable("peer0", true);
    QTRY_COMPARE(TestSupport::ReadFile("/sys/class/net/" + name + "/carrier"), QByteArray("1\n"));
}

int OpenDescriptors()
{
    return TestSupport::EntryCount("/proc/self/fd");
}

/// Counts how often wireless details are asked for.
class CountingDevice : public NetworkDevice
{
public:
    using NetworkDevice::NetworkDevice;
    void RefreshWirelessStatus() override { ++refreshes; }
    int refreshes = 0;
};

void Tick(NetworkDevice &device, int times)
{
    for (int i = 0; i < times; ++i)
        device.onTimerTrip();
}

} // namespace

/// The state of one interface, read from the kernel, and what is made of it.
class TestNetworkDevice : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void beginsWithNothingKnown();
    void takesTimerSocketAndNetworksWithIt();
    void canTravelInQueuedSignals();
    void socketIsNotInherited();
    void readsAddresses_data();
    void readsAddresses();
    void interfaceWithoutAddressHasEmptyFields();
    void vanishedInterfaceLosesEverything();
    void nameBeyondTheKernelsLimitIsNoInterface();
    void carrierDecidesFlags_data();
    void carrierDecidesFlags();
    void copiesItsStateIntoTheRecord();
    void withoutSocketEverythingIsEmpty();
    void lostCarrierEndsFallback_data();
    void lostCarrierEndsFallback();
    void refreshAllocatesNothingWhereNothingChanged();
    void refreshLogsNothingOnEveryTick();
    void announcesAddress_data();
    void announcesAddress();
    void recordHoldsTheAddresses();
    void addressIsNewsWhenItChanges();
    void eventIsLoggedAndSent();
    void describesItself_data();
    void describesItself();
    void startedDeviceFollowsTheCable();
    void stoppedDeviceIsPolledWhileItsCarrierCanBeRead();
    void startedDeviceIsPolledThoughDown();
    void wirelessDetailsAreReadOnEvery121stTick();
    void wirelessDetailsAreNotReadWithoutSupplicant();
    void bareDeviceForgetsWirelessDetails();
    void driverChoiceMeansNothingToABareDevice();
    void configurationIsThatOfTheFirstNetwork();
    void withoutNetworkThereIsNoConfiguration();
    void chosenNetworkStays();
    void wirelessConfigurationIsReadAgain();
    void configurationInUseFollowsTheReload();
    void reloadOfAnUnusedConfigurationLeavesItUnused();
    void initDeviceFindsNetworks();
};

void TestNetworkDevice::init()
{
    TestSupport::ClearJournal();
    TestSupport::ClearAnswers();
    TestSupport::RemoveInterfaces();
    // A store that is gone keeps its last contents in force.
    TestSupport::WriteStore("<x/>");
    TestSupport::ClearLog();
    SetLevel(4);
}

void TestNetworkDevice::beginsWithNothingKnown()
{
    const NetworkDevice device("eth0", nullptr);

    QVERIFY(device.parent() == nullptr);
    QCOMPARE(device.name, QString("eth0"));
    QVERIFY(device.currentNetwork == nullptr);
    QVERIFY(device.currentConfig == nullptr);
    QCOMPARE(device.logger, Logging::GetInstance(Logging::KEEP_LEVEL, false));
    QVERIFY(device.namedNetworks.isEmpty());
    QVERIFY(device.networkNames.isEmpty());
    QVERIFY(device.status != nullptr);
    QVERIFY(device.socketFd != -1);
    for (const bool flag : {device.usesSupplicant, device.isWireless, device.linkUp, device.stopped,
                            device.isUp, device.isRunning, device.fallbackEnabled, device.inFallback,
                            device.ipAnnounced, device.driverChosen})
        QVERIFY(!flag);
    QVERIFY(device.configurable);
    for (const QString &text : {device.ipAddress, device.broadcast, device.netmask, device.macAddress,
                                device.essid, device.accessPoint, device.encKey, device.driver})
        QVERIFY(text.isEmpty());
    QCOMPARE(device.linkQuality, 0);
    QCOMPARE(device.authWaitTicks, 0);
    QCOMPARE(device.wirelessTicks, 0);
    QVERIFY(!device.timer->isActive());
    QVERIFY(TestSupport::LogText().contains(" Create NetworkDevice eth0 \n"));
}

void TestNetworkDevice::takesTimerSocketAndNetworksWithIt()
{
    TestSupport::WriteStore("<x><network><name>lan</name></network></x>");
    const int before = OpenDescriptors();
    QPointer<QTimer> timer;
    QPointer<NamedNetwork> network;
    {
        NetworkDevice device("eth0", nullptr);
        device.InitDevice();
        timer = device.timer.get();
        network = device.namedNetworks.value("lan");
        QVERIFY(network);
        QCOMPARE(OpenDescriptors(), before + 1);
    }

    QCOMPARE(OpenDescriptors(), before);
    QVERIFY(!timer);
    QVERIFY(!network);
}

void TestNetworkDevice::canTravelInQueuedSignals()
{
    NetworkDevice device("eth0", nullptr);
    NetworkDevice *received = nullptr;
    connect(
        &device, &NetworkDevice::SendEventMessage, this,
        [&received](int, int, NetworkDevice *sender) { received = sender; }, Qt::QueuedConnection);

    device.SendEvent(1, 1);

    QVERIFY(received == nullptr);
    QTRY_COMPARE(received, &device);
}

void TestNetworkDevice::socketIsNotInherited()
{
    const NetworkDevice device("eth0", nullptr);

    QCOMPARE(::fcntl(device.socketFd, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
}

void TestNetworkDevice::readsAddresses_data()
{
    QTest::addColumn<QString>("name");

    QTest::newRow("ordinary name") << "eth0";
    QTest::newRow("15 characters") << "enx0123456789ab";
}

void TestNetworkDevice::readsAddresses()
{
    QFETCH(QString, name);
    GivenConfiguredInterface(name);
    NetworkDevice device(name, nullptr);

    device.RefreshStatus();

    QCOMPARE(device.ipAddress, QString("10.1.2.3"));
    QCOMPARE(device.broadcast, QString("10.1.15.255"));
    QCOMPARE(device.netmask, QString("255.255.240.0"));
    QCOMPARE(device.macAddress, QString("02:00:5E:0A:BC:0F"));
    QVERIFY(device.isUp);
    QVERIFY(device.isRunning);
}

void TestNetworkDevice::interfaceWithoutAddressHasEmptyFields()
{
    GivenConfiguredInterface("eth0");
    RealIp({"addr", "flush", "dev", "eth0"});
    NetworkDevice device("eth0", nullptr);
    device.inFallback = true;
    QSignalSpy events(&device, &NetworkDevice::SendEventMessage);

    device.RefreshStatus();
    device.UpdateIpInformation();

    QCOMPARE(device.ipAddress, QString());
    QCOMPARE(device.broadcast, QString());
    QCOMPARE(device.netmask, QString());
    QCOMPARE(device.macAddress, QString("02:00:5E:0A:BC:0F"));
    QVERIFY(device.isRunning);
    QVERIFY(!device.inFallback);
    QVERIFY(events.isEmpty());
}

void TestNetworkDevice::vanishedInterfaceLosesEverything()
{
    GivenConfiguredInterface("eth0");
    NetworkDevice device("eth0", nullptr);
    device.RefreshStatus();
    QVERIFY(device.isRunning);

    TestSupport::RemoveInterfaces();
    device.RefreshStatus();

    for (const QString &text : {device.ipAddress, device.broadcast, device.netmask, device.macAddress})
        QCOMPARE(text, QString());
    QVERIFY(!device.isUp);
    QVERIFY(!device.isRunning);
    QVERIFY(!device.status->IsConnected());
    QCOMPARE(device.status->GetIp(), QString());
}

void TestNetworkDevice::nameBeyondTheKernelsLimitIsNoInterface()
{
    // The first 15 characters are those of an interface that exists.
    GivenConfiguredInterface("enx0123456789ab");
    NetworkDevice device("enx0123456789abc", nullptr);

    device.RefreshStatus();

    QVERIFY(!device.isUp);
}

void TestNetworkDevice::carrierDecidesFlags_data()
{
    for (const char *column : {"linkUp", "cable", "isUp", "isRunning"})
        QTest::addColumn<bool>(column);

    QTest::newRow("cable in") << true << true << true << true;
    QTest::newRow("cable out: carrier reads 0") << true << false << true << false;
    QTest::newRow("link down: carrier cannot be read") << false << true << false << false;
}

void TestNetworkDevice::carrierDecidesFlags()
{
    QFETCH(bool, linkUp);
    QFETCH(bool, cable);
    QFETCH(bool, isRunning);
    TestSupport::MakeVeth("eth0", "peer0");
    RealIp({"link", "set", "dev", "eth0", linkUp ? "up" : "down"});
    TestSupport::SetCable("peer0", cable);
    NetworkDevice device("eth0", nullptr);

    QTRY_COMPARE((device.RefreshStatus(), device.isRunning), isRunning);

    QTEST(device.isUp, "isUp");
}

void TestNetworkDevice::copiesItsStateIntoTheRecord()
{
    GivenConfiguredInterface("eth0");
    NetworkDevice device("eth0", nullptr);
    device.isWireless = true;

    device.RefreshStatus();

    QVERIFY(device.status->IsConnected());
    QVERIFY(device.status->IsWireless());
    QCOMPARE(device.status->GetMac(), QString("02:00:5E:0A:BC:0F"));
    QCOMPARE(device.status->GetIp(), QString("10.1.2.3"));
    QCOMPARE(device.status->GetBroadcast(), QString("10.1.15.255"));
    QCOMPARE(device.status->GetNetmask(), QString("255.255.240.0"));
}

void TestNetworkDevice::withoutSocketEverythingIsEmpty()
{
    SetLevel(6);
    GivenConfiguredInterface("eth0");
    NetworkDevice device("eth0", nullptr);
    device.RefreshStatus();
    QVERIFY(device.isRunning);
    ::close(device.socketFd);
    device.socketFd = -1;
    TestSupport::ClearLog();

    device.RefreshStatus();

    for (const QString &text : {device.ipAddress, device.broadcast, device.netmask, device.macAddress})
        QCOMPARE(text, QString());
    QVERIFY(!device.isUp);
    QVERIFY(!device.isRunning);
    QVERIFY2(device.status->IsConnected(), "the record is left alone");
    QVERIFY(TestSupport::LogText().contains("NetworkDevice::RefreshStatus -- eth0  device not found \n"));
}

void TestNetworkDevice::lostCarrierEndsFallback_data()
{
    for (const char *column : {"cable", "enabled", "inFallback"})
        QTest::addColumn<bool>(column);

    QTest::newRow("cable in") << true << true << true;
    QTest::newRow("cable out") << false << true << false;
    QTest::newRow("cable out, fallback not enabled") << false << false << true;
}

void TestNetworkDevice::lostCarrierEndsFallback()
{
    QFETCH(bool, cable);
    QFETCH(bool, enabled);
    QFETCH(bool, inFallback);
    GivenConfiguredInterface("eth0");
    TestSupport::SetCable("peer0", cable);
    QTRY_COMPARE(TestSupport::ReadFile("/sys/class/net/eth0/carrier"), QByteArray(cable ? "1\n" : "0\n"));
    NetworkDevice device("eth0", nullptr);
    device.fallbackEnabled = enabled;
    device.inFallback = true;

    device.RefreshStatus();

    QCOMPARE(device.inFallback, inFallback);
    QCOMPARE(TestSupport::LogText().contains("NetworkDevice::RefreshStatus:: clear fallback mode \n"),
             !inFallback);
}

void TestNetworkDevice::refreshAllocatesNothingWhereNothingChanged()
{
    SetLevel(2);
    GivenConfiguredInterface("eth0");
    NetworkDevice device("eth0", nullptr);
    device.RefreshStatus();
    const long before = AllocationCounter::allocations;

    device.RefreshStatus();
    const long after = AllocationCounter::allocations;

    QCOMPARE(after - before, 0L);
    QVERIFY2(before > 0, "the counter does not count");
}

void TestNetworkDevice::refreshLogsNothingOnEveryTick()
{
    SetLevel(2);
    NetworkDevice device("eth0", nullptr);
    device.fallbackEnabled = true;

    Tick(device, 10);

    QCOMPARE(TestSupport::LogText(), QString());
}

void TestNetworkDevice::announcesAddress_data()
{
    QTest::addColumn<QString>("address");
    QTest::addColumn<bool>("isUp");
    QTest::addColumn<bool>("announced");

    QTest::newRow("address on a link that is up") << "10.1.2.3" << true << true;
    QTest::newRow("address on a link that is down") << "10.1.2.3" << false << false;
    QTest::newRow("no address") << "" << true << false;
}

void TestNetworkDevice::announcesAddress()
{
    QFETCH(QString, address);
    QFETCH(bool, isUp);
    QFETCH(bool, announced);
    NetworkDevice device("eth0", nullptr);
    QSignalSpy events(&device, &NetworkDevice::SendEventMessage);
    device.ipAddress = address;
    device.isUp = isUp;
    device.inFallback = true;
    device.ipAnnounced = !announced;

    device.UpdateIpInformation();

    QCOMPARE(device.ipAnnounced, announced);
    QCOMPARE(device.inFallback, announced);
    QCOMPARE(events.size(), announced ? 1 : 0);
    if (announced) {
        QCOMPARE(events.first().at(0).toInt(), 1);
        QCOMPARE(events.first().at(1).toInt(), 1);
        QCOMPARE(events.first().at(2).value<NetworkDevice *>(), &device);
    }
}

void TestNetworkDevice::recordHoldsTheAddresses()
{
    NetworkDevice device("eth0", nullptr);
    device.macAddress = "02:00:5E:0A:BC:0F";
    device.ipAddress = "10.1.2.3";
    device.broadcast = "10.1.15.255";
    device.netmask = "255.255.240.0";

    device.UpdateIpInformation();

    QCOMPARE(device.status->GetMac(), device.macAddress);
    QCOMPARE(device.status->GetIp(), device.ipAddress);
    QCOMPARE(device.status->GetBroadcast(), device.broadcast);
    QCOMPARE(device.status->GetNetmask(), device.netmask);
    QVERIFY(TestSupport::LogText().contains(
        " NetworkDevice::UpdateIpInformation 02:00:5E:0A:BC:0F , 10.1.2.3 , 10.1.15.255 \n"));
}

void TestNetworkDevice::addressIsNewsWhenItChanges()
{
    SetLevel(2);
    NetworkDevice device("eth0", nullptr);
    QStringList told;
    for (const char *address : {"", "10.1.2.3", "10.1.2.3", "", "10.1.2.4"}) {
        TestSupport::ClearLog();
        device.ipAddress = address;
        device.UpdateIpInformation();
        if (TestSupport::LogText().contains("NetworkDevice::UpdateIpInformation"))
            told << address;
    }

    QCOMPARE(told, (QStringList{"10.1.2.3", "", "10.1.2.4"}));
}

void TestNetworkDevice::eventIsLoggedAndSent()
{
    NetworkDevice device("eth0", nullptr);
    QSignalSpy events(&device, &NetworkDevice::SendEventMessage);

    device.SendEvent(1, -1);

    QCOMPARE(events.size(), 1);
    QCOMPARE(events.first().at(0).toInt(), 1);
    QCOMPARE(events.first().at(1).toInt(), -1);
    QVERIFY(TestSupport::LogText().contains(" NetworkDevice::SendEvent 1 -1 \n"));
}

void TestNetworkDevice::describesItself_data()
{
    QTest::addColumn<bool>("isRunning");
    QTest::addColumn<bool>("isWireless");
    QTest::addColumn<QString>("text");

    const QString addresses = "MAC Address:  02:00:5E:0A:BC:0F, Inet Address: 10.1.2.3, Inet Mask: 255.0.0.0";
    const QString wireless = "ESSID=Office ,AccessPoint= 00:11:22:33:44:55 ,LinkQuality=70 ,EncKey=off";
    QTest::newRow("down") << false << false << "NetworkAdaptor eth0, isUp=1, isRunning=0, isWireless=0";
    QTest::newRow("running") << true << false
                             << "NetworkAdaptor eth0, isUp=1, isRunning=1, isWireless=0\n" + addresses;
    QTest::newRow("wireless") << false << true
                              << "NetworkAdaptor eth0, isUp=1, isRunning=0, isWireless=1\n" + wireless;
    QTest::newRow("running wireless")
        << true << true
        << "NetworkAdaptor eth0, isUp=1, isRunning=1, isWireless=1\n" + addresses + "\n" + wireless;
}

void TestNetworkDevice::describesItself()
{
    QFETCH(bool, isRunning);
    QFETCH(bool, isWireless);
    NetworkDevice device("eth0", nullptr);
    device.isUp = true;
    device.isRunning = isRunning;
    device.isWireless = isWireless;
    device.macAddress = "02:00:5E:0A:BC:0F";
    device.ipAddress = "10.1.2.3";
    device.netmask = "255.0.0.0";
    device.essid = "Office";
    device.accessPoint = " 00:11:22:33:44:55";
    device.linkQuality = 70;
    device.encKey = "off";

    QTEST(device.toString(), "text");
}

void TestNetworkDevice::startedDeviceFollowsTheCable()
{
    GivenConfiguredInterface("eth0");
    NetworkDevice device("eth0", nullptr);

    device.StartDevice();

    QCOMPARE(device.timer->interval(), 250);
    QTRY_VERIFY_WITH_TIMEOUT(device.isRunning, 3000);
    TestSupport::SetCable("peer0", false);
    QTRY_VERIFY_WITH_TIMEOUT(!device.isRunning, 3000);
    QVERIFY(device.isUp);
}

void TestNetworkDevice::stoppedDeviceIsPolledWhileItsCarrierCanBeRead()
{
    GivenConfiguredInterface("eth0");
    NetworkDevice device("eth0", nullptr);
    device.StartDevice();

    device.StopDevice();
    Tick(device, 3);
    QVERIFY(device.timer->isActive());

    RealIp({"link", "set", "dev", "eth0", "down"});
    Tick(device, 1);
    QVERIFY(!device.timer->isActive());
}

void TestNetworkDevice::startedDeviceIsPolledThoughDown()
{
    NetworkDevice device("eth0", nullptr);
    device.StartDevice();

    Tick(device, 3);

    QVERIFY(!device.isUp);
    QVERIFY(device.timer->isActive());
}

void TestNetworkDevice::wirelessDetailsAreReadOnEvery121stTick()
{
    CountingDevice device("wlan0", nullptr);
    device.usesSupplicant = true;

    Tick(device, 120);
    QCOMPARE(device.refreshes, 0);
    QCOMPARE(device.wirelessTicks, 120);
    Tick(device, 1);
    QCOMPARE(device.refreshes, 1);
    QCOMPARE(device.wirelessTicks, 0);
    Tick(device, 120);
    QCOMPARE(device.refreshes, 1);
    Tick(device, 1);
    QCOMPARE(device.refreshes, 2);
}

void TestNetworkDevice::wirelessDetailsAreNotReadWithoutSupplicant()
{
    CountingDevice device("wlan0", nullptr);

    Tick(device, 300);

    QCOMPARE(device.refreshes, 0);
    QCOMPARE(device.wirelessTicks, 0);
}

void TestNetworkDevice::bareDeviceForgetsWirelessDetails()
{
    NetworkDevice device("eth0", nullptr);
    device.essid = "Office";
    device.accessPoint = "00:11:22:33:44:55";
    device.encKey = "off";
    device.linkQuality = 70;

    device.RefreshWirelessStatus();

    QCOMPARE(device.essid + device.accessPoint + device.encKey, QString());
    QCOMPARE(device.linkQuality, 70);
}

void TestNetworkDevice::driverChoiceMeansNothingToABareDevice()
{
    NetworkDevice device("eth0", nullptr);

    device.UseNewDriver(true);

    QCOMPARE(device.driver, QString());
    QVERIFY(!device.driverChosen);
}

void TestNetworkDevice::configurationIsThatOfTheFirstNetwork()
{
    TestSupport::WriteStore(
        "<x><network><name>lan2</name></network><network><name>lan1</name></network></x>");
    NetworkDevice device("eth0", nullptr);
    device.InitDevice();

    ZebNetConfig *const config = device.UpdateConfig();

    QVERIFY(config != nullptr);
    QCOMPARE(config->GetName(), QString("lan1"));
    QCOMPARE(device.currentNetwork, device.namedNetworks.value("lan1"));
    QVERIFY2(device.currentConfig == nullptr, "asking does not choose what is applied");
}

void TestNetworkDevice::withoutNetworkThereIsNoConfiguration()
{
    NetworkDevice device("eth0", nullptr);
    device.InitDevice();

    QVERIFY(device.getCurrentConfig() == nullptr);
    QVERIFY(device.currentNetwork == nullptr);
}

void TestNetworkDevice::chosenNetworkStays()
{
    TestSupport::WriteStore(
        "<x><network><name>lan1</name></network><network><name>lan2</name></network></x>");
    NetworkDevice device("eth0", nullptr);
    device.InitDevice();
    device.currentNetwork = device.namedNetworks.value("lan2");

    QCOMPARE(device.getCurrentConfig()->GetName(), QString("lan2"));
}

void TestNetworkDevice::wirelessConfigurationIsReadAgain()
{
    TestSupport::WriteStore(
        "<x><network><name>Office</name><ssid>Office</ssid><mtu>1400</mtu></network></x>");
    NetworkDevice device("wlan0", nullptr);
    device.isWireless = true;
    device.InitDevice();
    TestSupport::ClearLog();
    TestSupport::WriteStore("<x><network><name>Office</name><ssid>Office</ssid><mtu>900</mtu></network></x>");

    QCOMPARE(device.getCurrentConfig()->mtu, QString("900"));
    QVERIFY(TestSupport::LogText().contains(" NetworkDevice::getCurrentConfig() \n"));
    QVERIFY(device.currentNetwork->IsWireless());
}

void TestNetworkDevice::configurationInUseFollowsTheReload()
{
    TestSupport::WriteStore(
        "<x><network><name>Office</name><ssid>Office</ssid><mtu>1400</mtu></network></x>");
    NetworkDevice device("wlan0", nullptr);
    device.isWireless = true;
    device.InitDevice();
    device.currentConfig = device.getCurrentConfig();

    ZebNetConfig *const config = device.getCurrentConfig();

    QCOMPARE(device.currentConfig, config);
    QCOMPARE(device.currentConfig->mtu, QString("1400"));
}

void TestNetworkDevice::reloadOfAnUnusedConfigurationLeavesItUnused()
{
    TestSupport::WriteStore("<x><network><name>Office</name><ssid>Office</ssid></network></x>");
    NetworkDevice device("wlan0", nullptr);
    device.isWireless = true;
    device.InitDevice();

    device.getCurrentConfig();

    QVERIFY(device.currentConfig == nullptr);
}

void TestNetworkDevice::initDeviceFindsNetworks()
{
    TestSupport::WriteStore("<x><network><name>lan</name></network></x>");
    NetworkDevice device("eth0", nullptr);

    QCOMPARE(device.InitDevice(), 1);

    QCOMPARE(device.GetNamedNetworks(), QStringList{"lan"});
}

QTEST_GUILESS_MAIN(TestNetworkDevice)
#include "tst_networkdevice.moc"
