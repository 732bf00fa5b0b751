// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "securitymodes.h"

#include <QtTest>

/// What each security mode asks of a definition.
class TestSecurityModes : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void modeIsFoundByNameAndKey_data();
    void modeIsFoundByNameAndKey();
    void unknownModeIsNone();
    void kindFitsOneKindOfNetwork();
};

void TestSecurityModes::modeIsFoundByNameAndKey_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("key");
    QTest::addColumn<int>("kind");
    QTest::addColumn<QString>("quoted");
    const auto row = [](const char *name, const char *key, ModeKind kind, const char *quoted) {
        QTest::newRow(name) << QString(name) << QString(key) << int(kind) << QString(quoted);
    };
    const char *const tls = "identity caCert clientCert privateKey privateKeyPassword";
    row("WEP", "wep", ModeKind::Wep, "");
    row("WEP (Shared)", "wep_shared", ModeKind::Wep, "");
    row("WPA Personal 1/2", "wpa", ModeKind::Psk, "");
    row("WPA Personal 3", "sae", ModeKind::Sae, "passphrase");
    row("WPA Personal 2/3", "wpa2_3", ModeKind::Psk, "");
    row("WPA Enterprise 1/2 (TLS)", "eap_tls", ModeKind::CipherChoice, tls);
    row("WPA Enterprise 1/2 (TLS with SCEP)", "eap_tls", ModeKind::CipherChoice, tls);
    row("WPA Enterprise 1/2 (LEAP)", "eap_leap", ModeKind::CipherChoice, "identity");
    row("WPA Enterprise 1/2 (EAP-FAST)", "eap_fast", ModeKind::OtherEnterprise, "identity pacFile");
    row("WPA Enterprise 1/2 (PEAP/GTC)", "peap_gtc", ModeKind::OtherEnterprise, "identity");
    row("WPA Enterprise 1/2 (PEAP/MSCHAPv2)", "peap_mschapv2", ModeKind::OtherEnterprise, "identity caCert");
    row("802.1X (TLS/EAP)", "wired_tls", ModeKind::Wired, tls);
    row("802.1X (TLS/EAP with SCEP)", "wired_tls", ModeKind::Wired, tls);
    row("802.1X (PEAP/MSCHAPv2)", "wired_peap", ModeKind::Wired, "identity caCert");
    row("Unsecured", "unsecured", ModeKind::Unsecured, "");
}

void TestSecurityModes::modeIsFoundByNameAndKey()
{
    QFETCH(QString, name);
    QFETCH(QString, key);
    QFETCH(QString, quoted);

    QCOMPARE(SecurityModes.value(name), key);
    QVERIFY(IsSecurityModeKey(key) && !IsSecurityModeKey(name + '.'));
    for (const QString &text : {name, key}) {
        const SecurityMode *const mode = FindSecurityMode(text);
        QVERIFY(mode);
        QTEST(int(mode->kind), "kind");
        for (const char *property : {"identity", "caCert", "clientCert", "privateKey", "privateKeyPassword",
                                     "pacFile", "passphrase", "password"})
            QVERIFY2(mode->Quotes(property) == quoted.split(' ').contains(QLatin1String(property)), property);
    }
}

void TestSecurityModes::unknownModeIsNone()
{
    QVERIFY(!FindSecurityMode("wpa "));
    QVERIFY(!FindSecurityMode(QString()));
    QVERIFY(!IsSecurityModeKey("WPA Personal 1/2"));
    QCOMPARE(SecurityModes.size(), 15);
}

void TestSecurityModes::kindFitsOneKindOfNetwork()
{
    const QString wired = "a wired mode, but the name makes it wireless: it is taken as unsecured";
    const QString wireless = "a wireless mode, but the name makes it wired: the supplicant gets nothing";

    QCOMPARE(FindSecurityMode("wired_peap")->NameProblem(true), wired);
    QCOMPARE(FindSecurityMode("wired_peap")->NameProblem(false), QString());
    QCOMPARE(FindSecurityMode("wpa")->NameProblem(false), wireless);
    QCOMPARE(FindSecurityMode("wpa")->NameProblem(true), QString());
    QCOMPARE(FindSecurityMode("unsecured")->NameProblem(true), QString());
    QCOMPARE(FindSecurityMode("unsecured")->NameProblem(false), QString());
}

QTEST_GUILESS_MAIN(TestSecurityModes)
#include "tst_securitymodes.moc"
