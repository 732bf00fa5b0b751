// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "bondeddevice.h"

#include "bondworld.h"

#include <QtTest>

using TestSupport::Journal;

/// The ports of a bond: adapters that are pulled and put back, kernels that rename nothing that is up, a
/// driver that is missing.
class TestBondedDevicePorts : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void portThatComesBackIsEnslaved_data();
    void portThatComesBackIsEnslaved();
    void portGoesToOurBondBesideAnother_data();
    void portGoesToOurBondBesideAnother();
    void interfaceThatIsNoPortIsLeftAlone_data();
    void interfaceThatIsNoPortIsLeftAlone();
    void portThatCannotBeEnslavedIsNotTriedOnEveryTick();
    void withoutABondNothingIsEnslaved();
    void bondOfSomebodyElseGetsNoPort();
    void bondThatIsGoneGetsNoPort();
    void adapterThatIsUpIsRenamedAllTheSame();
    void withoutADriverTheAdapterHasItsNameBack();
    void withoutADriverOtherAdaptersAreLeftAlone();

private:
    std::unique_ptr<FakeSysNet> net;
    std::unique_ptr<BondedDevice> bond;
};

void TestBondedDevicePorts::init()
{
    net = MakeBondWorld();
    TestSupport::Answer("ip", DRIVER);
    TestSupport::Answer("modprobe", DRIVER);
    bond = std::make_unique<BondedDevice>(nullptr);
    bond->setRenaming(true);
    bond->EnableBonding();
    QVERIFY(!bond->AdoptPorts());
    TestSupport::ClearJournal();
}

void TestBondedDevicePorts::cleanup()
{
    bond.reset();
    net.reset();
}

void TestBondedDevicePorts::portThatComesBackIsEnslaved_data()
{
    QTest::addColumn<QString>("pulled");
    QTest::addColumn<QString>("put");
    QTest::newRow("under its name") << "eth1"
                                    << "eth1";
    QTest::newRow("under another, as the bond has its own") << "eth0-swap"
                                                            << "eth2";
}

void TestBondedDevicePorts::portThatComesBackIsEnslaved()
{
    QFETCH(QString, pulled);
    QFETCH(QString, put);
    net->Remove(pulled);
    QVERIFY(!bond->AdoptPorts());

    net->Add(put);
    // It may still be renamed.
    QVERIFY(bond->AdoptPorts());
    QCOMPARE(Journal(), QStringList());
    QVERIFY(bond->AdoptPorts());

    QCOMPARE(Journal(),
             QStringList({"ip link set dev " + put + " down", "ip link set dev " + put + " master eth0"}));
    QVERIFY(
        TestSupport::LogText().contains("BondedDevice::AdoptPort - " + put + " becomes a port of eth0 \n"));
    QCOMPARE(bond->getSlaves().count(put), 1);
    QVERIFY(!bond->AdoptPorts());
}

void TestBondedDevicePorts::portGoesToOurBondBesideAnother_data()
{
    QTest::addColumn<bool>("isRestarted");
    QTest::newRow("that we made") << false;
    QTest::newRow("that an earlier daemon made") << true;
}

void TestBondedDevicePorts::portGoesToOurBondBesideAnother()
{
    QFETCH(bool, isRestarted);
    if (isRestarted)
        bond = std::make_unique<BondedDevice>(nullptr);
    net->Write("bonding_masters", "another eth0\n");
    net->Add("eth2");

    bond->AdoptPorts();
    bond->AdoptPorts();

    QVERIFY2(Journal().contains("ip link set dev eth2 master eth0"), qPrintable(Journal().join('\n')));
}

void TestBondedDevicePorts::interfaceThatIsNoPortIsLeftAlone_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QByteArray>("uevent");
    QTest::newRow("no Ethernet") << "wlan1" << QByteArray("INTERFACE=wlan1\n");
    QTest::newRow("VLAN") << "eth1.5" << QByteArray("DEVTYPE=vlan\nINTERFACE=eth1.5\n");
}

void TestBondedDevicePorts::interfaceThatIsNoPortIsLeftAlone()
{
    QFETCH(QString, name);
    QFETCH(QByteArray, uevent);
    net->Add(name);
    net->Write(name + "/uevent", uevent);

    QVERIFY(!bond->AdoptPorts());
    QVERIFY(!bond->AdoptPorts());

    QCOMPARE(Journal(), QStringList());
}

void TestBondedDevicePorts::portThatCannotBeEnslavedIsNotTriedOnEveryTick()
{
    TestSupport::Answer("ip", "exit 2");
    net->Add("eth2");

    for (int i = 0; i < 5; ++i)
        QVERIFY(bond->AdoptPorts());

    QCOMPARE(Journal().filter("master"), QStringList{"ip link set dev eth2 master eth0"});
}

void TestBondedDevicePorts::withoutABondNothingIsEnslaved()
{
    bond->DisableBonding();
    TestSupport::ClearJournal();

    QVERIFY(!bond->AdoptPorts());
    QVERIFY(!bond->AdoptPorts());

    QCOMPARE(Journal(), QStringList());
}

void TestBondedDevicePorts::bondOfSomebodyElseGetsNoPort()
{
    bond->DisableBonding();
    net->Write("bonding_masters", "bond7\n");
    TestSupport::ClearJournal();

    QVERIFY(!bond->AdoptPorts());
    QVERIFY(!bond->AdoptPorts());

    QCOMPARE(Journal(), QStringList());
}

void TestBondedDevicePorts::bondThatIsGoneGetsNoPort()
{
    net->Write("bonding_masters", "\n");
    net->Add("eth2");

    QVERIFY(!bond->AdoptPorts());
    QVERIFY(!bond->AdoptPorts());

    QCOMPARE(Journal(), QStringList());
}

void TestBondedDevicePorts::adapterThatIsUpIsRenamedAllTheSame()
{
    bond->DisableBonding();
    bond = std::make_unique<BondedDevice>(nullptr);
    bond->setRenaming(true);
    TestSupport::Remove("/tmp/is-down");
    TestSupport::Answer("ip", "case \"$*\" in *\"eth0 down\") touch /tmp/is-down ;;\n"
                              "\"link set name eth0-swap eth0\") [ -e /tmp/is-down ] || exit 2 ;; esac\n" +
                                  DRIVER);
    TestSupport::ClearJournal();

    bond->EnableBonding();

    QCOMPARE(Journal().mid(3, 5),
             QStringList({"ip link set name eth0-swap eth0", "ip link set dev eth0 down",
                          "ip link set name eth0-swap eth0", "ip link set name eth0 bond0",
                          "ip addr flush dev eth0-swap"}));
    QVERIFY(QFile::exists("/sys/class/net/eth0/bonding"));
    QVERIFY(TestSupport::LogText().contains(
        "BondedDevice - eth0 cannot be renamed, trying again with the link down \n"));
}

void TestBondedDevicePorts::withoutADriverTheAdapterHasItsNameBack()
{
    bond->DisableBonding();
    bond = std::make_unique<BondedDevice>(nullptr);
    bond->setRenaming(true);
    TestSupport::Answer("modprobe", "exit 1");
    TestSupport::Answer("ip", "[ \"$2\" != add ] || exit 2\n" + DRIVER);

    bond->EnableBonding();

    QVERIFY(QFile::exists("/sys/class/net/eth0"));
    QVERIFY(!QFile::exists("/sys/class/net/eth0-swap"));
    QVERIFY(!bond->isBondingActive());
    QCOMPARE(bond->getSlaves(), QStringList({"eth0", "eth1"}));
    QCOMPARE(Journal().last(), QString("ip link set name eth0 eth0-swap"));
    QVERIFY(TestSupport::LogText().contains(
        "BondedDevice::EnableBonding - there is no bond, going on without one on eth0 eth1 \n"));
}

/// None of them had the bond's name.
void TestBondedDevicePorts::withoutADriverOtherAdaptersAreLeftAlone()
{
    bond->DisableBonding();
    net->Remove("eth0");
    bond = std::make_unique<BondedDevice>(nullptr);
    bond->setRenaming(true);
    TestSupport::Answer("modprobe", "exit 1");
    TestSupport::Answer("ip", "[ \"$2\" != add ] || exit 2\n" + DRIVER);

    bond->EnableBonding();

    QVERIFY(!bond->isBondingActive());
    QCOMPARE(bond->getSlaves(), QStringList{"eth1"});
}

QTEST_GUILESS_MAIN(TestBondedDevicePorts)
#include "tst_bondeddevice_ports.moc"
