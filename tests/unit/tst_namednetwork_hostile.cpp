// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "namednetwork.h"

#include "networkworld.h"
#include "supplicantline.h"

#include <QProcess>
#include <QRandomGenerator>

namespace {

/// All that came to light since the last call: the log, the debug output.
QString Shown()
{
    return TestSupport::LogText() + debugOutput->Take().join('\n');
}

/// What the real supplicant says of the written file; the interface does not exist, so it ends after that.
QByteArray RealReading()
{
    QProcess supplicant;
    supplicant.setProcessChannelMode(QProcess::MergedChannels);
    supplicant.start("/usr/sbin/wpa_supplicant", {"-dd", "-Dwired", "-inope0", "-c" + FILE_PATH});
    supplicant.waitForFinished();
    return supplicant.readAll();
}

/// The bytes that the supplicant took for `key`: rows of 16 under a headline, each in hexadecimal and then
/// as text.
QByteArray ValueTaken(const QByteArray &reading, const QByteArray &key)
{
    const QByteArrayList lines =
        reading.mid(reading.indexOf('\n' + key + " - hexdump_ascii(") + 1).split('\n');
    QByteArray value;
    for (const QByteArray &line : lines.mid(1)) {
        if (!line.startsWith("     "))
            break;
        value += QByteArray::fromHex(line.mid(5, 48));
    }
    return value;
}

} // namespace

/// Values of any kind: what reaches the file, the supplicant and the log.
class TestNamedNetworkHostile : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { StartNetworkFromNothing(); }
    void cleanup() { EndNetwork(); }

    void networkThatCostsAllOthersIsLeftOut_data();
    void networkThatCostsAllOthersIsLeftOut();
    void problemIsToldOncePerChange();
    void problemOfADefinitionThatKeepsChangingIsToldAFewTimes();
    void lineFeedNeverReachesTheFile();
    void ssidOf32BytesIsTaken_data();
    void ssidOf32BytesIsTaken();
    void supplicantTakesTheExtraOptions();
    void fiveHundredDefinitionsBecomeOneFile();
    void supplicantTakesTheFileOfAnyStore();
    void storeAndWriterAgree_data();
    void storeAndWriterAgree();
    void noSecretIsLogged();
};

void TestNamedNetworkHostile::networkThatCostsAllOthersIsLeftOut_data()
{
    QTest::addColumn<Properties>("properties");
    QTest::addColumn<QString>("reason");

    QTest::newRow("comment in the name of a SCEP file")
        << Wireless("WPA Enterprise 1/2 (TLS with SCEP)")
        << "client_cert holds a number sign after a quote, which begins a comment";
    QTest::newRow("no SSID for a wired mode") << Properties{{"securityMode", "802.1X (PEAP/MSCHAPv2)"}}
                                              << "ssid is empty, which stands for any network";
    QTest::newRow("no such definition") << Properties{} << "ssid is empty, which stands for any network";
}

void TestNamedNetworkHostile::networkThatCostsAllOthersIsLeftOut()
{
    QFETCH(Properties, properties);
    QFETCH(QString, reason);
    WriteScepFiles({"a\"#b.crt"});
    WriteNetwork(properties.isEmpty() ? "Another" : "Left out", properties);

    const NamedNetwork network("Left out", false, nullptr);

    QCOMPARE(network.Block(), QStringList());
    const QString line =
        "NamedNetwork::BuildNetworkOptions -- network Left out: " + reason + ", the network is left out \n";
    QVERIFY2(TestSupport::LogText().contains(line), qPrintable(TestSupport::LogText()));
}

void TestNamedNetworkHostile::problemIsToldOncePerChange()
{
    Logging::GetInstance(Logging::KEEP_LEVEL, false)->SetLoggingLevel(Level::NOTICE);
    const auto linesAfterLoad = [](const QString &identity) {
        WriteNetwork("Told", Wireless("WPA Enterprise 1/2 (TLS with SCEP)", {{"identity", identity}}));
        const NamedNetwork network("Told", false, nullptr);
        return TestSupport::LogText().count('\n');
    };
    WriteScepFiles({"a\"#b.crt"});

    QCOMPARE(linesAfterLoad("user"), 1);
    QCOMPARE(linesAfterLoad("user"), 1);
    QCOMPARE(linesAfterLoad("other"), 2);
    TestSupport::Remove(SCEP_FOLDER);
    QCOMPARE(linesAfterLoad("other"), 2);
    WriteScepFiles({"a\"#b.crt"});
    QCOMPARE(linesAfterLoad("other"), 3);
    // It was in order in between: as many are told as of a new one.
    QCOMPARE(linesAfterLoad("third"), 4);
    QCOMPARE(linesAfterLoad("fourth"), 5);
}

void TestNamedNetworkHostile::problemOfADefinitionThatKeepsChangingIsToldAFewTimes()
{
    Logging::GetInstance(Logging::KEEP_LEVEL, false)->SetLoggingLevel(Level::NOTICE);
    WriteScepFiles({"a\"#b.crt"});

    for (int version = 0; version < 20; ++version) {
        WriteNetwork("Changing", Wireless("WPA Enterprise 1/2 (TLS with SCEP)",
                                          {{"identity", QString::number(version)}}));
        const NamedNetwork network("Changing", false, nullptr);
    }

    QCOMPARE(TestSupport::LogText().count('\n'), 3);
}

void TestNamedNetworkHostile::lineFeedNeverReachesTheFile()
{
    // A file name is the one text in a block that does not come from the store.
    WriteScepFiles({"a\npsk=evil.crt"});
    WriteNetwork("lan", {{"securityMode", "802.1X (TLS/EAP with SCEP)"}});

    const NamedNetwork network("lan", false, nullptr);

    QCOMPARE(network.Block(), QStringList());
    QVERIFY(TestSupport::LogText().contains("network lan: client_cert holds a control character"));
}

void TestNamedNetworkHostile::ssidOf32BytesIsTaken_data()
{
    QTest::addColumn<QString>("ssid");

    QTest::newRow("ASCII") << QString(32, 'x');
    QTest::newRow("UTF-8 of two bytes") << QString(16, QChar(0xe9));
    QTest::newRow("UTF-8 of four bytes") << QString::fromUtf8("\xf0\x9f\x98\x80").repeated(8);
    QTest::newRow("quotes") << QString(32, '"');
    QTest::newRow("signs") << "#='\\{}$()&<>;|`~!@%^*_+[]:,.?/-x";
    QTest::newRow("blanks around") << "  x  ";
}

void TestNamedNetworkHostile::ssidOf32BytesIsTaken()
{
    QFETCH(QString, ssid);
    Properties properties = Wireless("Unsecured");
    properties.insert("ssid", ssid);
    WriteNetwork("Home", properties);

    const NamedNetwork network("Home", false, nullptr);

    QCOMPARE(Values(network, "ssid"), QStringList{'"' + ssid + '"'});
    QVERIFY(WpaSupplicantCfg::WriteCfg(network.Block()));
    QCOMPARE(ValueTaken(RealReading(), "ssid").toHex(), ssid.toUtf8().toHex());
}

void TestNamedNetworkHostile::supplicantTakesTheExtraOptions()
{
    TestSupport::WriteFile("/tmp/config/files/wpa_supp_wifi", "bssid=02:00:00:00:00:05\n\ndisabled=1\n");
    WriteNetwork("Home", Wireless("WPA Personal 3", {{"passphrase", "s3cret"}}));
    const NamedNetwork network("Home", false, nullptr);
    QVERIFY(network.Block().contains("\t#START TEST CONF\n"));
    QVERIFY(WpaSupplicantCfg::WriteCfg(network.Block()));

    const QByteArray said = RealReading();

    QVERIFY2(!said.contains("Failed to read or parse") && !said.contains("Line "), said.constData());
    QVERIFY(said.contains("\nBSSID - hexdump(len=6): 02 00 00 00 00 05\n"));
    QVERIFY(said.contains("\ndisabled=1 (0x1)\n"));
    // What follows them counts as before.
    QVERIFY(said.contains("\nkey_mgmt: 0x400\n"));
}

void TestNamedNetworkHostile::fiveHundredDefinitionsBecomeOneFile()
{
    QByteArray xml = "<networkconfig>";
    for (int i = 0; i < 500; ++i)
        xml += "<network>" + Element("name", QString("net%1").arg(i, 3, 10, QChar('0'))) +
               Element("ssid", QString("ssid%1").arg(i)) + Element("securityMode", "WPA Personal 3") +
               Element("passphrase", QString("passphrase%1").arg(i)) + "</network>";
    TestSupport::WriteStore(xml + "</networkconfig>");

    QStringList lines;
    QStringList names = ZebNetConfig::GetNetworkNames();
    for (const QString &name : qAsConst(names))
        lines += NamedNetwork(name, false, nullptr).Block();
    QVERIFY(WpaSupplicantCfg::WriteCfg(lines));

    QCOMPARE(names.size(), 500);
    const QByteArray written = TestSupport::ReadFile(FILE_PATH);
    QCOMPARE(written.count("\nnetwork={\n"), 500);
    QVERIFY(written.contains("\tssid=\"ssid499\"\n"));
    QVERIFY(written.indexOf("\"ssid0\"") < written.indexOf("\"ssid499\""));
}

void TestNamedNetworkHostile::supplicantTakesTheFileOfAnyStore()
{
    // A fixed seed: what fails once fails again.
    QRandomGenerator random(20);
    const QStringList pieces = {"\"",    "#",
                                "\\",    "=",
                                "{",     "}",
                                " ",     "\t",
                                "\n",    QString(QChar(0xe9)),
                                "0",     "none",
                                "CCMP",  "automatic",
                                "short", "long enough",
                                "'",     "network={",
                                "}\n",   QString::fromUtf8("\xf0\x9f\x94\x91"),
                                "P\"",   "a1b2c3d4e5",
                                "$mac",  QString(400, 'x')};
    const QStringList keys = {"ssid",     "wepKey", "passphrase", "identity",    "password",
                              "caCert",   "cipher", "clientCert", "privateKey",  "privateKeyPassword",
                              "priority", "band",   "pacFile",    "bgScanSignal"};
    const auto any = [&random](const QStringList &list) {
        return list.at(random.bounded(list.size()));
    };
    QByteArray xml = "<networkconfig>";
    for (int i = 0; i < 400; ++i) {
        Properties properties = {{"securityMode", any(SecurityModes.keys())},
                                 {"ssid", "Office"},
                                 {"passphrase", "long enough"},
                                 {"wepKey", "a1b2c3d4e5"},
                                 {"scep", "false"}};
        for (int change = random.bounded(3); change > 0; --change)
            properties.insert(any(keys), any(pieces) + any(pieces) + any(pieces));
        xml += "<network>" + Element("name", any({"lan", "Home"}) + QString::number(i));
        for (auto property = properties.begin(); property != properties.end(); ++property)
            xml += Element(property.key(), property.value());
        xml += "</network>";
    }
    TestSupport::WriteStore(xml + "</networkconfig>");

    QStringList lines;
    int blocks = 0;
    const QStringList names = ZebNetConfig::GetNetworkNames();
    for (const QString &name : names) {
        const NamedNetwork network(name, false, nullptr);
        blocks += network.Block().isEmpty() ? 0 : 1;
        lines += network.Block();
    }
    QVERIFY(WpaSupplicantCfg::WriteCfg(lines));

    const QByteArray said = RealReading();
    QVERIFY2(!said.contains("Failed to read or parse"), said.right(4000).constData());
    QCOMPARE(said.count(" - start of a new network block"), blocks);
    QVERIFY(!said.contains("this network block will be ignored"));
    QVERIFY2(blocks > 150 && blocks < 400, QByteArray::number(blocks).constData());
}

void TestNamedNetworkHostile::storeAndWriterAgree_data()
{
    QTest::addColumn<QString>("property");
    QTest::addColumn<QString>("value");
    QTest::addColumn<bool>("isGood");

    for (const char *cipher : {"CCMP", "TKIP", "GCMP", "CCMP-256", "GCMP-256", "CCMP TKIP"})
        QTest::newRow(cipher) << "cipher" << cipher << true;
    for (const char *cipher : {"ccmp", "CCMP,TKIP", "WEP40", "NONE"})
        QTest::newRow(cipher) << "cipher" << cipher << false;
    for (int length = 4; length <= 33; ++length)
        QTest::addRow("WEP key of %d digits", length)
            << "wepKey" << QString(length, 'a') << (length == 10 || length == 26 || length == 32);
    for (int length = 4; length <= 17; ++length)
        QTest::addRow("WEP text of %d bytes", length)
            << "wepKey" << '"' + QString(length, 'x') + '"' << (length == 5 || length == 13 || length == 16);
    for (const int length : {1, 7, 8, 63, 64})
        QTest::addRow("passphrase of %d bytes", length)
            << "passphrase" << QString(length, 'x') << (length == 8 || length == 63);
}

void TestNamedNetworkHostile::storeAndWriterAgree()
{
    QFETCH(QString, property);
    QFETCH(QString, value);
    QFETCH(bool, isGood);
    const QMap<QString, QString> modes = {{"cipher", "eap_tls"}, {"wepKey", "wep"}, {"passphrase", "wpa"}};
    const QMap<QString, QPair<QString, QString>> lines = {{"cipher", {"pairwise", value}},
                                                          {"wepKey", {"wep_key0", value}},
                                                          {"passphrase", {"psk", '"' + value + '"'}}};
    WriteNetwork("Home", Wireless(modes.value(property), {{property, value}}));

    ZebNetConfig stored(nullptr);
    stored.Load("Home", false);
    const QMap<QString, QString> taken = {
        {"cipher", stored.cipher}, {"wepKey", stored.wepKey}, {"passphrase", stored.passphrase}};

    QCOMPARE(taken.value(property) == value && stored.ssid == "Office", isGood);
    const auto line = lines.value(property);
    QCOMPARE(SupplicantLineProblem(line.first, line.second).isEmpty(), isGood);
}

void TestNamedNetworkHostile::noSecretIsLogged()
{
    const Properties secrets = {{"wepKey", "5ec4e7000a"},
                                {"passphrase", "s3cret phrase"},
                                {"password", "s3cret word"},
                                {"privateKeyPassword", "s3cret key"}};
    for (const char *name : {"Home", "lan"}) {
        for (const QString &mode : SecurityModes.keys()) {
            WriteNetwork(name, Wireless(mode, secrets));
            NamedNetwork network(name, false, nullptr);
            QVERIFY(!network.ReloadRequired());
            QVERIFY(WpaSupplicantCfg::WriteCfg(network.Block()));
        }
        // Also where a value is complained of.
        Properties bad = Wireless("eap_tls", secrets);
        bad["privateKeyPassword"] += "\"#";
        WriteNetwork(name, bad);
        const NamedNetwork network(name, false, nullptr);
    }

    const QString shown = Shown();
    QVERIFY(shown.contains("NetworkDevice::Load props"));
    QVERIFY(shown.contains("privateKeyPassword: holds a number sign"));
    QVERIFY(shown.contains("WpaSupplicantCfg::SetSSID"));
    for (const QString &secret : secrets)
        QVERIFY(!shown.contains(secret));
    // Nor what stands for them in the file: the hashed key and the NT hash work like the secret itself.
    WriteNetwork("Home", Wireless("WPA Personal 1/2", secrets));
    const QString key = Values(NamedNetwork("Home", false, nullptr), "psk").value(0);
    WriteNetwork("lan", Wireless("802.1X (PEAP/MSCHAPv2)", secrets));
    const QString hash = Values(NamedNetwork("lan", false, nullptr), "password").value(0).mid(5);
    QCOMPARE(key.size(), 64);
    QCOMPARE(hash.size(), 32);
    const QString shownSince = Shown();
    QVERIFY(!shownSince.contains(key));
    QVERIFY(!shownSince.contains(hash));
}

QTEST_GUILESS_MAIN(TestNamedNetworkHostile)
#include "tst_namednetwork_hostile.moc"
