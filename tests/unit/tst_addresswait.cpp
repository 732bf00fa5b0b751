// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "addresswait.h"
#include "reportworld.h"

#include <QtTest>

/// When corvi-status --wait ends, and what it says where it ends in vain.
class TestAddressWait : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void waitEndsWithAnAddress_data();
    void waitEndsWithAnAddress();
    void waitInVainSaysWhy();
};

void TestAddressWait::waitEndsWithAnAddress_data()
{
    QTest::addColumn<QString>("interface");
    QTest::addColumn<bool>("carrier");
    QTest::addColumn<QStringList>("addresses");
    QTest::addColumn<bool>("isOver");
    const QStringList one{"10.0.0.5/24"};
    QTest::newRow("any") << QString() << true << one << true;
    QTest::newRow("this") << "eth0" << true << one << true;
    QTest::newRow("another") << "eth1" << true << one << false;
    QTest::newRow("no carrier") << QString() << false << one << false;
    QTest::newRow("no address") << QString() << true << QStringList() << false;
    QTest::newRow("for the link alone") << QString() << true << QStringList{"169.254.3.4/16"} << false;
    QTest::newRow("two") << QString() << true << QStringList{"169.254.3.4/16", "10.0.0.5/24"} << true;
}

void TestAddressWait::waitEndsWithAnAddress()
{
    QFETCH(QString, interface);
    QFETCH(bool, carrier);
    QFETCH(QStringList, addresses);
    LinkFacts link = Connected().link;
    link.hasCarrier = carrier;
    link.addresses = addresses;

    QTEST(AddressWait::IsOver({LinkFacts(), link}, interface), "isOver");
}

void TestAddressWait::waitInVainSaysWhy()
{
    InterfaceReport interface = Connected();
    interface.link.hasCarrier = false;
    SystemReport report = SystemWith(interface);
    interface.link.name = "eth1x";
    interface.daemon.reset();
    report.interfaces.append(interface);

    QCOMPARE(AddressWait::Reasons(report, QString()), "eth0: no carrier; eth1x: not managed by Corvi");
    QCOMPARE(AddressWait::Reasons(report, "eth0"), "eth0: no carrier");
    QCOMPARE(AddressWait::Reasons(report, "eth1"), "there is no such interface");
}

QTEST_GUILESS_MAIN(TestAddressWait)
#include "tst_addresswait.moc"
