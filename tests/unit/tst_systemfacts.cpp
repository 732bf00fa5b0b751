// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "systemfacts.h"

#include <QtTest>

/// What corvi-status makes of the files that other programs write.
class TestSystemFacts : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();

    void leaseIsTheLastOfTheInterface();
    void leaseEnds_data();
    void leaseEnds();
    void leaseMayBeMissing_data();
    void leaseMayBeMissing();
    void nameServersAreRead();
};

void TestSystemFacts::initTestCase()
{
    // Where no time looks the same as in UTC.
    qputenv("TZ", "EAST-2");
}

void TestSystemFacts::leaseIsTheLastOfTheInterface()
{
    const auto lease = SystemFacts::LastLease(
        "lease {\n  interface \"eth0\";\n  fixed-address 10.0.0.4;\n"
        "  option dhcp-server-identifier 10.0.0.1;\n  expire 6 2026/11/21 20:00:00;\n}\n"
        "lease {\n  interface \"eth0\";\n  fixed-address 10.0.0.5;\n"
        "  option dhcp-server-identifier 10.0.0.2;\n  expire 6 2026/11/21 20:55:01;\n}\n"
        "lease {\n  interface \"eth01\";\n  fixed-address 10.0.0.6;\n}\n"
        "lease {\n  interface \"eth0\";\n  fixed-address 10.0.0.7;\n",
        "eth0");

    QVERIFY(lease);
    QCOMPARE(lease->address, "10.0.0.5");
    QCOMPARE(lease->server, "10.0.0.2");
    QCOMPARE(lease->expires, QDateTime(QDate(2026, 11, 21), QTime(20, 55, 1), Qt::UTC));
}

void TestSystemFacts::leaseEnds_data()
{
    QTest::addColumn<QByteArray>("expiry");
    QTest::addColumn<QDateTime>("expected");
    QTest::newRow("date") << QByteArray("6 2026/11/21 20:55:01;")
                          << QDateTime::fromSecsSinceEpoch(1795294501);
    QTest::newRow("seconds") << QByteArray("epoch 1795294501; # Sat Nov 21 21:55:01 2026")
                             << QDateTime::fromSecsSinceEpoch(1795294501);
    QTest::newRow("never") << QByteArray("never;") << QDateTime();
    QTest::newRow("rubbish") << QByteArray("6 9999999/99/99 99:99:99;") << QDateTime();
}

void TestSystemFacts::leaseEnds()
{
    QFETCH(QByteArray, expiry);

    const auto lease =
        SystemFacts::LastLease("lease {\n  interface \"eth0\";\n  expire " + expiry + "\n}\n", "eth0");

    QVERIFY(lease);
    QTEST(lease->expires.isValid() ? lease->expires : QDateTime(), "expected");
    QCOMPARE(lease->expires.timeSpec(), Qt::UTC);
}

void TestSystemFacts::leaseMayBeMissing_data()
{
    QTest::addColumn<QByteArray>("leases");
    QTest::newRow("no file") << QByteArray();
    QTest::newRow("another interface") << QByteArray("lease {\n  interface \"eth1\";\n}\n");
    QTest::newRow("unfinished") << QByteArray("lease {\n  interface \"eth0\";\n");
}

void TestSystemFacts::leaseMayBeMissing()
{
    QFETCH(QByteArray, leases);

    QVERIFY(!SystemFacts::LastLease(leases, "eth0"));
}

void TestSystemFacts::nameServersAreRead()
{
    const QStringList expected{"10.0.0.1", "2001:db8::1"};

    QCOMPARE(SystemFacts::NameServers("# nameserver 1.1.1.1\nnameserver 10.0.0.1\nsearch example.org\n"
                                      "nameserver \nnameserver\t2001:db8::1 \n"),
             expected);
}

QTEST_GUILESS_MAIN(TestSystemFacts)
#include "tst_systemfacts.moc"
