// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "wpasupplicantcfg.h"

#include "writerworld.h"

#include <QtTest>

/// The block of each security mode, its keys and hashes.
class TestWpaSupplicantCfgModes : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { StartWriterFromNothing(); }

    void wepRepeatsItsPriority_data();
    void wepRepeatsItsPriority();
    void tlsCertificatesAreFound();
    void peapAlwaysAsksForTheCertificatePath();
    void peapWithoutCertificateNamesNone();
    void fastProvisioningIsAutomaticOnlyByThatWord_data();
    void fastProvisioningIsAutomaticOnlyByThatWord();
    void fastIdentityStandsForTheHostInsideTheTunnelOnly();
    void fastCredentialWithoutNameIsTheFolder();
    void leapPriorityIsTwo();
    void emptyCredentialsGiveEmptyValues();
    void passphraseBecomesTheHashedKey_data();
    void passphraseBecomesTheHashedKey();
    void passphraseToolGetsSsidAndPassphrase();
    void keyIsTakenAsTheToolSaysIt_data();
    void keyIsTakenAsTheToolSaysIt();
    void hashedKeyIsAskedForOnce();
    void keyThatIsCutIsAskedForAgain();
    void keyGoesWithTheLastThatHoldsIt();
    void keysAreDerivedBeforeTheyAreAskedFor();
    void keyThatTheToolDoesNotGiveServesOnce();
    void noKeyIsDerivedWhereHashingIsOff();
    void aThousandKeysAreRemembered();
    void passphraseWithoutAKeyIsQuoted_data();
    void passphraseWithoutAKeyIsQuoted();
    void passphraseIsQuotedWhereHashingIsOff();
    void passwordBecomesItsNtHash_data();
    void passwordBecomesItsNtHash();
    void passwordHasTheKeyItIsGiven();
    void passwordIsPlainWhereHashingIsOff();
};

void TestWpaSupplicantCfgModes::wepRepeatsItsPriority_data()
{
    QTest::addColumn<bool>("shared");
    QTest::addColumn<QStringList>("options");

    const QStringList lines = {"key_mgmt=NONE", "wep_key0=\"abcde\"", "wep_tx_keyidx=0", "priority=8"};
    QTest::newRow("open") << false << lines;
    QTest::newRow("shared") << true << QStringList{"auth_alg=SHARED"} + lines;
}

void TestWpaSupplicantCfgModes::wepRepeatsItsPriority()
{
    QFETCH(bool, shared);
    WpaSupplicantCfg cfg(nullptr);
    cfg.SetPriority(8);

    cfg.Wep(shared, "\"abcde\"");

    QTEST(ModeOptions(cfg), "options");
}

void TestWpaSupplicantCfgModes::tlsCertificatesAreFound()
{
    TestSupport::WriteFile("/etc/ssl/private/client.key", "");
    WpaSupplicantCfg cfg(nullptr);

    cfg.EapTls("id", "none", "/absolute/client.crt", "client.key", "pw", "CCMP");
    QCOMPARE(ModeOptions(cfg),
             (QStringList{"eap=TLS", "key_mgmt=WPA-EAP", "pairwise=CCMP", "group=CCMP", "identity=\"id\"",
                          "client_cert=\"/absolute/client.crt\"",
                          "private_key=\"/etc/ssl/private/client.key\"", "private_key_passwd=\"pw\""}));

    cfg.WiredTls("id", "None", "none", "none", "");
    QCOMPARE(cfg.Block(), (QStringList{"network={", "\tkey_mgmt=IEEE8021X", "\teapol_flags=0", "\teap=TLS",
                                       "\tidentity=\"id\"", "\tca_cert=\"/etc/ssl/certs/None\"",
                                       "\tprivate_key_passwd=\"\"", "}\n"}));
}

void TestWpaSupplicantCfgModes::peapAlwaysAsksForTheCertificatePath()
{
    TestSupport::WriteFile("/etc/ssl/certs/company.crt", "");
    WpaSupplicantCfg cfg(nullptr);

    cfg.PeapMschapv2("id", "password", "company.crt");
    QVERIFY(ModeOptions(cfg).contains("ca_cert=\"/etc/ssl/certs/company.crt\""));

    cfg.WiredPeap("id", "password", "company.crt");
    QVERIFY(cfg.Block().contains("\tca_cert=\"/etc/ssl/certs/company.crt\""));

    cfg.WiredPeap("id", "password", "none");
    QVERIFY(cfg.Block().filter("ca_cert").isEmpty());
}

void TestWpaSupplicantCfgModes::peapWithoutCertificateNamesNone()
{
    WpaSupplicantCfg cfg(nullptr);

    cfg.PeapMschapv2("id", "password", "");
    QVERIFY(cfg.Block().contains("\tca_cert=\"\""));

    cfg.WiredPeap("id", "password", "");
    QVERIFY(cfg.Block().contains("\tca_cert=\"\""));
}

void TestWpaSupplicantCfgModes::fastProvisioningIsAutomaticOnlyByThatWord_data()
{
    QTest::addColumn<QString>("word");
    QTest::addColumn<QString>("line");

    QTest::newRow("automatic") << "automatic"
                               << "phase1=\"fast_provisioning=1\"";
    QTest::newRow("capital") << "Automatic"
                             << "phase1=\"fast_provisioning=0\"";
    QTest::newRow("manual") << "manual"
                            << "phase1=\"fast_provisioning=0\"";
    QTest::newRow("none") << ""
                          << "phase1=\"fast_provisioning=0\"";
}

void TestWpaSupplicantCfgModes::fastProvisioningIsAutomaticOnlyByThatWord()
{
    QFETCH(QString, word);
    QFETCH(QString, line);
    WpaSupplicantCfg cfg(nullptr);
    cfg.SetPacFile("a.pac");

    cfg.EapFast("user", "password", word);

    QCOMPARE(ModeOptions(cfg).mid(6),
             (QStringList{line, "pac_file=\"/tmp/config/files/eap-fast-pac/a.pac\""}));
}

void TestWpaSupplicantCfgModes::fastIdentityStandsForTheHostInsideTheTunnelOnly()
{
    WpaSupplicantCfg cfg(nullptr);

    cfg.EapFast("$hostname", "password", "automatic");

    QVERIFY(ModeOptions(cfg).contains("anonymous_identity=\"FAST-$hostname\""));
    QVERIFY(ModeOptions(cfg).contains("identity=\"corvi-sandbox\""));
}

void TestWpaSupplicantCfgModes::fastCredentialWithoutNameIsTheFolder()
{
    WpaSupplicantCfg cfg(nullptr);

    cfg.EapFast("user", "password", "automatic");

    QCOMPARE(ModeOptions(cfg).last(), QString("pac_file=\"/tmp/config/files/eap-fast-pac/\""));
}

void TestWpaSupplicantCfgModes::leapPriorityIsTwo()
{
    WpaSupplicantCfg cfg(nullptr);
    cfg.SetPriority(9);

    cfg.EapLeap("user", "password", "TKIP");

    QCOMPARE(cfg.Block().filter("priority="), (QStringList{"\tpriority=9", "\tpriority=2"}));
}

void TestWpaSupplicantCfgModes::emptyCredentialsGiveEmptyValues()
{
    WpaSupplicantCfg cfg(nullptr);

    cfg.EapTls("", "", "", "", "", "");
    QCOMPARE(ModeOptions(cfg), (QStringList{"eap=TLS", "key_mgmt=WPA-EAP", "pairwise=", "group=",
                                            "identity=\"\"", "ca_cert=\"\"", "client_cert=\"\"",
                                            "private_key=\"\"", "private_key_passwd=\"\""}));

    cfg.WpaPersonal("");
    QCOMPARE(ModeOptions(cfg), (QStringList{"key_mgmt=WPA-PSK", "psk=\"\""}));

    cfg.Wpa3Sae("");
    QCOMPARE(ModeOptions(cfg), (QStringList{"key_mgmt=SAE", "sae_password=\"\"", "ieee80211w=2"}));

    cfg.Wep(false, "");
    QVERIFY(ModeOptions(cfg).contains("wep_key0="));
}

void TestWpaSupplicantCfgModes::passphraseBecomesTheHashedKey_data()
{
    QTest::addColumn<QString>("ssid");
    QTest::addColumn<QString>("passphrase");
    QTest::addColumn<QString>("key");

    // IEEE 802.11-2020, J.4.2, table J-1.
    QTest::newRow("first test vector") << "IEEE"
                                       << "password"
                                       << "f42c6fc52df0ebef9ebb4b90b38a5f902e83fe1b135a70e23aed762e9710a12e";
    QTest::newRow("second test vector") << "ThisIsASSID"
                                        << "ThisIsAPassword"
                                        << "0dc0d6eb90555ed6419756b9a15ec3e3209b63df707dd508d14581f8982721af";
    QTest::newRow("third test vector") << QString(32, 'Z') << QString(32, 'a')
                                       << "becb93866bb8c3832cb777c2f559807c8c59afcb6eae734885001300a981cc62";
    // hashlib.pbkdf2_hmac("sha1", "schlüssel7".encode(), "Café".encode(), 4096, 32)
    QTest::newRow("UTF-8") << QStringLiteral("Caf\u00e9") << QStringLiteral("schl\u00fcssel7")
                           << "b2d8c9446cacaea11f03d71f0f54483c3edcf1b0e4c6bd95edfd041a3267f35a";
}

void TestWpaSupplicantCfgModes::passphraseBecomesTheHashedKey()
{
    QFETCH(QString, ssid);
    QFETCH(QString, passphrase);
    QFETCH(QString, key);
    TestSupport::Answer("wpa_passphrase", REAL_PASSPHRASE_TOOL);
    WpaSupplicantCfg cfg(nullptr);
    cfg.SetSSID(ssid, false);

    cfg.WpaPersonal(passphrase);
    QCOMPARE(ModeOptions(cfg), (QStringList{"key_mgmt=WPA-PSK", "psk=" + key}));

    cfg.Wpa2Psk3Sae(passphrase);
    QCOMPARE(ModeOptions(cfg), (QStringList{"key_mgmt=WPA-PSK-SHA256", "psk=" + key, "ieee80211w=2"}));
}

void TestWpaSupplicantCfgModes::passphraseToolGetsSsidAndPassphrase()
{
    TestSupport::Answer("wpa_passphrase",
                        "printf 'network={\\n\\tssid=\"x\"\\n\\t#psk=\"no\"\\n\\tpsk=0123\\n"
                        "\\tpsk=4567\\n}\\n'");
    WpaSupplicantCfg cfg(nullptr);
    cfg.SetSSID("Old Hall", false);

    cfg.AddPasswordOption("it is secret");

    QCOMPARE(Options(cfg), QStringList{"psk=0123"});
    QCOMPARE(TestSupport::Journal(), QStringList{"wpa_passphrase 'Old Hall' 'it is secret'"});
}

void TestWpaSupplicantCfgModes::keyIsTakenAsTheToolSaysIt_data()
{
    QTest::addColumn<QByteArray>("key");

    for (const char *key : {"7", "0123abcd", "0123ABCD"})
        QTest::newRow(key) << QByteArray(key);
    QTest::newRow("a digit too many") << QByteArray(65, 'f');
    QTest::newRow("longer than a line of the file may be") << QByteArray(3000, 'f');
}

void TestWpaSupplicantCfgModes::keyIsTakenAsTheToolSaysIt()
{
    QFETCH(QByteArray, key);
    TestSupport::Answer("wpa_passphrase", "echo '   psk=" + key + "  '");
    WpaSupplicantCfg cfg(nullptr);
    cfg.SetSSID("Office", false);

    cfg.WpaPersonal("long enough");

    QCOMPARE(ModeOptions(cfg), (QStringList{"key_mgmt=WPA-PSK", "psk=" + key}));
    QCOMPARE(cfg.Problem(), QString());
}

void TestWpaSupplicantCfgModes::hashedKeyIsAskedForOnce()
{
    TestSupport::Answer("wpa_passphrase", REAL_PASSPHRASE_TOOL);
    const auto keyOf = [](const QString &ssid, const QString &passphrase) {
        WpaSupplicantCfg cfg(nullptr);
        cfg.SetSSID(ssid, false);
        cfg.AddPasswordOption(passphrase);
        return Options(cfg).value(0);
    };

    const QString first = keyOf("Once", "old passphrase");
    QCOMPARE(keyOf("Once", "old passphrase"), first);
    QCOMPARE(TestSupport::Journal().size(), 1);

    QVERIFY(keyOf("Once", "new passphrase") != first);
    QCOMPARE(TestSupport::Journal().size(), 2);

    QVERIFY(keyOf("Other", "old passphrase") != first);
    QCOMPARE(TestSupport::Journal().size(), 3);

    QVERIFY(keyOf("Once"
                  "old",
                  " passphrase") != first);
    QCOMPARE(TestSupport::Journal().size(), 4);
}

void TestWpaSupplicantCfgModes::keyThatIsCutIsAskedForAgain()
{
    WpaSupplicantCfg cfg(nullptr);
    cfg.SetSSID("Cut", false);
    TestSupport::Answer("wpa_passphrase", "echo psk=0123");
    cfg.AddPasswordOption("long enough");
    TestSupport::Answer("wpa_passphrase", REAL_PASSPHRASE_TOOL);

    cfg.AddPasswordOption("long enough");

    QCOMPARE(Options(cfg).value(0), QString("psk=0123"));
    QCOMPARE(Options(cfg).value(1).size(), int(qstrlen("psk=")) + 64);
}

void TestWpaSupplicantCfgModes::keyGoesWithTheLastThatHoldsIt()
{
    TestSupport::Answer("wpa_passphrase", REAL_PASSPHRASE_TOOL);
    const auto build = [] {
        auto cfg = std::make_unique<WpaSupplicantCfg>(nullptr);
        cfg->SetSSID("Held", false);
        cfg->WpaPersonal("long enough");
        return cfg;
    };
    auto first = build();
    const auto second = build();
    first.reset();
    WpaSupplicantCfg::ForgetUnheldKeys();
    first = build();
    QCOMPARE(TestSupport::Journal().size(), 1);

    first.reset();
    second->Clear();
    WpaSupplicantCfg::ForgetUnheldKeys();

    build();
    QCOMPARE(TestSupport::Journal().size(), 2);
}

void TestWpaSupplicantCfgModes::keysAreDerivedBeforeTheyAreAskedFor()
{
    TestSupport::Answer("wpa_passphrase", "echo psk=$(printf %s \"$1$2\" | sha256sum | cut -c -64)");
    WpaSupplicantCfg cfg(nullptr);
    cfg.SetSSID("Ahead", false);
    cfg.AddPasswordOption("known before");
    TestSupport::ClearJournal();

    WpaSupplicantCfg::DeriveKeys({{"Ahead", "known before"},
                                  {"Ahead", "passphrase 1"},
                                  {"Other", "passphrase 1"},
                                  {"Ahead", "passphrase 1"}});
    QStringList runs = TestSupport::Journal();
    runs.sort();
    QCOMPARE(runs,
             (QStringList{"wpa_passphrase Ahead 'passphrase 1'", "wpa_passphrase Other 'passphrase 1'"}));
    cfg.AddPasswordOption("passphrase 1");
    cfg.SetSSID("Other", false);
    cfg.AddPasswordOption("passphrase 1");

    QCOMPARE(TestSupport::Journal().size(), 2);
    const auto keyOf = [](const char *text) {
        return "psk=" + QCryptographicHash::hash(text, QCryptographicHash::Sha256).toHex();
    };
    QCOMPARE(Options(cfg).mid(1), (QStringList{keyOf("Aheadpassphrase 1"), keyOf("Otherpassphrase 1")}));
}

void TestWpaSupplicantCfgModes::keyThatTheToolDoesNotGiveServesOnce()
{
    TestSupport::Answer("wpa_passphrase", "echo psk=0123");
    WpaSupplicantCfg cfg(nullptr);
    cfg.SetSSID("Not given", false);

    WpaSupplicantCfg::DeriveKeys({{"Not given", "long enough"}});
    cfg.AddPasswordOption("long enough");
    QCOMPARE(TestSupport::Journal().size(), 1);

    cfg.AddPasswordOption("long enough");
    QCOMPARE(TestSupport::Journal().size(), 2);
    QCOMPARE(Options(cfg), (QStringList{"psk=0123", "psk=0123"}));
}

void TestWpaSupplicantCfgModes::noKeyIsDerivedWhereHashingIsOff()
{
    WpaSupplicantCfg::_useHashedPsk = false;

    WpaSupplicantCfg::DeriveKeys({{"Ahead", "not hashed"}});

    QCOMPARE(TestSupport::Journal(), QStringList());
}

void TestWpaSupplicantCfgModes::aThousandKeysAreRemembered()
{
    TestSupport::Answer("wpa_passphrase", "echo psk=" + QByteArray(64, 'a'));
    WpaSupplicantCfg cfg(nullptr);
    const auto addNumbered = [&cfg](int number) {
        cfg.AddPasswordOption(QString("passphrase%1").arg(number));
    };
    WpaSupplicantCfg::ForgetUnheldKeys();
    for (int i = 0; i < 998; ++i)
        addNumbered(i);
    TestSupport::ClearJournal();
    WpaSupplicantCfg::DeriveKeys({{"", "passphrase998"}, {"", "passphrase999"}, {"", "passphrase1000"}});
    QCOMPARE(TestSupport::Journal().size(), 2);
    TestSupport::ClearJournal();

    addNumbered(999);
    QCOMPARE(TestSupport::Journal(), QStringList());

    // No more than that: the ones before were forgotten at the latest now.
    for (int i = 1000; i < 1002; ++i)
        addNumbered(i);
    addNumbered(0);
    QVERIFY(TestSupport::Journal().filter("passphrase0").size() == 1);
}

void TestWpaSupplicantCfgModes::passphraseWithoutAKeyIsQuoted_data()
{
    QTest::addColumn<QByteArray>("answer");
    QTest::addColumn<QString>("passphrase");

    QTest::newRow("too short for the tool") << REAL_PASSPHRASE_TOOL << "short";
    QTest::newRow("too long for the tool") << REAL_PASSPHRASE_TOOL << QString(64, 'a');
    QTest::newRow("tool prints nothing") << QByteArray("exit 0") << "long enough";
    QTest::newRow("tool crashes") << QByteArray("echo psk=0123; kill -SEGV $$") << "long enough";
    QTest::newRow("tool prints to standard error") << QByteArray("echo psk=0123 >&2") << "long enough";
    QTest::newRow("tool hangs") << QByteArray("echo psk=0123 >&2; exec sleep 100") << "long enough";
    QTest::newRow("tool is missing") << QByteArray() << "long enough";
    for (const char *key : {"", "0123 4567", "\"long and quoted\"", "0123g",
                            "01\x7f"
                            "23",
                            "0123#4"})
        QTest::addRow("key is '%s'", key) << QByteArray("echo 'psk=") + key + '\'' << "long enough";
    QTest::newRow("only a later line is a key")
        << QByteArray("echo psk=none; echo psk=0123") << "long enough";
}

void TestWpaSupplicantCfgModes::passphraseWithoutAKeyIsQuoted()
{
    QFETCH(QByteArray, answer);
    QFETCH(QString, passphrase);
    if (answer.isEmpty())
        TestSupport::RemoveProgram("wpa_passphrase");
    else
        TestSupport::Answer("wpa_passphrase", answer);
    WpaSupplicantCfg cfg(nullptr);
    cfg.SetSSID("Office", false);

    cfg.AddPasswordOption(passphrase);

    QCOMPARE(Options(cfg), QStringList{"psk=\"" + passphrase + '"'});
}

void TestWpaSupplicantCfgModes::passphraseIsQuotedWhereHashingIsOff()
{
    WpaSupplicantCfg::_useHashedPsk = false;
    WpaSupplicantCfg cfg(nullptr);

    cfg.AddPasswordOption("password");

    QCOMPARE(Options(cfg), QStringList{"psk=\"password\""});
    QCOMPARE(TestSupport::Journal(), QStringList());
}

void TestWpaSupplicantCfgModes::passwordBecomesItsNtHash_data()
{
    QTest::addColumn<QString>("password");
    QTest::addColumn<QString>("hash");

    // printf PASSWORD | iconv -t UTF-16LE | openssl dgst -provider legacy -provider default -md4
    QTest::newRow("ASCII") << "password"
                           << "8846f7eaee8fb117ad06bdd830b7586c";
    QTest::newRow("empty") << ""
                           << "31d6cfe0d16ae931b73c59d7e0c089c0";
    QTest::newRow("Latin") << QStringLiteral("Gr\u00fc\u00dfe") << "2816114083c3d8e78cfa2bdb9cde7ae6";
    QTest::newRow("surrogate pair") << QString::fromUtf8("\xf0\x9f\x98\x80")
                                    << "4b58a10cc20a4e7d808d218e1f80aabc";
    QTest::newRow("Cyrillic and a surrogate pair")
        << QString::fromUtf8("\u043f\u0430\u0440\u043e\u043b\u044c\xf0\x9f\x94\x91")
        << "a3ef8bd4962d96ec45f88ccec0b34e37";
    // RFC 2759, section 9.2
    QTest::newRow("published example") << "clientPass"
                                       << "44ebba8d5312b8d611474411f56989ae";
}

void TestWpaSupplicantCfgModes::passwordBecomesItsNtHash()
{
    QFETCH(QString, password);
    QFETCH(QString, hash);
    WpaSupplicantCfg cfg(nullptr);

    cfg.AddHashedPasswordOption("password", password);

    QCOMPARE(Options(cfg), QStringList{"password=hash:" + hash});
}

void TestWpaSupplicantCfgModes::passwordHasTheKeyItIsGiven()
{
    WpaSupplicantCfg cfg(nullptr);

    cfg.AddHashedPasswordOption("other", "password");

    QCOMPARE(Options(cfg), QStringList{"other=hash:8846f7eaee8fb117ad06bdd830b7586c"});
}

void TestWpaSupplicantCfgModes::passwordIsPlainWhereHashingIsOff()
{
    WpaSupplicantCfg::_useHashedPsk = false;
    WpaSupplicantCfg cfg(nullptr);

    cfg.AddHashedPasswordOption("password", "pass word");

    QCOMPARE(Options(cfg), QStringList{"password=pass word"});
}

QTEST_GUILESS_MAIN(TestWpaSupplicantCfgModes)
#include "tst_wpasupplicantcfg_modes.moc"
