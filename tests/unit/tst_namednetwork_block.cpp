// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "namednetwork.h"

#include "networkworld.h"

/// What a stored network becomes in the supplicant's file.
class TestNamedNetworkBlock : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { StartNetworkFromNothing(); }
    void cleanup() { EndNetwork(); }

    void definitionBecomesTheFile_data();
    void definitionBecomesTheFile();
    void keyOfThePassphraseToolIsNotCounted();
    void badCipherFallsToItsDefault_data();
    void badCipherFallsToItsDefault();
    void storeWithoutSettingsGivesThePlainHead();
    void fastProvisioningFollowsTheStoredWord_data();
    void fastProvisioningFollowsTheStoredWord();
    void wiredNetworkHasABlockOnlyFor8021X_data();
    void wiredNetworkHasABlockOnlyFor8021X();
    void otherWirelessModesAreUnsecured_data();
    void otherWirelessModesAreUnsecured();
    void modeThatDoesNotFitIsTold_data();
    void modeThatDoesNotFitIsTold();
    void loadWithoutABlockLeavesNone();
    void settingsBecomeSwitches_data();
    void settingsBecomeSwitches();
    void wiredNetworkLeavesTheSwitches();
    void wiredNetworkHasAnEmptySsid();
    void settingsAreLogged();
    void settingsAreNotLoggedForAWiredNetwork();
    void settingsThatAreNotSetAreLoggedAsOff();
    void certificatesOfAWirelessTlsNetworkAreLogged_data();
    void certificatesOfAWirelessTlsNetworkAreLogged();
    void wpsSaeSettingEndsWithTheNextBlock();
    void weakCertificatesAreForTlsModes_data();
    void weakCertificatesAreForTlsModes();
    void lastTlsNetworkDecidesForTheWholeFile_data();
    void lastTlsNetworkDecidesForTheWholeFile();
};

void TestNamedNetworkBlock::definitionBecomesTheFile_data()
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

void TestNamedNetworkBlock::definitionBecomesTheFile()
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

void TestNamedNetworkBlock::keyOfThePassphraseToolIsNotCounted()
{
    TestSupport::Answer("wpa_passphrase", "echo psk=0123abcd");
    WriteNetwork("Home", Wireless("WPA Personal 1/2", {{"passphrase", "long enough"}}));

    const NamedNetwork network("Home", false, nullptr);

    QCOMPARE(Values(network, "psk"), QStringList{"0123abcd"});
}

void TestNamedNetworkBlock::badCipherFallsToItsDefault_data()
{
    QTest::addColumn<QString>("securityMode");

    QTest::newRow("TLS") << "WPA Enterprise 1/2 (TLS)";
    QTest::newRow("LEAP") << "WPA Enterprise 1/2 (LEAP)";
}

void TestNamedNetworkBlock::badCipherFallsToItsDefault()
{
    QFETCH(QString, securityMode);
    WriteNetwork("Home", Wireless(securityMode, {{"cipher", "WEP40"}}));

    const NamedNetwork network("Home", false, nullptr);

    QCOMPARE(Values(network, "pairwise") + Values(network, "group"), (QStringList{"CCMP TKIP", "CCMP TKIP"}));
}

void TestNamedNetworkBlock::storeWithoutSettingsGivesThePlainHead()
{
    WriteNetwork("Home", Wireless("Unsecured"));

    const NamedNetwork network("Home", false, nullptr);
    QVERIFY(WpaSupplicantCfg::WriteCfg(network.Block()));

    QCOMPARE(TestSupport::ReadFile(FILE_PATH),
             QByteArray("ctrl_interface=/var/run/wpa_supplicant\n"
                        "openssl_ciphers=DEFAULT@SECLEVEL=0\n"
                        "sae_pwe=2\n"
                        "# Could not open /tmp/config/files/wpa_supp_conf\n\n"
                        "network={\n\tssid=\"Office\"\n\tscan_ssid=1\n\tpriority=0\n\tkey_mgmt=NONE\n}\n"));
}

void TestNamedNetworkBlock::fastProvisioningFollowsTheStoredWord_data()
{
    QTest::addColumn<QString>("stored");
    QTest::addColumn<QString>("written");

    QTest::newRow("automatic") << "automatic"
                               << "\"fast_provisioning=1\"";
    QTest::newRow("cipher") << "CCMP"
                            << "\"fast_provisioning=0\"";
    QTest::newRow("any other word") << "manual"
                                    << "\"fast_provisioning=0\"";
}

void TestNamedNetworkBlock::fastProvisioningFollowsTheStoredWord()
{
    QFETCH(QString, stored);
    QFETCH(QString, written);
    WriteNetwork("Home", Wireless("WPA Enterprise 1/2 (EAP-FAST)", {{"cipher", stored}}));

    QCOMPARE(Values(NamedNetwork("Home", false, nullptr), "phase1"), QStringList{written});
}

void TestNamedNetworkBlock::wiredNetworkHasABlockOnlyFor8021X_data()
{
    QTest::addColumn<QString>("securityMode");
    QTest::addColumn<bool>("hasBlock");

    for (const QString &mode : SecurityModes.keys())
        QTest::newRow(qPrintable(mode)) << mode << mode.startsWith("802.1X");
    QTest::newRow("UNSECURED") << "UNSECURED" << false;
    QTest::newRow("unknown") << "OWE" << false;
}

void TestNamedNetworkBlock::wiredNetworkHasABlockOnlyFor8021X()
{
    QFETCH(QString, securityMode);
    WriteNetwork("lan", Wireless(securityMode));

    const NamedNetwork network("lan", false, nullptr);

    QTEST(!network.Block().isEmpty(), "hasBlock");
    QVERIFY(Values(network, "ssid").isEmpty());
    QVERIFY(Values(network, "priority").isEmpty());
}

void TestNamedNetworkBlock::otherWirelessModesAreUnsecured_data()
{
    QTest::addColumn<QString>("securityMode");

    for (const char *mode : {"OWE", "WPA_EAP", "802.1X (TLS/EAP)", "802.1X (PEAP/MSCHAPv2)", "Sae"})
        QTest::newRow(mode) << mode;
}

void TestNamedNetworkBlock::otherWirelessModesAreUnsecured()
{
    QFETCH(QString, securityMode);
    WriteNetwork("Home", Wireless(securityMode));

    QCOMPARE(NamedNetwork("Home", false, nullptr).Block(),
             (QStringList{"network={", "\tssid=\"Office\"", "\tscan_ssid=1", "\tpriority=0",
                          "\tkey_mgmt=NONE", "}\n"}));
}

void TestNamedNetworkBlock::modeThatDoesNotFitIsTold_data()
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

void TestNamedNetworkBlock::modeThatDoesNotFitIsTold()
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

void TestNamedNetworkBlock::loadWithoutABlockLeavesNone()
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

void TestNamedNetworkBlock::settingsBecomeSwitches_data()
{
    QTest::addColumn<QString>("value");
    QTest::addColumn<bool>("isOn");

    QTest::newRow("true") << "true" << true;
    QTest::newRow("false") << "false" << false;
    QTest::newRow("True") << "True" << false;
    QTest::newRow("not set") << "" << false;
}

void TestNamedNetworkBlock::settingsBecomeSwitches()
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

void TestNamedNetworkBlock::wiredNetworkLeavesTheSwitches()
{
    WriteNetwork("lan", {{"securityMode", "802.1X (PEAP/MSCHAPv2)"}});
    WpaSupplicantCfg::_useApScan = true;
    WpaSupplicantCfg::_filterSsids = true;

    const NamedNetwork network("lan", false, nullptr);

    QVERIFY(WpaSupplicantCfg::_useApScan);
    QVERIFY(WpaSupplicantCfg::_filterSsids);
}

void TestNamedNetworkBlock::wiredNetworkHasAnEmptySsid()
{
    WriteNetwork("lan", Wireless("802.1X (PEAP/MSCHAPv2)"));
    const DebugOutput output;

    const NamedNetwork network("lan", false, nullptr);

    QVERIFY(output.Take().contains("WpaSupplicantCfg::SetSSID \"\""));
}

void TestNamedNetworkBlock::settingsAreLogged()
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

void TestNamedNetworkBlock::settingsAreNotLoggedForAWiredNetwork()
{
    WriteNetwork("lan", {{"securityMode", "802.1X (PEAP/MSCHAPv2)"}});

    const NamedNetwork network("lan", false, nullptr);

    QVERIFY(!network.Block().isEmpty());
    QVERIFY(!TestSupport::LogText().contains("Check if Wireless"));
    QVERIFY(!TestSupport::LogText().contains("Start building Wireless config"));
}

void TestNamedNetworkBlock::settingsThatAreNotSetAreLoggedAsOff()
{
    WriteNetwork("Home", Wireless("Unsecured"));

    const NamedNetwork network("Home", false, nullptr);

    QVERIFY(TestSupport::LogText().contains(
        " :  UseBgSettings= 0 UseApScan= 0 FilterSsids= 0 AddWpsSaeCred= 0 useNewDriver= 0 \n"));
}

void TestNamedNetworkBlock::certificatesOfAWirelessTlsNetworkAreLogged_data()
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

void TestNamedNetworkBlock::certificatesOfAWirelessTlsNetworkAreLogged()
{
    QFETCH(QString, name);
    QFETCH(QString, securityMode);
    WriteNetwork(name, Wireless(securityMode, {{"caCert", "company.pem"}, {"clientCert", "/opt/t.pem"}}));

    const NamedNetwork network(name, false, nullptr);

    const QString line =
        " :  NamedNetwork::BuildNetworkOptions -- CACert company.pem client cert /opt/t.pem \n";
    QTEST(TestSupport::LogText().contains(line), "isLogged");
}

void TestNamedNetworkBlock::wpsSaeSettingEndsWithTheNextBlock()
{
    WriteNetwork("Home", Wireless("Unsecured"), {{"AddWpsSaeCred", "true"}});

    const NamedNetwork network("Home", false, nullptr);
    QVERIFY(TestSupport::LogText().contains("AddWpsSaeCred= 1 "));
    QVERIFY(WpaSupplicantCfg::WriteCfg(network.Block()));

    QVERIFY(!TestSupport::ReadFile(FILE_PATH).contains("wps_cred_add_sae"));
}

void TestNamedNetworkBlock::weakCertificatesAreForTlsModes_data()
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

void TestNamedNetworkBlock::weakCertificatesAreForTlsModes()
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

void TestNamedNetworkBlock::lastTlsNetworkDecidesForTheWholeFile_data()
{
    QTest::addColumn<QString>("last");
    QTest::addColumn<bool>("areAllowed");

    QTest::newRow("last one allows them") << "true" << true;
    QTest::newRow("last one does not") << "false" << false;
}

void TestNamedNetworkBlock::lastTlsNetworkDecidesForTheWholeFile()
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

QTEST_GUILESS_MAIN(TestNamedNetworkBlock)
#include "tst_namednetwork_block.moc"
