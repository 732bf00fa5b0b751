// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "reportworld.h"
#include "verdict.h"

#include <QtTest>

#include <functional>

namespace {

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

/// What corvi-status concludes from what it has read.
class TestVerdict : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void linkDecides_data();
    void linkDecides() { JudgesAsExpected(); }
    void authenticationDecides_data();
    void authenticationDecides() { JudgesAsExpected(); }
    void addressDecides_data();
    void addressDecides() { JudgesAsExpected(); }
    void withoutADaemonTheKernelDecides_data();
    void withoutADaemonTheKernelDecides();
    void missingProgramIsNamed_data();
    void missingProgramIsNamed();
    void definitionHasAReason_data();
    void definitionHasAReason();

private:
    static void AddColumns();
    static void JudgesAsExpected();
};

void TestVerdict::AddColumns()
{
    QTest::addColumn<QVariant>("report");
    QTest::addColumn<QString>("carrier");
    QTest::addColumn<QString>("code");
    QTest::addColumn<QString>("sentence");
}

void TestVerdict::JudgesAsExpected()
{
    QFETCH(QVariant, report);
    QFETCH(QString, carrier);
    const auto interface = report.value<InterfaceReport>();

    const Verdict verdict = Judge(interface, SystemWith(interface, carrier));

    QTEST(verdict.sentence, "sentence");
    QTEST(verdict.code, "code");
}

void TestVerdict::linkDecides_data()
{
    AddColumns();
    AddCase("port", "port", "a port of bond0", [](auto &i) { i.link.bond = "bond0"; });
    AddCase("new", "unmanaged", "not managed by Corvi", [](auto &i) { i.daemon.reset(); });
    AddCase("down", "link-down", "the link is down and is brought up again",
            [](auto &i) { i.link.isUp = false; });
    AddCase("radio off", "radio-off", "its radio is switched off by software", [](auto &i) {
        MakeWireless(i);
        i.link.isUp = false;
        i.link.radioBlock = "by software";
    });
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
    AddCase("modem without an address", "no-address", "no address: waiting for the modem to connect",
            [](auto &i) {
                i.link.addresses.clear();
                i.daemon->kind = "modem";
            });
    AddCase("modem that wants its PIN", "not-connected", "not connected: the SIM is locked: sim-pin",
            [](auto &i) {
                i.link.hasCarrier = false;
                i.daemon->kind = "modem";
                i.daemon->connectionFault = "the SIM is locked: sim-pin";
            });
    AddCase("modem given up that wants its PIN", "given-up",
            "not used until the next rescan: the SIM is locked: sim-pin", [](auto &i) {
                i.daemon->isInUse = false;
                i.daemon->kind = "modem";
                i.daemon->connectionFault = "the SIM is locked: sim-pin";
            });
    AddCase("modem given up", "given-up", "not used until the next rescan: its link did not come up",
            [](auto &i) {
                i.daemon->isInUse = false;
                i.daemon->kind = "modem";
            });
    const auto makeModem = [](InterfaceReport &i) {
        i.daemon->kind = "modem";
        i.link.addresses.clear();
    };
    AddCase(
        "modem that is down beside a cable", "standby", "not used while eth1 carries the traffic",
        [&](auto &i) {
            makeModem(i);
            i.link.isUp = false;
        },
        "eth1");
    AddCase("modem without an address beside a cable", "standby", "not used while eth1 carries the traffic",
            makeModem, "eth1");
    AddCase(
        "modem that wants its PIN beside a radio", "not-connected", "not connected: sim-pin",
        [&](auto &i) {
            makeModem(i);
            i.daemon->connectionFault = "sim-pin";
        },
        "wlan0");
    AddCase(
        "modem with an address beside a cable", "connected", "has an address, while eth1 carries the traffic",
        [](auto &i) { i.daemon->kind = "modem"; }, "eth1");
    AddCase(
        "radio beside a cable", "standby", "not used while eth0 carries the traffic",
        [](auto &i) {
            MakeWireless(i);
            i.link.radioBlock = "by software"; // For now nobody needs it.
            i.daemon->isInUse = false;
        },
        "eth0");
    AddCase("radio whose turn comes", "standby", "waiting for its turn after the wired interfaces",
            [](auto &i) {
                MakeWireless(i);
                i.daemon->isInUse = false;
            });
    AddCase("modem, which needs none", "connected", "connected", [](auto &i) {
        i.daemon->kind = "modem";
        i.daemon->isConnected = true;
        i.daemon->definitionCount = 0;
    });
    AddCase("modem that has lost its connection and kept its address", "not-connected",
            "not connected: waiting for the modem to connect", [](auto &i) { i.daemon->kind = "modem"; });
    AddCase("no definition", "no-definition", "the store defines no network for a wired interface",
            [](auto &i) { i.daemon->definitionCount = 0; });
}

void TestVerdict::authenticationDecides_data()
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
    // Which stays only where the definition has a fallback: the end of the wait asks for one anew.
    AddCase("waiting with an address", "authenticating",
            "waiting for authentication for 34 s, unsecured fallback at 60 s", [&](auto &i) {
                awaits(i);
                i.link.addresses = QStringList{"10.0.0.5/24"};
            });
    AddCase("no supplicant yet", "authenticating", "waiting for the supplicant to authenticate with",
            [&](auto &i) {
                awaits(i);
                i.daemon->authenticationSince.reset();
                i.daemon->fallbackSeconds = 1;
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
    AddCase("radio looks again", "no-network", "no carrier: looking for a network of the store", [](auto &i) {
        MakeWireless(i);
        i.supplicant = SupplicantFacts();
        i.supplicant->state = "DISCONNECTED";
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

void TestVerdict::addressDecides_data()
{
    AddColumns();
    const auto lacks = [](InterfaceReport &i) {
        i.link.addresses.clear();
    };
    AddCase("first attempt", "dhcp", "asking for an address by DHCP for 3 s", [&](auto &i) {
        lacks(i);
        i.daemon->dhcpSince = NOW_MS - 3000;
    });
    AddCase("half a second", "dhcp", "asking for an address by DHCP for 1 s", [&](auto &i) {
        lacks(i);
        i.daemon->dhcpSince = NOW_MS - 500;
    });
    AddCase("less than half a second", "dhcp", "asking for an address by DHCP for 0 s", [&](auto &i) {
        lacks(i);
        i.daemon->dhcpSince = NOW_MS - 499;
    });
    AddCase("many seconds", "dhcp", "asking for an address by DHCP for 1000 s", [&](auto &i) {
        lacks(i);
        i.daemon->dhcpSince = NOW_MS - 1000000;
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
    AddCase("a server refuses", "dhcp-refused",
            "3 attempts without an address: the DHCP server 10.0.0.1 refuses us, next in 41 s", [&](auto &i) {
                lacks(i);
                i.daemon->dhcpFailures = 3;
                i.daemon->dhcpRefuser = "10.0.0.1";
                i.daemon->nextDhcpStart = NOW_MS + 41000;
            });
    AddCase("asking the one that refused", "dhcp",
            "asking for an address by DHCP for 3 s, after 1 attempt without an address: the DHCP server "
            "10.0.0.1 refuses us",
            [&](auto &i) {
                lacks(i);
                i.daemon->dhcpSince = NOW_MS - 3000;
                i.daemon->dhcpFailures = 1;
                i.daemon->dhcpRefuser = "10.0.0.1";
            });
    AddCase("a server only offers", "dhcp-offer-only",
            "3 attempts without an address: the DHCP server 10.0.0.1 offers one and gives none, next in 41 s",
            [&](auto &i) {
                lacks(i);
                i.daemon->dhcpFailures = 3;
                i.daemon->dhcpOfferer = "10.0.0.1";
                i.daemon->nextDhcpStart = NOW_MS + 41000;
            });
    AddCase("asking the one that only offered", "dhcp",
            "asking for an address by DHCP for 3 s, after 1 attempt without an address: the DHCP server "
            "10.0.0.1 offers one and gives none",
            [&](auto &i) {
                lacks(i);
                i.daemon->dhcpSince = NOW_MS - 3000;
                i.daemon->dhcpFailures = 1;
                i.daemon->dhcpOfferer = "10.0.0.1";
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
    AddCase("another host has the address", "duplicate-address",
            "has an address that another host has, too: 02:00:00:00:AA:01",
            [](auto &i) { i.daemon->addressHolder = "02:00:00:00:AA:01"; });
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
    AddCase(
        "gateway is the device itself", "no-gateway",
        "has an address, but its default route by 10.0.0.5 leads to no other host: that is its own address",
        [](auto &i) {
            i.link.gateway.clear();
            i.daemon->gateway = "10.0.0.5";
        },
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

void TestVerdict::withoutADaemonTheKernelDecides_data()
{
    AddColumns();
    AddCase("radio off", "radio-off", "its radio is switched off by a switch", [](auto &i) {
        i.link.isUp = false;
        i.link.radioBlock = "by a switch";
    });
    AddCase("down", "link-down", "the link is down", [](auto &i) { i.link.isUp = false; });
    AddCase("no carrier", "no-carrier", "no carrier", [](auto &i) { i.link.hasCarrier = false; });
    AddCase("no address", "no-address", "no address", [](auto &i) { i.link.addresses.clear(); });
    AddCase("address", "has-address", "has an address", [](auto &) {});
}

void TestVerdict::withoutADaemonTheKernelDecides()
{
    QFETCH(QVariant, report);
    const auto interface = report.value<InterfaceReport>();
    SystemReport system = SystemWith(interface);
    system.daemon.outcome = ServiceStateReading::Outcome::Stale;

    const Verdict verdict = Judge(interface, system);

    QTEST(verdict.sentence, "sentence");
    QTEST(verdict.code, "code");
}

void TestVerdict::missingProgramIsNamed_data()
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

void TestVerdict::missingProgramIsNamed()
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

void TestVerdict::definitionHasAReason_data()
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

void TestVerdict::definitionHasAReason()
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

QTEST_GUILESS_MAIN(TestVerdict)
#include "tst_verdict.moc"
