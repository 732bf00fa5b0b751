// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "networkdevice.h"

#include "allocationcounter.h"
#include "deviceworld.h"
#include "logging.h"
#include "zebnetstatus.h"

#include <QSignalSpy>
#include <QtTest>

#include <cerrno>

#include <dlfcn.h>
#include <sys/socket.h>
#include <unistd.h>

using TestSupport::RealIp;

namespace {

bool areSocketsRefused = false;

/// An interface that is up, its cable in, with an address.
void GivenConfiguredInterface(const QString &name)
{
    TestSupport::MakeVeth(name, "peer0");
    RealIp({"link", "set", "dev", name, "address", "02:00:5e:0a:bc:0f", "up"});
    RealIp({"addr", "add", "10.1.2.3/20", "broadcast", "10.1.15.255", "dev", name});
    TestSupport::SetCable("peer0", true);
    QTRY_COMPARE(TestSupport::ReadFile("/sys/class/net/" + name + "/carrier"), QByteArray("1\n"));
}

} // namespace

/// In the place of the C library's: a process that has no descriptor left gets no socket.
extern "C" int socket(int domain, int type, int protocol) noexcept
{
    using SocketFunction = int (*)(int, int, int);
    static const auto real = reinterpret_cast<SocketFunction>(::dlsym(RTLD_NEXT, "socket"));
    if (!areSocketsRefused)
        return real(domain, type, protocol);
    errno = EMFILE;
    return -1;
}

/// What a look at the interface finds: addresses, link and carrier, read from the kernel.
class TestNetworkDeviceRefresh : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { StartDevicesFromNothing(); }

    void readsAddresses_data();
    void readsAddresses();
    void interfaceWithoutAddressHasEmptyFields();
    void addressWithoutBroadcastHasZeros();
    void hardwareAddressOfZerosIsAnAddress();
    void firstOfSeveralAddressesCounts();
    void vanishedInterfaceLosesEverything();
    void nameBeyondTheKernelsLimitIsNoInterface();
    void carrierDecidesFlags_data();
    void carrierDecidesFlags();
    void copiesItsStateIntoTheRecord();
    void withoutSocketEverythingIsEmpty();
    void missingSocketIsToldAtTheHighestLevelOnly();
    void missingSocketIsMadeLater();
    void lostCarrierEndsFallback_data();
    void lostCarrierEndsFallback();
    void endOfFallbackIsLoggedAtEveryLook();
    void refreshAllocatesNothingWhereNothingChanged();
    void refreshLogsNothingOnEveryTick();
};

void TestNetworkDeviceRefresh::readsAddresses_data()
{
    QTest::addColumn<QString>("name");

    QTest::newRow("ordinary name") << "eth0";
    QTest::newRow("15 characters") << "enx0123456789ab";
}

void TestNetworkDeviceRefresh::readsAddresses()
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

void TestNetworkDeviceRefresh::interfaceWithoutAddressHasEmptyFields()
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

void TestNetworkDeviceRefresh::addressWithoutBroadcastHasZeros()
{
    TestSupport::MakeVeth("eth0", "peer0");
    RealIp({"addr", "add", "10.1.2.3/20", "dev", "eth0"});
    NetworkDevice device("eth0", nullptr);

    device.RefreshStatus();

    QCOMPARE(device.ipAddress, QString("10.1.2.3"));
    QCOMPARE(device.broadcast, QString("0.0.0.0"));
}

void TestNetworkDeviceRefresh::hardwareAddressOfZerosIsAnAddress()
{
    NetworkDevice device("lo", nullptr);

    device.RefreshStatus();

    QCOMPARE(device.macAddress, QString("00:00:00:00:00:00"));
}

void TestNetworkDeviceRefresh::firstOfSeveralAddressesCounts()
{
    GivenConfiguredInterface("eth0");
    RealIp({"addr", "add", "10.1.2.9/20", "dev", "eth0", "label", "eth0:1"});
    RealIp({"addr", "add", "10.9.0.1/8", "dev", "eth0", "label", "eth0:2"});
    NetworkDevice device("eth0", nullptr);

    device.RefreshStatus();

    QCOMPARE(device.ipAddress, QString("10.1.2.3"));
    QCOMPARE(device.broadcast, QString("10.1.15.255"));
    QCOMPARE(device.netmask, QString("255.255.240.0"));
}

void TestNetworkDeviceRefresh::vanishedInterfaceLosesEverything()
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

void TestNetworkDeviceRefresh::nameBeyondTheKernelsLimitIsNoInterface()
{
    // The first 15 characters are those of an interface that exists.
    GivenConfiguredInterface("enx0123456789ab");
    NetworkDevice device("enx0123456789abc", nullptr);

    device.RefreshStatus();

    QVERIFY(!device.isUp);
}

void TestNetworkDeviceRefresh::carrierDecidesFlags_data()
{
    for (const char *column : {"linkUp", "cable", "isUp", "isRunning"})
        QTest::addColumn<bool>(column);

    QTest::newRow("cable in") << true << true << true << true;
    QTest::newRow("cable out: carrier reads 0") << true << false << true << false;
    QTest::newRow("link down: carrier cannot be read") << false << true << false << false;
}

void TestNetworkDeviceRefresh::carrierDecidesFlags()
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

void TestNetworkDeviceRefresh::copiesItsStateIntoTheRecord()
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

void TestNetworkDeviceRefresh::withoutSocketEverythingIsEmpty()
{
    SetLevel(6);
    GivenConfiguredInterface("eth0");
    NetworkDevice device("eth0", nullptr);
    device.RefreshStatus();
    QVERIFY(device.isRunning);
    ::close(device.socketFd);
    device.socketFd = -1;
    TestSupport::ClearLog();

    areSocketsRefused = true;
    device.RefreshStatus();
    areSocketsRefused = false;

    for (const QString &text : {device.ipAddress, device.broadcast, device.netmask, device.macAddress})
        QCOMPARE(text, QString());
    QVERIFY(!device.isUp);
    QVERIFY(!device.isRunning);
    QVERIFY2(device.status->IsConnected(), "the record is left alone");
    QVERIFY(TestSupport::LogText().contains("NetworkDevice::RefreshStatus -- eth0  device not found \n"));
}

void TestNetworkDeviceRefresh::missingSocketIsMadeLater()
{
    GivenConfiguredInterface("eth0");
    NetworkDevice device("eth0", nullptr);
    ::close(device.socketFd);
    device.socketFd = -1;

    device.RefreshStatus();

    QVERIFY(device.isRunning);
}

void TestNetworkDeviceRefresh::missingSocketIsToldAtTheHighestLevelOnly()
{
    NetworkDevice device("eth0", nullptr);
    ::close(device.socketFd);
    device.socketFd = -1;
    SetLevel(Level::DEBUG);
    TestSupport::ClearLog();

    areSocketsRefused = true;
    device.RefreshStatus();
    areSocketsRefused = false;

    QCOMPARE(TestSupport::LogText(), QString());
}

void TestNetworkDeviceRefresh::lostCarrierEndsFallback_data()
{
    for (const char *column : {"cable", "enabled", "inFallback"})
        QTest::addColumn<bool>(column);

    QTest::newRow("cable in") << true << true << true;
    QTest::newRow("cable out") << false << true << false;
    QTest::newRow("cable out, fallback not enabled") << false << false << true;
}

void TestNetworkDeviceRefresh::lostCarrierEndsFallback()
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

void TestNetworkDeviceRefresh::endOfFallbackIsLoggedAtEveryLook()
{
    NetworkDevice device("eth0", nullptr);
    device.fallbackEnabled = true;

    Tick(device, 3);

    QCOMPARE(TestSupport::LogText().count("NetworkDevice::RefreshStatus:: clear fallback mode"), 3);
}

void TestNetworkDeviceRefresh::refreshAllocatesNothingWhereNothingChanged()
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

void TestNetworkDeviceRefresh::refreshLogsNothingOnEveryTick()
{
    SetLevel(2);
    NetworkDevice device("eth0", nullptr);
    device.fallbackEnabled = true;

    Tick(device, 10);

    QCOMPARE(TestSupport::LogText(), QString());
}

QTEST_GUILESS_MAIN(TestNetworkDeviceRefresh)
#include "tst_networkdevice_refresh.moc"
