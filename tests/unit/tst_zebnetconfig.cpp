// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "testsupport.h"
#include "zebnetconfig.h"
#include "zebproperties.h"

#include <QProcess>
#include <QtTest>

#include <algorithm>
#include <iterator>

namespace {

/// A store with one network of these elements.
void WriteNetwork(const QByteArray &elements)
{
    const QByteArray ssid = elements.contains("<ssid>") ? "" : "<ssid>Office</ssid>";
    TestSupport::WriteStore("<networkconfig><network><name>Office</name>" + ssid + elements +
                            "</network></networkconfig>");
}

ZebNetConfig LoadedNetwork(const QByteArray &elements)
{
    WriteNetwork(elements);
    ZebNetConfig config(nullptr);
    if (!config.Load("Office", false))
        qFatal("the network was not loaded");
    return config;
}

/// Each changes one property.
constexpr const char *CHANGES[] = {
    "<securityMode>802.1X (TLS/EAP)</securityMode>",
    "<ssid>x</ssid>",
    "<scanSsid>true</scanSsid>",
    "<priority>1</priority>",
    "<band>5.0</band>",
    "<useBgScan>true</useBgScan>",
    "<bgScanShortInterval>31</bgScanShortInterval>",
    "<bgScanSignal>-71</bgScanSignal>",
    "<bgScanLongInterval>601</bgScanLongInterval>",
    "<wepKey>\"abcde\"</wepKey>",
    "<passphrase>x</passphrase>",
    "<identity>x</identity>",
    "<password>x</password>",
    "<caCert>x</caCert>",
    "<clientCert>x</clientCert>",
    "<privateKey>x</privateKey>",
    "<privateKeyPassword>x</privateKeyPassword>",
    "<cipher>TKIP</cipher>",
    "<pacFile>x</pacFile>",
    "<scep>true</scep>",
    "<allowWeakCerts>true</allowWeakCerts>",
    "<dot1xFallback>fallback</dot1xFallback>",
    "<staticIp>true</staticIp><ipAddress>10.0.0.5</ipAddress><netmask>255.0.0.0</netmask>",
    "<ipAddress>10.0.0.5</ipAddress>",
    "<netmask>255.0.0.0</netmask>",
    "<gateway>10.0.0.5</gateway>",
    "<staticDns>true</staticDns>",
    "<dns1>10.0.0.5</dns1>",
    "<dns2>10.0.0.5</dns2>",
    "<domain>x</domain>",
    "<hosts><host>10.0.0.5 x</host></hosts>",
    "<speed>10 Mbps Half</speed>",
    "<mtu>1400</mtu>"};

} // namespace

/// A stored definition as the daemon sees it.
class TestZebNetConfig : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void hasDefaults();
    void loadsEveryProperty();
    void keepsTextAsItStands_data();
    void keepsTextAsItStands();
    void scepFollowsTheMode_data();
    void scepFollowsTheMode();
    void unknownNetworkHasNameAndDefaults();
    void loadForgetsTheEarlierNetwork();
    void listsNamesInTheOrderOfTheFile();
    void textIsStable();
    void textIsOneLineOfPlainAscii();
    void everyPropertyIsAmongTheChanges();
    void everyPropertyChangesTheText_data();
    void everyPropertyChangesTheText();
    void textTellsSimilarDefinitionsApart_data();
    void textTellsSimilarDefinitionsApart();
    void textShowsNoSecret_data();
    void textShowsNoSecret();
    void textDoesNotShowThatSecretsAreEqual();
    void textHidesSecretsAnewInEachProcess();
};

void TestZebNetConfig::hasDefaults()
{
    const ZebNetConfig config = LoadedNetwork("");

    QCOMPARE(config.name, "Office");
    QCOMPARE(config.GetName(), "Office");
    QCOMPARE(config.securityMode, "Unsecured");
    QCOMPARE(config.scanSsid, false);
    QCOMPARE(config.priority, 0);
    QCOMPARE(config.band, QString());
    QCOMPARE(config.useBgScan, false);
    QCOMPARE(config.bgScanShortInterval, 30);
    QCOMPARE(config.bgScanSignal, -70);
    QCOMPARE(config.bgScanLongInterval, 600);
    QCOMPARE(config.wepKey + config.passphrase + config.identity + config.password, QString());
    QCOMPARE(config.caCert, "none");
    QCOMPARE(config.clientCert, "none");
    QCOMPARE(config.privateKey, "none");
    QCOMPARE(config.privateKeyPassword, QString());
    QCOMPARE(config.cipher, "CCMP TKIP");
    QCOMPARE(config.pacFile, "eap-fast.pac");
    QCOMPARE(config.scep, false);
    QCOMPARE(config.allowWeakCerts, false);
    QCOMPARE(config.dot1xFallback, QString());
    QCOMPARE(config.staticIp, false);
    QCOMPARE(config.ipAddress + config.netmask + config.gateway, QString());
    QCOMPARE(config.staticDns, false);
    QCOMPARE(config.dns1 + config.dns2 + config.domain, QString());
    QCOMPARE(config.hosts, QStringList());
    QCOMPARE(config.speed + config.mtu, QString());
}

void TestZebNetConfig::loadsEveryProperty()
{
    TestSupport::WriteStore(R"(<networkconfig><network>
        <name>Office</name> <securityMode>WPA Personal 3</securityMode> <ssid>the ssid</ssid>
        <scanSsid>true</scanSsid> <priority>7</priority> <band>5.0</band> <useBgScan>true</useBgScan>
        <bgScanShortInterval>11</bgScanShortInterval> <bgScanSignal>-60</bgScanSignal>
        <bgScanLongInterval>111</bgScanLongInterval>
        <wepKey>"abcde"</wepKey> <passphrase>the passphrase</passphrase> <identity>the identity</identity>
        <password>the password</password> <caCert>ca.pem</caCert> <clientCert>client.pem</clientCert>
        <privateKey>/etc/key.pem</privateKey> <privateKeyPassword>the key password</privateKeyPassword>
        <cipher>GCMP</cipher> <pacFile>my.pac</pacFile> <scep>true</scep>
        <allowWeakCerts>true</allowWeakCerts> <dot1xFallback>fallback</dot1xFallback>
        <staticIp>true</staticIp> <ipAddress>10.0.0.5</ipAddress> <netmask>255.255.255.0</netmask>
        <gateway>10.0.0.1</gateway> <staticDns>true</staticDns> <dns1>10.0.0.2</dns1> <dns2>fd00::2</dns2>
        <domain>example.com</domain> <hosts><host>10.0.0.3 a</host><host>10.0.0.4 b</host></hosts>
        <speed>100 Mbps Full</speed> <mtu>1400</mtu>
        </network></networkconfig>)");
    ZebNetConfig config(nullptr);

    QVERIFY(config.Load("Office", false));

    QCOMPARE(config.securityMode, "WPA Personal 3");
    QCOMPARE(config.ssid, "the ssid");
    QCOMPARE(config.scanSsid, true);
    QCOMPARE(config.priority, 7);
    QCOMPARE(config.band, "5.0");
    QCOMPARE(config.useBgScan, true);
    QCOMPARE(config.bgScanShortInterval, 11);
    QCOMPARE(config.bgScanSignal, -60);
    QCOMPARE(config.bgScanLongInterval, 111);
    QCOMPARE(config.wepKey, "\"abcde\"");
    QCOMPARE(config.passphrase, "the passphrase");
    QCOMPARE(config.identity, "the identity");
    QCOMPARE(config.password, "the password");
    QCOMPARE(config.caCert, "ca.pem");
    QCOMPARE(config.clientCert, "client.pem");
    QCOMPARE(config.privateKey, "/etc/key.pem");
    QCOMPARE(config.privateKeyPassword, "the key password");
    QCOMPARE(config.cipher, "GCMP");
    QCOMPARE(config.pacFile, "my.pac");
    QCOMPARE(config.scep, true);
    QCOMPARE(config.allowWeakCerts, true);
    QCOMPARE(config.dot1xFallback, "fallback");
    QCOMPARE(config.staticIp, true);
    QCOMPARE(config.ipAddress, "10.0.0.5");
    QCOMPARE(config.netmask, "255.255.255.0");
    QCOMPARE(config.gateway, "10.0.0.1");
    QCOMPARE(config.staticDns, true);
    QCOMPARE(config.dns1, "10.0.0.2");
    QCOMPARE(config.dns2, "fd00::2");
    QCOMPARE(config.domain, "example.com");
    QCOMPARE(config.hosts, (QStringList{"10.0.0.3 a", "10.0.0.4 b"}));
    QCOMPARE(config.speed, "100 Mbps Full");
    QCOMPARE(config.mtu, "1400");
}

void TestZebNetConfig::keepsTextAsItStands_data()
{
    QTest::addColumn<QByteArray>("stored");
    QTest::addColumn<QString>("expected");
    QTest::newRow("blanks around") << QByteArray("  x ") << "  x ";
    QTest::newRow("quotes") << QByteArray("a\"b'c") << "a\"b'c";
    QTest::newRow("markup escaped") << QByteArray("a&lt;b&gt;&amp;&quot;") << "a<b>&\"";
    QTest::newRow("section of characters") << QByteArray("<![CDATA[a<b]]>c") << "a<bc";
    QTest::newRow("comment inside") << QByteArray("a<!-- not this -->b") << "ab";
    QTest::newRow("beyond ASCII") << QByteArray("\xc3\xa9\xf0\x9f\x98\x80")
                                  << QString::fromUtf8("\xc3\xa9\xf0\x9f\x98\x80");
    QTest::newRow("percent signs") << QByteArray("%1 %s %%") << "%1 %s %%";
}

void TestZebNetConfig::keepsTextAsItStands()
{
    QFETCH(QByteArray, stored);

    QTEST(LoadedNetwork("<identity>" + stored + "</identity>").identity, "expected");
}

void TestZebNetConfig::scepFollowsTheMode_data()
{
    QTest::addColumn<QByteArray>("elements");
    QTest::addColumn<bool>("expected");
    QTest::newRow("wired SCEP mode") << QByteArray("<securityMode>802.1X (TLS/EAP with SCEP)</securityMode>")
                                     << true;
    QTest::newRow("wireless SCEP mode")
        << QByteArray("<securityMode>WPA Enterprise 1/2 (TLS with SCEP)</securityMode>") << true;
    QTest::newRow("plain TLS") << QByteArray("<securityMode>WPA Enterprise 1/2 (TLS)</securityMode>")
                               << false;
    QTest::newRow("SCEP mode, switched off")
        << QByteArray("<securityMode>802.1X (TLS/EAP with SCEP)</securityMode><scep>false</scep>") << false;
    QTest::newRow("plain TLS, switched on")
        << QByteArray("<scep>true</scep><securityMode>802.1X (TLS/EAP)</securityMode>") << true;
    QTest::newRow("SCEP mode, bad switch")
        << QByteArray("<securityMode>802.1X (TLS/EAP with SCEP)</securityMode><scep>no</scep>") << true;
}

void TestZebNetConfig::scepFollowsTheMode()
{
    QFETCH(QByteArray, elements);

    QTEST(LoadedNetwork(elements).scep, "expected");
}

void TestZebNetConfig::unknownNetworkHasNameAndDefaults()
{
    WriteNetwork("");
    ZebNetConfig config(nullptr);

    QVERIFY(!config.Load("Home", false));

    QCOMPARE(config.GetName(), "Home");
    QCOMPARE(config.ssid, QString());
    QCOMPARE(config.securityMode, "Unsecured");
}

void TestZebNetConfig::loadForgetsTheEarlierNetwork()
{
    ZebNetConfig config = LoadedNetwork("<identity>somebody</identity><mtu>1400</mtu>");
    WriteNetwork("");

    QVERIFY(config.Load("Office", false));

    QCOMPARE(config.identity, QString());
    QCOMPARE(config.mtu, QString());
}

void TestZebNetConfig::listsNamesInTheOrderOfTheFile()
{
    TestSupport::WriteStore("<c><network><name>lan2</name></network><useNewDriver>true</useNewDriver>"
                            "<network><name>lan1</name></network><network><name>lan10</name></network></c>");

    QCOMPARE(ZebNetConfig::GetNetworkNames(), (QStringList{"lan2", "lan1", "lan10"}));
}

void TestZebNetConfig::textIsStable()
{
    const QByteArray elements =
        "<passphrase>the passphrase</passphrase><hosts><host>10.0.0.3 a</host></hosts>";

    QCOMPARE(LoadedNetwork(elements).toString(), LoadedNetwork("<mtu></mtu>" + elements).toString());
}

void TestZebNetConfig::textIsOneLineOfPlainAscii()
{
    const QString text = LoadedNetwork(R"(<identity>Zoë; \ 😀</identity>)").toString();

    QVERIFY(std::all_of(text.begin(), text.end(),
                        [](QChar c) { return c.unicode() >= 0x20 && c.unicode() < 0x7f; }));
    QVERIFY(text.contains(R"(identity=Zo\u00eb\u003b \u005c \ud83d\ude00;)"));
}

void TestZebNetConfig::everyPropertyIsAmongTheChanges()
{
    for (const ZebProperty &property : ZebProperties::All()) {
        const QByteArray element = QByteArray("<") + property.key + '>';
        if (element == "<name>")
            continue; // By which it is found.
        QVERIFY2(
            std::any_of(std::begin(CHANGES), std::end(CHANGES),
                        [&element](const char *change) { return QByteArray(change).startsWith(element); }),
            property.key);
    }
}

void TestZebNetConfig::everyPropertyChangesTheText_data()
{
    QTest::addColumn<QByteArray>("element");
    for (const char *element : CHANGES)
        QTest::newRow(element) << QByteArray(element);
}

void TestZebNetConfig::everyPropertyChangesTheText()
{
    QFETCH(QByteArray, element);
    const QString before = LoadedNetwork("").toString();

    const QString after = LoadedNetwork(element).toString();

    QVERIFY(after != before);
}

void TestZebNetConfig::textTellsSimilarDefinitionsApart_data()
{
    QTest::addColumn<QByteArray>("one");
    QTest::addColumn<QByteArray>("other");
    QTest::newRow("one character of a secret") << QByteArray("<passphrase>passphrase</passphrase>")
                                               << QByteArray("<passphrase>passphrasf</passphrase>");
    QTest::newRow("character beyond Latin-1")
        << QByteArray("<identity>\xe2\x82\xac</identity>") << QByteArray("<identity>?</identity>");
    QTest::newRow("a separator in the text")
        << QByteArray("<identity>a</identity><pacFile>b</pacFile>")
        << QByteArray("<identity>a; password=; caCert=none</identity><pacFile>b</pacFile>");
    QTest::newRow("an escape in the text")
        << QByteArray("<identity>\xc3\xa9</identity>") << QByteArray("<identity>\\u00e9</identity>");
    QTest::newRow("hosts split otherwise")
        << QByteArray("<hosts><host>10.0.0.5 a,b</host></hosts>")
        << QByteArray("<hosts><host>10.0.0.5 a</host><host>b</host></hosts>");
    QTest::newRow("secret moved") << QByteArray("<passphrase>x</passphrase>")
                                  << QByteArray("<password>x</password>");
}

void TestZebNetConfig::textTellsSimilarDefinitionsApart()
{
    QFETCH(QByteArray, one);
    QFETCH(QByteArray, other);

    QVERIFY(LoadedNetwork(one).toString() != LoadedNetwork(other).toString());
}

void TestZebNetConfig::textShowsNoSecret_data()
{
    QTest::addColumn<QString>("property");
    QTest::addColumn<QString>("secret");
    QTest::newRow("WEP key") << "wepKey"
                             << "0123456789abcdef0123456789";
    QTest::newRow("passphrase") << "passphrase"
                                << "Sesame-7f3a9c";
    QTest::newRow("password") << "password"
                              << "Sesame-7f3a9c";
    QTest::newRow("private key password") << "privateKeyPassword"
                                          << "Sesame-7f3a9c";
}

void TestZebNetConfig::textShowsNoSecret()
{
    QFETCH(QString, property);
    QFETCH(QString, secret);
    const QByteArray element = QString("<%1>%2</%1>").arg(property, secret).toUtf8();

    const QString text = LoadedNetwork(element).toString();

    QVERIFY(!text.contains(secret));
    const QByteArray plainDigest =
        QCryptographicHash::hash(secret.toUtf8(), QCryptographicHash::Sha256).toHex();
    QVERIFY(!text.contains(QString::fromLatin1(plainDigest)));
    QVERIFY(QRegularExpression(property + "=[0-9a-f]{64};").match(text).hasMatch());
}

void TestZebNetConfig::textDoesNotShowThatSecretsAreEqual()
{
    const QString text =
        LoadedNetwork("<passphrase>the same</passphrase><password>the same</password>").toString();

    const QRegularExpression digests("passphrase=([0-9a-f]+);.* password=([0-9a-f]+);");
    const QRegularExpressionMatch match = digests.match(text);
    QVERIFY(match.hasMatch());
    QVERIFY(match.captured(1) != match.captured(2));
}

void TestZebNetConfig::textHidesSecretsAnewInEachProcess()
{
    TestSupport::WriteStore("<x><network><name>lan</name><password>Sesame-7f3a9c</password></network></x>");
    const auto textOfAnotherProcess = [] {
        QProcess process;
        process.start(READSTORE, QStringList());
        process.waitForFinished();
        return process.readAllStandardOutput();
    };

    const QByteArray first = textOfAnotherProcess();
    const QByteArray second = textOfAnotherProcess();

    QVERIFY2(first.startsWith("name=lan; ") && first.contains(" password="), first.constData());
    QVERIFY(first != second);
    QCOMPARE(first.size(), second.size());
}

QTEST_GUILESS_MAIN(TestZebNetConfig)
#include "tst_zebnetconfig.moc"
