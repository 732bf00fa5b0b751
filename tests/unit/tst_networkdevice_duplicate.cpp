// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "arppeer.h"
#include "deviceworld.h"
#include "fastclock.h"

using namespace std::chrono_literals;
using namespace TestSupport;

namespace {

int TimesTold()
{
    return static_cast<int>(LogLines().filter("another host has our address").size());
}

/// Looks until there is another host, or none any more.
bool LookUntil(Device &device, bool isThere)
{
    const auto look = [&] {
        device.WatchForDuplicate();
        return device.AddressHolder().isEmpty() != isThere;
    };
    return QTest::qWaitFor(look, 60000);
}

/// Whether the device, with an address, hears of another host that has it, too.
bool FindsHolder(Device &device, const ArpPeer &far)
{
    device.ipAddress = "10.0.0.5";
    device.WatchForDuplicate();
    far.Say("10.0.0.5");
    return LookUntil(device, true);
}

} // namespace

/// What a device makes of another host with its address.
class TestNetworkDeviceDuplicate : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void hostThatIsBackIsTold();
    void hostThatStaysIsToldOnce();
    void configuringAnewAsksAnew();
};

void TestNetworkDeviceDuplicate::init()
{
    StartDevicesFromNothing();
    SetLevel(Level::NOTICE);
    MakeVeth("eth0", "far0");
    RealIp({"link", "set", "dev", "eth0", "up"});
    SetCable("far0", true);
    QTRY_COMPARE(ReadFile("/sys/class/net/eth0/carrier"), QByteArray("1\n"));
}

void TestNetworkDeviceDuplicate::hostThatIsBackIsTold()
{
    const ArpPeer far;
    Device device("eth0");
    QVERIFY(FindsHolder(device, far));
    for (int second = 0; second < 65; ++second) {
        FastClock::Advance(1s);
        device.WatchForDuplicate();
    }
    QCOMPARE(device.AddressHolder(), QString());

    far.Say("10.0.0.5");

    QVERIFY(LookUntil(device, true));
    QCOMPARE(TimesTold(), 2);
}

void TestNetworkDeviceDuplicate::hostThatStaysIsToldOnce()
{
    const ArpPeer far;
    Device device("eth0");
    QVERIFY(FindsHolder(device, far));

    device.WatchForDuplicate();

    QCOMPARE(TimesTold(), 1);
}

/// It may be another network.
void TestNetworkDeviceDuplicate::configuringAnewAsksAnew()
{
    ArpPeer far;
    Device device("eth0");
    device.ipAddress = "10.0.0.5";
    device.WatchForDuplicate();
    QTRY_COMPARE(far.Questions().size(), 1);

    device.ConfigureNetwork(true);
    device.WatchForDuplicate();

    QTRY_COMPARE(far.Questions().size(), 2);
}

QTEST_GUILESS_MAIN(TestNetworkDeviceDuplicate)
#include "tst_networkdevice_duplicate.moc"
