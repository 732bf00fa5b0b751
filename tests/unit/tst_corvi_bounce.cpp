// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "corvipeer.h"
#include "fakesysnet.h"

#include <QSignalSpy>

using namespace CorviWorld;
using namespace TestSupport;
using namespace std::chrono_literals;

namespace {

/// The cable is out for less than the time between two looks.
void Bounce(const QString &name)
{
    PullCable(name);
    QTRY_COMPARE(ReadFile("/sys/class/net/" + name + "/carrier"), QByteArray("0\n"));
    PlugCable(name);
    QTRY_COMPARE(ReadFile("/sys/class/net/" + name + "/carrier"), QByteArray("1\n"));
}

QVector<bool> TakeStates(QSignalSpy &changes)
{
    QVector<bool> states;
    while (!changes.isEmpty())
        states << changes.takeFirst().first().toBool();
    return states;
}

} // namespace

/// A carrier that is lost and comes back between two looks.
class TestCorviBounce : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { StartFromNothing(); }

    void bounceReportsTheLinkAgain();
    void bounceDuringTheConfigurationCounts();
    void lossThatIsSeenIsReportedOnce();
    void ownSettingIsNoBounce_data();
    void ownSettingIsNoBounce();
    void mtuInForceExpectsNoBounce();
    void mtuOfTheServerIsNoBounce();
    void flappingIsToldOnceAndCounted();

    void countFollowsTheKernel();
    void countFollowsTheLooksWithoutTheKernels_data();
    void countFollowsTheLooksWithoutTheKernels();
    void expectationEndsWithTheLink();
    void expectedLossIsForgivenOnce_data();
    void expectedLossIsForgivenOnce();
};

void TestCorviBounce::bounceReportsTheLinkAgain()
{
    MakeMachine(LAN_STATIC, {"eth0"});
    CorviPeer corvi;
    corvi.Tick(3);
    QSignalSpy changes(&corvi, &Corvi::wiredStateChange);
    Forget();

    Bounce("eth0");
    corvi.Tick();

    QCOMPARE(TakeStates(changes), QVector<bool>{true});
    QCOMPARE(JournalOf("ifconfig"), QStringList{"ifconfig eth0 10.1.0.2 netmask 255.255.255.0 up"});
    QCOMPARE(LogCount("Corvi::CheckBounce - the carrier was away for a moment, configuring anew: eth0"), 1);

    corvi.Tick(3);
    QCOMPARE(TakeStates(changes), QVector<bool>());
}

void TestCorviBounce::bounceDuringTheConfigurationCounts()
{
    MakeMachine(LAN_STATIC, {"eth0"});
    Answer("route", "[ $1 = del ] || exit 0\n"
                    "[ ! -e /tmp/bounced ] || exit 0\n"
                    "touch /tmp/bounced\n"
                    "ip -n far link set dev far-eth0 down\n"
                    "until [ $(cat /sys/class/net/eth0/carrier) = 0 ]; do :; done\n"
                    "ip -n far link set dev far-eth0 up\n"
                    "until [ $(cat /sys/class/net/eth0/carrier) = 1 ]; do :; done\n");
    Remove("/tmp/bounced");
    CorviPeer corvi;
    QSignalSpy changes(&corvi, &Corvi::wiredStateChange);

    corvi.Tick(2);
    QCOMPARE(TakeStates(changes), QVector<bool>{true});
    corvi.Tick();
    QCOMPARE(TakeStates(changes), QVector<bool>{true});
    corvi.Tick(3);

    QCOMPARE(TakeStates(changes), QVector<bool>());
}

void TestCorviBounce::lossThatIsSeenIsReportedOnce()
{
    MakeMachine(LAN_STATIC, {"eth0"});
    CorviPeer corvi;
    corvi.Tick(3);
    QSignalSpy changes(&corvi, &Corvi::wiredStateChange);

    PullCable("eth0");
    corvi.Tick();
    PlugCable("eth0");
    corvi.Tick(3);

    QCOMPARE(TakeStates(changes), QVector<bool>({false, true}));
}

void TestCorviBounce::ownSettingIsNoBounce_data()
{
    QTest::addColumn<QByteArray>("setting");
    QTest::newRow("speed") << QByteArray("<speed>100 Mbps Full</speed>");
    QTest::newRow("MTU") << QByteArray("<mtu>1400</mtu>");
    QTest::newRow("MTU of a server, taken back") << QByteArray();
}

void TestCorviBounce::ownSettingIsNoBounce()
{
    QFETCH(QByteArray, setting);
    if (setting.isEmpty())
        WriteFile("/run/corvi-mtu-before.eth0", "1400\n"); // As the client's hook leaves it.
    MakeMachine("<networkconfig><network><name>lan</name><staticIp>true</staticIp>"
                "<ipAddress>10.1.0.2</ipAddress><netmask>255.255.255.0</netmask>" +
                    setting + "</network></networkconfig>",
                {"eth0"});
    CorviPeer corvi;
    corvi.Tick(2);
    QSignalSpy changes(&corvi, &Corvi::wiredStateChange);

    Bounce("eth0"); // The card restarts its link.
    corvi.Tick(2);
    QCOMPARE(TakeStates(changes), QVector<bool>());

    Bounce("eth0"); // Nobody set anything.
    corvi.Tick();
    QCOMPARE(TakeStates(changes), QVector<bool>{true});
}

void TestCorviBounce::mtuInForceExpectsNoBounce()
{
    MakeMachine("<networkconfig><network><name>lan</name><staticIp>true</staticIp>"
                "<ipAddress>10.1.0.2</ipAddress><netmask>255.255.255.0</netmask><mtu>1400</mtu>"
                "</network></networkconfig>",
                {"eth0"});
    CorviPeer corvi;
    corvi.Tick(2);
    Bounce("eth0"); // The card restarts its link.
    corvi.Tick(2);
    QSignalSpy changes(&corvi, &Corvi::wiredStateChange);
    Bounce("eth0");
    corvi.Tick();
    QCOMPARE(TakeStates(changes), QVector<bool>{true});

    Bounce("eth0"); // What the configuration set was in force, so no card restarted for it.
    corvi.Tick();

    QCOMPARE(TakeStates(changes), QVector<bool>{true});
}

void TestCorviBounce::mtuOfTheServerIsNoBounce()
{
    // The client sets what the server asks for, and the definition has it its own way afterwards.
    Answer("dhclient", "[ $1 = -v ] || exit 0\n"
                       "ip link set dev $4 mtu 1300\n"
                       "ip addr replace 10.0.0.5/24 dev $4\n"
                       "echo 'bound to 10.0.0.5 -- renewal in 300 seconds.'");
    MakeMachine("<networkconfig><network><name>lan</name><mtu>1400</mtu></network></networkconfig>",
                {"eth0"});
    CorviPeer corvi;
    corvi.Tick(2);
    QCOMPARE(ReadFile("/sys/class/net/eth0/mtu"), QByteArray("1400\n"));
    QSignalSpy changes(&corvi, &Corvi::wiredStateChange);

    Bounce("eth0");
    Bounce("eth0"); // The card restarts its link for each of the two.
    corvi.Tick(2);
    QCOMPARE(TakeStates(changes), QVector<bool>());

    Bounce("eth0"); // Nobody set anything.
    corvi.Tick();
    QCOMPARE(TakeStates(changes), QVector<bool>{true});
}

void TestCorviBounce::flappingIsToldOnceAndCounted()
{
    MakeMachine(LAN_STATIC, {"eth0"});
    CorviPeer corvi;
    corvi.Tick(3);
    Forget();

    for (int i = 0; i < 20; ++i) {
        Bounce("eth0");
        corvi.Tick();
    }

    QCOMPARE(JournalOf("ifconfig").size(), 20);
    QCOMPARE(LogLines().filter("CheckBounce").size(), 1);
}

void TestCorviBounce::countFollowsTheKernel()
{
    FakeSysNet sysNet;
    sysNet.Write("eth0/carrier_down_count", "7\n");
    CarrierLosses losses("/sys/class/net/eth0");
    losses.Begin();
    const auto now = CarrierLosses::Time::clock::now();

    QVERIFY(!losses.Happened(now));
    sysNet.Write("eth0/carrier_down_count", "8\n");
    QVERIFY(losses.Happened(now));
    QVERIFY(losses.Happened(now));
    losses.Begin();
    QVERIFY(!losses.Happened(now));
    // Another interface under the old name.
    sysNet.Write("eth0/carrier_down_count", "1\n");
    QVERIFY(!losses.Happened(now));
}

void TestCorviBounce::countFollowsTheLooksWithoutTheKernels_data()
{
    QTest::addColumn<bool>("hasFile");
    QTest::newRow("no file") << false;
    QTest::newRow("empty file") << true;
}

void TestCorviBounce::countFollowsTheLooksWithoutTheKernels()
{
    QFETCH(bool, hasFile);
    FakeSysNet sysNet;
    if (hasFile)
        sysNet.Write("eth0/carrier_down_count", "");
    CarrierLosses losses("/sys/class/net/eth0");
    const auto now = CarrierLosses::Time::clock::now();
    losses.Begin();
    QVERIFY(!losses.Happened(now));

    losses.NoteSeen();

    QVERIFY(losses.Happened(now));
}

void TestCorviBounce::expectationEndsWithTheLink()
{
    const FakeSysNet sysNet;
    CarrierLosses losses("/sys/class/net/eth0");
    const auto now = CarrierLosses::Time::clock::now();
    losses.ExpectOne(now);

    losses.Begin();
    losses.NoteSeen();

    QVERIFY(losses.Happened(now));
}

void TestCorviBounce::expectedLossIsForgivenOnce_data()
{
    QTest::addColumn<int>("expected");
    QTest::addColumn<int>("losses");
    QTest::addColumn<int>("ageSeconds");
    QTest::addColumn<bool>("happened");
    QTest::newRow("none expected") << 0 << 1 << 0 << true;
    QTest::newRow("as expected") << 1 << 1 << 9 << false;
    QTest::newRow("too late to be its own") << 1 << 1 << 10 << true;
    QTest::newRow("one more than expected") << 1 << 2 << 0 << true;
    QTest::newRow("two expected") << 2 << 2 << 0 << false;
    QTest::newRow("expected and not come") << 1 << 0 << 0 << false;
}

void TestCorviBounce::expectedLossIsForgivenOnce()
{
    QFETCH(int, expected);
    QFETCH(int, losses);
    QFETCH(int, ageSeconds);
    const FakeSysNet sysNet;
    CarrierLosses counted("/sys/class/net/eth0");
    counted.Begin();
    const auto now = CarrierLosses::Time::clock::now();
    for (int i = 0; i < expected; ++i)
        counted.ExpectOne(now - std::chrono::seconds(ageSeconds));
    for (int i = 0; i < losses; ++i)
        counted.NoteSeen();

    QTEST(counted.Happened(now), "happened");

    // Forgiven once: the next one counts.
    counted.NoteSeen();
    QVERIFY(counted.Happened(now) || expected > losses);
}

QTEST_GUILESS_MAIN(TestCorviBounce)
#include "tst_corvi_bounce.moc"
