// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "fakesupplicant.h"
#include "fakesysnet.h"
#include "paths.h"
#include "systemfacts.h"
#include "testsupport.h"

#include <QElapsedTimer>
#include <QSharedMemory>
#include <QtTest>

#include <ctime>
#include <functional>

#include <unistd.h>

namespace {

const QString LEASES = QStringLiteral("/var/lib/dhcp/dhclient.leases");

using Expectation = std::function<bool(const LinkFacts &)>;

void GivenEth0()
{
    TestSupport::MakeVeth("eth0", "lan0");
    for (const char *name : {"eth0", "lan0"})
        TestSupport::RealIp({"link", "set", "dev", name, "up"});
    TestSupport::RealIp({"addr", "add", "192.0.2.5/24", "dev", "eth0"});
}

LinkFacts Eth0()
{
    for (const LinkFacts &link : SystemFacts::ReadLinks())
        if (link.name == "eth0")
            return link;
    return {};
}

InterfaceReport ReportOfEth0()
{
    for (const InterfaceReport &interface : SystemFacts::Read().interfaces)
        if (interface.link.name == "eth0")
            return interface;
    return {};
}

} // namespace

Q_DECLARE_METATYPE(Expectation)

/// What is read of the kernel, the daemon, the DHCP client and the supplicant, and how that goes together.
class TestSystemFactsRead : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void attributesAreRead_data();
    void attributesAreRead();
    void bondIsTheOneThatTheLinkNames();
    void linksWithoutHardwareAreLeftOut();
    void addressesOfEachKind();
    void gatewayIsThatOfItsOwnRoute();
    void daemonSaysWhatItDoes();
    void statusIsReadWhereTheDaemonToldNothing();
    void resolverIsRead();
    void leaseOfTheAddressIsRead_data();
    void leaseOfTheAddressIsRead();
    void supplicantIsAsked_data();
    void supplicantIsAsked();
    void supplicantThatDoesNotAnswer();
    void supplicantThatCannotBeAsked();
    void withoutASupplicantNobodyIsAsked();
};

void TestSystemFactsRead::init()
{
    TestSupport::RemoveInterfaces();
    TestSupport::Remove(WPA_CONTROL_FOLDER);
    TestSupport::Remove(ServiceState::FOLDER);
    TestSupport::Remove(LEASES);
}

void TestSystemFactsRead::attributesAreRead_data()
{
    QTest::addColumn<QString>("entry");
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<Expectation>("isRead");
    const auto row = [](const char *name, const char *entry, const char *text, const Expectation &isRead) {
        QTest::newRow(name) << QString(entry) << QByteArray(text) << isRead;
    };
    row("up", "flags", "0x1003\n", [](const LinkFacts &l) { return l.isUp; });
    row("down", "flags", "0x1002\n", [](const LinkFacts &l) { return !l.isUp; });
    row("carrier", "carrier", "1\n", [](const LinkFacts &l) { return l.hasCarrier; });
    row("no carrier", "carrier", "0\n", [](const LinkFacts &l) { return !l.hasCarrier; });
    row("speed", "speed", "1000\n", [](const LinkFacts &l) { return l.speedMbits == 1000; });
    row("unknown speed", "speed", "-1\n", [](const LinkFacts &l) { return l.speedMbits == 0; });
    row("radio", "wireless/status", "0\n", [](const LinkFacts &l) { return l.isWireless; });
    row("radio without extensions", "phy80211/name", "phy0\n",
        [](const LinkFacts &l) { return l.isWireless; });
    row("radio that is switched off", "phy80211/rfkill3/soft", "1\n",
        [](const LinkFacts &l) { return l.radioBlock == "by software"; });
    row("file of a radio's name", "wireless", "", [](const LinkFacts &l) { return !l.isWireless; });
    row("no radio", "flags", "0x1003\n", [](const LinkFacts &l) { return !l.isWireless; });
    row("bridge", "uevent", "DEVTYPE=bridge\n", [](const LinkFacts &l) { return l.virtualKind == "bridge"; });
    row("no port", "flags", "0x1003\n", [](const LinkFacts &l) { return l.bond.isEmpty(); });
}

void TestSystemFactsRead::attributesAreRead()
{
    QFETCH(QString, entry);
    QFETCH(QByteArray, text);
    QFETCH(Expectation, isRead);
    FakeSysNet sysNet;
    sysNet.Add("eth0");
    sysNet.Write("eth0/" + entry, text);

    const LinkFacts link = Eth0();

    QCOMPARE(link.name, "eth0");
    QVERIFY(isRead(link));
}

void TestSystemFactsRead::bondIsTheOneThatTheLinkNames()
{
    FakeSysNet sysNet;
    sysNet.Add("eth0");
    sysNet.Add("bond0");
    QVERIFY(QFile::link(FakeSysNet::Path("bond0"), FakeSysNet::Path("eth0/master")));

    QCOMPARE(Eth0().bond, "bond0");
}

void TestSystemFactsRead::linksWithoutHardwareAreLeftOut()
{
    FakeSysNet sysNet;
    for (const char *name : {"wlan0", "eth0"})
        sysNet.Write(QLatin1String(name) + "/type", "1\n");
    sysNet.Write("lo/type", "772\n");
    sysNet.Write("bonding_masters", "\n");

    QStringList names;
    for (const LinkFacts &link : SystemFacts::ReadLinks())
        names.append(link.name);

    QCOMPARE(names, QStringList({"eth0", "wlan0"}));
}

void TestSystemFactsRead::addressesOfEachKind()
{
    GivenEth0();
    TestSupport::RealIp({"link", "set", "dev", "eth0", "address", "02:00:5e:10:00:0a"});
    TestSupport::RealIp({"addr", "add", "169.254.3.4/16", "dev", "eth0"});
    TestSupport::RealIp({"addr", "add", "2001:db8::5/64", "dev", "eth0", "nodad"});
    TestSupport::RealIp({"addr", "add", "fe80::5/64", "dev", "eth0", "nodad"});

    const LinkFacts link = Eth0();

    QCOMPARE(link.macAddress, "02:00:5E:10:00:0A");
    QCOMPARE(link.addresses, QStringList({"192.0.2.5/24", "169.254.3.4/16"}));
    QCOMPARE(link.ipv6Addresses, QStringList({"2001:db8::5/64"}));
}

void TestSystemFactsRead::gatewayIsThatOfItsOwnRoute()
{
    GivenEth0();
    QCOMPARE(Eth0().gateway, QString());

    TestSupport::RealIp({"addr", "add", "198.51.100.5/24", "dev", "lan0"});
    TestSupport::RealIp({"route", "add", "default", "via", "198.51.100.1", "dev", "lan0"});
    TestSupport::RealIp({"route", "add", "default", "via", "192.0.2.1", "dev", "eth0", "metric", "600"});

    QCOMPARE(Eth0().gateway, "192.0.2.1");
}

void TestSystemFactsRead::daemonSaysWhatItDoes()
{
    TestSupport::MakeVeth("eth0", "eth1");
    ServiceState state;
    state.carrier = "eth0";
    state.interfaces = {InterfaceState(), InterfaceState()};
    state.interfaces[0].name = "eth1";
    state.interfaces[1].name = "eth0";
    state.interfaces[1].definition = "lan";
    TestSupport::WriteFile(ServiceState::PATH, state.ToJson());

    const SystemReport report = SystemFacts::Read();

    QCOMPARE(report.daemon.outcome, ServiceStateReading::Outcome::Read);
    QCOMPARE(report.interfaces.size(), 2);
    const InterfaceReport &eth0 = report.interfaces.at(0);
    const InterfaceReport &eth1 = report.interfaces.at(1);
    QCOMPARE(eth0.daemon.value_or(InterfaceState()).definition, "lan");
    QCOMPARE(eth1.daemon.value_or(InterfaceState()).name, "eth1");
    QVERIFY(eth0.isCarrier);
    QVERIFY(!eth1.isCarrier);
    // Told of the clock that the daemon's times are of, which began when the machine did.
    timespec now{};
    QCOMPARE(::clock_gettime(CLOCK_MONOTONIC, &now), 0);
    const qint64 nowMs = qint64(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
    QVERIFY(report.nowMs <= nowMs && report.nowMs > nowMs - 600000);
}

void TestSystemFactsRead::statusIsReadWhereTheDaemonToldNothing()
{
    QSharedMemory segment("com.qarbo.zebnetstatus");
    QVERIFY(segment.create(512));

    const StatusReading::Outcome alone = SystemFacts::Read().segment.outcome;
    TestSupport::WriteFile(ServiceState::PATH, ServiceState().ToJson());
    const StatusReading::Outcome besideTheState = SystemFacts::Read().segment.outcome;

    QCOMPARE(alone, StatusReading::Outcome::NotYet);
    QCOMPARE(besideTheState, StatusReading::Outcome::NoDaemon);
}

void TestSystemFactsRead::resolverIsRead()
{
    TestSupport::WriteFile("/etc/resolv.conf", "nameserver 192.0.2.53\n");

    QCOMPARE(SystemFacts::Read().resolver, QStringList{"192.0.2.53"});
}

void TestSystemFactsRead::leaseOfTheAddressIsRead_data()
{
    QTest::addColumn<QByteArray>("address");
    QTest::addColumn<bool>("isInUse");
    QTest::newRow("in use") << QByteArray("192.0.2.5") << true;
    QTest::newRow("set since then") << QByteArray("192.0.2.50") << false;
}

void TestSystemFactsRead::leaseOfTheAddressIsRead()
{
    QFETCH(QByteArray, address);
    GivenEth0();
    TestSupport::WriteFile(LEASES, "lease {\n  interface \"eth0\";\n  fixed-address " + address + ";\n}\n");

    QTEST(ReportOfEth0().lease.has_value(), "isInUse");
}

void TestSystemFactsRead::supplicantIsAsked_data()
{
    QTest::addColumn<bool>("isRadio");
    QTest::addColumn<QByteArray>("signal");
    QTest::addColumn<QStringList>("commands");
    QTest::addColumn<int>("signalDbm");
    QTest::newRow("cable") << false << QByteArray("RSSI=-61\n") << QStringList{"STATUS"} << 0;
    QTest::newRow("radio") << true << QByteArray("RSSI=-61\n") << QStringList{"STATUS", "SIGNAL_POLL"} << -61;
}

void TestSystemFactsRead::supplicantIsAsked()
{
    QFETCH(bool, isRadio);
    QFETCH(QByteArray, signal);
    FakeSysNet sysNet;
    sysNet.Add("eth0");
    if (isRadio)
        sysNet.Add("eth0/wireless");
    FakeSupplicant peer("eth0");
    peer.SetReply("STATUS", QByteArray(3000, 'x') + "\nwpa_state=COMPLETED\n");
    peer.SetReply("SIGNAL_POLL", signal);

    const SupplicantFacts facts = ReportOfEth0().supplicant.value_or(SupplicantFacts());

    QCOMPARE(facts.problem, QString());
    QCOMPARE(facts.state, "COMPLETED");
    QTEST(facts.signalDbm.value_or(0), "signalDbm");
    QTEST(peer.Commands(), "commands");
}

void TestSystemFactsRead::supplicantThatDoesNotAnswer()
{
    FakeSysNet sysNet;
    sysNet.Add("eth0/wireless");
    FakeSupplicant peer("eth0");
    peer.SetReply("STATUS", "wpa_state=SCANNING\n");
    peer.SetSilent("SIGNAL_POLL");
    QElapsedTimer time;
    time.start();

    const SupplicantFacts withoutSignal = ReportOfEth0().supplicant.value_or(SupplicantFacts());
    peer.SetSilent("STATUS");
    peer.ClearCommands();
    const SupplicantFacts silent = ReportOfEth0().supplicant.value_or(SupplicantFacts());

    QCOMPARE(withoutSignal.state, "SCANNING");
    QVERIFY(!withoutSignal.signalDbm);
    QCOMPARE(silent.problem, "it does not answer");
    // A person waits twice for 2 s, not for the daemon's 10 s.
    QVERIFY(time.elapsed() < 15000);
    QCOMPARE(peer.Commands(), QStringList{"STATUS"});
}

void TestSystemFactsRead::supplicantThatCannotBeAsked()
{
    // Another user's id exists only where it is mapped.
    if (!TestSupport::ReadFile("/proc/self/uid_map").contains("4294967295"))
        QSKIP("only root can be another user; seen when the tests run as root");
    FakeSysNet sysNet;
    sysNet.Add("eth0");
    FakeSupplicant peer("eth0");
    TestSupport::SetMode(FakeSupplicant::SocketPath("eth0"), 0700);

    QCOMPARE(::seteuid(65534), 0);
    const SupplicantFacts refused = ReportOfEth0().supplicant.value_or(SupplicantFacts());
    QCOMPARE(::seteuid(0), 0);
    peer.Die();
    const SupplicantFacts gone = ReportOfEth0().supplicant.value_or(SupplicantFacts());

    QCOMPARE(refused.problem, "only root may ask it");
    QCOMPARE(gone.problem, "Connection refused");
}

void TestSystemFactsRead::withoutASupplicantNobodyIsAsked()
{
    FakeSysNet sysNet;
    sysNet.Add("eth0");

    QVERIFY(!ReportOfEth0().supplicant);
}

QTEST_GUILESS_MAIN(TestSystemFactsRead)
#include "tst_systemfacts_read.moc"
