// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "zebdocument.h"

#include <QtTest>

namespace {

const QByteArray WIRED = "<name>lan</name>";
const QByteArray WIRELESS = "<name>Office</name><ssid>Office</ssid>";

struct Result
{
    bool isWellFormed = false;
    ZebDocument document;
    QStringList problems;
    QString error;
};

Result Parse(const QByteArray &xml)
{
    Result result;
    result.isWellFormed = result.document.Parse(xml, result.problems, result.error);
    return result;
}

Result ParseNetwork(const QByteArray &elements)
{
    return Parse("<networkconfig><network>" + elements + "</network></networkconfig>");
}

QByteArray Element(const QString &property, const QByteArray &value)
{
    const QByteArray name = property.toUtf8();
    return "<" + name + ">" + value + "</" + name + ">";
}

} // namespace

/// What the store takes, what it refuses, and what it says about it.
class TestZebDocument : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void malformedTextIsRefused_data();
    void malformedTextIsRefused();
    void longDocumentIsTaken();
    void rootMayHaveAnyName();
    void fewOddElementsAreLeftOut_data();
    void fewOddElementsAreLeftOut();
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
    void badHostIsLeftOut();
    void badSettingIsLeftOut();
    void otherNetworksStay();
    void problemsShowNoSecret_data();
    void problemsShowNoSecret();
};

void TestZebDocument::malformedTextIsRefused_data()
{
    QTest::addColumn<QByteArray>("xml");
    QTest::addColumn<QString>("reason");
    QTest::newRow("empty") << QByteArray() << "line 1, column 0: Premature end";
    QTest::newRow("not XML") << QByteArray("lan = dhcp\n") << "line 1, column 1: Start tag expected";
    QTest::newRow("cut in a tag") << QByteArray("<c>\n<network><na") << "line 2, column 12: Premature end";
    QTest::newRow("cut after a network")
        << QByteArray("<c>\n<network></network>\n") << "line 3, column 0: Premature end";
    QTest::newRow("tags crossed") << QByteArray("<c><a><b></a></b></c>")
                                  << "line 1, column 13: Opening and ending tag";
    QTest::newRow("second root") << QByteArray("<c></c>\n<d></d>") << "line 2, column 3: Extra content";
    QTest::newRow("text after the root") << QByteArray("<c></c>x") << "line 1, column 8: Extra content";
    QTest::newRow("not UTF-8") << QByteArray("<c><a>\xff\xfe</a></c>") << "incorrectly encoded";
    QTest::newRow("binary zeros") << QByteArray(100, '\0') << "line 1";
    QTest::newRow("unknown entity") << QByteArray("<c><a>&secret;</a></c>") << "Entity 'secret' not declared";
    QTest::newRow("control character") << QByteArray("<c><a>&#1;</a></c>") << "line 1, column";
    QTest::newRow("entity bomb")
        << QByteArray(
               "<!DOCTYPE c [<!ENTITY a \"xxxxxxxxxx\"><!ENTITY b \"&a;&a;&a;&a;\">]><c><a>&b;</a></c>")
        << "document type definition is not accepted";
    QTest::newRow("external entity")
        << QByteArray("<!DOCTYPE c [<!ENTITY a SYSTEM \"file:///etc/passwd\">]><c><a>&a;</a></c>")
        << "document type definition is not accepted";
    QTest::newRow("tag with very many attributes") << "<c" + QByteArray(" a=''").repeated(4000) + "/>"
                                                   << "a tag or a text is longer than 16 KiB";
    QTest::newRow("tag with ends of tags in its attributes")
        << "<c" + QByteArray(" a='>'").repeated(4000) + "/>"
        << "a tag or a text is longer than 16 KiB";
    QTest::newRow("very long text") << "<c><a>" + QByteArray(17000, 'x') + "</a></c>"
                                    << "a tag or a text is longer than 16 KiB";
    QTest::newRow("nothing but text") << QByteArray(17000, 'x') << "a tag or a text is longer than 16 KiB";
    QTest::newRow("plain document type")
        << QByteArray("<!DOCTYPE c>\n<c></c>") << "document type definition is not accepted";
}

void TestZebDocument::malformedTextIsRefused()
{
    QFETCH(QByteArray, xml);
    QFETCH(QString, reason);

    const Result result = Parse(xml);

    QVERIFY(!result.isWellFormed);
    QVERIFY2(result.error.contains(reason), qPrintable(result.error));
}

void TestZebDocument::longDocumentIsTaken()
{
    const Result result = Parse("<c><!--" + QByteArray(15000, ' ') + "-->" +
                                QByteArray("<a>1</a>\n").repeated(100000) + "</c>");

    QVERIFY2(result.isWellFormed, qPrintable(result.error));
    QCOMPARE(result.document.settings.value("a"), "1");
}

void TestZebDocument::rootMayHaveAnyName()
{
    const Result result = Parse("<?xml version=\"1.0\"?><!-- note --><anything version='1'>"
                                "<useNewDriver>true</useNewDriver></anything>");

    QVERIFY(result.isWellFormed);
    QCOMPARE(result.problems, QStringList());
    QCOMPARE(result.document.settings.value("useNewDriver"), "true");
}

void TestZebDocument::fewOddElementsAreLeftOut_data()
{
    QTest::addColumn<QByteArray>("xml");
    QTest::addColumn<QString>("problem");
    const QByteArray good = "<network><name>lan</name><mtu>1400</mtu></network>";
    QTest::newRow("network without a name") << good + "\n<network><mtu>1300</mtu></network>"
                                            << "the network in line 2 is left out: its name is empty";
    QTest::newRow("name with a line end")
        << good + "<network><name>a\nb</name></network>"
        << "the network in line 1 is left out: its name holds a control character or a line end";
    QTest::newRow("name taken") << good + "<network><name>lan</name><mtu>1300</mtu></network>"
                                << "network \"lan\": left out: the name is taken by an earlier network";
    QTest::newRow("setting twice") << good + "<a>1</a><a>2</a>"
                                   << "a: stands there again, the first one holds";
    QTest::newRow("setting with elements") << good + "<b><c>2</c></b><a>1</a>"
                                           << "b: has elements inside, not used";
    QTest::newRow("property twice")
        << QByteArray("<network><name>lan</name><mtu>1400</mtu><mtu>1300</mtu></network>")
        << "network \"lan\": mtu: stands there again, the first one holds";
    QTest::newRow("property with elements")
        << QByteArray("<network><name>lan</name><dns1><ip>1.1.1.1</ip></dns1><mtu>1400</mtu></network>")
        << "network \"lan\": dns1: has elements inside, not used";
    QTest::newRow("unknown property")
        << QByteArray("<network><name>lan</name><MTU>9</MTU><mtu>1400</mtu></network>")
        << "network \"lan\": MTU: no such property; not used";
    QTest::newRow("not a host")
        << QByteArray("<network><name>lan</name><hosts><ip>1</ip></hosts><mtu>1400</mtu></network>")
        << "network \"lan\": hosts: an element that is not a plain host is not used";
}

void TestZebDocument::fewOddElementsAreLeftOut()
{
    QFETCH(QByteArray, xml);
    QFETCH(QString, problem);

    const Result result = Parse("<c>" + xml + "</c>");

    QVERIFY2(result.isWellFormed, qPrintable(result.error));
    QCOMPARE(result.problems, QStringList{problem});
    QCOMPARE(result.document.networkNames, QStringList{"lan"});
    QCOMPARE(result.document.networks.value("lan").properties.value("mtu"), "1400");
}

void TestZebDocument::unknownModeIsToldWithWhatFollows_data()
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

void TestZebDocument::unknownModeIsToldWithWhatFollows()
{
    QFETCH(QString, name);
    QFETCH(QString, consequence);

    const Result result = Parse("<c><network>" + Element("name", name.toUtf8()) +
                                "<ssid>Office</ssid><securityMode>WPA9</securityMode></network></c>");

    QCOMPARE(result.problems,
             QStringList{
                 QString("network \"%1\": securityMode: \"WPA9\" is not known, %2").arg(name, consequence)});
    QCOMPARE(result.document.networkNames, QStringList{name});
}

void TestZebDocument::goodValueIsKept_data()
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

void TestZebDocument::goodValueIsKept()
{
    QFETCH(QString, property);
    QFETCH(QByteArray, value);

    const Result result = ParseNetwork(WIRED + Element(property, value));

    QCOMPARE(result.problems, QStringList());
    QCOMPARE(result.document.networks.value("lan").properties.value(property), QString::fromUtf8(value));
}

void TestZebDocument::badValueFallsBackToTheDefault_data()
{
    QTest::addColumn<QString>("property");
    QTest::addColumn<QByteArray>("value");
    QTest::addColumn<QString>("reason");
    const auto row = [](const char *property, const QByteArray &value, const char *reason) {
        QTest::addRow("%s %.40s", property, value.constData())
            << QString(property) << value << QString(reason);
    };
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
    row("domain", "caf\xc3\xa9.example", "is not one domain name");
    for (const char *mtu : {"67", "65536", "-1500", "1500x", "01500", "auto", "1e3"})
        row("mtu", mtu, "is not a whole number from 68 to 65535");
    row("speed", QByteArray(1025, 'x'), "is longer than 1024 bytes");
}

void TestZebDocument::badValueFallsBackToTheDefault()
{
    QFETCH(QString, property);
    QFETCH(QByteArray, value);
    QFETCH(QString, reason);

    const Result result = ParseNetwork(WIRED + Element(property, value));

    QCOMPARE(result.document.networkNames, QStringList{"lan"});
    QVERIFY(!result.document.networks.value("lan").properties.contains(property));
    QCOMPARE(result.problems.size(), 1);
    const QString problem = result.problems.constFirst();
    QVERIFY2(problem.startsWith("network \"lan\": " + property + ": "), qPrintable(problem));
    QVERIFY2(problem.contains(reason), qPrintable(problem));
    QVERIFY2(problem.endsWith("; its default is used"), qPrintable(problem));
}

void TestZebDocument::badValueLeavesTheNetworkOut_data()
{
    QTest::addColumn<QString>("property");
    QTest::addColumn<QByteArray>("value");
    QTest::addColumn<QString>("reason");
    const auto row = [](const char *property, const QByteArray &value, const char *reason) {
        QTest::addRow("%s %.40s", property, value.constData())
            << QString(property) << value << QString(reason);
    };
    row("ssid", QByteArray(33, 'x'), "has 33 bytes, the limit is 32");
    row("ssid", QByteArray("\xc3\xa9").repeated(17), "has 34 bytes, the limit is 32");
    for (const char *key :
         {"abcde", "\"abcd\"", "\"abcdef\"", "\"abcde", "abcde\"", "123456789", "012345678g", "12 34567890",
          "\"abcdefghijklmnopq\"", "\"\"", "\"", "P\"abcd\"", "p\"abcde\"", "P\"abcd\\q\""})
        row("wepKey", key, "is not a WEP key");
    row("wepKey", "P\"ab\\\"#d\"", "holds a number sign after a quote, which begins a comment");
    row("caCert", "../ca.pem", "leads out of the certificate folders");
    row("clientCert", "a/../../ca.pem", "leads out of the certificate folders");
    row("privateKey", "..", "leads out of the certificate folders");
    row("identity", QByteArray(1025, 'x'), "is longer than 1024 bytes");
    row("password", QByteArray("\xc3\xa9").repeated(513), "is longer than 1024 bytes");
}

void TestZebDocument::badValueLeavesTheNetworkOut()
{
    QFETCH(QString, property);
    QFETCH(QByteArray, value);
    QFETCH(QString, reason);

    const Result result = ParseNetwork(WIRED + Element(property, value));

    QCOMPARE(result.document.networkNames, QStringList());
    QCOMPARE(result.document.networks.size(), 0);
    QCOMPARE(result.problems.size(), 1);
    const QString problem = result.problems.constFirst();
    QVERIFY2(problem.startsWith("network \"lan\": left out: " + property + ": "), qPrintable(problem));
    QVERIFY2(problem.contains(reason), qPrintable(problem));
}

void TestZebDocument::lineBreakingTextIsRefusedEverywhere_data()
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

void TestZebDocument::lineBreakingTextIsRefusedEverywhere()
{
    QFETCH(QString, property);
    QFETCH(QByteArray, value);

    const Result result = ParseNetwork(WIRED + Element(property, value));

    QVERIFY2(result.isWellFormed, qPrintable(result.error));
    QVERIFY(!result.document.networks.value("lan").properties.contains(property));
    QCOMPARE(result.problems.size(), 1);
    QVERIFY(result.problems.constFirst().contains(property + ": holds a control character or a line end"));
    QVERIFY(!result.problems.constFirst().contains('\n'));
}

void TestZebDocument::commentInAQuotedTextLeavesTheNetworkOut_data()
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

void TestZebDocument::commentInAQuotedTextLeavesTheNetworkOut()
{
    QFETCH(QByteArray, name);
    QFETCH(QByteArray, mode);
    QFETCH(QString, property);

    const Result result =
        ParseNetwork(Element("name", name) + Element("securityMode", mode) + Element(property, "a\"#b") +
                     (property == "ssid" ? "" : "<ssid>Office</ssid>") +
                     (property == "passphrase" ? "" : "<passphrase>a passphrase</passphrase>"));

    QCOMPARE(result.document.networkNames, QStringList());
    QCOMPARE(
        result.problems.constLast(),
        QString("network \"%1\": left out: %2: holds a number sign after a quote, which begins a comment")
            .arg(name, property));
}

void TestZebDocument::commentInAnotherTextIsTaken_data()
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

void TestZebDocument::commentInAnotherTextIsTaken()
{
    QFETCH(QByteArray, elements);

    const Result result = ParseNetwork(elements);

    QCOMPARE(result.problems, QStringList());
    QCOMPARE(result.document.networks.size(), 1);
}

void TestZebDocument::badCipherFallsBackToTheDefault_data()
{
    QTest::addColumn<QByteArray>("mode");
    QTest::addColumn<QByteArray>("cipher");
    for (const char *mode : {"eap_tls", "WPA Enterprise 1/2 (TLS with SCEP)", "eap_leap"})
        for (const char *cipher : {"automatic", "ccmp", "CCMP,TKIP", "CCMP AES", " "})
            QTest::addRow("%s of %s", cipher, mode) << QByteArray(mode) << QByteArray(cipher);
}

void TestZebDocument::badCipherFallsBackToTheDefault()
{
    QFETCH(QByteArray, mode);
    QFETCH(QByteArray, cipher);

    const Result result = ParseNetwork(WIRELESS + Element("securityMode", mode) + Element("cipher", cipher));

    QCOMPARE(result.problems,
             QStringList{QString("network \"Office\": cipher: \"%1\" is not a list of CCMP, TKIP, GCMP, "
                                 "CCMP-256 and GCMP-256; its default is used")
                             .arg(cipher.constData())});
    QCOMPARE(result.document.networkNames, QStringList{"Office"});
    QVERIFY(!result.document.networks.value("Office").properties.contains("cipher"));
}

void TestZebDocument::missingPartLeavesTheNetworkOut_data()
{
    QTest::addColumn<QByteArray>("elements");
    QTest::addColumn<QString>("reason");
    QTest::newRow("open without ssid") << QByteArray("<name>Office</name>") << "no ssid";
    for (const char *name : {"wired", "Wiredeth0", "wlan", "LAN"})
        QTest::addRow("%s without ssid", name) << Element("name", name) << "no ssid";
    QTest::newRow("unknown mode without ssid")
        << QByteArray("<name>Office</name><securityMode>WPA9</securityMode>") << "no ssid";
    QTest::newRow("personal without ssid")
        << QByteArray("<name>Office</name><securityMode>WPA Personal "
                      "1/2</securityMode><passphrase>12345678</passphrase>")
        << "no ssid";
    QTest::newRow("mode key without ssid")
        << QByteArray("<name>Office</name><securityMode>eap_tls</securityMode>") << "no ssid";
    for (const char *mode : {"WEP", "WEP (Shared)", "wep", "wep_shared"})
        QTest::addRow("%s without key", mode) << WIRELESS + Element("securityMode", mode) << "no wepKey";
    for (const char *mode :
         {"WPA Personal 1/2", "WPA Personal 2/3", "WPA Personal 3", "wpa", "wpa2_3", "sae"})
        QTest::addRow("%s without passphrase", mode)
            << WIRELESS + Element("securityMode", mode) << "no passphrase";
    for (const int size : {7, 64})
        QTest::addRow("passphrase of %d bytes", size)
            << WIRELESS + Element("securityMode", "WPA Personal 1/2") +
                   Element("passphrase", QByteArray(size, 'x'))
            << "passphrase: is not from 8 to 63 bytes long";
    const QByteArray fixed = WIRED + "<staticIp>true</staticIp>";
    const QString incomplete = "staticIp without a valid ipAddress and netmask";
    QTest::newRow("static without address") << fixed + "<netmask>255.0.0.0</netmask>" << incomplete;
    QTest::newRow("static without netmask") << fixed + "<ipAddress>10.0.0.5</ipAddress>" << incomplete;
    QTest::newRow("static with a bad address")
        << fixed + "<ipAddress>10.0.0</ipAddress><netmask>255.0.0.0</netmask>" << incomplete;
    QTest::newRow("static with a bad netmask")
        << fixed + "<ipAddress>10.0.0.5</ipAddress><netmask>255.0.0.1</netmask>" << incomplete;
    QTest::newRow("wireless static without address") << WIRELESS + "<staticIp>true</staticIp>" << incomplete;
}

void TestZebDocument::missingPartLeavesTheNetworkOut()
{
    QFETCH(QByteArray, elements);
    QFETCH(QString, reason);

    const Result result = ParseNetwork(elements);

    QCOMPARE(result.document.networkNames, QStringList());
    const QString problem = result.problems.constLast();
    QVERIFY2(problem.contains("\": left out: " + reason), qPrintable(problem));
}

void TestZebDocument::completeNetworkIsKept_data()
{
    QTest::addColumn<QByteArray>("elements");
    QTest::newRow("wired, name alone") << WIRED;
    QTest::newRow("wired by a longer name") << QByteArray("<name>landing</name>");
    QTest::newRow("wired for one interface") << QByteArray("<name>wiredeth0</name>");
    QTest::newRow("wired mode under a wireless name")
        << QByteArray("<name>Office</name><securityMode>802.1X (PEAP/MSCHAPv2)</securityMode>");
    QTest::newRow("wireless mode under a wired name") << WIRED + Element("securityMode", "WPA Personal 1/2");
    QTest::newRow("open") << WIRELESS;
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

void TestZebDocument::completeNetworkIsKept()
{
    QFETCH(QByteArray, elements);

    const Result result = ParseNetwork(elements);

    QCOMPARE(result.problems, QStringList());
    QCOMPARE(result.document.networks.size(), 1);
}

void TestZebDocument::badHostIsLeftOut()
{
    const Result result =
        ParseNetwork(WIRED + "<hosts><host>10.0.0.3\ta</host><host>10.0.0.4 b\n0.0.0.0 c</host>"
                             "<host></host><host>10.0.0.5 d</host></hosts>");

    QCOMPARE(result.document.networks.value("lan").hosts, (QStringList{"10.0.0.3\ta", "10.0.0.5 d"}));
    QCOMPARE(result.problems,
             QStringList{"network \"lan\": hosts: holds a control character or a line end; this "
                         "line is not used"});
}

void TestZebDocument::badSettingIsLeftOut()
{
    const Result result = Parse("<c><bonding_mode>1\n2</bonding_mode><useNewDriver>true</useNewDriver></c>");

    QCOMPARE(result.document.settings.keys(), QStringList{"useNewDriver"});
    QCOMPARE(result.problems, QStringList{"bonding_mode: holds a control character or a line end, not used"});
}

void TestZebDocument::otherNetworksStay()
{
    const Result result = Parse("<c><network><name>lan1</name></network><network><name>lan2</name>"
                                "<ssid>a\nb</ssid></network><network><name>lan3</name></network></c>");

    QCOMPARE(result.document.networkNames, (QStringList{"lan1", "lan3"}));
}

void TestZebDocument::problemsShowNoSecret_data()
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

void TestZebDocument::problemsShowNoSecret()
{
    QFETCH(QByteArray, elements);

    const Result result = ParseNetwork(elements);

    QVERIFY(!result.problems.isEmpty());
    QVERIFY(!result.problems.join('\n').contains("Sesame"));
}

QTEST_GUILESS_MAIN(TestZebDocument)
#include "tst_zebdocument.moc"
