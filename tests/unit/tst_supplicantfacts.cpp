// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "supplicantfacts.h"

#include <QtTest>

/// What corvi-status makes of the supplicant's answers.
class TestSupplicantFacts : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void supplicantIsRead();
    void networkHasItsOwnName_data();
    void networkHasItsOwnName();
    void methodIsANameAlone_data();
    void methodIsANameAlone();
    void lineWithoutANameIsNoValue();
};

void TestSupplicantFacts::supplicantIsRead()
{
    const SupplicantFacts facts = ParseSupplicant(
        "bssid=02:00:00:00:01:00\nfreq=2437\nssid=caf\\xc3\\xa9=1\nid=0\nwpa_state=COMPLETED\n"
        "Supplicant PAE state=AUTHENTICATED\nsuppPortStatus=Authorized\nEAP state=SUCCESS\n"
        "selectedMethod=25 (EAP-PEAP)\n",
        "RSSI=-61\nLINKSPEED=65\n");

    QCOMPARE(facts.state, "COMPLETED");
    QCOMPARE(facts.ssid, QString::fromUtf8("caf\xc3\xa9=1"));
    QCOMPARE(facts.bssid, "02:00:00:00:01:00");
    QCOMPARE(facts.eapState, "SUCCESS");
    QCOMPARE(facts.eapMethod, "EAP-PEAP");
    QCOMPARE(facts.signalDbm.value_or(0), -61);
    QVERIFY(!ParseSupplicant("wpa_state=SCANNING\n", "FAIL\n").signalDbm);
}

void TestSupplicantFacts::networkHasItsOwnName_data()
{
    QTest::addColumn<QByteArray>("status");
    QTest::addColumn<QString>("ssid");
    QTest::newRow("quotes") << QByteArray(R"(ssid=Bob's \"net\")") << R"(Bob's "net")";
    QTest::newRow("backslash") << QByteArray(R"(ssid=a\\b)") << R"(a\b)";
    QTest::newRow("what looks like an escape") << QByteArray(R"(ssid=a\\x41)") << R"(a\x41)";
    QTest::newRow("beyond ASCII, beside a quote")
        << QByteArray(R"(ssid=\xc3\xa9\"!)") << QString::fromUtf8("\xc3\xa9\"!");
    QTest::newRow("another escape") << QByteArray(R"(ssid=a\tb\x4)") << R"(a\tb\x4)";
}

void TestSupplicantFacts::networkHasItsOwnName()
{
    QFETCH(QByteArray, status);

    QTEST(ParseSupplicant(status, QByteArray()).ssid, "ssid");
}

void TestSupplicantFacts::methodIsANameAlone_data()
{
    QTest::addColumn<QByteArray>("status");
    QTest::addColumn<QString>("method");
    QTest::newRow("with its number") << QByteArray("selectedMethod=13 (EAP-TLS)\n") << "EAP-TLS";
    QTest::newRow("bare") << QByteArray("selectedMethod=EAP-TLS\n") << "EAP-TLS";
    QTest::newRow("none yet") << QByteArray("wpa_state=COMPLETED\n") << "";
}

void TestSupplicantFacts::methodIsANameAlone()
{
    QFETCH(QByteArray, status);

    QTEST(ParseSupplicant(status, QByteArray()).eapMethod, "method");
}

void TestSupplicantFacts::lineWithoutANameIsNoValue()
{
    const SupplicantFacts facts = ParseSupplicant("ssid\n=Office\na=b\nbssid=\n", "RSSI=low\n");

    QCOMPARE(facts.ssid, QString());
    QCOMPARE(facts.bssid, QString());
    QVERIFY(!facts.signalDbm);
}

QTEST_GUILESS_MAIN(TestSupplicantFacts)
#include "tst_supplicantfacts.moc"
