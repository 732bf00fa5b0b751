// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "namednetwork.h"

#include "allocationcounter.h"
#include "debugoutput.h"
#include "logging.h"
#include "testsupport.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QRandomGenerator>
#include <QtTest>

#include <optional>

namespace {

const QString FILE_PATH = QStringLiteral("/tmp/wpa_supplicant.conf");
const QString DRIVER_FLAG = QStringLiteral("/tmp/config/files/use_nl_driver");
const QString SCEP_FOLDER = QStringLiteral("/tmp/config/files/scep/");
const QString SCEP_CA = QStringLiteral("/etc/ssl/certs/scepCA-%1.crt");

/// The debug output of the test.
std::optional<DebugOutput> debugOutput;

/// All that came to light since the last call: the log, the debug output.
QString Shown()
{
    return TestSupport::LogText() + debugOutput->Take().join('\n');
}

QByteArray Element(const QString &key, const QString &value)
{
    return '<' + key.toUtf8() + '>' + value.toHtmlEscaped().toUtf8() + "</" + key.toUtf8() + '>';
}

using Properties = QMap<QString, QString>;

/// A store with these settings and one network; each write is a new version of the file.
void WriteNetwork(const QString &name, const Properties &properties, const Properties &settings = {})
{
    QByteArray xml = "<networkconfig>";
    for (auto setting = settings.begin(); setting != settings.end(); ++setting)
        xml += Element(setting.key(), setting.value());
    xml += "<network>" + Element("name", name);
    for (auto property = properties.begin(); property != properties.end(); ++property)
        xml += Element(property.key(), property.value());
    TestSupport::WriteStore(xml + "</network></networkconfig>\n");
}

Properties Wireless(const QString &securityMode, const Properties &more = {})
{
    Properties properties = more;
    properties.insert("ssid", "Office");
    properties.insert("securityMode", securityMode);
    return properties;
}

void WriteScepFiles(const QStringList &names)
{
    for (const QString &name : names)
        TestSupport::WriteFile(SCEP_FOLDER + name, "");
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

QStringList Values(const NamedNetwork &network, const QString &key)
{
    return network.Block().filter('\t' + key + '=').replaceInStrings('\t' + key + '=', "");
}

} // namespace

class TestNamedNetwork : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void nameDecidesTheKind_data();
    void nameDecidesTheKind();
    void loadRemembersTheDefinition();
    void sameDefinitionHasTheSameFingerprint();
    void changeOfAPropertyAsksForAReload_data();
    void changeOfAPropertyAsksForAReload();
    void loadOfAnotherNameReplacesAll();
    void unsecuredIsToldByItsBeginning_data();
    void unsecuredIsToldByItsBeginning();
    void displayNameBecomesAModeKey_data();
    void displayNameBecomesAModeKey();
    void unknownModeIsKept();
    void modeLineThatIsNotWrittenAllocatesNothing();
    void storedModeKeyIsKept_data();
    void storedModeKeyIsKept();
    void driverIsChosenByStoreOrFlagFile_data();
    void driverIsChosenByStoreOrFlagFile();
    void driverFlagThatOthersMayWriteIsNotObeyed();

    void definitionBecomesTheFile_data();
    void definitionBecomesTheFile();
    void wiredNetworkHasABlockOnlyFor8021X_data();
    void wiredNetworkHasABlockOnlyFor8021X();
    void otherWirelessModesAreUnsecured_data();
    void otherWirelessModesAreUnsecured();
    void modeThatDoesNotFitIsTold_data();
    void modeThatDoesNotFitIsTold();
    void loadWithoutABlockLeavesNone();
    void settingsBecomeSwitches_data();
    void settingsBecomeSwitches();
    void settingsAreLogged();
    void settingsThatAreNotSetAreLoggedAsOff();
    void certificatesOfAWirelessTlsNetworkAreLogged_data();
    void certificatesOfAWirelessTlsNetworkAreLogged();
    void wpsSaeSettingEndsWithTheNextBlock();
    void weakCertificatesAreForTlsModes_data();
    void weakCertificatesAreForTlsModes();
    void lastTlsNetworkDecidesForTheWholeFile_data();
    void lastTlsNetworkDecidesForTheWholeFile();

    void scepKeyIsFilledIn_data();
    void scepKeyIsFilledIn();
    void scepCaIsTheNewestThatIsThere_data();
    void scepCaIsTheNewestThatIsThere();
    void scepClientCertificateIsLookedFor_data();
    void scepClientCertificateIsLookedFor();
    void scepSettingOffChangesNothing();
    void scepDefaultsAreNotForAWiredUnsecuredNetwork();
    void scepDaemonIsRestartedAfterTlsOnly_data();
    void scepDaemonIsRestartedAfterTlsOnly();
    void scepDaemonRunsInTheBackground();

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
    void noSecretIsLogged();
};

void TestNamedNetwork::init()
{
    WpaSupplicantCfg::_intel_sae_fix = true;
    WpaSupplicantCfg::_filterSsids = true;
    WpaSupplicantCfg::_useApScan = true;
    WpaSupplicantCfg::_allowWeakCerts = true;
    WpaSupplicantCfg::_fixWpa3 = false;
    Logging::GetInstance(Logging::KEEP_LEVEL, false)->SetLoggingLevel(Level::VERBOSE);
    for (int i = 0; i < 3; ++i)
        TestSupport::Remove(SCEP_CA.arg(i));
    TestSupport::Remove("/tmp/config/files");
    TestSupport::Remove(FILE_PATH);
    TestSupport::ClearAnswers();
    TestSupport::Answer("wpa_passphrase", "wpa_passphrase \"$@\"");
    // The shell line that restarts the SCEP daemon pauses for a second.
    TestSupport::AddProgram("sleep");
    TestSupport::ClearJournal();
    TestSupport::ClearLog();
    debugOutput.emplace();
}

void TestNamedNetwork::cleanup()
{
    // The shell starts the SCEP daemon in the background: it must not come into the next test's journal.
    const auto restarts = TestSupport::Journal().count("killall scepd");
    QTRY_COMPARE(TestSupport::Journal().count("scepd -d"), restarts);
    debugOutput.reset();
}

void TestNamedNetwork::nameDecidesTheKind_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("wired");
    QTest::addColumn<bool>("isWireless");

    QTest::newRow("any name") << "Office" << false << true;
    QTest::newRow("any name, wired") << "Office" << true << false;
    QTest::newRow("lan") << "lan" << false << false;
    QTest::newRow("lan and more") << "language school" << false << false;
    QTest::newRow("lan, wired") << "lan" << true << false;
    QTest::newRow("lan in capitals") << "LAN" << false << true;
    QTest::newRow("lan inside") << "wlan" << false << true;
    QTest::newRow("wiredeth") << "wiredeth0" << false << false;
    QTest::newRow("wiredeth in capitals") << "Wiredeth0" << false << true;
    QTest::newRow("wired") << "wired" << false << true;
    QTest::newRow("no name") << "" << false << true;
}

void TestNamedNetwork::nameDecidesTheKind()
{
    QFETCH(QString, name);
    QFETCH(bool, wired);

    QTEST(NamedNetwork::IsWirelessName(name, wired), "isWireless");
    QTEST(NamedNetwork(name, wired, nullptr).IsWireless(), "isWireless");
}

void TestNamedNetwork::loadRemembersTheDefinition()
{
    WriteNetwork("Home", Wireless("WPA Personal 3", {{"passphrase", "s3cret"}}));

    const NamedNetwork network("Home", false, nullptr);

    QCOMPARE(network.Name(), QString("Home"));
    QCOMPARE(network.Config()->ssid, QString("Office"));
    QVERIFY(network.Properties().contains("ssid=Office"));
    const QString logged =
        TestSupport::LogText().section("NetworkDevice::Load props --  ", 1).section(" \n", 0, 0);
    QVERIFY(logged.startsWith("name=Home; securityMode=WPA Personal 3; ssid=Office; "));
    QCOMPARE(network.PropsHash().toLatin1(),
             QCryptographicHash::hash(logged.toLatin1(), QCryptographicHash::Md5).toHex());
    QVERIFY(!network.ReloadRequired());
}

void TestNamedNetwork::sameDefinitionHasTheSameFingerprint()
{
    WriteNetwork("Home", Wireless("WPA Personal 3", {{"passphrase", "s3cret"}}));
    NamedNetwork network("Home", false, nullptr);
    const QString fingerprint = network.PropsHash();

    QVERIFY(network.Load("Home", true));

    QCOMPARE(network.PropsHash(), fingerprint);
    QCOMPARE(NamedNetwork("Home", false, nullptr).PropsHash(), fingerprint);
}

void TestNamedNetwork::changeOfAPropertyAsksForAReload_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("value");

    const QVector<QPair<const char *, const char *>> changes = {
        {"securityMode", "WEP"},
        {"ssid", "office"},
        {"scanSsid", "true"},
        {"priority", "1"},
        {"band", "5"},
        {"useBgScan", "true"},
        {"bgScanShortInterval", "31"},
        {"bgScanSignal", "-71"},
        {"bgScanLongInterval", "601"},
        {"wepKey", "\"abcde\""},
        {"passphrase", "s3cretS"},
        {"identity", "\u00e9"},
        {"password", "p"},
        {"caCert", "a"},
        {"clientCert", "a"},
        {"privateKey", "a"},
        {"privateKeyPassword", "a"},
        {"cipher", "CCMP"},
        {"pacFile", "a"},
        {"scep", "true"},
        {"allowWeakCerts", "true"},
        {"dot1xFallback", "fallback"},
        {"ipAddress", "10.0.0.2"},
        {"netmask", "255.0.0.0"},
        {"gateway", "10.0.0.1"},
        {"staticDns", "true"},
        {"dns1", "10.0.0.1"},
        {"dns2", "10.0.0.1"},
        {"domain", "example.com"},
        {"speed", "100 Mbps Full"},
        {"mtu", "1400"},
    };
    for (const auto &change : changes)
        QTest::newRow(change.first) << change.first << QString::fromUtf8(change.second);
}

void TestNamedNetwork::changeOfAPropertyAsksForAReload()
{
    QFETCH(QString, key);
    QFETCH(QString, value);
    Properties properties = Wireless("WPA Personal 3", {{"passphrase", "s3cret"}, {"wepKey", "\"edcba\""}});
    WriteNetwork("Home", properties);
    NamedNetwork network("Home", false, nullptr);
    const QString fingerprint = network.PropsHash();

    properties.insert(key, value);
    WriteNetwork("Home", properties);

    QVERIFY(network.ReloadRequired());
    QVERIFY(network.ReloadRequired());
    QCOMPARE(network.PropsHash(), fingerprint);
    network.Load("Home", true);
    QVERIFY(!network.ReloadRequired());
    QVERIFY(network.PropsHash() != fingerprint);
}

void TestNamedNetwork::loadOfAnotherNameReplacesAll()
{
    WriteNetwork("lan", {{"securityMode", "802.1X (PEAP/MSCHAPv2)"}, {"identity", "user"}});
    NamedNetwork network("Office", false, nullptr);

    network.Load("lan", false);

    QCOMPARE(network.Name(), QString("lan"));
    QVERIFY(!network.IsWireless());
    QCOMPARE(network.Config()->identity, QString("user"));
    QVERIFY(network.Block().contains("\teap=PEAP"));
    QVERIFY(!network.ReloadRequired());
}

void TestNamedNetwork::unsecuredIsToldByItsBeginning_data()
{
    QTest::addColumn<QString>("securityMode");
    QTest::addColumn<bool>("secured");

    QTest::newRow("display name") << "Unsecured" << false;
    QTest::newRow("mode key") << "unsecured" << false;
    QTest::newRow("capitals") << "UNSECURED" << false;
    QTest::newRow("beginning only") << "unsecure network" << false;
    QTest::newRow("shorter") << "unsecur" << true;
    QTest::newRow("inside") << "not unsecured" << true;
    QTest::newRow("WPA") << "WPA Personal 3" << true;
}

void TestNamedNetwork::unsecuredIsToldByItsBeginning()
{
    QFETCH(QString, securityMode);
    WriteNetwork("Home", Wireless(securityMode, {{"passphrase", "s3cret"}}));

    QTEST(NamedNetwork("Home", false, nullptr).IsSecured(), "secured");
}

void TestNamedNetwork::displayNameBecomesAModeKey_data()
{
    QTest::addColumn<QString>("displayName");
    QTest::addColumn<QString>("modeKey");

    QCOMPARE(SecurityModes.size(), 15);
    const QVector<QPair<const char *, const char *>> modes = {
        {"WEP", "wep"},
        {"WEP (Shared)", "wep_shared"},
        {"WPA Personal 1/2", "wpa"},
        {"WPA Personal 3", "sae"},
        {"WPA Personal 2/3", "wpa2_3"},
        {"WPA Enterprise 1/2 (TLS)", "eap_tls"},
        {"WPA Enterprise 1/2 (LEAP)", "eap_leap"},
        {"WPA Enterprise 1/2 (EAP-FAST)", "eap_fast"},
        {"WPA Enterprise 1/2 (PEAP/GTC)", "peap_gtc"},
        {"WPA Enterprise 1/2 (PEAP/MSCHAPv2)", "peap_mschapv2"},
        {"802.1X (TLS/EAP)", "wired_tls"},
        {"802.1X (TLS/EAP with SCEP)", "wired_tls"},
        {"802.1X (PEAP/MSCHAPv2)", "wired_peap"},
        {"WPA Enterprise 1/2 (TLS with SCEP)", "eap_tls"},
        {"Unsecured", "unsecured"},
    };
    for (const auto &mode : modes)
        QTest::newRow(mode.first) << mode.first << mode.second;
}

void TestNamedNetwork::displayNameBecomesAModeKey()
{
    QFETCH(QString, displayName);
    QFETCH(QString, modeKey);
    NamedNetwork network("lan", true, nullptr);
    network.Config()->securityMode = displayName;
    TestSupport::ClearLog();

    network.TranslateSecurityMode();
    QCOMPARE(network.Config()->securityMode, modeKey);
    QVERIFY(TestSupport::LogText().endsWith(" :  Security mode " + displayName + " modified to " + modeKey +
                                            " \n"));

    network.TranslateSecurityMode();
    QCOMPARE(network.Config()->securityMode, modeKey);
    QVERIFY(TestSupport::LogText().endsWith(" :  Security mode " + modeKey + " NOT FOUND \n"));
}

void TestNamedNetwork::unknownModeIsKept()
{
    NamedNetwork network("lan", true, nullptr);

    for (const char *mode : {"wpa personal 3", "WPA Personal 3 ", "", "OWE"}) {
        network.Config()->securityMode = mode;
        network.TranslateSecurityMode();

        QCOMPARE(network.Config()->securityMode, QString(mode));
        QVERIFY(TestSupport::LogText().endsWith(QString(" :  Security mode %1 NOT FOUND \n").arg(mode)));
    }
}

void TestNamedNetwork::modeLineThatIsNotWrittenAllocatesNothing()
{
    NamedNetwork network("lan", true, nullptr);
    const auto allocationsAt = [&network](int level, const QString &mode) {
        Logging::GetInstance(Logging::KEEP_LEVEL, false)->SetLoggingLevel(level);
        network.Config()->securityMode = mode;
        const long before = AllocationCounter::allocations;
        network.TranslateSecurityMode();
        return AllocationCounter::allocations - before;
    };
    const QString known("WEP");
    const QString unknown("OWE");

    QCOMPARE(allocationsAt(2, known), 0L);
    QCOMPARE(allocationsAt(2, unknown), 0L);
    QVERIFY2(allocationsAt(4, known) > 0, "the counter does not count");
}

void TestNamedNetwork::storedModeKeyIsKept_data()
{
    QTest::addColumn<QString>("modeKey");

    for (const QString &modeKey : QSet<QString>(SecurityModes.begin(), SecurityModes.end()))
        QTest::newRow(qPrintable(modeKey)) << modeKey;
}

void TestNamedNetwork::storedModeKeyIsKept()
{
    QFETCH(QString, modeKey);
    const Properties credentials = {
        {"passphrase", "long enough"}, {"wepKey", "\"abcde\""}, {"scep", "false"}};
    WriteNetwork("Home", Wireless(modeKey, credentials));
    const NamedNetwork byKey("Home", false, nullptr);
    QVERIFY(!TestSupport::LogText().contains("Security mode "));

    const QString displayName = SecurityModes.key(modeKey);
    WriteNetwork("Home", Wireless(displayName, credentials));
    const NamedNetwork byDisplayName("Home", false, nullptr);

    QCOMPARE(byKey.Config()->securityMode, modeKey);
    QCOMPARE(byKey.Block(), byDisplayName.Block());
    QVERIFY(!byKey.Block().isEmpty());
}

void TestNamedNetwork::driverIsChosenByStoreOrFlagFile_data()
{
    QTest::addColumn<QString>("setting");
    QTest::addColumn<bool>("flagFile");
    QTest::addColumn<bool>("useNewDriver");

    QTest::newRow("not set") << "" << false << false;
    QTest::newRow("not set, flag file") << "" << true << true;
    QTest::newRow("true") << "true" << false << true;
    QTest::newRow("true, flag file") << "true" << true << true;
    QTest::newRow("True") << "True" << false << false;
    QTest::newRow("True, flag file") << "True" << true << true;
    QTest::newRow("false, flag file") << "false" << true << true;
    QTest::newRow("1") << "1" << false << false;
}

void TestNamedNetwork::driverIsChosenByStoreOrFlagFile()
{
    QFETCH(QString, setting);
    QFETCH(bool, flagFile);
    WriteNetwork("Home", Wireless("Unsecured"), {{"useNewDriver", setting}});
    NamedNetwork network("Home", false, nullptr);
    if (flagFile)
        TestSupport::WriteFile(DRIVER_FLAG, "");

    QTEST(network.CheckWirelessDriver(), "useNewDriver");
}

void TestNamedNetwork::driverFlagThatOthersMayWriteIsNotObeyed()
{
    WriteNetwork("Home", Wireless("Unsecured"));
    TestSupport::WriteFile(DRIVER_FLAG, "");
    TestSupport::SetMode(DRIVER_FLAG, 0666);

    QVERIFY(!NamedNetwork("Home", false, nullptr).CheckWirelessDriver());
}

void TestNamedNetwork::definitionBecomesTheFile_data()
{
    QTest::addColumn<QStringList>("names");

    for (const char *name : {"wep", "wep_shared", "wpa", "sae", "wpa2_3", "eap_tls", "eap_tls_scep",
                             "eap_leap", "eap_fast", "peap_gtc", "peap_mschapv2", "unsecured"})
        QTest::newRow(name) << QStringList{name};
    QTest::newRow("wired_tls") << QStringList{"lan tls"};
    QTest::newRow("wired_tls_scep") << QStringList{"lan tls scep"};
    QTest::newRow("wired_peap") << QStringList{"wiredeth0"};
    QTest::newRow("several_wireless") << QStringList{"longest", "unsecured", "wpa"};
    QTest::newRow("several_wired") << QStringList{"lan open", "lan tls", "wiredeth0"};
    QTest::newRow("wired_and_wireless") << QStringList{"lan open", "wiredeth0", "peap_mschapv2", "sae"};
    QTest::newRow("one_left_out") << QStringList{"refused", "unsecured"};
    QTest::newRow("none") << QStringList{"lan open"};
}

void TestNamedNetwork::definitionBecomesTheFile()
{
    QFETCH(QStringList, names);
    TestSupport::WriteStore(TestSupport::ReadFile(QFINDTESTDATA("../golden/store.xml")));
    TestSupport::WriteFile("/etc/ssl/private/client.key", "");
    TestSupport::WriteFile(SCEP_CA.arg(1), "");
    WriteScepFiles({"machine.crt"});
    const QString goldenFile = QFINDTESTDATA(QString("../golden/%1.conf").arg(QTest::currentDataTag()));
    QVERIFY(!goldenFile.isEmpty());

    QStringList lines;
    for (const QString &name : names)
        lines += NamedNetwork(name, false, nullptr).Block();
    QVERIFY(WpaSupplicantCfg::WriteCfg(lines));

    QCOMPARE(QString::fromUtf8(TestSupport::ReadFile(FILE_PATH)),
             QString::fromUtf8(TestSupport::ReadFile(goldenFile)));
}

void TestNamedNetwork::wiredNetworkHasABlockOnlyFor8021X_data()
{
    QTest::addColumn<QString>("securityMode");
    QTest::addColumn<bool>("hasBlock");

    for (const QString &mode : SecurityModes.keys())
        QTest::newRow(qPrintable(mode)) << mode << mode.startsWith("802.1X");
    QTest::newRow("UNSECURED") << "UNSECURED" << false;
    QTest::newRow("unknown") << "OWE" << false;
}

void TestNamedNetwork::wiredNetworkHasABlockOnlyFor8021X()
{
    QFETCH(QString, securityMode);
    WriteNetwork("lan", Wireless(securityMode));

    const NamedNetwork network("lan", false, nullptr);

    QTEST(!network.Block().isEmpty(), "hasBlock");
    QVERIFY(Values(network, "ssid").isEmpty());
    QVERIFY(Values(network, "priority").isEmpty());
}

void TestNamedNetwork::otherWirelessModesAreUnsecured_data()
{
    QTest::addColumn<QString>("securityMode");

    for (const char *mode : {"OWE", "WPA_EAP", "802.1X (TLS/EAP)", "802.1X (PEAP/MSCHAPv2)", "Sae"})
        QTest::newRow(mode) << mode;
}

void TestNamedNetwork::otherWirelessModesAreUnsecured()
{
    QFETCH(QString, securityMode);
    WriteNetwork("Home", Wireless(securityMode));

    QCOMPARE(NamedNetwork("Home", false, nullptr).Block(),
             (QStringList{"network={", "\tssid=\"Office\"", "\tscan_ssid=1", "\tpriority=0",
                          "\tkey_mgmt=NONE", "}\n"}));
}

void TestNamedNetwork::modeThatDoesNotFitIsTold_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("securityMode");
    QTest::addColumn<QString>("problem");

    QTest::newRow("802.1X by a wireless name")
        << "wired 1"
        << "802.1X (PEAP/MSCHAPv2)"
        << "network wired 1: a wired mode, but the name makes it wireless: it is taken as unsecured";
    QTest::newRow("WPA by a wired name")
        << "lan party"
        << "WPA Enterprise 1/2 (LEAP)"
        << "network lan party: a wireless mode, but the name makes it wired: the supplicant gets nothing";
    QTest::newRow("802.1X by a wired name") << "lan 1"
                                            << "802.1X (PEAP/MSCHAPv2)"
                                            << "";
    QTest::newRow("LEAP by a wireless name") << "Office"
                                             << "WPA Enterprise 1/2 (LEAP)"
                                             << "";
    QTest::newRow("unsecured, wired") << "lan 2"
                                      << "Unsecured"
                                      << "";
    QTest::newRow("unsecured, wireless") << "Home"
                                         << "Unsecured"
                                         << "";
}

void TestNamedNetwork::modeThatDoesNotFitIsTold()
{
    QFETCH(QString, name);
    QFETCH(QString, securityMode);
    QFETCH(QString, problem);
    Logging::GetInstance(Logging::KEEP_LEVEL, false)->SetLoggingLevel(Level::NOTICE);
    WriteNetwork(name, Wireless(securityMode));

    const NamedNetwork network(name, false, nullptr);

    const QString text = TestSupport::LogText();
    if (problem.isEmpty())
        QCOMPARE(text, QString());
    else
        QVERIFY2(text.endsWith(problem + " \n") && text.count('\n') == 1, qPrintable(text));
}

void TestNamedNetwork::loadWithoutABlockLeavesNone()
{
    WriteNetwork("lan", {{"securityMode", "802.1X (PEAP/MSCHAPv2)"}});
    NamedNetwork network("lan", false, nullptr);
    QVERIFY(!network.Block().isEmpty());

    for (const char *mode : {"Unsecured", "WPA Personal 3"}) {
        WriteNetwork("lan", {{"securityMode", mode}});
        network.Load("lan", false);
        QCOMPARE(network.Block(), QStringList());
    }
}

void TestNamedNetwork::settingsBecomeSwitches_data()
{
    QTest::addColumn<QString>("value");
    QTest::addColumn<bool>("isOn");

    QTest::newRow("true") << "true" << true;
    QTest::newRow("false") << "false" << false;
    QTest::newRow("True") << "True" << false;
    QTest::newRow("not set") << "" << false;
}

void TestNamedNetwork::settingsBecomeSwitches()
{
    QFETCH(QString, value);
    QFETCH(bool, isOn);

    WriteNetwork("Home", Wireless("Unsecured"), {{"UseApScan", value}, {"FilterSsids", "true"}});
    const NamedNetwork apScan("Home", false, nullptr);
    QCOMPARE(WpaSupplicantCfg::_useApScan, isOn);
    QVERIFY(WpaSupplicantCfg::_filterSsids);

    WriteNetwork("Home", Wireless("Unsecured"), {{"UseApScan", "true"}, {"FilterSsids", value}});
    const NamedNetwork filter("Home", false, nullptr);
    QVERIFY(WpaSupplicantCfg::_useApScan);
    QCOMPARE(WpaSupplicantCfg::_filterSsids, isOn);
}

void TestNamedNetwork::settingsAreLogged()
{
    WriteNetwork("Home", Wireless("Unsecured", {{"useBgScan", "true"}}),
                 {{"FilterSsids", "true"}, {"useNewDriver", "true"}});

    const NamedNetwork network("Home", false, nullptr);

    const QString text = TestSupport::LogText();
    QVERIFY(text.contains(" :  NamedNetwork::BuildNetworkOptions -- Check if Wireless \n"));
    QVERIFY(text.contains(" :  NamedNetwork::BuildNetworkOptions -- Start building Wireless config \n"));
    QVERIFY(text.contains(
        " :  UseBgSettings= 1 UseApScan= 0 FilterSsids= 1 AddWpsSaeCred= 0 useNewDriver= 1 \n"));
}

void TestNamedNetwork::settingsThatAreNotSetAreLoggedAsOff()
{
    WriteNetwork("Home", Wireless("Unsecured"));

    const NamedNetwork network("Home", false, nullptr);

    QVERIFY(TestSupport::LogText().contains(
        " :  UseBgSettings= 0 UseApScan= 0 FilterSsids= 0 AddWpsSaeCred= 0 useNewDriver= 0 \n"));
}

void TestNamedNetwork::certificatesOfAWirelessTlsNetworkAreLogged_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("securityMode");
    QTest::addColumn<bool>("isLogged");

    QTest::newRow("wireless TLS") << "Home"
                                  << "WPA Enterprise 1/2 (TLS)" << true;
    QTest::newRow("wireless PEAP") << "Home"
                                   << "WPA Enterprise 1/2 (PEAP/MSCHAPv2)" << false;
    QTest::newRow("wired TLS") << "lan"
                               << "802.1X (TLS/EAP)" << false;
}

void TestNamedNetwork::certificatesOfAWirelessTlsNetworkAreLogged()
{
    QFETCH(QString, name);
    QFETCH(QString, securityMode);
    WriteNetwork(name, Wireless(securityMode, {{"caCert", "company.pem"}, {"clientCert", "/opt/t.pem"}}));

    const NamedNetwork network(name, false, nullptr);

    const QString line =
        " :  NamedNetwork::BuildNetworkOptions -- CACert company.pem client cert /opt/t.pem \n";
    QTEST(TestSupport::LogText().contains(line), "isLogged");
}

void TestNamedNetwork::wpsSaeSettingEndsWithTheNextBlock()
{
    WriteNetwork("Home", Wireless("Unsecured"), {{"AddWpsSaeCred", "true"}});

    const NamedNetwork network("Home", false, nullptr);
    QVERIFY(TestSupport::LogText().contains("AddWpsSaeCred= 1 "));
    QVERIFY(WpaSupplicantCfg::WriteCfg(network.Block()));

    QVERIFY(!TestSupport::ReadFile(FILE_PATH).contains("wps_cred_add_sae"));
}

void TestNamedNetwork::weakCertificatesAreForTlsModes_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("securityMode");
    QTest::addColumn<QString>("property");
    QTest::addColumn<bool>("before");
    QTest::addColumn<bool>("after");

    QTest::newRow("wireless TLS, on") << "Home"
                                      << "eap_tls"
                                      << "true" << false << true;
    QTest::newRow("wireless TLS, off") << "Home"
                                       << "eap_tls"
                                       << "false" << true << false;
    QTest::newRow("wired TLS, on") << "lan"
                                   << "wired_tls"
                                   << "true" << false << true;
    QTest::newRow("wired TLS, off") << "lan"
                                    << "wired_tls"
                                    << "false" << true << false;
    QTest::newRow("wireless PEAP, off") << "Home"
                                        << "peap_mschapv2"
                                        << "false" << true << true;
    QTest::newRow("wired PEAP, on") << "lan"
                                    << "wired_peap"
                                    << "true" << false << false;
    QTest::newRow("wired, unsecured") << "lan"
                                      << "unsecured"
                                      << "true" << false << false;
}

void TestNamedNetwork::weakCertificatesAreForTlsModes()
{
    QFETCH(QString, name);
    QFETCH(QString, securityMode);
    QFETCH(QString, property);
    QFETCH(bool, before);
    WpaSupplicantCfg::SetAllowWeakCerts(before);
    WriteNetwork(name, Wireless(securityMode, {{"allowWeakCerts", property}}));

    const NamedNetwork network(name, false, nullptr);

    QTEST(WpaSupplicantCfg::_allowWeakCerts, "after");
}

void TestNamedNetwork::lastTlsNetworkDecidesForTheWholeFile_data()
{
    QTest::addColumn<QString>("last");
    QTest::addColumn<bool>("areAllowed");

    QTest::newRow("last one allows them") << "true" << true;
    QTest::newRow("last one does not") << "false" << false;
}

void TestNamedNetwork::lastTlsNetworkDecidesForTheWholeFile()
{
    QFETCH(QString, last);
    QFETCH(bool, areAllowed);
    WriteNetwork("lan 1",
                 {{"securityMode", "802.1X (TLS/EAP)"}, {"allowWeakCerts", areAllowed ? "false" : "true"}});
    const NamedNetwork first("lan 1", false, nullptr);
    WriteNetwork("lan 2", {{"securityMode", "802.1X (TLS/EAP)"}, {"allowWeakCerts", last}});
    const NamedNetwork second("lan 2", false, nullptr);

    QVERIFY(WpaSupplicantCfg::WriteCfg(first.Block() + second.Block()));

    QCOMPARE(TestSupport::ReadFile(FILE_PATH).contains("openssl_ciphers="), areAllowed);
}

void TestNamedNetwork::scepKeyIsFilledIn_data()
{
    QTest::addColumn<QString>("stored");
    QTest::addColumn<bool>("keyExists");
    QTest::addColumn<QString>("written");

    const QString defaultKey = "\"/tmp/config/files/scep/scep.key\"";
    QTest::newRow("empty, no file") << "" << false << defaultKey;
    QTest::newRow("empty, file") << "" << true << defaultKey;
    QTest::newRow("none") << "none" << false << defaultKey;
    QTest::newRow("None") << "None" << false << "\"/etc/ssl/certs/None\"";
    QTest::newRow("default") << "default" << false << "\"/etc/ssl/certs/default\"";
    QTest::newRow("path") << "/opt/own.key" << true << "\"/opt/own.key\"";
}

void TestNamedNetwork::scepKeyIsFilledIn()
{
    QFETCH(QString, stored);
    QFETCH(bool, keyExists);
    QFETCH(QString, written);
    if (keyExists)
        WriteScepFiles({"scep.key"});
    WriteNetwork("lan", {{"securityMode", "802.1X (TLS/EAP with SCEP)"}, {"privateKey", stored}});

    const NamedNetwork network("lan", false, nullptr);

    QCOMPARE(Values(network, "private_key"), QStringList{written});
    QCOMPARE(TestSupport::LogText().contains(" :  NetworkDevice::Associate setting default scep key \n"),
             written.contains("scep.key"));
}

void TestNamedNetwork::scepCaIsTheNewestThatIsThere_data()
{
    QTest::addColumn<QString>("stored");
    QTest::addColumn<int>("existing"); // one bit for each of the three files
    QTest::addColumn<int>("taken");    // number of the file, or -1

    for (const char *stored : {"", "none", "default"}) {
        for (int existing = 0; existing < 8; ++existing) {
            const int taken = existing & 4 ? 2 : existing & 2 ? 1 : existing & 1 ? 0 : -1;
            QTest::addRow("'%s', files %d", stored, existing) << stored << existing << taken;
        }
    }
    QTest::newRow("own") << "/opt/ca.crt" << 7 << -1;
    QTest::newRow("Default") << "Default" << 7 << -1;
}

void TestNamedNetwork::scepCaIsTheNewestThatIsThere()
{
    QFETCH(QString, stored);
    QFETCH(int, existing);
    QFETCH(int, taken);
    for (int i = 0; i < 3; ++i) {
        if (existing & (1 << i))
            TestSupport::WriteFile(SCEP_CA.arg(i), "");
    }
    WriteNetwork("Home", Wireless("WPA Enterprise 1/2 (TLS with SCEP)", {{"caCert", stored}}));

    const NamedNetwork network("Home", false, nullptr);

    const QString kept = stored.isEmpty() ? "none" : stored;
    QCOMPARE(network.Config()->caCert, taken == -1 ? kept : SCEP_CA.arg(taken));
    QCOMPARE(TestSupport::LogText().contains(" :  NetworkDevice::Associate setting default CA \n"),
             taken != -1);
}

void TestNamedNetwork::scepClientCertificateIsLookedFor_data()
{
    QTest::addColumn<QString>("stored");
    QTest::addColumn<QStringList>("files");
    QTest::addColumn<QString>("written");

    const QString folder = "/tmp/config/files/scep/";
    QTest::newRow("not set, no files") << "" << QStringList{} << "";
    QTest::newRow("not set, one file") << "" << QStringList{"b.crt"} << folder + "b.crt";
    QTest::newRow("not set, several files")
        << "" << QStringList{"b.crt", "a.crt", "0.pem"} << folder + "a.crt";
    QTest::newRow("not set, other files") << "" << QStringList{"a.key", "crt"} << "";
    QTest::newRow("none, one file") << "none" << QStringList{"b.crt"} << folder + "b.crt";
    QTest::newRow("name in the folder") << "c.pem" << QStringList{"a.crt", "c.pem"} << folder + "c.pem";
    QTest::newRow("name elsewhere") << "c.pem" << QStringList{"a.crt"} << "/etc/ssl/certs/c.pem";
    QTest::newRow("path") << "/opt/c.pem" << QStringList{"a.crt"} << "/opt/c.pem";
    QTest::newRow("path, its name in the folder") << "/a.crt" << QStringList{"a.crt"} << "/a.crt";
    QTest::newRow("existing file") << "tmp/config/files/scep/a.crt" << QStringList{"a.crt"}
                                   << "/etc/ssl/certs/tmp/config/files/scep/a.crt";
}

void TestNamedNetwork::scepClientCertificateIsLookedFor()
{
    QFETCH(QString, stored);
    QFETCH(QStringList, files);
    QFETCH(QString, written);
    QDir::setCurrent("/");
    WriteScepFiles(files);
    TestSupport::WriteFile(SCEP_FOLDER + "0.crt/inside", ""); // a folder is no certificate
    WriteNetwork("lan", {{"securityMode", "802.1X (TLS/EAP with SCEP)"}, {"clientCert", stored}});

    const NamedNetwork network("lan", false, nullptr);

    QCOMPARE(Values(network, "client_cert"),
             written.isEmpty() ? QStringList() : QStringList{'"' + written + '"'});
    const QString line = " :  NetworkDevice::Associate setting client cert  " + written + " \n";
    QCOMPARE(TestSupport::LogText().contains(line), written.startsWith(SCEP_FOLDER));
}

void TestNamedNetwork::scepSettingOffChangesNothing()
{
    TestSupport::WriteFile(SCEP_CA.arg(0), "");
    WriteScepFiles({"a.crt", "scep.key"});
    WriteNetwork("lan", {{"securityMode", "802.1X (TLS/EAP with SCEP)"}, {"scep", "false"}});

    const NamedNetwork network("lan", false, nullptr);

    QCOMPARE(Values(network, "ca_cert") + Values(network, "client_cert") + Values(network, "private_key"),
             QStringList());
}

void TestNamedNetwork::scepDefaultsAreNotForAWiredUnsecuredNetwork()
{
    TestSupport::WriteFile(SCEP_CA.arg(0), "");
    WriteScepFiles({"a.crt", "scep.key"});
    WriteNetwork("lan", {{"securityMode", "Unsecured"}, {"scep", "true"}});

    const NamedNetwork network("lan", false, nullptr);

    QVERIFY(network.Config()->scep);
    QCOMPARE(network.Config()->privateKey, QString("none"));
    QCOMPARE(network.Config()->caCert, QString("none"));
    QCOMPARE(network.Config()->clientCert, QString("none"));
    QVERIFY(!TestSupport::LogText().contains("NetworkDevice::Associate"));
}

void TestNamedNetwork::scepDaemonIsRestartedAfterTlsOnly_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("securityMode");
    QTest::addColumn<QString>("scep");
    QTest::addColumn<bool>("isRestarted");

    QTest::newRow("wireless TLS with SCEP") << "Home"
                                            << "WPA Enterprise 1/2 (TLS with SCEP)"
                                            << "" << true;
    QTest::newRow("wired TLS with SCEP") << "lan"
                                         << "802.1X (TLS/EAP with SCEP)"
                                         << "" << true;
    QTest::newRow("wireless TLS, set") << "Home"
                                       << "WPA Enterprise 1/2 (TLS)"
                                       << "true" << true;
    QTest::newRow("wireless TLS") << "Home"
                                  << "WPA Enterprise 1/2 (TLS)"
                                  << "" << false;
    QTest::newRow("wired TLS with SCEP, switched off") << "lan"
                                                       << "802.1X (TLS/EAP with SCEP)"
                                                       << "false" << false;
    QTest::newRow("wired TLS") << "lan"
                               << "802.1X (TLS/EAP)"
                               << "" << false;
    QTest::newRow("wireless PEAP, set") << "Home"
                                        << "WPA Enterprise 1/2 (PEAP/MSCHAPv2)"
                                        << "true" << false;
    QTest::newRow("wired PEAP, set") << "lan"
                                     << "802.1X (PEAP/MSCHAPv2)"
                                     << "true" << false;
    QTest::newRow("wireless, unsecured, set") << "Home"
                                              << "Unsecured"
                                              << "true" << false;
    QTest::newRow("wired, unsecured, set") << "lan"
                                           << "Unsecured"
                                           << "true" << false;
    QTest::newRow("wired TLS by a wireless name") << "Home"
                                                  << "802.1X (TLS/EAP with SCEP)"
                                                  << "" << false;
}

void TestNamedNetwork::scepDaemonIsRestartedAfterTlsOnly()
{
    QFETCH(QString, name);
    QFETCH(QString, securityMode);
    QFETCH(QString, scep);
    QFETCH(bool, isRestarted);
    WriteNetwork(name, Wireless(securityMode, {{"scep", scep}}));

    const NamedNetwork network(name, false, nullptr);

    if (isRestarted)
        QVERIFY(TestSupport::WaitForJournal(3));
    QCOMPARE(TestSupport::Journal(),
             isRestarted ? (QStringList{"killall scepd", "sleep 1", "scepd -d"}) : QStringList());
}

void TestNamedNetwork::scepDaemonRunsInTheBackground()
{
    // It ends when told to, or after five seconds.
    TestSupport::Answer("scepd", "for i in $(seq 50); do [ -e /tmp/scepd.go ] && break; sleep 0.1; done\n"
                                 "touch /tmp/scepd.ended");
    WriteNetwork("lan", {{"securityMode", "802.1X (TLS/EAP with SCEP)"}});

    const NamedNetwork network("lan", false, nullptr);

    QVERIFY(!QFile::exists("/tmp/scepd.ended"));
    TestSupport::WriteFile("/tmp/scepd.go", "");
    QTRY_VERIFY(QFile::exists("/tmp/scepd.ended"));
}

void TestNamedNetwork::networkThatCostsAllOthersIsLeftOut_data()
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

void TestNamedNetwork::networkThatCostsAllOthersIsLeftOut()
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

void TestNamedNetwork::problemIsToldOncePerChange()
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
}

void TestNamedNetwork::problemOfADefinitionThatKeepsChangingIsToldAFewTimes()
{
    Logging::GetInstance(Logging::KEEP_LEVEL, false)->SetLoggingLevel(Level::NOTICE);
    WriteScepFiles({"a\"#b.crt"});

    for (int version = 0; version < 20; ++version) {
        WriteNetwork("Changing", Wireless("WPA Enterprise 1/2 (TLS with SCEP)",
                                          {{"identity", QString::number(version)}}));
        const NamedNetwork network("Changing", false, nullptr);
    }

    QCOMPARE(TestSupport::LogText().count('\n'), 4);
}

void TestNamedNetwork::lineFeedNeverReachesTheFile()
{
    // A file name is the one text in a block that does not come from the store.
    WriteScepFiles({"a\npsk=evil.crt"});
    WriteNetwork("lan", {{"securityMode", "802.1X (TLS/EAP with SCEP)"}});

    const NamedNetwork network("lan", false, nullptr);

    QCOMPARE(network.Block(), QStringList());
    QVERIFY(TestSupport::LogText().contains("network lan: client_cert holds a control character"));
}

void TestNamedNetwork::ssidOf32BytesIsTaken_data()
{
    QTest::addColumn<QString>("ssid");

    QTest::newRow("ASCII") << QString(32, 'x');
    QTest::newRow("UTF-8 of two bytes") << QString(16, QChar(0xe9));
    QTest::newRow("UTF-8 of four bytes") << QString::fromUtf8("\xf0\x9f\x98\x80").repeated(8);
    QTest::newRow("quotes") << QString(32, '"');
    QTest::newRow("signs") << "#='\\{}$()&<>;|`~!@%^*_+[]:,.?/-x";
    QTest::newRow("blanks around") << "  x  ";
}

void TestNamedNetwork::ssidOf32BytesIsTaken()
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

void TestNamedNetwork::supplicantTakesTheExtraOptions()
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

void TestNamedNetwork::fiveHundredDefinitionsBecomeOneFile()
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

void TestNamedNetwork::supplicantTakesTheFileOfAnyStore()
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

void TestNamedNetwork::noSecretIsLogged()
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

QTEST_GUILESS_MAIN(TestNamedNetwork)
#include "tst_namednetwork.moc"
