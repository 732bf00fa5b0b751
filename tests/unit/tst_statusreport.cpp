// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "addresswait.h"
#include "reporttext.h"
#include "supplicantfacts.h"
#include "systemfacts.h"
#include "verdict.h"

#include <QJsonArray>
#include <QtTest>

#include <functional>

namespace {

constexpr qint64 NOW_MS = 1000000;

/// An interface that works, in a system where it carries the traffic.
InterfaceReport Connected()
{
    InterfaceReport interface;
    interface.link.name = "eth0";
    interface.link.macAddress = "02:00:5E:10:00:01";
    interface.link.isUp = true;
    interface.link.hasCarrier = true;
    interface.link.speedMbits = 1000;
    interface.link.addresses = QStringList{"10.0.0.5/24"};
    interface.link.gateway = "10.0.0.1";
    interface.isCarrier = true;
    interface.daemon = InterfaceState();
    interface.daemon->name = "eth0";
    interface.daemon->kind = "wired";
    interface.daemon->definition = "lan";
    interface.daemon->definitionCount = 1;
    interface.daemon->isInUse = true;
    return interface;
}

SystemReport SystemWith(const InterfaceReport &interface, const QString &carrier = "eth0")
{
    SystemReport system;
    system.daemon.outcome = ServiceStateReading::Outcome::Read;
    system.daemon.pid = 17;
    system.daemon.state.carrier = carrier;
    system.nowMs = NOW_MS;
    system.resolver = QStringList{"10.0.0.1", "2001:db8::1"};
    system.interfaces = {interface};
    return system;
}

using Change = std::function<void(InterfaceReport &)>;

void MakeWireless(InterfaceReport &interface)
{
    interface.daemon->kind = "wireless";
    interface.link.hasCarrier = false;
    interface.link.addresses.clear();
}

void AddCase(const char *name, const char *code, const char *sentence, const Change &change,
             const QString &carrier = QString())
{
    InterfaceReport interface = Connected();
    change(interface);
    QTest::newRow(name) << QVariant::fromValue(interface) << carrier << QString(code) << QString(sentence);
}

} // namespace

Q_DECLARE_METATYPE(InterfaceReport)

/// What corvi-status concludes from what it has read, and how it looks.
class TestStatusReport : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // What it waits for
    void linkDecides_data();
    void linkDecides() { JudgesAsExpected(); }
    void authenticationDecides_data();
    void authenticationDecides() { JudgesAsExpected(); }
    void addressDecides_data();
    void addressDecides() { JudgesAsExpected(); }
    void withoutADaemonTheKernelDecides_data();
    void withoutADaemonTheKernelDecides();
    void definitionHasAReason_data();
    void definitionHasAReason();

    // Text
    void missingProgramIsNamed_data();
    void missingProgramIsNamed();
    void looksAsDocumented();
    void programsThatDoNotWorkAreListed();
    void ipv6AddressesAreShown();
    void bridgeIsNamedOne();
    void rowsOfALinkThatIsDown();
    void noLineIsLongerThanATerminal();
    void noNameMovesTheCursor();
    void coloursAreForTerminals();
    void firstLineSaysWhetherTheDaemonRuns_data();
    void firstLineSaysWhetherTheDaemonRuns();
    void firstLineSaysWhatKeepsTheDaemonFromWorking();
    void textIsWrapped_data();
    void textIsWrapped();
    void programsGetEverything();

    // Waiting
    void waitEndsWithAnAddress_data();
    void waitEndsWithAnAddress();
    void waitInVainSaysWhy();

    // Sources
    void leaseIsTheLastOfTheInterface();
    void leaseEnds_data();
    void leaseEnds();
    void leaseMayBeMissing_data();
    void leaseMayBeMissing();
    void nameServersAreRead();
    void supplicantIsRead();

private:
    static void AddColumns();
    static void JudgesAsExpected();
};

void TestStatusReport::AddColumns()
{
    QTest::addColumn<QVariant>("report");
    QTest::addColumn<QString>("carrier");
    QTest::addColumn<QString>("code");
    QTest::addColumn<QString>("sentence");
}

void TestStatusReport::JudgesAsExpected()
{
    QFETCH(QVariant, report);
    QFETCH(QString, carrier);
    const auto interface = report.value<InterfaceReport>();

    const Verdict verdict = Judge(interface, SystemWith(interface, carrier));

    QTEST(verdict.sentence, "sentence");
    QTEST(verdict.code, "code");
}

void TestStatusReport::linkDecides_data()
{
    AddColumns();
    AddCase("port", "port", "a port of bond0", [](auto &i) { i.link.bond = "bond0"; });
    AddCase("new", "unmanaged", "not managed by Corvi", [](auto &i) { i.daemon.reset(); });
    AddCase("down", "link-down", "the link is down and is brought up again",
            [](auto &i) { i.link.isUp = false; });
    AddCase("no cable", "no-carrier", "no carrier", [](auto &i) { i.link.hasCarrier = false; });
    AddCase("no cable, not in use", "no-carrier", "no carrier", [](auto &i) {
        i.link.hasCarrier = false;
        i.daemon->isInUse = false;
    });
    AddCase(
        "second cable", "standby", "not used while eth1 carries the traffic",
        [](auto &i) { i.daemon->isHeldDown = true; }, "eth1");
    AddCase("no modem", "no-carrier", "no carrier: waiting for the modem to connect", [](auto &i) {
        i.link.hasCarrier = false;
        i.daemon->kind = "modem";
    });
    AddCase("modem given up", "given-up", "not used until the next rescan: its link did not come up",
            [](auto &i) {
                i.daemon->isInUse = false;
                i.daemon->kind = "modem";
            });
    AddCase(
        "radio beside a cable", "standby", "not used while eth0 carries the traffic",
        [](auto &i) {
            MakeWireless(i);
            i.daemon->isInUse = false;
        },
        "eth0");
    AddCase("radio whose turn comes", "standby", "waiting for its turn after the wired interfaces",
            [](auto &i) {
                MakeWireless(i);
                i.daemon->isInUse = false;
            });
    AddCase("no definition", "no-definition", "the store defines no network for a wired interface",
            [](auto &i) { i.daemon->definitionCount = 0; });
}

void TestStatusReport::authenticationDecides_data()
{
    AddColumns();
    const auto awaits = [](InterfaceReport &i) {
        i.link.addresses.clear();
        i.daemon->usesSupplicant = true;
        i.daemon->fallbackSeconds = 60;
        i.daemon->authenticationSince = NOW_MS - 34000;
    };
    AddCase("waiting", "authenticating", "waiting for authentication for 34 s, unsecured fallback at 60 s",
            awaits);
    AddCase("waiting with an address", "authenticating",
            "waiting for authentication for 34 s, address kept without it at 10 s", [&](auto &i) {
                awaits(i);
                i.link.addresses = QStringList{"10.0.0.5/24"};
                i.daemon->fallbackSeconds = 10;
            });
    AddCase("no supplicant yet", "authenticating", "waiting for the supplicant to authenticate with",
            [&](auto &i) {
                awaits(i);
                i.daemon->authenticationSince.reset();
            });
    AddCase("no supplicant stays", "no-supplicant", "no supplicant stays, next try in 20 s", [&](auto &i) {
        awaits(i);
        i.daemon->nextSupplicantStart = NOW_MS + 20000;
    });
    AddCase("radio looks", "no-network", "no carrier: looking for a network of the store", [](auto &i) {
        MakeWireless(i);
        i.supplicant = SupplicantFacts();
        i.supplicant->state = "SCANNING";
    });
    AddCase("radio joins", "associating", "no carrier: joining a network", [](auto &i) {
        MakeWireless(i);
        i.supplicant = SupplicantFacts();
        i.supplicant->state = "4WAY_HANDSHAKE";
    });
    AddCase("radio without a supplicant", "no-carrier", "no carrier: waiting for the supplicant",
            MakeWireless);
    AddCase("radio refused", "not-let-in", "no carrier: the network refused the key", [](auto &i) {
        MakeWireless(i);
        i.daemon->lastFailure = "the network refused the key";
    });
    AddCase("radio whose supplicant ends", "no-supplicant", "no supplicant stays, next try in 0 s",
            [](auto &i) {
                MakeWireless(i);
                i.daemon->nextSupplicantStart = NOW_MS - 1;
            });
}

void TestStatusReport::addressDecides_data()
{
    AddColumns();
    const auto lacks = [](InterfaceReport &i) {
        i.link.addresses.clear();
    };
    AddCase("first attempt", "dhcp", "asking for an address by DHCP for 3 s", [&](auto &i) {
        lacks(i);
        i.daemon->dhcpSince = NOW_MS - 3000;
    });
    AddCase("fourth attempt", "dhcp",
            "asking for an address by DHCP for 3 s, after 3 attempts without an answer", [&](auto &i) {
                lacks(i);
                i.daemon->dhcpSince = NOW_MS - 3000;
                i.daemon->dhcpFailures = 3;
            });
    AddCase("pause", "no-dhcp-answer", "no DHCP server answered 3 attempts, next in 41 s", [&](auto &i) {
        lacks(i);
        i.daemon->dhcpFailures = 3;
        i.daemon->nextDhcpStart = NOW_MS + 41000;
    });
    AddCase("one attempt", "no-dhcp-answer", "no DHCP server answered 1 attempt", [&](auto &i) {
        lacks(i);
        i.daemon->dhcpFailures = 1;
    });
    AddCase("static address is gone", "no-address", "its static address is missing and is set again",
            [&](auto &i) {
                lacks(i);
                i.daemon->isStatic = true;
            });
    AddCase("before the first attempt", "no-address", "no address yet", lacks);
    AddCase(
        "carrier", "connected", "connected", [](auto &) {}, "eth0");
    AddCase("no carrier known", "connected", "connected", [](auto &) {});
    AddCase(
        "beside the carrier", "connected", "has an address, while eth1 carries the traffic", [](auto &) {},
        "eth1");
    const auto lacksRoute = [](InterfaceReport &i) {
        i.link.gateway.clear();
        i.daemon->gateway = "10.0.0.1";
    };
    AddCase("default route is gone", "no-gateway",
            "has an address, but its default route by 10.0.0.1 is missing and is set again", lacksRoute,
            "eth0");
    AddCase("another has the default route", "connected", "has an address, while eth1 carries the traffic",
            lacksRoute, "eth1");
    AddCase(
        "no default route is known", "connected", "connected", [](auto &i) { i.link.gateway.clear(); },
        "eth0");
    AddCase(
        "in fallback", "connected", "connected without authentication",
        [](auto &i) { i.daemon->isInFallback = true; }, "eth0");
}

void TestStatusReport::withoutADaemonTheKernelDecides_data()
{
    AddColumns();
    AddCase("down", "link-down", "the link is down", [](auto &i) { i.link.isUp = false; });
    AddCase("no carrier", "no-carrier", "no carrier", [](auto &i) { i.link.hasCarrier = false; });
    AddCase("no address", "no-address", "no address", [](auto &i) { i.link.addresses.clear(); });
    AddCase("address", "has-address", "has an address", [](auto &) {});
}

void TestStatusReport::withoutADaemonTheKernelDecides()
{
    QFETCH(QVariant, report);
    const auto interface = report.value<InterfaceReport>();
    SystemReport system = SystemWith(interface);
    system.daemon.outcome = ServiceStateReading::Outcome::Stale;

    const Verdict verdict = Judge(interface, system);

    QTEST(verdict.sentence, "sentence");
    QTEST(verdict.code, "code");
}

void TestStatusReport::definitionHasAReason_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QString>("definition");
    QTest::addColumn<int>("count");
    QTest::addColumn<QString>("reason");
    QTest::newRow("none") << "wired"
                          << "" << 0 << "";
    QTest::newRow("one") << "wired"
                         << "lan" << 1 << "the only one for a wired interface";
    QTest::newRow("several") << "wireless"
                             << "Cafe" << 3 << "the first by name of 3 for a wireless interface";
    QTest::newRow("own") << "wired"
                         << "wiredeth0" << 2 << "named for this interface";
}

void TestStatusReport::definitionHasAReason()
{
    QFETCH(QString, kind);
    QFETCH(QString, definition);
    QFETCH(int, count);
    InterfaceState state;
    state.name = "eth0";
    state.kind = kind;
    state.definition = definition;
    state.definitionCount = count;

    QTEST(DefinitionReason(state), "reason");
}

void TestStatusReport::missingProgramIsNamed_data()
{
    AddColumns();
    AddCase("link", "tool-fails", "the link is down: ifconfig crashed", [](auto &i) { i.link.isUp = false; });
    AddCase("lease", "tool-fails", "dhclient cannot be started: no file, next in 41 s", [](auto &i) {
        i.link.addresses.clear();
        i.daemon->dhcpFailures = 3;
        i.daemon->nextDhcpStart = NOW_MS + 41000;
    });
    AddCase("static address", "tool-fails", "its static address is missing: ifconfig crashed", [](auto &i) {
        i.link.addresses.clear();
        i.daemon->isStatic = true;
    });
    AddCase("supplicant", "no-supplicant", "wpa_supplicant cannot be started: no file, next try in 20 s",
            [](auto &i) {
                MakeWireless(i);
                i.daemon->nextSupplicantStart = NOW_MS + 20000;
            });
    AddCase("all is well", "connected", "connected", [](auto &) {});
}

void TestStatusReport::missingProgramIsNamed()
{
    QFETCH(QVariant, report);
    const auto interface = report.value<InterfaceReport>();
    SystemReport system = SystemWith(interface);
    system.daemon.state.toolFaults =
        QStringList{"dhclient cannot be started: no file", "ifconfig crashed",
                    "wpa_cli cannot be started: no file", "wpa_supplicant cannot be started: no file"};

    const Verdict verdict = Judge(interface, system);

    QTEST(verdict.sentence, "sentence");
    QTEST(verdict.code, "code");
}

void TestStatusReport::looksAsDocumented()
{
    InterfaceReport interface = Connected();
    interface.lease =
        LeaseFacts{"10.0.0.5", "10.0.0.1", QDateTime(QDate(2026, 11, 21), QTime(20, 55, 1)).toUTC()};
    interface.supplicant = ParseSupplicant("wpa_state=COMPLETED\nEAP state=SUCCESS\n"
                                           "selectedMethod=25 (EAP-PEAP)\nssid=Office\n",
                                           "RSSI=-61\n");
    interface.daemon->lastFailure = "EAP authentication failed";
    interface.daemon->failureSince =
        QDateTime(QDate(2026, 11, 21), QTime(20, 41, 3)).toUTC().toSecsSinceEpoch();

    const QString text = ReportText::ForPerson(SystemWith(interface), false);

    QCOMPARE(text, QString("Corvi runs (process 17).\n"
                           "\n"
                           "eth0: wired, carries the traffic\n"
                           "  State:        connected\n"
                           "  Link:         up, carrier, 1000 Mbit/s, 02:00:5E:10:00:01\n"
                           "  Address:      10.0.0.5/24\n"
                           "  Gateway:      10.0.0.1\n"
                           "  Resolver:     10.0.0.1, 2001:db8::1\n"
                           "  Lease:        from 10.0.0.1 until 2026-11-21 20:55:01\n"
                           "  Definition:   lan: the only one for a wired interface\n"
                           "  Supplicant:   COMPLETED, SSID Office, -61 dBm, EAP SUCCESS, EAP-PEAP\n"
                           "  Failure:      EAP authentication failed, since 2026-11-21 20:41:03\n"));
}

void TestStatusReport::programsThatDoNotWorkAreListed()
{
    SystemReport system = SystemWith(Connected());
    system.daemon.state.toolFaults = QStringList{"ip crashed"};

    const QString text = ReportText::ForPerson(system, false);

    QVERIFY(text.startsWith("Corvi runs (process 17).\nA program that it needs does not work: ip crashed\n"));
    QCOMPARE(ReportText::ForProgram(system).value("toolFaults").toArray(), QJsonArray{"ip crashed"});
}

void TestStatusReport::bridgeIsNamedOne()
{
    InterfaceReport interface = Connected();
    interface.link.virtualKind = "bridge";
    QVERIFY(ReportText::ForPerson(SystemWith(interface), false)
                .contains("\neth0: wired (bridge), carries the traffic\n"));
}

void TestStatusReport::ipv6AddressesAreShown()
{
    InterfaceReport interface = Connected();
    interface.link.ipv6Addresses = QStringList{"2001:db8::5/64"};
    QVERIFY(ReportText::ForPerson(SystemWith(interface), false)
                .contains("  Address:      10.0.0.5/24, 2001:db8::5/64\n"));

    interface.link.addresses.clear();
    QVERIFY(ReportText::ForPerson(SystemWith(interface), false).contains("  Address:      2001:db8::5/64\n"));
}

void TestStatusReport::rowsOfALinkThatIsDown()
{
    InterfaceReport interface = Connected();
    interface.link.isUp = false;
    interface.link.hasCarrier = false;
    interface.daemon->isStatic = true;
    interface.lease = LeaseFacts();

    const QString text = ReportText::ForPerson(SystemWith(interface), false);

    QVERIFY(text.contains("  Link:         down, no carrier, 02:00:5E:10:00:01\n"));
    QVERIFY(text.contains(", without an end\n"));
    QVERIFY(text.contains("  Definition:   lan: the only one for a wired interface, static address\n"));
}

void TestStatusReport::noLineIsLongerThanATerminal()
{
    InterfaceReport interface = Connected();
    interface.daemon->definition = QString("long name ").repeated(12) + QString(200, 'x');
    interface.daemon->lastFailure = QString("much went wrong ").repeated(20);
    interface.link.addresses = QStringList();
    for (int i = 0; i < 20; ++i)
        interface.link.addresses.append(QStringLiteral("10.0.0.%1/24").arg(i));
    SystemReport system = SystemWith(interface);
    system.daemon.outcome = ServiceStateReading::Outcome::Unreadable;
    system.daemon.error = "some reason of some length";

    for (const SystemReport &report : {system, SystemWith(interface)}) {
        const QStringList lines = ReportText::ForPerson(report, false).split('\n');
        for (const QString &line : lines)
            QVERIFY2(line.size() <= 80, qPrintable(line));
        QVERIFY(lines.join(QString()).remove(' ').contains("10.0.0.19/24"));
    }
}

void TestStatusReport::noNameMovesTheCursor()
{
    InterfaceReport interface = Connected();
    interface.supplicant = ParseSupplicant("wpa_state=COMPLETED\nssid=a\\x1b[2Jb\\xe2\\x80\\xaec\n", "");

    const QString text = ReportText::ForPerson(SystemWith(interface), false);

    QVERIFY(!text.contains('\033'));
    QVERIFY(!text.contains(QChar(0x202e)));
    QVERIFY(text.contains("[2Jb"));
}

void TestStatusReport::coloursAreForTerminals()
{
    const SystemReport report = SystemWith(Connected());

    const QString coloured = ReportText::ForPerson(report, true);

    QVERIFY(coloured.contains("  State:        \033[32mconnected\033[0m\n"));
    QVERIFY(!ReportText::ForPerson(report, false).contains('\033'));
}

void TestStatusReport::firstLineSaysWhetherTheDaemonRuns_data()
{
    using State = ServiceStateReading::Outcome;
    using Segment = StatusReading::Outcome;
    QTest::addColumn<int>("state");
    QTest::addColumn<int>("segment");
    QTest::addColumn<QString>("start");
    QTest::newRow("runs") << int(State::Read) << int(Segment::NoDaemon) << "Corvi runs (process 17).";
    QTest::newRow("ended") << int(State::Stale) << int(Segment::Published) << "Corvi does not run.";
    QTest::newRow("nothing there") << int(State::Absent) << int(Segment::NoDaemon) << "Corvi does not run.";
    QTest::newRow("no folder") << int(State::Absent) << int(Segment::NotYet) << "Corvi runs, but what";
    QTest::newRow("no rights") << int(State::Absent) << int(Segment::Unreadable)
                               << "Whether Corvi runs is not known: /run/corvi/state.json cannot be read "
                                  "(there is no such file), nor can its status (no permission).";
}

void TestStatusReport::firstLineSaysWhetherTheDaemonRuns()
{
    QFETCH(int, state);
    QFETCH(int, segment);
    QFETCH(QString, start);
    SystemReport report = SystemWith(Connected());
    report.daemon.outcome = static_cast<ServiceStateReading::Outcome>(state);
    report.segment.outcome = static_cast<StatusReading::Outcome>(segment);
    report.segment.error = "no permission";

    const QString line = ReportText::ForPerson(report, false).replace('\n', ' ');

    QVERIFY2(line.startsWith(start), qPrintable(line));
}

void TestStatusReport::firstLineSaysWhatKeepsTheDaemonFromWorking()
{
    SystemReport report = SystemWith(Connected());
    report.daemon.silentSeconds = 60;
    QVERIFY(ReportText::ForPerson(report, false).startsWith("Corvi runs (process 17).\n"));
    QVERIFY(ReportText::ForProgram(report).value("daemonWell").toBool());

    report.daemon.silentSeconds = 61;
    QVERIFY(ReportText::ForPerson(report, false).startsWith("Corvi hangs (process 17): "));
    QVERIFY(!ReportText::ForProgram(report).value("daemonWell").toBool());

    report.daemon.isStopped = true;
    QVERIFY(ReportText::ForPerson(report, false).startsWith("Corvi is stopped (process 17) "));
    QVERIFY(!ReportText::ForProgram(report).value("daemonWell").toBool());
}

void TestStatusReport::textIsWrapped_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QStringList>("lines");
    QTest::newRow("empty") << "" << QStringList{""};
    QTest::newRow("fits") << "one two" << QStringList{"one two"};
    QTest::newRow("too long") << "one two three" << QStringList{"one two", "three"};
    QTest::newRow("long word") << "a 123456789" << QStringList{"a", "1234567", "89"};
    QTest::newRow("long word first") << "123456789 a" << QStringList{"1234567", "89 a"};
    QTest::newRow("exact word") << "1234567 a" << QStringList{"1234567", "a"};
}

void TestStatusReport::textIsWrapped()
{
    QFETCH(QString, text);

    QTEST(ReportText::Wrapped(text, 7), "lines");
}

void TestStatusReport::programsGetEverything()
{
    InterfaceReport interface = Connected();
    interface.lease =
        LeaseFacts{"10.0.0.5", "10.0.0.1", QDateTime(QDate(2026, 11, 21), QTime(20, 55), Qt::UTC)};
    interface.supplicant = ParseSupplicant("wpa_state=COMPLETED\n", "RSSI=-61\n");
    interface.daemon->lastFailure = "EAP authentication failed";

    const QJsonObject report = ReportText::ForProgram(SystemWith(interface));

    QVERIFY(report.value("daemonKnown").toBool());
    const QJsonObject eth0 = report.value("interfaces").toArray().first().toObject();
    QCOMPARE(eth0.value("name").toString(), "eth0");
    QCOMPARE(eth0.value("state").toString(), "connected");
    QCOMPARE(eth0.value("carriesTraffic").toBool(), true);
    QCOMPARE(eth0.value("link").toObject().value("speedMbits").toInt(), 1000);
    QCOMPARE(eth0.value("addresses").toArray().first().toString(), "10.0.0.5/24");
    QCOMPARE(eth0.value("resolver").toArray().size(), 2);
    QCOMPARE(eth0.value("lease").toObject().value("expires").toString(), "2026-11-21T20:55:00Z");
    QCOMPARE(eth0.value("supplicant").toObject().value("signalDbm").toInt(), -61);
    QCOMPARE(eth0.value("lastFailure").toObject().value("reason").toString(), "EAP authentication failed");
}

void TestStatusReport::waitEndsWithAnAddress_data()
{
    QTest::addColumn<QString>("interface");
    QTest::addColumn<bool>("carrier");
    QTest::addColumn<QStringList>("addresses");
    QTest::addColumn<bool>("isOver");
    const QStringList one{"10.0.0.5/24"};
    QTest::newRow("any") << QString() << true << one << true;
    QTest::newRow("this") << "eth0" << true << one << true;
    QTest::newRow("another") << "eth1" << true << one << false;
    QTest::newRow("no carrier") << QString() << false << one << false;
    QTest::newRow("no address") << QString() << true << QStringList() << false;
    QTest::newRow("for the link alone") << QString() << true << QStringList{"169.254.3.4/16"} << false;
    QTest::newRow("two") << QString() << true << QStringList{"169.254.3.4/16", "10.0.0.5/24"} << true;
}

void TestStatusReport::waitEndsWithAnAddress()
{
    QFETCH(QString, interface);
    QFETCH(bool, carrier);
    QFETCH(QStringList, addresses);
    LinkFacts link = Connected().link;
    link.hasCarrier = carrier;
    link.addresses = addresses;

    QTEST(AddressWait::IsOver({LinkFacts(), link}, interface), "isOver");
}

void TestStatusReport::waitInVainSaysWhy()
{
    InterfaceReport interface = Connected();
    interface.link.hasCarrier = false;
    const SystemReport report = SystemWith(interface);

    QCOMPARE(AddressWait::Reasons(report, QString()), "eth0: no carrier");
    QCOMPARE(AddressWait::Reasons(report, "eth0"), "eth0: no carrier");
    QCOMPARE(AddressWait::Reasons(report, "eth1"), "there is no such interface");
}

void TestStatusReport::leaseIsTheLastOfTheInterface()
{
    const auto lease = SystemFacts::LastLease(
        "lease {\n  interface \"eth0\";\n  fixed-address 10.0.0.4;\n"
        "  option dhcp-server-identifier 10.0.0.1;\n  expire 6 2026/11/21 20:00:00;\n}\n"
        "lease {\n  interface \"eth0\";\n  fixed-address 10.0.0.5;\n"
        "  option dhcp-server-identifier 10.0.0.2;\n  expire 6 2026/11/21 20:55:01;\n}\n"
        "lease {\n  interface \"eth01\";\n  fixed-address 10.0.0.6;\n}\n"
        "lease {\n  interface \"eth0\";\n  fixed-address 10.0.0.7;\n",
        "eth0");

    QVERIFY(lease);
    QCOMPARE(lease->address, "10.0.0.5");
    QCOMPARE(lease->server, "10.0.0.2");
    QCOMPARE(lease->expires, QDateTime(QDate(2026, 11, 21), QTime(20, 55, 1), Qt::UTC));
}

void TestStatusReport::leaseEnds_data()
{
    QTest::addColumn<QByteArray>("expiry");
    QTest::addColumn<QDateTime>("expected");
    QTest::newRow("date") << QByteArray("6 2026/11/21 20:55:01;")
                          << QDateTime::fromSecsSinceEpoch(1795294501);
    QTest::newRow("seconds") << QByteArray("epoch 1795294501; # Sat Nov 21 21:55:01 2026")
                             << QDateTime::fromSecsSinceEpoch(1795294501);
    QTest::newRow("never") << QByteArray("never;") << QDateTime();
    QTest::newRow("rubbish") << QByteArray("6 9999999/99/99 99:99:99;") << QDateTime();
}

void TestStatusReport::leaseEnds()
{
    QFETCH(QByteArray, expiry);

    const auto lease =
        SystemFacts::LastLease("lease {\n  interface \"eth0\";\n  expire " + expiry + "\n}\n", "eth0");

    QVERIFY(lease);
    QTEST(lease->expires.isValid() ? lease->expires : QDateTime(), "expected");
}

void TestStatusReport::leaseMayBeMissing_data()
{
    QTest::addColumn<QByteArray>("leases");
    QTest::newRow("no file") << QByteArray();
    QTest::newRow("another interface") << QByteArray("lease {\n  interface \"eth1\";\n}\n");
    QTest::newRow("unfinished") << QByteArray("lease {\n  interface \"eth0\";\n");
}

void TestStatusReport::leaseMayBeMissing()
{
    QFETCH(QByteArray, leases);

    QVERIFY(!SystemFacts::LastLease(leases, "eth0"));
}

void TestStatusReport::nameServersAreRead()
{
    const QStringList expected{"10.0.0.1", "2001:db8::1"};

    QCOMPARE(SystemFacts::NameServers("# nameserver 1.1.1.1\nnameserver 10.0.0.1\nsearch example.org\n"
                                      "nameserver \nnameserver\t2001:db8::1 \n"),
             expected);
}

void TestStatusReport::supplicantIsRead()
{
    const SupplicantFacts facts = ParseSupplicant(
        "bssid=02:00:00:00:01:00\nfreq=2437\nssid=caf\\xc3\\xa9=1\nid=0\nwpa_state=COMPLETED\n"
        "Supplicant PAE state=AUTHENTICATED\nsuppPortStatus=Authorized\nEAP state=SUCCESS\n"
        "selectedMethod=25 (EAP-PEAP)\n",
        "RSSI=-61\nLINKSPEED=65\n");

    QCOMPARE(facts.state, "COMPLETED");
    QCOMPARE(facts.ssid, QString::fromUtf8("caf\xc3\xa9=1"));
    QCOMPARE(facts.bssid, "02:00:00:00:01:00");
    QCOMPARE(facts.eapState, "SUCCESS");
    QCOMPARE(facts.eapMethod, "EAP-PEAP");
    QCOMPARE(facts.signalDbm.value_or(0), -61);
    QVERIFY(!ParseSupplicant("wpa_state=SCANNING\n", "FAIL\n").signalDbm);
}

QTEST_GUILESS_MAIN(TestStatusReport)
#include "tst_statusreport.moc"
