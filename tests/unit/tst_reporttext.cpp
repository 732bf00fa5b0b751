// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "reporttext.h"
#include "reportworld.h"
#include "supplicantfacts.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QtTest>

#include <functional>

using Change = std::function<void(SystemReport &)>;

Q_DECLARE_METATYPE(Change)

/// How what corvi-status concludes looks, to people and to programs.
class TestReportText : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();

    void looksAsDocumented();
    void programsThatDoNotWorkAreListed();
    void ipv6AddressesAreShown();
    void bridgeIsNamedOne();
    void rowsOfALinkThatIsDown();
    void rowSaysWhatIsKnown_data();
    void rowSaysWhatIsKnown();
    void rowWithoutAValueIsLeftOut();
    void modemHasNoRowForADefinition();
    void noLineIsLongerThanATerminal();
    void longRowsGoOnBelowTheirValue();
    void noNameMovesTheCursor();
    void coloursAreForTerminals();
    void coloursFollowTheState_data();
    void coloursFollowTheState();
    void firstLineSaysWhetherTheDaemonRuns_data();
    void firstLineSaysWhetherTheDaemonRuns();
    void firstLineSaysWhatKeepsTheDaemonFromWorking();
    void textIsWrapped_data();
    void textIsWrapped();
    void programsGetEverything();
    void programsGetOnlyWhatIsKnown();
};

void TestReportText::initTestCase()
{
    // Where no time looks the same as in UTC.
    qputenv("TZ", "EAST-2");
}

void TestReportText::looksAsDocumented()
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

void TestReportText::programsThatDoNotWorkAreListed()
{
    SystemReport system = SystemWith(Connected());
    system.daemon.state.toolFaults = QStringList{"ip crashed"};

    const QString text = ReportText::ForPerson(system, false);

    QVERIFY(text.startsWith("Corvi runs (process 17).\nA program that it needs does not work: ip crashed\n"));
    QCOMPARE(ReportText::ForProgram(system).value("toolFaults").toArray(), QJsonArray{"ip crashed"});
}

void TestReportText::ipv6AddressesAreShown()
{
    InterfaceReport interface = Connected();
    interface.link.ipv6Addresses = QStringList{"2001:db8::5/64"};
    QVERIFY(ReportText::ForPerson(SystemWith(interface), false)
                .contains("  Address:      10.0.0.5/24, 2001:db8::5/64\n"));

    interface.link.addresses.clear();
    QVERIFY(ReportText::ForPerson(SystemWith(interface), false).contains("  Address:      2001:db8::5/64\n"));
}

void TestReportText::bridgeIsNamedOne()
{
    InterfaceReport interface = Connected();
    interface.link.virtualKind = "bridge";
    QVERIFY(ReportText::ForPerson(SystemWith(interface), false)
                .contains("\neth0: wired (bridge), carries the traffic\n"));
}

void TestReportText::rowsOfALinkThatIsDown()
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

void TestReportText::rowSaysWhatIsKnown_data()
{
    QTest::addColumn<Change>("change");
    QTest::addColumn<QString>("row");
    const auto row = [](const char *name, const char *expected, const Change &change) {
        QTest::newRow(name) << change << QString(expected);
    };
    const auto supplicant = [&row](const char *name, const char *expected, const SupplicantFacts &facts) {
        row(name, expected, [facts](SystemReport &system) { system.interfaces[0].supplicant = facts; });
    };
    row("no speed", "  Link:         up, carrier, 02:00:5E:10:00:01\n",
        [](SystemReport &system) { system.interfaces[0].link.speedMbits = 0; });
    row("lowest speed", "  Link:         up, carrier, 1 Mbit/s, 02:00:5E:10:00:01\n",
        [](SystemReport &system) { system.interfaces[0].link.speedMbits = 1; });
    row("no MAC address", "  Link:         up, carrier, 1000 Mbit/s\n",
        [](SystemReport &system) { system.interfaces[0].link.macAddress.clear(); });
    row("no address", "  Address:      none\n",
        [](SystemReport &system) { system.interfaces[0].link.addresses.clear(); });
    row("no name server", "  Resolver:     none\n", [](SystemReport &system) { system.resolver.clear(); });
    row("no server of the lease", "  Lease:        from none, without an end\n",
        [](SystemReport &system) { system.interfaces[0].lease = LeaseFacts(); });
    row("no definition", "  Definition:   none\n",
        [](SystemReport &system) { system.interfaces[0].daemon->definition.clear(); });
    row("no daemon's word", "\neth0: wired, carries the traffic\n",
        [](SystemReport &system) { system.interfaces[0].daemon.reset(); });
    supplicant("supplicant that does not answer", "  Supplicant:   it is slow\n",
               {"it is slow", "COMPLETED", "Office", {}, {}, {}, {}});
    supplicant("state of the supplicant alone", "  Supplicant:   SCANNING\n",
               {{}, "SCANNING", {}, {}, {}, {}, {}});
    supplicant("supplicant before its method", "  Supplicant:   ASSOCIATED, EAP IDLE\n",
               {{}, "ASSOCIATED", {}, {}, "IDLE", {}, {}});
}

void TestReportText::rowSaysWhatIsKnown()
{
    QFETCH(Change, change);
    QFETCH(QString, row);
    SystemReport system = SystemWith(Connected());
    change(system);

    const QString text = ReportText::ForPerson(system, false);

    QVERIFY2(text.contains(row), qPrintable(text));
}

void TestReportText::rowWithoutAValueIsLeftOut()
{
    InterfaceReport interface = Connected();
    interface.link.gateway.clear();
    interface.isCarrier = false;

    QCOMPARE(ReportText::ForPerson(SystemWith(interface, "eth1"), false),
             QString("Corvi runs (process 17).\n"
                     "\n"
                     "eth0: wired\n"
                     "  State:        has an address, while eth1 carries the traffic\n"
                     "  Link:         up, carrier, 1000 Mbit/s, 02:00:5E:10:00:01\n"
                     "  Address:      10.0.0.5/24\n"
                     "  Definition:   lan: the only one for a wired interface\n"));
}

void TestReportText::modemHasNoRowForADefinition()
{
    InterfaceReport interface = Connected();
    interface.daemon->kind = "modem";
    interface.daemon->definition.clear();

    QVERIFY(!ReportText::ForPerson(SystemWith(interface), false).contains("Definition:"));
}

void TestReportText::noLineIsLongerThanATerminal()
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

void TestReportText::longRowsGoOnBelowTheirValue()
{
    InterfaceReport interface = Connected();
    interface.link.gateway = QString(64, 'a') + " b";

    const QString text = ReportText::ForPerson(SystemWith(interface), false);

    QVERIFY2(text.contains("\n  Gateway:      " + QString(64, 'a') + "\n" + QString(16, ' ') + "b\n"),
             qPrintable(text));
}

void TestReportText::noNameMovesTheCursor()
{
    InterfaceReport interface = Connected();
    interface.supplicant = ParseSupplicant("wpa_state=COMPLETED\nssid=a\\x1b[2Jb\\xe2\\x80\\xaec\n", "");

    const QString text = ReportText::ForPerson(SystemWith(interface), false);

    QVERIFY(!text.contains('\033'));
    QVERIFY(!text.contains(QChar(0x202e)));
    QVERIFY(text.contains("[2Jb"));
}

void TestReportText::coloursAreForTerminals()
{
    const SystemReport report = SystemWith(Connected());

    const QString coloured = ReportText::ForPerson(report, true);

    QVERIFY(coloured.contains("  State:        \033[32mconnected\033[0m\n"));
    QVERIFY(!ReportText::ForPerson(report, false).contains('\033'));
}

void TestReportText::coloursFollowTheState_data()
{
    QTest::addColumn<Change>("change");
    QTest::addColumn<QString>("painted");
    const auto row = [](const char *name, const char *painted, const Change &change) {
        QTest::newRow(name) << change << QString(painted);
    };
    row("name", "\033[1meth0: wired, carries the traffic\033[0m\n", [](SystemReport &) {});
    row("waiting", "State:        \033[33mno carrier\033[0m\n",
        [](SystemReport &system) { system.interfaces[0].link.hasCarrier = false; });
    row("fault", "State:        \033[31mno DHCP server answered 1 attempt\033[0m\n",
        [](SystemReport &system) {
            system.interfaces[0].link.addresses.clear();
            system.interfaces[0].daemon->dhcpFailures = 1;
        });
    row("program", "\033[31mA program that it needs does not work: ip crashed\033[0m\n",
        [](SystemReport &system) { system.daemon.state.toolFaults = QStringList{"ip crashed"}; });
    row("daemon that works", "Corvi runs (process 17).\n", [](SystemReport &) {});
    row("daemon that does not run",
        "\033[31mCorvi does not run. What follows is what the system itself says.\033[0m\n",
        [](SystemReport &system) { system.daemon.outcome = ServiceStateReading::Outcome::Stale; });
    row("other values", "\n  Gateway:      10.0.0.1\n", [](SystemReport &) {});
}

void TestReportText::coloursFollowTheState()
{
    QFETCH(Change, change);
    QFETCH(QString, painted);
    SystemReport system = SystemWith(Connected());
    change(system);

    const QString text = ReportText::ForPerson(system, true);

    QVERIFY2(text.contains(painted), qPrintable(text));
}

void TestReportText::firstLineSaysWhetherTheDaemonRuns_data()
{
    using State = ServiceStateReading::Outcome;
    using Segment = StatusReading::Outcome;
    QTest::addColumn<int>("state");
    QTest::addColumn<int>("segment");
    QTest::addColumn<QString>("start");
    QTest::newRow("runs") << int(State::Read) << int(Segment::NoDaemon) << "Corvi runs (process 17).";
    QTest::newRow("ended") << int(State::Stale) << int(Segment::Published) << "Corvi does not run.";
    QTest::newRow("nothing there") << int(State::Absent) << int(Segment::NoDaemon) << "Corvi does not run.";
    QTest::newRow("no folder") << int(State::Absent) << int(Segment::NotYet)
                               << "Corvi runs, but what it waits for is not known: "
                                  "/run/corvi/state.json cannot be read "
                                  "(there is no such file).";
    QTest::newRow("no rights") << int(State::Absent) << int(Segment::Unreadable)
                               << "Whether Corvi runs is not known: /run/corvi/state.json cannot be read "
                                  "(there is no such file), nor can its status (no permission).";
}

void TestReportText::firstLineSaysWhetherTheDaemonRuns()
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

void TestReportText::firstLineSaysWhatKeepsTheDaemonFromWorking()
{
    SystemReport report = SystemWith(Connected());
    report.daemon.silentSeconds = 60;
    QVERIFY(ReportText::ForPerson(report, false).startsWith("Corvi runs (process 17).\n"));
    QVERIFY(ReportText::ForProgram(report).value("daemonWell").toBool());

    const auto firstLine = [&report] {
        return ReportText::ForPerson(report, false).section("\n\n", 0, 0).replace('\n', ' ');
    };
    report.daemon.silentSeconds = 61;
    QCOMPARE(firstLine(),
             "Corvi hangs (process 17): it, or a program that it waits for, has not come to an end "
             "for 61 s. What follows may be out of date.");
    QVERIFY(!ReportText::ForProgram(report).value("daemonWell").toBool());

    report.daemon.isStopped = true;
    QCOMPARE(firstLine(),
             "Corvi is stopped (process 17) and does nothing until it is sent SIGCONT. What follows "
             "may be out of date.");
    QVERIFY(!ReportText::ForProgram(report).value("daemonWell").toBool());
}

void TestReportText::textIsWrapped_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QStringList>("lines");
    QTest::newRow("empty") << "" << QStringList{""};
    QTest::newRow("fits") << "one two" << QStringList{"one two"};
    QTest::newRow("too long") << "one two three" << QStringList{"one two", "three"};
    QTest::newRow("long word") << "a 123456789" << QStringList{"a", "1234567", "89"};
    QTest::newRow("long word first") << "123456789 a" << QStringList{"1234567", "89 a"};
    QTest::newRow("exact word alone") << "1234567" << QStringList{"1234567"};
    QTest::newRow("exact word") << "1234567 a" << QStringList{"1234567", "a"};
}

void TestReportText::textIsWrapped()
{
    QFETCH(QString, text);

    QTEST(ReportText::Wrapped(text, 7), "lines");
}

void TestReportText::programsGetEverything()
{
    InterfaceReport interface = Connected();
    interface.link.virtualKind = "bridge";
    interface.link.ipv6Addresses = QStringList{"2001:db8::5/64"};
    interface.lease =
        LeaseFacts{"10.0.0.5", "10.0.0.1", QDateTime(QDate(2026, 11, 21), QTime(20, 55), Qt::UTC)};
    interface.supplicant =
        SupplicantFacts{"it is slow", "COMPLETED", "Office", "02:00:00:00:01:00", "SUCCESS", "PEAP", -61};
    interface.daemon->dhcpFailures = 2;
    interface.daemon->dhcpRefuser = "10.0.0.2";
    interface.daemon->dhcpOfferer = "10.0.0.3";
    interface.daemon->isStatic = true;
    interface.daemon->lastFailure = "EAP authentication failed";
    interface.daemon->failureSince = 1795294501;
    SystemReport system = SystemWith(interface);
    system.daemon.state.toolFaults = QStringList{"ip crashed"};

    const QJsonObject report = ReportText::ForProgram(system);

    const QByteArray expected = R"({
        "daemon": "Corvi runs (process 17).", "daemonKnown": true, "daemonWell": true,
        "toolFaults": ["ip crashed"], "resolver": ["10.0.0.1", "2001:db8::1"],
        "interfaces": [{
            "name": "eth0", "kind": "wired", "virtualKind": "bridge", "carriesTraffic": true,
            "state": "connected", "waitsFor": "connected",
            "link": {"up": true, "carrier": true, "speedMbits": 1000, "macAddress": "02:00:5E:10:00:01"},
            "addresses": ["10.0.0.5/24"], "ipv6Addresses": ["2001:db8::5/64"], "gateway": "10.0.0.1",
            "resolver": ["10.0.0.1", "2001:db8::1"],
            "lease": {"server": "10.0.0.1", "address": "10.0.0.5", "expires": "2026-11-21T20:55:00Z"},
            "supplicant": {"problem": "it is slow", "state": "COMPLETED", "ssid": "Office",
                           "bssid": "02:00:00:00:01:00", "eapState": "SUCCESS", "eapMethod": "PEAP",
                           "signalDbm": -61},
            "definition": {"name": "lan", "reason": "the only one for a wired interface",
                           "staticAddress": true},
            "dhcpFailures": 2, "dhcpRefuser": "10.0.0.2", "dhcpOfferer": "10.0.0.3",
            "lastFailure": {"reason": "EAP authentication failed", "since": "2026-11-21T20:55:01Z"}}]})";
    QCOMPARE(QJsonDocument(report).toJson(), QJsonDocument::fromJson(expected).toJson());
}

void TestReportText::programsGetOnlyWhatIsKnown()
{
    InterfaceReport interface;
    interface.link.name = "wlan0";
    interface.link.isWireless = true;
    interface.supplicant = SupplicantFacts();

    const QJsonObject wlan0 =
        ReportText::ForProgram(SystemWith(interface)).value("interfaces").toArray().first().toObject();

    QCOMPARE(wlan0.value("kind").toString(), "wireless");
    QVERIFY(!wlan0.value("supplicant").toObject().contains("signalDbm"));
    for (const char *key :
         {"resolver", "lease", "definition", "dhcpFailures", "dhcpRefuser", "dhcpOfferer", "lastFailure"})
        QVERIFY2(!wlan0.contains(QLatin1String(key)), key);

    const QJsonObject eth0 =
        ReportText::ForProgram(SystemWith(Connected())).value("interfaces").toArray().first().toObject();
    for (const char *key : {"dhcpRefuser", "dhcpOfferer", "lastFailure"})
        QVERIFY2(!eth0.contains(QLatin1String(key)), key);
}

QTEST_GUILESS_MAIN(TestReportText)
#include "tst_reporttext.moc"
