// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "namednetwork.h"

#include "allocationcounter.h"
#include "heapuse.h"
#include "networknames.h"
#include "networkworld.h"
#include "paths.h"

#include <QCryptographicHash>
#include <QScopeGuard>

namespace {

const QString DRIVER_FLAG = QStringLiteral("/tmp/config/files/use_nl_driver");

} // namespace

/// A stored network as it is loaded: its kind, fingerprint, mode and driver.
class TestNamedNetwork : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { StartNetworkFromNothing(); }
    void cleanup() { EndNetwork(); }

    void nameDecidesTheKind_data();
    void nameDecidesTheKind();
    void loadRemembersTheDefinition();
    void sameDefinitionHasTheSameFingerprint();
    void changeOfAPropertyAsksForAReload_data();
    void changeOfAPropertyAsksForAReload();
    void changeThatIsTakenBackAsksForNone();
    void definitionThatIsGoneAsksForAReload();
    void lookForAChangeLoadsNothing();
    void looksForAChangeLeaveNothingBehind();
    void loadOfAnotherNameReplacesAll();
    void loadDoesAsItIsToldWhateverTheName();
    void loadOfANameThatIsNotStoredSucceeds();
    void loadTranslatesTheStoredModeEachTime();
    void loadsLeaveNothingBehind();
    void endLeavesNothingButTheLogger();
    void unsecuredIsToldByItsBeginning_data();
    void unsecuredIsToldByItsBeginning();
    void displayNameBecomesAModeKey_data();
    void displayNameBecomesAModeKey();
    void unknownModeIsKept();
    void unknownModeIsLoggedOnceALoad();
    void namesAndPathsAreThoseOfThePlatform();
    void modeLineThatIsNotWrittenAllocatesNothing();
    void storedModeKeyIsKept_data();
    void storedModeKeyIsKept();
    void driverIsChosenByStoreOrFlagFile_data();
    void driverIsChosenByStoreOrFlagFile();
    void temporaryDriverFlagIsNotForANetwork();
    void driverFlagThatOthersMayWriteIsNotObeyed();
    void keysAreDerivedWhereSeveralNetworksHaveOne();
};

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
    QTest::newRow("all but the last letter") << "wiredet0" << false << true;
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

void TestNamedNetwork::changeThatIsTakenBackAsksForNone()
{
    WriteNetwork("Home", Wireless("Unsecured"));
    const NamedNetwork network("Home", false, nullptr);
    WriteNetwork("Home", Wireless("Unsecured", {{"mtu", "1400"}}));
    QVERIFY(network.ReloadRequired());

    WriteNetwork("Home", Wireless("Unsecured"));

    QVERIFY(!network.ReloadRequired());
}

void TestNamedNetwork::definitionThatIsGoneAsksForAReload()
{
    WriteNetwork("Home", Wireless("Unsecured"));
    const NamedNetwork network("Home", false, nullptr);

    WriteNetwork("Another", Wireless("Unsecured"));

    QVERIFY(network.ReloadRequired());
}

void TestNamedNetwork::lookForAChangeLoadsNothing()
{
    WriteNetwork("Home", Wireless("WPA Enterprise 1/2 (TLS with SCEP)", {{"identity", "$mac"}}),
                 {{"UseApScan", "true"}, {"FilterSsids", "true"}, {"AddWpsSaeCred", "true"}});
    const NamedNetwork network("Home", false, nullptr);
    QVERIFY(TestSupport::WaitForJournal(4));
    const QStringList journal = TestSupport::Journal();
    TestSupport::ClearLog();
    WpaSupplicantCfg::_useApScan = false;
    WpaSupplicantCfg::_filterSsids = false;
    WpaSupplicantCfg::_intel_sae_fix = false;
    WpaSupplicantCfg::_allowWeakCerts = true;
    WpaSupplicantCfg::_fixWpa3 = true;

    network.ReloadRequired();

    QCOMPARE(TestSupport::Journal(), journal);
    QVERIFY(!TestSupport::LogText().contains("NetworkDevice::Load props"));
    QVERIFY(!WpaSupplicantCfg::_useApScan);
    QVERIFY(!WpaSupplicantCfg::_filterSsids);
    QVERIFY(!WpaSupplicantCfg::_intel_sae_fix);
    QVERIFY(WpaSupplicantCfg::_allowWeakCerts);
    QVERIFY(WpaSupplicantCfg::_fixWpa3);
}

void TestNamedNetwork::looksForAChangeLeaveNothingBehind()
{
    WriteNetwork("Home", Wireless("Unsecured"));
    const NamedNetwork network("Home", false, nullptr);
    network.ReloadRequired();
    const std::size_t before = HeapUse();

    for (int i = 0; i < 10000; ++i)
        network.ReloadRequired();

    QVERIFY(HeapUse() < before + 64 * 1024);
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

void TestNamedNetwork::loadDoesAsItIsToldWhateverTheName()
{
    WriteNetwork("lan", Wireless("Unsecured"));
    NamedNetwork network("lan", false, nullptr);

    network.Load("lan", true);

    QVERIFY(network.IsWireless());
    QVERIFY(!network.Block().isEmpty());
}

void TestNamedNetwork::loadOfANameThatIsNotStoredSucceeds()
{
    WriteNetwork("lan", {});
    NamedNetwork network("lan", false, nullptr);

    QVERIFY(network.Load("Another", true));
    QCOMPARE(network.Name(), QString("Another"));
}

void TestNamedNetwork::loadTranslatesTheStoredModeEachTime()
{
    WriteNetwork("Home", Wireless("WPA Personal 3", {{"passphrase", "s3cret"}}));
    NamedNetwork network("Home", false, nullptr);
    TestSupport::ClearLog();

    network.Load("Home", true);

    QVERIFY(TestSupport::LogText().contains("securityMode=WPA Personal 3; "));
    QVERIFY(TestSupport::LogText().contains(" :  Security mode WPA Personal 3 modified to sae \n"));
    QCOMPARE(network.Config()->securityMode, QString("sae"));
}

void TestNamedNetwork::loadsLeaveNothingBehind()
{
    Logging::GetInstance(Logging::KEEP_LEVEL, false)->SetLoggingLevel(Level::NOTICE);
    WriteNetwork("Home", Wireless("Unsecured"));
    NamedNetwork network("Home", false, nullptr);
    const auto load = [&network](int times) {
        for (int i = 0; i < times; ++i) {
            network.Load("Home", true);
            debugOutput->Take();
        }
    };
    load(10);
    const std::size_t before = HeapUse();

    load(1000);

    // A definition takes some 2 KiB.
    QVERIFY(HeapUse() < before + 64 * 1024);
}

void TestNamedNetwork::endLeavesNothingButTheLogger()
{
    Logging::GetInstance(Logging::KEEP_LEVEL, false)->SetLoggingLevel(Level::NOTICE);
    WriteNetwork("Home", Wireless("Unsecured"));
    const auto makeAndEnd = [](int times) {
        for (int i = 0; i < times; ++i) {
            NamedNetwork("Home", false, nullptr);
            debugOutput->Take();
        }
    };
    makeAndEnd(10);
    const std::size_t before = HeapUse();

    makeAndEnd(1000);

    // The smallest block takes 32 bytes.
    QVERIFY(HeapUse() < before + 16 * 1024);
    Log(Level::NOTICE) << "still there";
    QVERIFY(TestSupport::LogText().endsWith("still there \n"));
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
    QTest::newRow("leading blank") << " Unsecured" << true;
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

void TestNamedNetwork::unknownModeIsLoggedOnceALoad()
{
    WriteNetwork("Home", Wireless("OWE"));

    const NamedNetwork network("Home", false, nullptr);

    QCOMPARE(TestSupport::LogText().count(" NOT FOUND"), 1);
}

void TestNamedNetwork::namesAndPathsAreThoseOfThePlatform()
{
    QCOMPARE(NET_CFG_DIR, QString("network/"));
    QCOMPARE(XML_LAN_NAME, QString("lan"));
    QCOMPARE(DEFAULT_NETWORK_NAME, QString("Unspecified Network Name"));
    QCOMPARE(XML_NETWORK_PATH, QString("user/hardware/networkconfig"));
    QCOMPARE(XML_NETWORK_PATH_WS, QString("user/hardware/networkconfig/"));
    QCOMPARE(XML_FULL_NETWORK_PATH, QString("/tmp/config/xmlconfig/user/hardware/networkconfig"));
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

void TestNamedNetwork::temporaryDriverFlagIsNotForANetwork()
{
    WriteNetwork("Home", Wireless("Unsecured"));
    TestSupport::WriteFile("/tmp/use_nl_driver", "");
    const auto remover = qScopeGuard([] { TestSupport::Remove("/tmp/use_nl_driver"); });

    NamedNetwork network("Home", false, nullptr);

    QVERIFY(!network.CheckWirelessDriver());
    QVERIFY(TestSupport::LogText().contains("useNewDriver= 0 \n"));
}

void TestNamedNetwork::driverFlagThatOthersMayWriteIsNotObeyed()
{
    WriteNetwork("Home", Wireless("Unsecured"));
    TestSupport::WriteFile(DRIVER_FLAG, "");
    TestSupport::SetMode(DRIVER_FLAG, 0666);

    QVERIFY(!NamedNetwork("Home", false, nullptr).CheckWirelessDriver());
}

void TestNamedNetwork::keysAreDerivedWhereSeveralNetworksHaveOne()
{
    QByteArray xml = "<networkconfig>";
    for (const char *mode : {"wpa", "wpa2_3", "sae", "peap_gtc"})
        xml += "<network>" + Element("name", mode) + Element("ssid", mode) + Element("securityMode", mode) +
               Element("passphrase", QString("secret of ") + mode) + "</network>";
    TestSupport::WriteStore(xml + "</networkconfig>\n");

    NamedNetwork::DeriveKeys({"sae", "wpa", "peap_gtc", "not stored"});
    QCOMPARE(TestSupport::Journal(), QStringList());

    NamedNetwork::DeriveKeys({"sae", "wpa", "peap_gtc", "not stored", "wpa2_3"});
    QStringList runs = TestSupport::Journal();
    runs.sort();
    QCOMPARE(runs,
             (QStringList{"wpa_passphrase wpa 'secret of wpa'", "wpa_passphrase wpa2_3 'secret of wpa2_3'"}));
}

QTEST_GUILESS_MAIN(TestNamedNetwork)
#include "tst_namednetwork.moc"
