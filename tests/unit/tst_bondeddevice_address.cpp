// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "bondeddevice.h"

#include "bondworld.h"
#include "mountpoint.h"

#include <QFile>
#include <QtTest>

#include <sys/stat.h>

using TestSupport::Journal;
using TestSupport::LogText;

/// The address that the bond keeps over restarts.
class TestBondedDeviceAddress : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { net = MakeBondWorld(); }
    void cleanup() { net.reset(); }

    void savedAddressIsUsed_data();
    void savedAddressIsUsed();
    void savedAddressThatOthersMayWriteIsNotUsed();
    void unusableSavedAddressIsReplaced();
    void savedTextOfAnAddressesLengthIsUsedAsItIs();
    void savedBlanksAreNoAddress();
    void addressIsSavedWhereThereIsNoFolder();
    void addressThatCannotBeReadIsNotSaved();
    void savedAddressDoesNotFollowALink();
    void namedPipeInPlaceOfTheAddressIsNotWaitedFor();
    void addressThatCannotBeSavedIsLogged();
    void addressThatCannotBeSavedChangesNothingElse();

private:
    std::unique_ptr<FakeSysNet> net;
};

void TestBondedDeviceAddress::savedAddressIsUsed_data()
{
    QTest::addColumn<QByteArray>("contents");
    QTest::addColumn<bool>("used");

    QTest::newRow("with its line feed") << MAC + "\n" << true;
    QTest::newRow("more lines after it") << MAC + "\nanything\n" << true;
    QTest::newRow("without line feed") << MAC << false;
    QTest::newRow("longer line") << MAC + " \n" << false;
    QTest::newRow("shorter line") << MAC.left(16) + "\n" << false;
    QTest::newRow("18 characters without line feed") << MAC + "0" << false;
    QTest::newRow("empty first line") << "\n" + MAC + "\n" << false;
    QTest::newRow("empty file") << QByteArray() << false;
}

void TestBondedDeviceAddress::savedAddressIsUsed()
{
    QFETCH(QByteArray, contents);
    QFETCH(bool, used);
    TestSupport::WriteFile(SAVED_MAC, contents);
    BondedDevice bond(nullptr);
    bond.setRenaming(true);

    bond.EnableBonding();

    const auto at = Journal().indexOf("ip link set eth0 address " + MAC);
    QCOMPARE(at != -1, used);
    if (used) {
        QCOMPARE(Journal().mid(at - 1),
                 (QStringList{"ip link set dev eth1 master eth0", "ip link set eth0 address " + MAC,
                              "ip link set dev eth0 up"}));
        QCOMPARE(TestSupport::ReadFile(SAVED_MAC), contents);
    }
}

void TestBondedDeviceAddress::savedAddressThatOthersMayWriteIsNotUsed()
{
    TestSupport::WriteFile(SAVED_MAC, MAC + "\n");
    TestSupport::SetMode(SAVED_MAC, 0666);
    BondedDevice bond(nullptr);
    bond.setRenaming(true);

    bond.EnableBonding();

    QVERIFY(!Journal().contains("ip link set eth0 address " + MAC));
}

void TestBondedDeviceAddress::unusableSavedAddressIsReplaced()
{
    TestSupport::WriteFile(SAVED_MAC, MAC.left(15) + "99");
    BondedDevice bond(nullptr);
    bond.setRenaming(true);

    bond.EnableBonding();

    QCOMPARE(TestSupport::ReadFile(SAVED_MAC), MAC + "\n");
}

void TestBondedDeviceAddress::savedTextOfAnAddressesLengthIsUsedAsItIs()
{
    TestSupport::WriteFile(SAVED_MAC, "no-address-at-all\n");
    BondedDevice bond(nullptr);
    bond.setRenaming(true);

    bond.EnableBonding();

    QVERIFY(Journal().contains("ip link set eth0 address no-address-at-all"));
}

void TestBondedDeviceAddress::savedBlanksAreNoAddress()
{
    TestSupport::WriteFile(SAVED_MAC, QByteArray(17, ' ') + "\n");
    BondedDevice bond(nullptr);
    bond.setRenaming(true);

    bond.EnableBonding();

    QCOMPARE(Journal().filter(" address "), QStringList());
    QCOMPARE(TestSupport::ReadFile(SAVED_MAC), MAC + "\n");
}

void TestBondedDeviceAddress::addressIsSavedWhereThereIsNoFolder()
{
    TestSupport::Answer("ip", DRIVER);
    TestSupport::Answer("modprobe", DRIVER);
    BondedDevice bond(nullptr);
    bond.setRenaming(true);

    bond.EnableBonding();

    QCOMPARE(TestSupport::ReadFile(SAVED_MAC), QByteArray("02:bb:bb:bb:bb:bb\n"));
}

void TestBondedDeviceAddress::addressThatCannotBeReadIsNotSaved()
{
    TestSupport::WriteFile(SAVED_MAC, "short\n");
    BondedDevice bond(nullptr);

    bond.EnableBonding();

    QCOMPARE(TestSupport::ReadFile(SAVED_MAC), QByteArray("short\n"));
}

void TestBondedDeviceAddress::savedAddressDoesNotFollowALink()
{
    TestSupport::WriteFile("/tmp/victim", "untouched");
    QVERIFY(QDir().mkpath("/tmp/config/files/network"));
    QVERIFY(QFile::link("/tmp/victim", SAVED_MAC));
    BondedDevice bond(nullptr);
    bond.setRenaming(true);

    bond.EnableBonding();

    QCOMPARE(TestSupport::ReadFile("/tmp/victim"), QByteArray("untouched"));
    QCOMPARE(TestSupport::ReadFile(SAVED_MAC), MAC + "\n");
}

void TestBondedDeviceAddress::addressThatCannotBeSavedIsLogged()
{
    QVERIFY(QDir().mkpath(SAVED_MAC));
    const MountPoint taken(SAVED_MAC);
    BondedDevice bond(nullptr);
    bond.setRenaming(true);

    bond.EnableBonding();

    QVERIFY(LogText().contains("the bond's address could not be saved to " + SAVED_MAC));
}

void TestBondedDeviceAddress::addressThatCannotBeSavedChangesNothingElse()
{
    BondedDevice saving(nullptr);
    saving.setRenaming(true);
    saving.EnableBonding();
    QVERIFY(QFile::exists(SAVED_MAC));
    const QStringList programs = Journal();
    net.reset();
    net = MakeBondWorld();
    QVERIFY(QDir().mkpath(SAVED_MAC));
    const MountPoint taken(SAVED_MAC);
    BondedDevice bond(nullptr);
    bond.setRenaming(true);

    bond.EnableBonding();

    QCOMPARE(Journal(), programs);
    QVERIFY(bond.isBondingActive());
}

void TestBondedDeviceAddress::namedPipeInPlaceOfTheAddressIsNotWaitedFor()
{
    QVERIFY(QDir().mkpath("/tmp/config/files/network"));
    QCOMPARE(::mkfifo(QFile::encodeName(SAVED_MAC).constData(), 0600), 0);
    BondedDevice bond(nullptr);
    bond.setRenaming(true);

    bond.EnableBonding();

    QVERIFY(bond.isBondingActive());
    QVERIFY(Journal().filter(" address ").isEmpty());
}

QTEST_GUILESS_MAIN(TestBondedDeviceAddress)
#include "tst_bondeddevice_address.moc"
