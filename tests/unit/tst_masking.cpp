// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "masking.h"

#include "zebproperties.h"

#include <QtTest>

namespace {

QByteArray InNetwork(const QByteArray &xml)
{
    return "<networkconfig><network><name>lan</name>" + xml + "</network></networkconfig>";
}

} // namespace

/// What leaves the machine holds no secret, and what is none.
class TestMasking : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void everyPropertyIsKeptOrMasked();
    void storeHidesWhatMayBeSecret_data();
    void storeHidesWhatMayBeSecret();
    void storeKeepsTheRest();
    void everySettingIsKept();
    void brokenStoreIsKeptUpToTheError();
    void supplicantFileHidesWhatMayBeSecret_data();
    void supplicantFileHidesWhatMayBeSecret();
    void supplicantFileKeepsTheRest();
    void optionThatIsNoSecretIsKept();
    void secretKeepsTheNameOfItsOption();
    void textsHideWhatWasFound_data();
    void textsHideWhatWasFound();
    void secretThatBeginsAnotherLeavesNothingOfIt();
    void clientFileHidesItsKeys();
    void shortSecretsDoNotMaskWords();
};

void TestMasking::everyPropertyIsKeptOrMasked()
{
    const QByteArrayList secrets = {"wepKey", "passphrase", "password", "privateKeyPassword"};
    for (const ZebProperty &property : ZebProperties::All()) {
        const QByteArray key = property.key;
        const QByteArray masked = Masking().Store(InNetwork("<" + key + ">canary</" + key + ">"));

        QVERIFY2(masked.contains(key), key.constData());
        QVERIFY2(masked.contains("canary") != secrets.contains(key), masked.constData());
    }
}

void TestMasking::storeHidesWhatMayBeSecret_data()
{
    QTest::addColumn<QByteArray>("xml");
    QTest::newRow("misspelt") << InNetwork("<pasword>canary</pasword>");
    QTest::newRow("other letter case") << InNetwork("<Password>canary</Password>");
    QTest::newRow("setting") << QByteArray("<networkconfig><key>canary</key></networkconfig>");
    QTest::newRow("attribute") << InNetwork("<ssid key=\"canary\">Office</ssid>");
    QTest::newRow("comment") << InNetwork("<!-- canary -->");
    QTest::newRow("instruction") << InNetwork("<?key canary?>");
    QTest::newRow("between elements") << InNetwork("canary");
    QTest::newRow("before an element that is shown") << InNetwork("canary<ssid>Office</ssid>");
    QTest::newRow("before an element within") << InNetwork("<password>canary<ssid/></password>");
    QTest::newRow("section of characters") << InNetwork("<password><![CDATA[canary]]></password>");
    QTest::newRow("behind an element within") << InNetwork("<password><b/>canary</password>");
    QTest::newRow("never ended") << InNetwork("<password>canary");
    QTest::newRow("wrong end") << InNetwork("<password>canary</pasword>");
    QTest::newRow("unknown entity") << InNetwork("<password>can&canary;ary canary</password>");
    QTest::newRow("entity in a name") << InNetwork("<ssid>x&canary;</ssid>");
    QTest::newRow("definition of an entity")
        << QByteArray("<!DOCTYPE x [<!ENTITY a \"canary\">]><networkconfig/>");
    QTest::newRow("behind the end") << InNetwork("") + "canary";
    QTest::newRow("no XML") << QByteArray("canary");
}

void TestMasking::storeHidesWhatMayBeSecret()
{
    QFETCH(QByteArray, xml);

    const QByteArray masked = Masking().Store(xml);

    QVERIFY2(!masked.contains("canary"), masked.constData());
}

void TestMasking::storeKeepsTheRest()
{
    const QByteArray masked = Masking().Store(
        "<networkconfig><useNewDriver>true</useNewDriver><network><name>lan</name><ssid>a&amp;b</ssid>"
        "<password>x</password><hosts><host>10.0.0.1 here</host></hosts></network></networkconfig>");

    QCOMPARE(masked.simplified(), QByteArray("<networkconfig> <useNewDriver>true</useNewDriver> <network> "
                                             "<name>lan</name> <ssid>a&amp;b</ssid> "
                                             "<password>********</password> <hosts> "
                                             "<host>10.0.0.1 here</host> </hosts> </network> "
                                             "</networkconfig>"));
}

void TestMasking::everySettingIsKept()
{
    for (const QByteArray &name :
         QList<QByteArray>{"UseApScan", "FilterSsids", "AddWpsSaeCred", "bonding_enable", "bonding_mode",
                           "useNewDriver", "host"}) {
        const QByteArray masked =
            Masking().Store("<networkconfig><" + name + ">7</" + name + "></networkconfig>");

        QVERIFY2(masked.contains('<' + name + ">7</" + name + '>'), masked.constData());
    }
}

void TestMasking::brokenStoreIsKeptUpToTheError()
{
    const QByteArray masked = Masking().Store("<networkconfig><network><name>lan</name>\n<oops</network>");

    QVERIFY2(masked.contains("lan"), masked.constData());
    QVERIFY2(masked.endsWith("\n<!-- not well-formed at line 2, column 6 -->\n"), masked.constData());
}

void TestMasking::supplicantFileHidesWhatMayBeSecret_data()
{
    QTest::addColumn<QByteArray>("line");
    QTest::newRow("key") << QByteArray("\tpsk=\"canary\"");
    QTest::newRow("password") << QByteArray("\tpassword=hash:canary");
    QTest::newRow("unknown option") << QByteArray("\tpin=canary");
    QTest::newRow("number of a token") << QByteArray("\tprivate_key=\"pkcs11:object=a?pin-value=canary\"");
    QTest::newRow("number of a device") << QByteArray("\tphase1=\"uuid=1 pin=canary\"");
    QTest::newRow("unknown name") << QByteArray("\tcanary=1");
    QTest::newRow("comment") << QByteArray("# canary");
    QTest::newRow("comment with an option") << QByteArray("#psk=canary");
    QTest::newRow("no option") << QByteArray("canary");
    QTest::newRow("embedded key") << QByteArray("blob-base64-x={\ncanary==\n}");
    QTest::newRow("other letter case") << QByteArray("SSID=canary");
}

void TestMasking::supplicantFileHidesWhatMayBeSecret()
{
    QFETCH(QByteArray, line);

    const QByteArray masked = Masking().SupplicantFile("network={\n" + line + "\n}\n");

    QVERIFY2(!masked.contains("canary"), masked.constData());
}

void TestMasking::supplicantFileKeepsTheRest()
{
    QCOMPARE(Masking().SupplicantFile("ap_scan=1\nnetwork={\n  ssid=\"Office\"\n  psk=\"12345678\"\n}\n"),
             QByteArray("\tap_scan=1\nnetwork={\n\tssid=\"Office\"\n\tpsk=********\n}\n"));
}

void TestMasking::optionThatIsNoSecretIsKept()
{
    const QByteArray names =
        "ap_scan auth_alg bgscan bssid ca_cert ca_path client_cert country ctrl_interface disabled eap "
        "eap_workaround eapol_flags eapol_version fast_reauth filter_ssids freq_list group id_str identity "
        "ieee80211w key_mgmt mode openssl_ciphers pac_file pairwise phase1 phase2 pmf priority private_key "
        "proactive_key_caching proto sae_pwe scan_freq scan_ssid ssid update_config wep_tx_keyidx "
        "wps_cred_add_sae";
    for (const QByteArray &name : names.split(' '))
        QCOMPARE(Masking().SupplicantFile(name + "=some=value\n"), '\t' + name + "=some=value\n");
}

void TestMasking::secretKeepsTheNameOfItsOption()
{
    for (const QByteArray &name :
         QList<QByteArray>{"psk", "sae_password", "password", "private_key_passwd", "wep_key0", "wep_key3"})
        QCOMPARE(Masking().SupplicantFile(name + "=value\n"), '\t' + name + "=********\n");
    for (const char *unknown : {"pins=value\n", "a=value\n"})
        QCOMPARE(Masking().SupplicantFile(unknown), QByteArray("\t********=********\n"));
    QCOMPARE(Masking().SupplicantFile("phase1=\"pin=1\"\n"), QByteArray("\tphase1=********\n"));
    QCOMPARE(Masking().SupplicantFile("=value\n"), QByteArray());
}

void TestMasking::textsHideWhatWasFound_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QByteArray>("masked");
    const auto row = [](const char *name, const QByteArray &text, const char *masked) {
        QTest::newRow(name) << text << QByteArray(masked);
    };
    row("as it stands", "login with pass&word failed", "login with ******** failed");
    row("in XML", "<p>pass&amp;word</p>", "<p>********</p>");
    row("in hexadecimal", QByteArray("pass&word").toHex(), "********");
    row("in upper-case hexadecimal", QByteArray("pass&word").toHex().toUpper(), "********");
    row("in base 64", QByteArray("pass&word").toBase64(), "********");
    row("attribute", "with a-key of it", "with ******** of it");
    row("value in quotes", "key from file: quoted-key", "key from file: ********");
    row("hash", "0123456789abcdef", "********");
    row("value with one quote", "half", "half");
}

void TestMasking::textsHideWhatWasFound()
{
    QFETCH(QByteArray, text);
    Masking masking;
    static_cast<void>(masking.Store(InNetwork("<password key=\"a-key\">pass&amp;word</password>")));
    static_cast<void>(masking.SupplicantFile("psk=\"quoted-key\"\npassword=hash:0123456789abcdef\n"
                                             "psk=\"half.\npsk=.half\"\n"));

    QTEST(masking.Text(text), "masked");
}

void TestMasking::secretThatBeginsAnotherLeavesNothingOfIt()
{
    Masking masking;
    static_cast<void>(masking.SupplicantFile("psk=\"open\"\npsk=\"open-sesame\"\n"));

    QCOMPARE(masking.Text("key open-sesame, or open"), QByteArray("key ********, or ********"));
}

void TestMasking::clientFileHidesItsKeys()
{
    const QByteArray masked =
        Masking().ClientFile("timeout 10;\nkey update {\n  algorithm hmac-md5;\n"
                             "  secret pRP5FapFoJ95;\n}\nkey x { SECRET \"canary\"; }\n");

    QVERIFY2(!masked.contains("pRP5") && !masked.contains("canary"), masked.constData());
    QVERIFY2(masked.contains("timeout 10;\n") && masked.contains("algorithm hmac-md5;\n"),
             masked.constData());
}

void TestMasking::shortSecretsDoNotMaskWords()
{
    Masking masking;
    static_cast<void>(masking.Store(InNetwork("<password>eth</password>")));

    QCOMPARE(masking.Text("eth0 is up"), QByteArray("eth0 is up"));
}

QTEST_GUILESS_MAIN(TestMasking)
#include "tst_masking.moc"
