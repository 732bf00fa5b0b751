// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "networkdevice.h"

#include "deviceworld.h"
#include "logging.h"
#include "namednetwork.h"
#include "zebnetstatus.h"

#include <QPointer>
#include <QSignalSpy>
#include <QTimer>
#include <QtTest>

#include <fcntl.h>
#include <unistd.h>

using TestSupport::RealIp;

namespace {

/// Counts how often wireless details are asked for.
class CountingDevice : public NetworkDevice
{
public:
    using NetworkDevice::NetworkDevice;
    void RefreshWirelessStatus() override { ++refreshes; }
    int refreshes = 0;
};

using Field = QString NetworkDevice::*;

} // namespace

Q_DECLARE_METATYPE(Field)

/// The life of a device, what it reports, how it describes itself, and its timer.
class TestNetworkDevice : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { StartDevicesFromNothing(); }

    void beginsWithNothingKnown();
    void takesTimerSocketAndNetworksWithIt();
    void canTravelInQueuedSignals();
    void socketIsNotInherited();
    void announcesAddress_data();
    void announcesAddress();
    void recordHoldsTheAddresses();
    void changeOfTheRecordIsNotPublishedYet_data();
    void changeOfTheRecordIsNotPublishedYet();
    void addressIsNewsWhenItChanges();
    void addressIsAnnouncedAtEveryCall();
    void announcementComesAfterItsLineAndBeforeItsFlag();
    void recordIsSetBeforeTheAddressIsAnnounced();
    void eventIsLoggedAndSent();
    void eventIsLoggedBeforeItIsSent();
    void describesItself_data();
    void describesItself();
    void percentSignsInADescriptionStay();
    void startedDeviceFollowsTheCable();
    void stoppedDeviceIsPolledWhileItsCarrierCanBeRead();
    void stoppedDeviceWithoutCarrierIsPolled();
    void startedDeviceIsPolledThoughDown();
    void wirelessDetailsAreReadOnEvery121stTick();
    void wirelessDetailsAreNotReadWithoutSupplicant();
    void bareDeviceForgetsWirelessDetails();
    void driverChoiceMeansNothingToABareDevice();
};

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
    const int before = TestSupport::OpenDescriptors();
    QPointer<QTimer> timer;
    QPointer<NamedNetwork> network;
    {
        NetworkDevice device("eth0", nullptr);
        device.InitDevice();
        timer = device.timer.get();
        network = device.namedNetworks.value("lan");
        QVERIFY(network);
        QCOMPARE(TestSupport::OpenDescriptors(), before + 1);
    }

    QCOMPARE(TestSupport::OpenDescriptors(), before);
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

void TestNetworkDevice::changeOfTheRecordIsNotPublishedYet_data()
{
    QTest::addColumn<Field>("field");
    QTest::newRow("address") << Field(&NetworkDevice::ipAddress);
    QTest::newRow("broadcast address") << Field(&NetworkDevice::broadcast);
    QTest::newRow("netmask") << Field(&NetworkDevice::netmask);
    QTest::newRow("hardware address") << Field(&NetworkDevice::macAddress);
}

void TestNetworkDevice::changeOfTheRecordIsNotPublishedYet()
{
    QFETCH(Field, field);
    NetworkDevice device("eth0", nullptr);
    device.*field = "before";
    QVERIFY(!device.IsPublished());
    device.NotePublished();
    QVERIFY(device.IsPublished());

    device.*field = "after";

    QVERIFY(!device.IsPublished());
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

void TestNetworkDevice::addressIsAnnouncedAtEveryCall()
{
    NetworkDevice device("eth0", nullptr);
    QSignalSpy events(&device, &NetworkDevice::SendEventMessage);
    device.ipAddress = "10.1.2.3";
    device.isUp = true;

    device.UpdateIpInformation();
    device.UpdateIpInformation();

    QCOMPARE(events.size(), 2);
}

void TestNetworkDevice::announcementComesAfterItsLineAndBeforeItsFlag()
{
    NetworkDevice device("eth0", nullptr);
    device.ipAddress = "10.1.2.3";
    device.isUp = true;
    QString logSeen;
    bool wasAnnounced = true;
    connect(&device, &NetworkDevice::SendEventMessage, this, [&] {
        logSeen = TestSupport::LogText();
        wasAnnounced = device.ipAnnounced;
    });

    device.UpdateIpInformation();

    QVERIFY(logSeen.contains("NetworkDevice::UpdateIpInformation"));
    QVERIFY(!wasAnnounced);
}

void TestNetworkDevice::recordIsSetBeforeTheAddressIsAnnounced()
{
    NetworkDevice device("eth0", nullptr);
    device.ipAddress = "10.1.2.3";
    device.isUp = true;
    QString published;
    connect(&device, &NetworkDevice::SendEventMessage, this, [&] { published = device.status->GetIp(); });

    device.UpdateIpInformation();

    QCOMPARE(published, QString("10.1.2.3"));
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

void TestNetworkDevice::eventIsLoggedBeforeItIsSent()
{
    NetworkDevice device("eth0", nullptr);
    QString logSeen;
    connect(&device, &NetworkDevice::SendEventMessage, this, [&] { logSeen = TestSupport::LogText(); });

    device.SendEvent(1, -1);

    QVERIFY(logSeen.contains(" NetworkDevice::SendEvent 1 -1 \n"));
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

void TestNetworkDevice::percentSignsInADescriptionStay()
{
    NetworkDevice device("wlan0", nullptr);
    device.isWireless = true;
    device.essid = "%2 %4";
    device.accessPoint = "%1 %3";
    device.encKey = "off";

    QVERIFY2(device.toString().endsWith("ESSID=%2 %4 ,AccessPoint=%1 %3 ,LinkQuality=0 ,EncKey=off"),
             qPrintable(device.toString()));
}

void TestNetworkDevice::startedDeviceFollowsTheCable()
{
    GivenInterface();
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
    GivenInterface();
    NetworkDevice device("eth0", nullptr);
    device.StartDevice();

    device.StopDevice();
    Tick(device, 3);
    QVERIFY(device.timer->isActive());

    RealIp({"link", "set", "dev", "eth0", "down"});
    Tick(device, 1);
    QVERIFY(!device.timer->isActive());
}

void TestNetworkDevice::stoppedDeviceWithoutCarrierIsPolled()
{
    GivenInterface();
    TestSupport::SetCable("peer0", false);
    QTRY_COMPARE(TestSupport::ReadFile("/sys/class/net/eth0/carrier"), QByteArray("0\n"));
    NetworkDevice device("eth0", nullptr);
    device.StartDevice();

    device.StopDevice();
    Tick(device, 3);

    QVERIFY(device.timer->isActive());
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
    device.wirelessTicks = 5;

    Tick(device, 300);

    QCOMPARE(device.refreshes, 0);
    QCOMPARE(device.wirelessTicks, 5);
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

QTEST_GUILESS_MAIN(TestNetworkDevice)
#include "tst_networkdevice.moc"
