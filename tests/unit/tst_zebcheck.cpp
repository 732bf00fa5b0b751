// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "parsedsection.h"
#include "zebcheck.h"

#include <QtTest>

namespace {

const QByteArray WIRED = "<name>lan</name>";
const QByteArray WIRELESS = "<name>Office</name><ssid>Office</ssid>";

void AddBadValueColumns()
{
    QTest::addColumn<QString>("property");
    QTest::addColumn<QByteArray>("value");
    QTest::addColumn<QString>("reason");
}

void AddBadValue(const char *property, const QByteArray &value, const char *reason)
{
    QTest::addRow("%s %.40s", property, value.constData()) << QString(property) << value << QString(reason);
}

} // namespace

/// Which values and networks the store takes, which it refuses, and what it says about them.
class TestZebCheck : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void unknownModeIsToldWithWhatFollows_data();
    void unknownModeIsToldWithWhatFollows();
    void goodValueIsKept_data();
    void goodValueIsKept();
    void badValueFallsBackToTheDefault_data();
    void badValueFallsBackToTheDefault();
    void badValueLeavesTheNetworkOut_data();
    void badValueLeavesTheNetworkOut();
    void lineBreakingTextIsRefusedEverywhere_data();
    void lineBreakingTextIsRefusedEverywhere();
    void textOfOneLineIsTaken_data();
    void textOfOneLineIsTaken();
    void commentInAQuotedTextLeavesTheNetworkOut_data();
    void commentInAQuotedTextLeavesTheNetworkOut();
    void commentInAnotherTextIsTaken_data();
    void commentInAnotherTextIsTaken();
    void badCipherFallsBackToTheDefault_data();
    void badCipherFallsBackToTheDefault();
    void missingPartLeavesTheNetworkOut_data();
    void missingPartLeavesTheNetworkOut();
    void completeNetworkIsKept_data();
    void completeNetworkIsKept();
    void everyProblemOfANetworkIsTold();
    void problemsShowNoSecret_data();
    void problemsShowNoSecret();
};

void TestZebCheck::unknownModeIsToldWithWhatFollows_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("consequence");
    QTest::newRow("wireless name") << "Office"
                                   << "the network counts as unsecured";
    QTest::newRow("wired name") << "lan 2"
                                << "the supplicant gets nothing";
    QTest::newRow("wired name with the interface") << "wiredeth0"
                                                   << "the supplicant gets nothing";
}

void TestZebCheck::unknownModeIsToldWithWhatFollows()
{
    QFETCH(QString, name);
    QFETCH(QString, consequence);

    const ParsedSection result("<c><network>" + Element("name", name.toUtf8()) +
                               "<ssid>Office</ssid><securityMode>WPA9</securityMode></network></c>");

    QCOMPARE(result.Texts(),
             QStringList{
                 QString("network \"%1\": securityMode: \"WPA9\" is not known; %2").arg(name, consequence)});
    QCOMPARE(result.document.networkNames, QStringList{name});
}

void TestZebCheck::goodValueIsKept_data()
{
    QTest::addColumn<QString>("property");
    QTest::addColumn<QByteArray>("value");
    const auto row = [](const char *property, const QByteArray &value) {
        QTest::addRow("%s %.40s", property, value.constData()) << QString(property) << value;
    };
    row("ssid", QByteArray(32, 'x'));
    row("ssid", " ");
    row("ssid", "a\"b");
    row("priority", "-1");
    row("priority", "1000000");
    for (const char *band : {"2.4", "2.4 GHz", "5", "5.0", "6", "6.0 GHz", "2.4 and 5.0"})
        row("band", band);
    row("bgScanShortInterval", "1");
    row("bgScanSignal", "-120");
    row("bgScanSignal", "0");
    row("bgScanLongInterval", "86400");
    row("wepKey", "\"abcde\"");
    row("wepKey", "\"ab\"de\"");
    row("wepKey", "\"abcdefghijklm\"");
    row("wepKey", "\"abcdefghijklmnop\"");
    row("wepKey", "P\"ab\\x41de\"");
    row("wepKey", "0123456789");
    row("wepKey", "ABCDEFabcdef01234567890123");
    row("wepKey", QByteArray(32, 'a'));
    row("identity", QByteArray(1024, 'x'));
    row("caCert", "/etc/../ca.pem");
    row("caCert", "office/ca.pem");
    row("caCert", "a..b");
    row("pacFile", "a b.pac");
    row("ipAddress", "1.0.0.0");
    row("ipAddress", "223.255.255.255");
    row("netmask", "255.255.255.255");
    row("netmask", "128.0.0.0");
    row("netmask", "255.255.254.0");
    row("dns1", "8.8.8.8");
    row("dns2", "2001:db8::1");
    row("domain", "a.example b-c.example d_e.example");
    row("mtu", "68");
    row("mtu", "65535");
    row("speed", "1000 Full");
}

void TestZebCheck::goodValueIsKept()
{
    QFETCH(QString, property);
    QFETCH(QByteArray, value);

    const ParsedSection result = ParsedNetwork(WIRED + Element(property, value));

    QCOMPARE(result.Texts(), QStringList());
    QCOMPARE(result.document.networks.value("lan").properties.value(property), QString::fromUtf8(value));
}

void TestZebCheck::badValueFallsBackToTheDefault_data()
{
    AddBadValueColumns();
    const auto row = AddBadValue;
    for (const char *flag : {"scanSsid", "useBgScan", "scep", "allowWeakCerts", "staticIp", "staticDns"}) {
        row(flag, "True", "\"True\" is neither true nor false");
        row(flag, "1", "\"1\" is neither true nor false");
    }
    for (const char *number : {"x", "1.5", "1000001", "-1000001", "99999999999", "+1", "01", " 1", "0x10"})
        row("priority", number, "is not a whole number from -1000000 to 1000000");
    row("bgScanShortInterval", "0", "is not a whole number from 1 to 86400");
    row("bgScanLongInterval", "86401", "is not a whole number from 1 to 86400");
    row("bgScanSignal", "1", "is not a whole number from -120 to 0");
    row("band", "5G", "\"5G\" is not a band");
    row("band", "60", "\"60\" is not a band");
    for (const char *fileName : {"a/b", "/etc/x", ".", ".."})
        row("pacFile", fileName, "is not a plain file name");
    row("dot1xFallback", "Fallback", "\"Fallback\" is not \"fallback\"");
    for (const char *address :
         {"10.0.0", "10.0.0.256", "10.0.0.5/24", "010.0.0.5", "10.0.0.5 ", "fe80::1", "0x0a000005", "host"}) {
        row("ipAddress", address, "is not a dotted IPv4 address");
        row("gateway", address, "is not a dotted IPv4 address");
    }
    for (const char *address : {"0.0.0.0", "0.1.2.3", "224.0.0.1", "255.255.255.255"})
        row("ipAddress", address, "is not the address of a host");
    for (const char *mask : {"24", "255.255.255", "/24"})
        row("netmask", mask, "is not a dotted IPv4 netmask");
    for (const char *mask : {"255.0.255.0", "0.0.0.0", "0.0.0.255", "255.255.255.1", "127.0.0.0"})
        row("netmask", mask, "is not a netmask");
    for (const char *server : {"dns.example", "0.0.0.0", "1.2.3", "fe80::1%eth0", "8.8.8.8 8.8.4.4"}) {
        row("dns1", server, "is not the address of a server");
        row("dns2", server, "is not the address of a server");
    }
    row("domain", "a/b", "is not one domain name");
    row("domain", "a;b", "is not one domain name");
    row("domain", "a~b", "is not one domain name");
    row("domain", "caf\xc3\xa9.example", "is not one domain name");
    for (const char *mtu : {"67", "65536", "-1500", "1500x", "01500", "auto", "1e3"})
        row("mtu", mtu, "is not a whole number from 68 to 65535");
    row("speed", QByteArray(1025, 'x'), "is longer than 1024 bytes");
}

void TestZebCheck::badValueFallsBackToTheDefault()
{
    QFETCH(QString, property);
    QFETCH(QByteArray, value);
    QFETCH(QString, reason);

    const ParsedSection result = ParsedNetwork(WIRED + Element(property, value));

    QCOMPARE(result.document.networkNames, QStringList{"lan"});
    QVERIFY(!result.document.networks.value("lan").properties.contains(property));
    QCOMPARE(result.problems.size(), 1);
    const QString problem = result.Texts().constFirst();
    QVERIFY2(problem.startsWith("network \"lan\": " + property + ": "), qPrintable(problem));
    QVERIFY2(problem.contains(reason), qPrintable(problem));
    QVERIFY2(problem.endsWith("; its default is used"), qPrintable(problem));
}

void TestZebCheck::badValueLeavesTheNetworkOut_data()
{
    AddBadValueColumns();
    const auto row = AddBadValue;
    row("ssid", QByteArray(33, 'x'), "has 33 bytes, the limit is 32");
    row("ssid", QByteArray("\xc3\xa9").repeated(17), "has 34 bytes, the limit is 32");
    for (const char *key : {"abcde", "\"abcd\"", "\"abcdef\"", "\"abcde", "abcde\"", "123456789",
                            "012345678g", "12 34567890", "\"abcdefghijklmnopq\"", "\"\"", "\"", "P\"abcd\"",
                            "p\"abcde\"", "P\"abcd\\q\"", "P\"abc\\q\"", "P\"abcd\\x4\"", "P\"abcd\\0\""})
        row("wepKey", key, "is not a WEP key");
    row("wepKey", "P\"ab\\\"#d\"", "holds a number sign after a quote, which begins a comment");
    row("caCert", "../ca.pem", "leads out of the certificate folders");
    row("clientCert", "a/../../ca.pem", "leads out of the certificate folders");
    row("privateKey", "..", "leads out of the certificate folders");
    row("identity", QByteArray(1025, 'x'), "is longer than 1024 bytes");
    row("password", QByteArray("\xc3\xa9").repeated(513), "is longer than 1024 bytes");
}

void TestZebCheck::badValueLeavesTheNetworkOut()
{
    QFETCH(QString, property);
    QFETCH(QByteArray, value);
    QFETCH(QString, reason);

    const ParsedSection result = ParsedNetwork(WIRED + Element(property, value));

    QCOMPARE(result.document.networkNames, QStringList());
    QCOMPARE(result.document.networks.size(), 0);
    QCOMPARE(result.problems.size(), 1);
    const QString problem = result.Texts().constFirst();
    QVERIFY2(problem.startsWith("network \"lan\": " + property + ": "), qPrintable(problem));
    QVERIFY2(problem.contains(reason), qPrintable(problem));
}

void TestZebCheck::lineBreakingTextIsRefusedEverywhere_data()
{
    QTest::addColumn<QString>("property");
    QTest::addColumn<QByteArray>("value");
    const QList<QPair<const char *, QByteArray>> bad = {{"line feed", "a\nb"},
                                                        {"tab", "a\tb"},
                                                        {"carriage return", "a&#13;b"},
                                                        {"delete", "a\x7f"
                                                                   "b"},
                                                        {"next line", "a\xc2\x85"
                                                                      "b"},
                                                        {"line separator", "a\xe2\x80\xa8"
                                                                           "b"},
                                                        {"paragraph separator", "a\xe2\x80\xa9"
                                                                                "b"}};
    for (const char *property : {"securityMode",
                                 "ssid",
                                 "band",
                                 "wepKey",
                                 "passphrase",
                                 "identity",
                                 "password",
                                 "caCert",
                                 "clientCert",
                                 "privateKey",
                                 "privateKeyPassword",
                                 "cipher",
                                 "pacFile",
                                 "dot1xFallback",
                                 "ipAddress",
                                 "domain",
                                 "speed",
                                 "mtu",
                                 "priority",
                                 "scanSsid"})
        for (const auto &entry : bad)
            QTest::addRow("%s in %s", entry.first, property) << QString(property) << entry.second;
}

void TestZebCheck::lineBreakingTextIsRefusedEverywhere()
{
    QFETCH(QString, property);
    QFETCH(QByteArray, value);

    const ParsedSection result = ParsedNetwork(WIRED + Element(property, value));

    QVERIFY2(result.isWellFormed, qPrintable(result.Texts().join('\n')));
    QVERIFY(!result.document.networks.value("lan").properties.contains(property));
    QCOMPARE(result.problems.size(), 1);
    QVERIFY(result.Texts().constFirst().contains(property + ": holds a control character or a line end"));
    QVERIFY(!result.Texts().constFirst().contains('\n'));
}

/// Those too that no XML can bring.
void TestZebCheck::textOfOneLineIsTaken_data()
{
    QTest::addColumn<QChar>("character");
    QTest::addColumn<bool>("isTaken");
    for (const uint code : {0x00U, 0x09U, 0x1fU, 0x7fU, 0x80U, 0x9fU, 0x2028U, 0x2029U, 0xd800U})
        QTest::addRow("%04x", code) << QChar(code) << false;
    for (const uint code : {0x20U, 0x7eU, 0xa0U, 0x2027U, 0x202aU})
        QTest::addRow("%04x", code) << QChar(code) << true;
}

void TestZebCheck::textOfOneLineIsTaken()
{
    QFETCH(QChar, character);

    QTEST(ZebCheck::TextProblem(QString("us") + character + "er").isEmpty(), "isTaken");
}

void TestZebCheck::commentInAQuotedTextLeavesTheNetworkOut_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<QByteArray>("mode");
    QTest::addColumn<QString>("property");
    const auto rows = [](const char *name, const char *mode, const QStringList &properties) {
        for (const QString &property : properties)
            QTest::addRow("%s of %s", qPrintable(property), mode)
                << QByteArray(name) << QByteArray(mode) << property;
    };
    const QStringList tls = {"identity", "caCert", "clientCert", "privateKey", "privateKeyPassword"};
    rows("Office", "Unsecured", {"ssid"});
    rows("Office", "no mode", {"ssid"});
    rows("Office", "WPA Personal 3", {"ssid", "passphrase"});
    rows("Office", "WPA Enterprise 1/2 (TLS)", tls);
    rows("Office", "eap_tls", {"identity"});
    rows("Office", "WPA Enterprise 1/2 (TLS with SCEP)", tls);
    rows("Office", "WPA Enterprise 1/2 (LEAP)", {"identity"});
    rows("Office", "WPA Enterprise 1/2 (EAP-FAST)", {"identity", "pacFile"});
    rows("Office", "WPA Enterprise 1/2 (PEAP/GTC)", {"identity"});
    rows("Office", "WPA Enterprise 1/2 (PEAP/MSCHAPv2)", {"identity", "caCert"});
    rows("lan", "802.1X (TLS/EAP)", tls);
    rows("lan", "802.1X (TLS/EAP with SCEP)", tls);
    rows("lan", "802.1X (PEAP/MSCHAPv2)", {"identity", "caCert"});
}

void TestZebCheck::commentInAQuotedTextLeavesTheNetworkOut()
{
    QFETCH(QByteArray, name);
    QFETCH(QByteArray, mode);
    QFETCH(QString, property);

    const ParsedSection result =
        ParsedNetwork(Element("name", name) + Element("securityMode", mode) + Element(property, "a\"#b") +
                      (property == "ssid" ? "" : "<ssid>Office</ssid>") +
                      (property == "passphrase" ? "" : "<passphrase>a passphrase</passphrase>"));

    QCOMPARE(result.document.networkNames, QStringList());
    QCOMPARE(result.Texts().constLast(), QString("network \"%1\": %2: holds a number sign after a quote, "
                                                 "which begins a comment; the network is left out")
                                             .arg(name, property));
}

void TestZebCheck::commentInAnotherTextIsTaken_data()
{
    QTest::addColumn<QByteArray>("elements");
    QTest::newRow("passphrase that is hashed")
        << WIRELESS + Element("securityMode", "WPA Personal 1/2") + Element("passphrase", "abcdefg\"#h");
    QTest::newRow("password that is hashed")
        << WIRELESS + Element("securityMode", "peap_gtc") + Element("password", "a\"#b");
    QTest::newRow("identity that is not read") << WIRELESS + Element("identity", "a\"#b");
    QTest::newRow("wired mode under a wireless name")
        << WIRELESS + Element("securityMode", "wired_peap") + Element("identity", "a\"#b");
    QTest::newRow("wireless mode under a wired name")
        << WIRED + Element("securityMode", "peap_gtc") + Element("identity", "a\"#b");
    QTest::newRow("SSID under a wired name") << WIRED + Element("ssid", "a\"#b");
    QTest::newRow("number sign alone")
        << WIRELESS + Element("securityMode", "peap_gtc") + Element("identity", "a#b");
}

void TestZebCheck::commentInAnotherTextIsTaken()
{
    completeNetworkIsKept();
}

void TestZebCheck::badCipherFallsBackToTheDefault_data()
{
    QTest::addColumn<QByteArray>("mode");
    QTest::addColumn<QByteArray>("cipher");
    for (const char *mode : {"eap_tls", "WPA Enterprise 1/2 (TLS with SCEP)", "eap_leap"})
        for (const char *cipher : {"automatic", "ccmp", "CCMP,TKIP", "CCMP AES", " "})
            QTest::addRow("%s of %s", cipher, mode) << QByteArray(mode) << QByteArray(cipher);
}

void TestZebCheck::badCipherFallsBackToTheDefault()
{
    QFETCH(QByteArray, mode);
    QFETCH(QByteArray, cipher);

    const ParsedSection result =
        ParsedNetwork(WIRELESS + Element("securityMode", mode) + Element("cipher", cipher));

    QCOMPARE(result.Texts(),
             QStringList{QString("network \"Office\": cipher: \"%1\" is not a list of CCMP, TKIP, GCMP, "
                                 "CCMP-256 and GCMP-256; its default is used")
                             .arg(cipher.constData())});
    QCOMPARE(result.document.networkNames, QStringList{"Office"});
    QVERIFY(!result.document.networks.value("Office").properties.contains("cipher"));
}

void TestZebCheck::missingPartLeavesTheNetworkOut_data()
{
    QTest::addColumn<QByteArray>("elements");
    QTest::addColumn<QString>("reason");
    QTest::newRow("open without ssid") << QByteArray("<name>Office</name>") << "ssid: is missing";
    for (const char *name : {"wired", "wiredet0", "Wiredeth0", "wlan", "la", "LAN"})
        QTest::addRow("%s without ssid", name) << Element("name", name) << "ssid: is missing";
    QTest::newRow("unknown mode without ssid")
        << QByteArray("<name>Office</name><securityMode>WPA9</securityMode>") << "ssid: is missing";
    QTest::newRow("personal without ssid")
        << QByteArray("<name>Office</name><securityMode>WPA Personal "
                      "1/2</securityMode><passphrase>12345678</passphrase>")
        << "ssid: is missing";
    QTest::newRow("mode key without ssid")
        << QByteArray("<name>Office</name><securityMode>eap_tls</securityMode>") << "ssid: is missing";
    for (const char *mode : {"WEP", "WEP (Shared)", "wep", "wep_shared"})
        QTest::addRow("%s without key", mode)
            << WIRELESS + Element("securityMode", mode) << "wepKey: is missing";
    for (const char *mode :
         {"WPA Personal 1/2", "WPA Personal 2/3", "WPA Personal 3", "wpa", "wpa2_3", "sae"})
        QTest::addRow("%s without passphrase", mode)
            << WIRELESS + Element("securityMode", mode) << "passphrase: is missing";
    for (const int size : {7, 64})
        QTest::addRow("passphrase of %d bytes", size)
            << WIRELESS + Element("securityMode", "WPA Personal 1/2") +
                   Element("passphrase", QByteArray(size, 'x'))
            << "passphrase: is not from 8 to 63 bytes long";
    const QByteArray fixed = WIRED + "<staticIp>true</staticIp>";
    const QString incomplete = "staticIp: stands without a valid ipAddress and netmask";
    QTest::newRow("static without address") << fixed + "<netmask>255.0.0.0</netmask>" << incomplete;
    QTest::newRow("static without netmask") << fixed + "<ipAddress>10.0.0.5</ipAddress>" << incomplete;
    QTest::newRow("static with a bad address")
        << fixed + "<ipAddress>10.0.0</ipAddress><netmask>255.0.0.0</netmask>" << incomplete;
    QTest::newRow("static with a bad netmask")
        << fixed + "<ipAddress>10.0.0.5</ipAddress><netmask>255.0.0.1</netmask>" << incomplete;
    QTest::newRow("wireless static without address") << WIRELESS + "<staticIp>true</staticIp>" << incomplete;
}

void TestZebCheck::missingPartLeavesTheNetworkOut()
{
    QFETCH(QByteArray, elements);
    QFETCH(QString, reason);

    const ParsedSection result = ParsedNetwork(elements);

    QCOMPARE(result.document.networkNames, QStringList());
    const QString problem = result.Texts().constLast();
    QVERIFY2(problem.contains("\": " + reason) && problem.endsWith("; the network is left out"),
             qPrintable(problem));
}

void TestZebCheck::completeNetworkIsKept_data()
{
    QTest::addColumn<QByteArray>("elements");
    QTest::newRow("wired, name alone") << WIRED;
    // Each mode, as stored and by its key, with what any of them needs.
    for (const char *mode : {"WEP",
                             "WEP (Shared)",
                             "WPA Personal 1/2",
                             "WPA Personal 3",
                             "WPA Personal 2/3",
                             "WPA Enterprise 1/2 (TLS)",
                             "WPA Enterprise 1/2 (TLS with SCEP)",
                             "WPA Enterprise 1/2 (LEAP)",
                             "WPA Enterprise 1/2 (EAP-FAST)",
                             "WPA Enterprise 1/2 (PEAP/GTC)",
                             "WPA Enterprise 1/2 (PEAP/MSCHAPv2)",
                             "802.1X (TLS/EAP)",
                             "802.1X (TLS/EAP with SCEP)",
                             "802.1X (PEAP/MSCHAPv2)",
                             "Unsecured",
                             "wep",
                             "wep_shared",
                             "wpa",
                             "sae",
                             "wpa2_3",
                             "eap_tls",
                             "eap_leap",
                             "eap_fast",
                             "peap_gtc",
                             "peap_mschapv2",
                             "wired_tls",
                             "wired_peap",
                             "unsecured"})
        QTest::addRow("mode %s", mode) << WIRELESS + Element("securityMode", mode) +
                                              Element("wepKey", "0123456789") +
                                              Element("passphrase", "12345678");
    QTest::newRow("wired by a longer name") << QByteArray("<name>landing</name>");
    QTest::newRow("wired for one interface") << QByteArray("<name>wiredeth0</name>");
    QTest::newRow("wired mode under a wireless name")
        << QByteArray("<name>Office</name><securityMode>802.1X (PEAP/MSCHAPv2)</securityMode>");
    QTest::newRow("wireless mode under a wired name") << WIRED + Element("securityMode", "WPA Personal 1/2");
    QTest::newRow("open") << WIRELESS;
    QTest::newRow("open by its mode") << WIRELESS + Element("securityMode", "Unsecured");
    for (const char *name : {"lan", "language school", "wiredeth", "wiredeth0"})
        QTest::addRow("%s without ssid", name) << Element("name", name);
    QTest::newRow("shortest passphrase")
        << WIRELESS + Element("securityMode", "WPA Personal 1/2") + Element("passphrase", "12345678");
    QTest::newRow("longest passphrase") << WIRELESS + Element("securityMode", "WPA Personal 2/3") +
                                               Element("passphrase", QByteArray(63, 'x'));
    QTest::newRow("passphrase counted in bytes")
        << WIRELESS + Element("securityMode", "wpa") +
               Element("passphrase", QByteArray("\xc3\xa9").repeated(4));
    QTest::newRow("short password of WPA3")
        << WIRELESS + Element("securityMode", "WPA Personal 3") + Element("passphrase", "x");
    QTest::newRow("enterprise without credentials")
        << WIRELESS + Element("securityMode", "WPA Enterprise 1/2 (PEAP/MSCHAPv2)");
    QTest::newRow("all ciphers") << WIRELESS + Element("securityMode", "WPA Enterprise 1/2 (TLS)") +
                                        Element("cipher", "CCMP TKIP GCMP CCMP-256 GCMP-256");
    QTest::newRow("provisioning word") << WIRELESS +
                                              Element("securityMode", "WPA Enterprise 1/2 (EAP-FAST)") +
                                              Element("cipher", "automatic");
    QTest::newRow("cipher unread by the mode") << WIRELESS + Element("cipher", "anything");
}

void TestZebCheck::completeNetworkIsKept()
{
    QFETCH(QByteArray, elements);

    const ParsedSection result = ParsedNetwork(elements);

    QCOMPARE(result.Texts(), QStringList());
    QCOMPARE(result.document.networks.size(), 1);
}

void TestZebCheck::everyProblemOfANetworkIsTold()
{
    const ParsedSection result = ParsedNetwork(
        Element("name", "Office") + Element("ssid", QByteArray(33, 'x')) + Element("caCert", "..") +
        Element("securityMode", "WPA Personal 1/2") + Element("mtu", "9") + Element("staticIp", "true"));

    QStringList properties;
    for (const ZebProblem &problem : result.problems)
        properties << problem.property;
    QCOMPARE(properties, (QStringList{"caCert", "mtu", "ssid", "staticIp", "passphrase"}));
}

void TestZebCheck::problemsShowNoSecret_data()
{
    QTest::addColumn<QByteArray>("elements");
    const QByteArray secret = "Sesame-7f3a9c";
    const QByteArray personal = WIRELESS + Element("securityMode", "WPA Personal 1/2");
    QTest::newRow("bad WEP key") << WIRELESS + Element("wepKey", secret);
    QTest::newRow("short passphrase") << personal + Element("passphrase", secret.left(7));
    QTest::newRow("long passphrase") << personal + Element("passphrase", secret.repeated(5));
    for (const char *property : {"wepKey", "passphrase", "password", "privateKeyPassword"})
        QTest::addRow("line end in %s", property) << WIRELESS + Element(property, secret + "\n");
    QTest::newRow("very long password") << WIRELESS + Element("password", secret.repeated(100));
    QTest::newRow("password twice") << WIRELESS + Element("password", secret) + Element("password", secret);
}

void TestZebCheck::problemsShowNoSecret()
{
    QFETCH(QByteArray, elements);

    const ParsedSection result = ParsedNetwork(elements);

    QVERIFY(!result.problems.isEmpty());
    QVERIFY(!result.Texts().join('\n').contains("Sesame"));
}

QTEST_GUILESS_MAIN(TestZebCheck)
#include "tst_zebcheck.moc"
