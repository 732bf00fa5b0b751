// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "storecheck.h"
#include "storereporttext.h"

#include <QtTest>

namespace {

QStringList Lines(const QByteArray &xml)
{
    ZebDocument document;
    const StoreReport report = CheckStore(xml, document);
    QStringList lines;
    for (const QString &line : StoreReportText::ForPerson("store", report).split('\n', Qt::SkipEmptyParts))
        lines << line.section(": ", 1);
    return lines;
}

QByteArray Network(const QByteArray &name, const QByteArray &elements)
{
    return "<c><network><name>" + name + "</name>" + elements + "</network></c>";
}

const QByteArray WIRED_PEAP = "<securityMode>802.1X (PEAP/MSCHAPv2)</securityMode>";

} // namespace

/// What is said of stores that the daemon's reader takes without a word.
class TestStoreAdvice : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void settingIsAdvisedOn_data();
    void settingIsAdvisedOn();
    void networkIsAdvisedOn_data();
    void networkIsAdvisedOn();
    void placeIsThatOfTheValue();
};

void TestStoreAdvice::settingIsAdvisedOn_data()
{
    QTest::addColumn<QByteArray>("elements");
    QTest::addColumn<QStringList>("lines");
    const auto row = [](const char *name, const QByteArray &elements, const QString &line) {
        QTest::newRow(name) << elements << (line.isEmpty() ? QStringList() : QStringList{line});
    };
    row("known", "<useNewDriver>true</useNewDriver><bonding_mode>1</bonding_mode>", "");
    for (const char *mode : {"0", "6"})
        row(mode, QByteArray("<bonding_mode>") + mode + "</bonding_mode>", "");
    row("false", "<useNewDriver>false</useNewDriver>", "");
    row("another program's", "<wallpaper>blue</wallpaper>", "");
    row("empty", "<useNewDriver/>", "");
    row("boolean in capitals", "<UseApScan>TRUE</UseApScan>",
        "error: property \"UseApScan\" (boolean): is neither true nor false; it counts as false (did you "
        "mean \"true\"?)");
    row("boolean with a capital", "<FilterSsids>False</FilterSsids>",
        "error: property \"FilterSsids\" (boolean): is neither true nor false; it counts as false (did you "
        "mean \"false\"?)");
    row("boolean as a word", "<bonding_enable>yes</bonding_enable>",
        "error: property \"bonding_enable\" (boolean): is neither true nor false; it counts as false");
    row("bonding mode by name", "<bonding_mode>active-backup</bonding_mode>",
        "error: property \"bonding_mode\" (whole number): is not a mode from 0 to 6");
    row("bonding mode too small", "<bonding_mode>-1</bonding_mode>",
        "error: property \"bonding_mode\" (whole number): is not a mode from 0 to 6");
    row("bonding mode too large", "<bonding_mode>7</bonding_mode>",
        "error: property \"bonding_mode\" (whole number): is not a mode from 0 to 6");
    row("misspelt", "<useNewdriver>true</useNewdriver>",
        "warning: property \"useNewdriver\": is no setting of the daemon (did you mean \"useNewDriver\"?)");
    row("misspelt network", "<netwrok><name>lan</name></netwrok>",
        "error: property \"netwrok\": has elements inside; not used (did you mean \"network\"?)");
    row("property outside of a network", "<ssid>Office</ssid>",
        "warning: property \"ssid\": is a property of a network, and stands outside of any");
}

void TestStoreAdvice::settingIsAdvisedOn()
{
    QFETCH(QByteArray, elements);

    QTEST(Lines("<c>" + elements + "</c>"), "lines");
}

void TestStoreAdvice::networkIsAdvisedOn_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<QByteArray>("elements");
    QTest::addColumn<QString>("line");
    const auto row = [](const char *tag, const QByteArray &name, const QByteArray &elements,
                        const QString &line) {
        QTest::newRow(tag) << name << elements << line;
    };
    const QByteArray ssid = "<ssid>a</ssid>";
    const auto address = [](const QByteArray &netmask, const QByteArray &gateway) {
        return "<staticIp>true</staticIp><ipAddress>10.0.1.2</ipAddress><netmask>" + netmask +
               "</netmask><gateway>" + gateway + "</gateway>";
    };
    const QString outside = "error: network \"lan\", property \"gateway\" (IPv4 address): \"%1\" is outside "
                            "the network of ipAddress and netmask; the kernel refuses it";

    row("gateway in the network", "lan", address("255.255.255.0", "10.0.1.254"), "");
    row("gateway in a larger network", "lan", address("255.255.0.0", "10.0.2.1"), "");
    row("gateway outside", "lan", address("255.255.255.0", "10.0.2.1"), outside.arg("10.0.2.1"));
    row("gateway of a network of one", "lan", address("255.255.255.255", "10.0.1.1"),
        outside.arg("10.0.1.1"));
    row("gateway is the broadcast address", "lan", address("255.255.255.0", "10.0.1.255"),
        "error: network \"lan\", property \"gateway\" (IPv4 address): \"10.0.1.255\" is the broadcast "
        "address of the network; the kernel refuses it");
    row("gateway in a network of two", "lan", address("255.255.255.254", "10.0.1.3"), "");
    row("gateway is the device itself", "lan", address("255.255.255.0", "10.0.1.2"),
        "error: network \"lan\", property \"gateway\" (IPv4 address): \"10.0.1.2\" is the ipAddress of this "
        "network itself; nothing leaves by it");
    const QString noHost =
        "error: network \"lan\", property \"ipAddress\" (IPv4 address): \"%1\" is %2 address "
        "of the network, and no host's";
    const auto host = [](const QByteArray &ipAddress) {
        return QByteArray("<staticIp>true</staticIp><netmask>255.255.255.0</netmask><ipAddress>" + ipAddress +
                          "</ipAddress>");
    };
    row("first address", "lan", host("10.0.1.0"), noHost.arg(QString("10.0.1.0"), QString("the first")));
    row("broadcast address", "lan", host("10.0.1.255"),
        noHost.arg(QString("10.0.1.255"), QString("the broadcast")));
    row("first of a network of two", "lan", address("255.255.255.254", "10.0.1.3"), "");
    row("gateway with DHCP", "lan", "<gateway>10.0.2.1</gateway>", "");
    row("no gateway", "lan",
        "<staticIp>true</staticIp><ipAddress>10.0.1.2</ipAddress><netmask>255.0.0.0</netmask>", "");

    const auto speed = [](const QByteArray &value) {
        return QByteArray("<speed>" + value + "</speed>");
    };
    const QString property = "network \"lan\", property \"speed\" (text): \"%1\" ";
    const QString noSpeed =
        "error: " + property + "is not Auto or three words, such as 100 Mbps Full; the speed stays";
    row("speed", "lan", speed("100 Mbps Full"), "");
    row("speed and half duplex", "lan", speed("10 x Half"), "");
    row("speed of one", "lan", speed("1 Mbps Full"), "");
    row("speed of nothing", "lan", speed("0 Mbps Full"), noSpeed.arg("0 Mbps Full"));
    row("speed as it is negotiated", "lan", speed("Auto"), "");
    row("speed of a radio", "Office", ssid + speed("fast"), "");
    row("speed without duplex", "lan", speed("1000"), noSpeed.arg("1000"));
    row("speed with two blanks", "lan", speed("100  Full Full"), noSpeed.arg("100  Full Full"));
    row("speed without a number", "lan", speed("1G Mbps Full"), noSpeed.arg("1G Mbps Full"));
    row("duplex in small letters", "lan", speed("100 Mbps full"),
        "warning: " + property.arg("100 Mbps full") +
            "ends with neither Full nor Half, and sets half duplex");

    for (const QByteArray &server : QByteArrayList{"dns1", "dns2"})
        row(server.constData(), "lan", "<staticDns>true</staticDns><" + server + ">10.0.0.1</" + server + ">",
            "");
    row("name servers of our own, but none", "lan", "<staticDns>true</staticDns><domain>a.example</domain>",
        "warning: network \"lan\", property \"staticDns\" (boolean): stands without dns1 and dns2: there is "
        "no name server, not even DHCP's");
    row("hosts, and a comment", "lan",
        "<hosts><host>10.0.0.5 printer</host><host>2001:db8::1\tb c</host><host># d</host></hosts>", "");
    row("host with its name first", "lan", "<hosts><host>printer 10.0.0.5</host></hosts>",
        "warning: network \"lan\", property \"hosts\": \"printer 10.0.0.5\" is no address with a name behind "
        "it; the hosts file goes without it");
    row("host without a name", "lan", "<hosts><host>10.0.0.5 #printer</host></hosts>",
        "warning: network \"lan\", property \"hosts\": \"10.0.0.5 #printer\" is no address with a name "
        "behind "
        "it; the hosts file goes without it");

    row("GTC", "Office", ssid + "<securityMode>peap_gtc</securityMode>",
        "warning: network \"Office\", property \"securityMode\" (security mode): GTC needs the password "
        "itself, and the supplicant gets only a hash of it: a server that does not take MSCHAPv2 as well "
        "lets nobody in");
    row("WPA2 and WPA3", "Office",
        ssid + "<securityMode>WPA Personal 2/3</securityMode><passphrase>12345678</passphrase>",
        "warning: network \"Office\", property \"securityMode\" (security mode): joins only access points "
        "that offer PSK-SHA256: not one with WPA3 or with plain WPA2 alone");
    row("WPA2", "Office",
        ssid + "<securityMode>WPA Personal 1/2</securityMode><passphrase>12345678</passphrase>", "");

    row("wired mode under a wireless name", "Office", WIRED_PEAP,
        "error: network \"Office\", property \"securityMode\" (security mode): a wired mode, but the name "
        "makes it wireless: it is taken as unsecured");
    row("wireless mode under a wired name", "lan", "<securityMode>peap_gtc</securityMode>",
        "error: network \"lan\", property \"securityMode\" (security mode): a wireless mode, but the name "
        "makes it wired: the supplicant gets nothing");
    row("wired mode under a wired name", "wiredeth0", WIRED_PEAP, "");
    row("wired name in capitals", "LAN", ssid,
        "warning: network \"LAN\", property \"name\" (text): is that of a wireless network; that of a wired "
        "one begins with lan or wiredeth");
    row("wired name of another interface", "wiredenp1s0", ssid,
        "warning: network \"wiredenp1s0\", property \"name\" (text): is that of a wireless network; that of "
        "a wired one begins with lan or wiredeth");
}

void TestStoreAdvice::networkIsAdvisedOn()
{
    QFETCH(QByteArray, name);
    QFETCH(QByteArray, elements);
    QFETCH(QString, line);

    QCOMPARE(Lines(Network(name, elements)), line.isEmpty() ? QStringList() : QStringList{line});
}

void TestStoreAdvice::placeIsThatOfTheValue()
{
    ZebDocument document;
    const StoreReport report = CheckStore("<c>\n<UseApScan>yes</UseApScan><network><name>Office</name>\n"
                                          "<ssid>a</ssid><securityMode>peap_gtc</securityMode></network></c>",
                                          document);

    QCOMPARE(report.findings.size(), 2);
    QCOMPARE(report.findings.at(0).place.line, 2);
    QCOMPARE(report.findings.at(0).place.column, 12);
    QCOMPARE(report.findings.at(1).place.line, 3);
    QCOMPARE(report.findings.at(1).place.column, 29);
    QCOMPARE(report.findings.at(1).valueClass, QString("security mode"));
}

QTEST_GUILESS_MAIN(TestStoreAdvice)
#include "tst_storeadvice.moc"
