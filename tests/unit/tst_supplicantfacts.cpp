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
