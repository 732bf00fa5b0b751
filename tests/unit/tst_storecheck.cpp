// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "storecheck.h"
#include "storereporttext.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QtTest>

namespace {

/// Where in the text of a row the problem is; of a text that is not well-formed, the last character read.
constexpr char MARK = '|';

/// LINE:COLUMN of the mark, in characters from 1.
QString PlaceOfMark(const QByteArray &marked)
{
    const QString before = QString::fromUtf8(marked.left(marked.indexOf(MARK)));
    return QString("%1:%2").arg(before.count('\n') + 1).arg(before.size() - before.lastIndexOf('\n'));
}

QByteArray WithoutMark(QByteArray marked)
{
    return marked.replace(MARK, "");
}

StoreReport Report(const QByteArray &xml)
{
    ZebDocument document;
    return CheckStore(xml, document);
}

QStringList Lines(const QByteArray &xml)
{
    return StoreReportText::ForPerson("store", Report(xml)).split('\n', Qt::SkipEmptyParts);
}

} // namespace

/// What the checker says of a store, and where.
class TestStoreCheck : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void problemIsToldWithItsPlace_data();
    void problemIsToldWithItsPlace();
    void refusedStoreIsToldWithItsPlace_data();
    void refusedStoreIsToldWithItsPlace();
    void whatNobodyReadsIsTold_data();
    void whatNobodyReadsIsTold();
    void attributesOfOtherElementsAreNotTold_data();
    void attributesOfOtherElementsAreNotTold();
    void goodStoreHasNoFindings();
    void findingsStandInTheOrderOfTheFile();
    void programGetsTheSame();
    void secretsAreNotShown();
};

void TestStoreCheck::problemIsToldWithItsPlace_data()
{
    QTest::addColumn<QByteArray>("marked");
    QTest::addColumn<QString>("text");
    const auto row = [](const char *name, const QByteArray &marked, const char *text) {
        QTest::newRow(name) << marked << QString::fromUtf8(text);
    };
    row("MTU too small", "<c>\n<network>\n  <name>lan</name>\n  <mtu>|67</mtu>\n</network>\n</c>",
        "network \"lan\", property \"mtu\" (bytes): \"67\" is not a whole number from 68 to 65535; its "
        "default is used");
    row("MTU too large", "<c>\n<network>\n  <name>lan</name>\n  <mtu>|65536</mtu>\n</network>\n</c>",
        "network \"lan\", property \"mtu\" (bytes): \"65536\" is not a whole number from 68 to 65535; its "
        "default is used");
    row("MTU with a unit", "<c>\n<network>\n  <name>lan</name>\n  <mtu>|1400 bytes</mtu>\n</network>\n</c>",
        "network \"lan\", property \"mtu\" (bytes): \"1400 bytes\" is not a whole number from 68 to 65535; "
        "its default is used");
    row("MTU on a line of its own",
        "<c>\n<network>\n  <name>lan</name>\n  <mtu>|\n1400\n</mtu>\n</network>\n</c>",
        "network \"lan\", property \"mtu\" (bytes): holds a control character or a line end; its default is "
        "used");
    row("boolean in capitals",
        "<c>\n<network>\n  <name>lan</name>\n  <staticDns>|True</staticDns>\n</network>\n</c>",
        "network \"lan\", property \"staticDns\" (boolean): \"True\" is neither true nor false; its default "
        "is used (did you mean \"true\"?)");
    row("boolean as a word",
        "<c>\n<network>\n  <name>lan</name>\n  <staticIp>|yes</staticIp>\n</network>\n</c>",
        "network \"lan\", property \"staticIp\" (boolean): \"yes\" is neither true nor false; its default is "
        "used");
    row("boolean as a number", "<c>\n<network>\n  <name>lan</name>\n  <scep>|1</scep>\n</network>\n</c>",
        "network \"lan\", property \"scep\" (boolean): \"1\" is neither true nor false; its default is used");
    row("fixed address missing",
        "<c>\n<network>\n  <name>lan</name>\n  "
        "<netmask>255.0.0.0</netmask><staticIp>|true</staticIp>\n</network>\n</c>",
        "network \"lan\", property \"staticIp\" (boolean): stands without a valid ipAddress and netmask; the "
        "network is left out");
    row("netmask missing",
        "<c>\n<network>\n  <name>lan</name>\n  "
        "<ipAddress>10.0.0.2</ipAddress>\n<staticIp>|true</staticIp>\n</network>\n</c>",
        "network \"lan\", property \"staticIp\" (boolean): stands without a valid ipAddress and netmask; the "
        "network is left out");
    row("address with too few parts",
        "<c>\n<network>\n  <name>lan</name>\n  <ipAddress>|10.0.0</ipAddress>\n</network>\n</c>",
        "network \"lan\", property \"ipAddress\" (IPv4 address): \"10.0.0\" is not a dotted IPv4 address; "
        "its default is used");
    row("address with a part too large",
        "<c>\n<network>\n  <name>lan</name>\n  <ipAddress>|10.0.0.256</ipAddress>\n</network>\n</c>",
        "network \"lan\", property \"ipAddress\" (IPv4 address): \"10.0.0.256\" is not a dotted IPv4 "
        "address; its default is used");
    row("address with a prefix length",
        "<c>\n<network>\n  <name>lan</name>\n  <ipAddress>|10.0.0.2/24</ipAddress>\n</network>\n</c>",
        "network \"lan\", property \"ipAddress\" (IPv4 address): \"10.0.0.2/24\" is not a dotted IPv4 "
        "address; its default is used");
    row("multicast address",
        "<c>\n<network>\n  <name>lan</name>\n  <ipAddress>|224.0.0.1</ipAddress>\n</network>\n</c>",
        "network \"lan\", property \"ipAddress\" (IPv4 address): \"224.0.0.1\" is not the address of a host; "
        "its default is used");
    row("address of no network",
        "<c>\n<network>\n  <name>lan</name>\n  <gateway>|0.0.0.0</gateway>\n</network>\n</c>",
        "network \"lan\", property \"gateway\" (IPv4 address): \"0.0.0.0\" is not the address of a host; its "
        "default is used");
    row("IPv6 gateway",
        "<c>\n<network>\n  <name>lan</name>\n  <gateway>|2001:db8::1</gateway>\n</network>\n</c>",
        "network \"lan\", property \"gateway\" (IPv4 address): \"2001:db8::1\" is not a dotted IPv4 address; "
        "its default is used");
    row("blank before an address",
        "<c>\n<network>\n  <name>lan</name>\n  <gateway>| 10.0.0.1</gateway>\n</network>\n</c>",
        "network \"lan\", property \"gateway\" (IPv4 address): \" 10.0.0.1\" is not a dotted IPv4 address; "
        "its default is used");
    row("netmask with a gap",
        "<c>\n<network>\n  <name>lan</name>\n  <netmask>|255.0.255.0</netmask>\n</network>\n</c>",
        "network \"lan\", property \"netmask\" (IPv4 netmask): \"255.0.255.0\" is not a netmask: ones, then "
        "zeros; its default is used");
    row("netmask as a length",
        "<c>\n<network>\n  <name>lan</name>\n  <netmask>|24</netmask>\n</network>\n</c>",
        "network \"lan\", property \"netmask\" (IPv4 netmask): \"24\" is not a dotted IPv4 netmask; its "
        "default is used");
    row("empty netmask",
        "<c>\n<network>\n  <name>lan</name>\n  <netmask>|0.0.0.0</netmask>\n</network>\n</c>",
        "network \"lan\", property \"netmask\" (IPv4 netmask): \"0.0.0.0\" is not a netmask: ones, then "
        "zeros; its default is used");
    row("name instead of a server address",
        "<c>\n<network>\n  <name>lan</name>\n  <dns1>|dns.example.com</dns1>\n</network>\n</c>",
        "network \"lan\", property \"dns1\" (IP address): \"dns.example.com\" is not the address of a "
        "server; its default is used");
    row("two servers in one",
        "<c>\n<network>\n  <name>lan</name>\n  <dns2>|10.0.0.1 10.0.0.2</dns2>\n</network>\n</c>",
        "network \"lan\", property \"dns2\" (IP address): \"10.0.0.1 10.0.0.2\" is not the address of a "
        "server; its default is used");
    row("domains apart by commas",
        "<c>\n<network>\n  <name>lan</name>\n  <domain>|a.example,b.example</domain>\n</network>\n</c>",
        "network \"lan\", property \"domain\" (domain names): \"a.example,b.example\" is not one domain name "
        "or several apart by blanks; its default is used");
    row("fallback with a capital",
        "<c>\n<network>\n  <name>lan</name>\n  <dot1xFallback>|Fallback</dot1xFallback>\n</network>\n</c>",
        "network \"lan\", property \"dot1xFallback\" (the word fallback): \"Fallback\" is not \"fallback\"; "
        "its default is used (did you mean \"fallback\"?)");
    row("fallback as a boolean",
        "<c>\n<network>\n  <name>lan</name>\n  <dot1xFallback>|true</dot1xFallback>\n</network>\n</c>",
        "network \"lan\", property \"dot1xFallback\" (the word fallback): \"true\" is not \"fallback\"; its "
        "default is used");
    row("certificate that leads out",
        "<c>\n<network>\n  <name>lan</name>\n  <caCert>|../ca.pem</caCert>\n</network>\n</c>",
        "network \"lan\", property \"caCert\" (certificate): \"../ca.pem\" leads out of the certificate "
        "folders; the network is left out");
    row("key that leads out",
        "<c>\n<network>\n  <name>lan</name>\n  <privateKey>|a/../../k</privateKey>\n</network>\n</c>",
        "network \"lan\", property \"privateKey\" (certificate): \"a/../../k\" leads out of the certificate "
        "folders; the network is left out");
    row("PAC file in a folder",
        "<c>\n<network>\n  <name>lan</name>\n  <pacFile>|a/b.pac</pacFile>\n</network>\n</c>",
        "network \"lan\", property \"pacFile\" (file name): \"a/b.pac\" is not a plain file name; its "
        "default is used");
    row("unknown property", "<c>\n<network>\n  <name>lan</name>\n  <mask>|255.0.0.0</mask>\n</network>\n</c>",
        "network \"lan\", property \"mask\": no such property; not used (did you mean \"netmask\"?)");
    row("property in capitals", "<c>\n<network>\n  <name>lan</name>\n  <MTU>|1400</MTU>\n</network>\n</c>",
        "network \"lan\", property \"MTU\": no such property; not used (did you mean \"mtu\"?)");
    row("property twice",
        "<c>\n<network>\n  <name>lan</name>\n  <mtu>1400</mtu>\n  <mtu>|1300</mtu>\n</network>\n</c>",
        "network \"lan\", property \"mtu\" (bytes): stands there again; the first one holds");
    row("property with elements",
        "<c>\n<network>\n  <name>lan</name>\n  <dns1>|<ip>10.0.0.1</ip></dns1>\n</network>\n</c>",
        "network \"lan\", property \"dns1\" (IP address): has elements inside; not used");
    row("unknown mode under a wired name",
        "<c>\n<network>\n  <name>lan</name>\n  <securityMode>|802.1X</securityMode>\n</network>\n</c>",
        "network \"lan\", property \"securityMode\" (security mode): \"802.1X\" is not known; the supplicant "
        "gets nothing");
    row("host outside hosts",
        "<c>\n<network>\n  <name>lan</name>\n  <host>|10.0.0.1 a</host>\n</network>\n</c>",
        "network \"lan\", property \"host\": no such property; not used (did you mean \"hosts\"?)");
    row("address among the hosts",
        "<c>\n<network>\n  <name>lan</name>\n  <hosts>\n<ip>|10.0.0.1</ip></hosts>\n</network>\n</c>",
        "network \"lan\", property \"hosts\": an element that is not a host; not used");
    row("host on two lines",
        "<c>\n<network>\n  <name>lan</name>\n  <hosts><host>10.0.0.1 "
        "a</host>\n<host>|10.0.0.2\nb</host></hosts>\n</network>\n</c>",
        "network \"lan\", property \"hosts\": holds a control character or a line end; not used");
    row("host with elements",
        "<c>\n<network>\n  <name>lan</name>\n  "
        "<hosts><host>|<ip>10.0.0.2</ip></host></hosts>\n</network>\n</c>",
        "network \"lan\", property \"hosts\": a host has elements inside; not used");
    row("WEP key under a wired name",
        "<c>\n<network>\n  <name>lan</name>\n  <wepKey>|abc</wepKey>\n</network>\n</c>",
        "network \"lan\", property \"wepKey\" (WEP key): is not a WEP key: 10, 26 or 32 hexadecimal digits, "
        "or 5, 13 or 16 bytes in double quotes, with a P before these for escapes; the network is left out");
    row("identity that leaves its quotes",
        "<c>\n<network>\n  <name>lan</name>\n  <securityMode>802.1X "
        "(PEAP/MSCHAPv2)</securityMode><identity>|a\"#b</identity>\n</network>\n</c>",
        "network \"lan\", property \"identity\" (text): holds a number sign after a quote, which begins a "
        "comment; the network is left out");
    row("unknown mode",
        "<c>\n <network><name>Office</name><ssid>Office</ssid>\n\t<securityMode>|WPA2</securityMode>\n "
        "</network></c>",
        "network \"Office\", property \"securityMode\" (security mode): \"WPA2\" is not known; the network "
        "counts as unsecured");
    row("mode with a blank behind it",
        "<c>\n <network><name>Office</name><ssid>Office</ssid>\n\t<securityMode>|WPA Personal 3 "
        "</securityMode>\n </network></c>",
        "network \"Office\", property \"securityMode\" (security mode): \"WPA Personal 3 \" is not known; "
        "the network counts as unsecured (did you mean \"WPA Personal 3\"?)");
    row("mode with a line end",
        "<c>\n "
        "<network><name>Office</name><ssid>Office</ssid>\n\t<securityMode>|\nUnsecured\n</securityMode>\n "
        "</network></c>",
        "network \"Office\", property \"securityMode\" (security mode): holds a control character or a line "
        "end; the network is left out (did you mean \"Unsecured\"?)");
    row("passphrase too short",
        "<c>\n <network><name>Office</name><ssid>Office</ssid>\n\t<securityMode>WPA Personal "
        "1/2</securityMode><passphrase>|1234567</passphrase>\n </network></c>",
        "network \"Office\", property \"passphrase\" (secret text): is not from 8 to 63 bytes long; the "
        "network is left out");
    row("finished key as a passphrase",
        "<c>\n <network><name>Office</name><ssid>Office</ssid>\n\t<securityMode>WPA Personal "
        "2/3</securityMode><passphrase>|0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef</"
        "passphrase>\n </network></c>",
        "network \"Office\", property \"passphrase\" (secret text): is not from 8 to 63 bytes long; the "
        "network is left out");
    row("passphrase on two lines",
        "<c>\n <network><name>Office</name><ssid>Office</ssid>\n\t<passphrase>|a\nb</passphrase>\n "
        "</network></c>",
        "network \"Office\", property \"passphrase\" (secret text): holds a control character or a line end; "
        "the network is left out");
    row("passphrase that leaves its quotes",
        "<c>\n <network><name>Office</name><ssid>Office</ssid>\n\t<securityMode>WPA Personal "
        "3</securityMode><passphrase>|a\"#b</passphrase>\n </network></c>",
        "network \"Office\", property \"passphrase\" (secret text): holds a number sign after a quote, which "
        "begins a comment; the network is left out");
    row("WEP key of a wrong length",
        "<c>\n "
        "<network><name>Office</name><ssid>Office</ssid>\n\t<securityMode>WEP</"
        "securityMode><wepKey>|\"abcd\"</wepKey>\n </network></c>",
        "network \"Office\", property \"wepKey\" (WEP key): is not a WEP key: 10, 26 or 32 hexadecimal "
        "digits, or 5, 13 or 16 bytes in double quotes, with a P before these for escapes; the network is "
        "left out");
    row("priority as a word",
        "<c>\n <network><name>Office</name><ssid>Office</ssid>\n\t<priority>|high</priority>\n "
        "</network></c>",
        "network \"Office\", property \"priority\" (whole number): \"high\" is not a whole number from "
        "-1000000 to 1000000; its default is used");
    row("priority with a plus",
        "<c>\n <network><name>Office</name><ssid>Office</ssid>\n\t<priority>|+1</priority>\n </network></c>",
        "network \"Office\", property \"priority\" (whole number): \"+1\" is not a whole number from "
        "-1000000 to 1000000; its default is used");
    row("unknown band",
        "<c>\n <network><name>Office</name><ssid>Office</ssid>\n\t<band>|5G</band>\n </network></c>",
        "network \"Office\", property \"band\" (band): \"5G\" is not a band (2.4, 5.0 or 6.0); its default "
        "is used");
    row("scan pause of nothing",
        "<c>\n "
        "<network><name>Office</name><ssid>Office</ssid>\n\t<bgScanShortInterval>|0</bgScanShortInterval>\n "
        "</network></c>",
        "network \"Office\", property \"bgScanShortInterval\" (seconds): \"0\" is not a whole number from 1 "
        "to 86400; its default is used");
    row("scan pause above a day",
        "<c>\n "
        "<network><name>Office</name><ssid>Office</ssid>\n\t<bgScanLongInterval>|86401</"
        "bgScanLongInterval>\n </network></c>",
        "network \"Office\", property \"bgScanLongInterval\" (seconds): \"86401\" is not a whole number from "
        "1 to 86400; its default is used");
    row("signal above zero",
        "<c>\n <network><name>Office</name><ssid>Office</ssid>\n\t<bgScanSignal>|70</bgScanSignal>\n "
        "</network></c>",
        "network \"Office\", property \"bgScanSignal\" (dBm): \"70\" is not a whole number from -120 to 0; "
        "its default is used");
    row("cipher with a misspelling",
        "<c>\n <network><name>Office</name><ssid>Office</ssid>\n\t<securityMode>WPA Enterprise 1/2 "
        "(TLS)</securityMode><cipher>|CCPM</cipher>\n </network></c>",
        "network \"Office\", property \"cipher\" (text): \"CCPM\" is not a list of CCMP, TKIP, GCMP, "
        "CCMP-256 and GCMP-256; its default is used (did you mean \"CCMP\"?)");
    row("ciphers apart by commas",
        "<c>\n "
        "<network><name>Office</name><ssid>Office</ssid>\n\t<securityMode>eap_leap</"
        "securityMode><cipher>|CCMP,TKIP</cipher>\n </network></c>",
        "network \"Office\", property \"cipher\" (text): \"CCMP,TKIP\" is not a list of CCMP, TKIP, GCMP, "
        "CCMP-256 and GCMP-256; its default is used");
    row("SSID missing", "<c>\n <network>|<name>Office</name></network></c>",
        "network \"Office\", property \"ssid\" (SSID): is missing, and the network's name is not that of a "
        "wired one (lan..., wiredeth...); the network is left out");
    row("SSID too long",
        "<c><network><name>Office</name>\n<ssid>|xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx</ssid></network></c>",
        "network \"Office\", property \"ssid\" (SSID): has 33 bytes, the limit is 32; the network is left "
        "out");
    row("SSID too long in UTF-8",
        "<c><network><name>\u00e9</"
        "name><ssid>|"
        "\u00e9\u00e9\u00e9\u00e9\u00e9\u00e9\u00e9\u00e9\u00e9\u00e9\u00e9\u00e9\u00e9\u00e9\u00e9\u00e9"
        "\u00e9</ssid></network></c>",
        "network \"\u00e9\", property \"ssid\" (SSID): has 34 bytes, the limit is 32; the network is left "
        "out");
    row("passphrase missing",
        "<c>\n\n<network>|<name>Office</name><ssid>a</ssid>\n<securityMode>sae</securityMode></network></c>",
        "network \"Office\", property \"passphrase\" (secret text): is missing; the network is left out");
    row("WEP key missing",
        "<c><network>|<name>Office</name><ssid>a</ssid>\n<securityMode>WEP "
        "(Shared)</securityMode></network></c>",
        "network \"Office\", property \"wepKey\" (WEP key): is missing; the network is left out");
    row("name missing", "<c>\n  <network>|\n<mtu>1400</mtu></network></c>",
        "property \"name\": is missing; the network is left out");
    row("name empty", "<c>\n  <network>|<name></name></network></c>",
        "property \"name\": is missing; the network is left out");
    row("name taken", "<c><network><name>lan</name></network>\n<network><name>|lan</name></network></c>",
        "network \"lan\", property \"name\" (text): is taken by an earlier network; the network is left out");
    row("name on two lines", "<c><network><name>|lan\n2</name></network></c>",
        "property \"name\": holds a control character or a line end; the network is left out");
    row("setting twice", "<c>\n<useNewDriver>true</useNewDriver>\n<useNewDriver>|false</useNewDriver></c>",
        "property \"useNewDriver\": stands there again; the first one holds");
    row("setting on two lines", "<c><bonding_mode>|1\n</bonding_mode></c>",
        "property \"bonding_mode\": holds a control character or a line end; not used");
    row("setting with elements", "<c><networks>|<network/></networks></c>",
        "property \"networks\": has elements inside; not used (did you mean \"network\"?)");
}

void TestStoreCheck::problemIsToldWithItsPlace()
{
    QFETCH(QByteArray, marked);
    QFETCH(QString, text);

    const QStringList lines = Lines(WithoutMark(marked));

    QCOMPARE(lines, QStringList{"store:" + PlaceOfMark(marked) + ": error: " + text});
    QVERIFY(Report(WithoutMark(marked)).isUsable);
    QVERIFY(Report(WithoutMark(marked)).HasErrors());
}

void TestStoreCheck::refusedStoreIsToldWithItsPlace_data()
{
    QTest::addColumn<QByteArray>("marked");
    QTest::addColumn<QString>("text");
    const auto row = [](const char *name, const QByteArray &marked, const char *text) {
        QTest::newRow(name) << marked << QString::fromUtf8(text);
    };
    row("tag not closed", "<c>\n<network>\n<name>lan</name>\n</c|>", "Opening and ending tag mismatch.");
    row("text after the end", "<c></c>\n|x", "Extra content at end of document.");
    row("password with an ampersand", "<c><network><password>Tom&Jerry|;</password></network></c>",
        "Entity '...' not declared.");
    row("document type", "<!DOCTYPE c|><c></c>", "a document type definition is not accepted");
    row("very long tag", "<|c a='" + QByteArray(17000, 'x') + "'/>", "a tag or a text is longer than 16 KiB");
    row("very long text", "<c>\n<|a>" + QByteArray(17000, 'x') + "</a></c>",
        "a tag or a text is longer than 16 KiB");
}

void TestStoreCheck::refusedStoreIsToldWithItsPlace()
{
    QFETCH(QByteArray, marked);
    QFETCH(QString, text);

    const QStringList lines = Lines(WithoutMark(marked));

    QCOMPARE(lines, QStringList{"store:" + PlaceOfMark(marked) + ": error: " + text});
    QVERIFY(!Report(WithoutMark(marked)).isUsable);
}

void TestStoreCheck::whatNobodyReadsIsTold_data()
{
    QTest::addColumn<QByteArray>("marked");
    QTest::addColumn<QString>("text");

    const QString text = "a text between elements; it is not used";
    QTest::newRow("value as an attribute")
        << QByteArray("<c><network><name>lan</name>\n<staticIp value='true'>|</staticIp></network></c>")
        << "property \"staticIp\": has attributes; they are not used";
    QTest::newRow("value without its element")
        << QByteArray("<c><network>\n <name>lan</name>|secret</network></c>") << text;
    QTest::newRow("text behind blanks")
        << QByteArray("<c><network>\n <name>lan</name>  |secret</network></c>") << text;
    QTest::newRow("text on a line of its own")
        << QByteArray("<c>\n<!-- a -->\n  |secret &amp; more\n<network><name>lan</name></network></c>")
        << text;
    QTest::newRow("text among the hosts")
        << QByteArray(
               "<c><network><name>lan</name><hosts>\n|secret<host>10.0.0.1 a</host></hosts></network></c>")
        << text;
}

void TestStoreCheck::whatNobodyReadsIsTold()
{
    QFETCH(QByteArray, marked);
    QFETCH(QString, text);

    const QStringList lines = Lines(WithoutMark(marked));

    QCOMPARE(lines, QStringList{"store:" + PlaceOfMark(marked) + ": warning: " + text});
    QVERIFY(!Report(WithoutMark(marked)).HasErrors());
}

void TestStoreCheck::attributesOfOtherElementsAreNotTold_data()
{
    QTest::addColumn<QByteArray>("elements");
    QTest::newRow("unknown property") << QByteArray("<network><name>lan</name><x a='1'>b</x></network>");
    QTest::newRow("property outside of a network") << QByteArray("<mtu a='1'>1400</mtu>");
}

void TestStoreCheck::attributesOfOtherElementsAreNotTold()
{
    QFETCH(QByteArray, elements);

    const QStringList lines = Lines("<c>" + elements + "</c>");

    QCOMPARE(lines.size(), 1); // of the element itself
    QVERIFY2(!lines.constFirst().contains("attributes"), qPrintable(lines.constFirst()));
}

void TestStoreCheck::goodStoreHasNoFindings()
{
    const StoreReport report =
        Report("<c version='2'>\n<network id='1'><name>lan</name> <mtu>1400</mtu><hosts> "
               "</hosts></network><other size='3'>a</other></c>\n");

    QVERIFY(report.isUsable);
    QVERIFY(!report.HasErrors());
    QVERIFY(report.findings.isEmpty());
}

void TestStoreCheck::findingsStandInTheOrderOfTheFile()
{
    const QStringList lines = Lines("<c><network><name>lan</name>\n<staticIp>yes</staticIp>\n<mtu>9</"
                                    "mtu>\n<gateway>x</gateway><dns1>y</dns1></network>\n<a>\n</a></c>");

    QStringList places;
    for (const QString &line : lines)
        places << line.section(':', 1, 2);
    QCOMPARE(places, (QStringList{"2:11", "3:6", "4:10", "4:27", "5:4"}));
}

void TestStoreCheck::programGetsTheSame()
{
    const StoreReport report = Report("<c><network><name>lan</name>\n<mtu>9</mtu><x>1</x></network></c>");

    const QJsonObject object = StoreReportText::ForProgram("store", report);

    QCOMPARE(object.value("file").toString(), QString("store"));
    QVERIFY(object.value("usable").toBool());
    const QJsonArray findings = object.value("findings").toArray();
    QCOMPARE(findings.size(), 2);
    const QJsonObject expected = {
        {"line", 2},
        {"column", 6},
        {"severity", "error"},
        {"network", "lan"},
        {"property", "mtu"},
        {"valueClass", "bytes"},
        {"reason", "\"9\" is not a whole number from 68 to 65535; its default is used"},
        {"suggestion", ""}};
    QCOMPARE(findings.at(0).toObject(), expected);
    QCOMPARE(findings.at(1).toObject().value("valueClass").toString(), QString());
}

void TestStoreCheck::secretsAreNotShown()
{
    // Each one stands where it is wrong in another way, well-formed and not.
    const QStringList forms = {
        "%1", "%1\n", "a<%1>", "a&%1;", "a<b %1='' %1=''/>", "<%1:a/>", "\"%1\"#", QString(2000, 'x') + "%1"};
    const QStringList properties = {"wepKey", "passphrase", "password", "privateKeyPassword"};
    const QStringList modes = {"WEP", "WPA Personal 1/2", "WPA Personal 3", "802.1X (TLS/EAP)", "eap_leap",
                               ""};
    int number = 0;
    for (int i = 0; number < 1000; ++i) {
        const QString canary = QString("canary%1").arg(number++);
        const QString value = forms.at(i % forms.size()).arg(canary);
        const QString property = properties.at(i / forms.size() % properties.size());
        const QString mode = modes.at(i / forms.size() / properties.size() % modes.size());
        const QString xml = QString("<c><network><name>%4</name><ssid>a</ssid><securityMode>%3</"
                                    "securityMode><%1>%2</%1></network></c>")
                                .arg(property, value, mode, i % 3 == 0 ? "lan" : "Office");

        const QString shown = Lines(xml.toUtf8()).join('\n');
        QVERIFY2(!shown.contains(canary), qPrintable(shown));
    }
}

QTEST_GUILESS_MAIN(TestStoreCheck)
#include "tst_storecheck.moc"
