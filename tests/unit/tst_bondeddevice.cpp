// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "bondeddevice.h"

#include "bondworld.h"

#include <QtTest>

using TestSupport::Journal;
using TestSupport::LogText;

namespace {

/// Everything in the place of the network's interfaces, by name.
QStringList Entries()
{
    return QDir("/sys/class/net").entryList(QDir::AllEntries | QDir::NoDotAndDotDot, QDir::Name);
}

} // namespace

/// The bond: what it runs, in which order, and what it finds at its start.
class TestBondedDevice : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { net = MakeBondWorld(); }
    void cleanup() { net.reset(); }

    void beginsWithWhatIsThere_data();
    void beginsWithWhatIsThere();
    void modesStandInTheOrderOfTheirNumbers();
    void settingDecidesWhetherBondingIsWanted_data();
    void settingDecidesWhetherBondingIsWanted();
    void settingIsReadAtEveryQuestion();
    void modeIsGivenAsANumber_data();
    void modeIsGivenAsANumber();
    void driverIsLookedForEachTime_data();
    void driverIsLookedForEachTime();
    void enablingTakesOverTheWiredName();
    void enablingAgainReleasesTwiceAndKeepsTheBondsName();
    void enablingWithoutRenamingUsesTheBondsOwnName();
    void enablingWithoutInterfacesDisablesNothing();
    void enablingTakesTheInterfacesThatAreThere();
    void enablingWithoutInterfacesNamesTheRenamedOneAsPrimary();
    void enablingIsLogged_data();
    void enablingIsLogged();
    void enablingBringsTheBondUp();
    void slavesHaveTheirCurrentNames();
    void disablingTearsTheBondDown();
    void disablingWithoutRenamingKeepsNames();
    void bondsAreListedOneALine_data();
    void bondsAreListedOneALine();
    void disablingWithoutBondSkipsTheTeardown_data();
    void disablingWithoutBondSkipsTheTeardown();
    void disablingBringsTheFirstSlaveUp();
    void disablingWithoutInterfacesAsksForNone();
    void disablingGivesTheNameBack();
    void switchingOnAndOffLeavesNothing_data();
    void switchingOnAndOffLeavesNothing();
    void activeSlaveFileFollowsTheName();

private:
    std::unique_ptr<FakeSysNet> net;
};

void TestBondedDevice::beginsWithWhatIsThere_data()
{
    QTest::addColumn<QStringList>("interfaces");
    QTest::addColumn<bool>("masters");
    QTest::addColumn<bool>("active");
    QTest::addColumn<QStringList>("slaves");

    QTest::newRow("no bond") << QStringList{"eth0", "eth1", "wlan0", "enp3s0", "Eth9"} << false << false
                             << QStringList{"enp3s0", "eth0", "eth1"};
    QTest::newRow("no Ethernet") << QStringList{"wlan0", "wwan0"} << false << false << QStringList();
    QTest::newRow("driver loaded") << QStringList{"eth0", "bond0"} << true << true << QStringList{"eth0"};
    QTest::newRow("bond has the wired name")
        << QStringList{"eth0", "eth0-swap", "eth1"} << true << true << QStringList{"eth0-swap", "eth1"};
}

void TestBondedDevice::beginsWithWhatIsThere()
{
    QFETCH(QStringList, interfaces);
    QFETCH(bool, masters);
    QFETCH(QStringList, slaves);
    net->Remove("eth0");
    net->Remove("eth1");
    net->Remove("wlan0");
    for (const QString &name : qAsConst(interfaces))
        net->Add(name);
    if (masters)
        net->Write("bonding_masters", "bond0\n");

    const BondedDevice bond(nullptr);

    QCOMPARE(bond.getSlaves(), slaves);
    QTEST(bond.isBondingActive(), "active");
    QCOMPARE(bond.getBondedDeviceActiveSlaveFileName(), QString("/sys/class/net/bond0/bonding/active_slave"));
    QCOMPARE(Journal(), QStringList());
    QVERIFY(LogText().contains(" BondedDevice::BondedDevice Initialized \n"));
}

void TestBondedDevice::modesStandInTheOrderOfTheirNumbers()
{
    QCOMPARE(BondedDevice::BondingModeList,
             (QStringList{"balance-rr", "active-backup", "balance-xor", "broadcast", "802.3ad", "balance-tlb",
                          "balance-alb"}));
}

void TestBondedDevice::settingDecidesWhetherBondingIsWanted_data()
{
    QTest::addColumn<QByteArray>("settings");
    QTest::addColumn<bool>("wanted");

    QTest::newRow("absent") << QByteArray() << false;
    QTest::newRow("true") << QByteArray("<bonding_enable>true</bonding_enable>") << true;
    QTest::newRow("false") << QByteArray("<bonding_enable>false</bonding_enable>") << false;
    QTest::newRow("capital letter") << QByteArray("<bonding_enable>True</bonding_enable>") << false;
    QTest::newRow("number") << QByteArray("<bonding_enable>1</bonding_enable>") << false;
    QTest::newRow("leading blank") << QByteArray("<bonding_enable> true</bonding_enable>") << false;
}

void TestBondedDevice::settingDecidesWhetherBondingIsWanted()
{
    QFETCH(QByteArray, settings);
    GivenSettings(settings);
    const BondedDevice bond(nullptr);

    QTEST(bond.isBondingEnabled(), "wanted");
    QTEST(bond.isBondingEnabled(), "wanted");
}

void TestBondedDevice::settingIsReadAtEveryQuestion()
{
    const BondedDevice bond(nullptr);
    QVERIFY(bond.isBondingEnabled());

    GivenSettings("<bonding_enable>false</bonding_enable>");
    QVERIFY(!bond.isBondingEnabled());
}

void TestBondedDevice::modeIsGivenAsANumber_data()
{
    QTest::addColumn<QByteArray>("settings");
    QTest::addColumn<QString>("mode");

    QTest::newRow("absent") << QByteArray() << "0";
    for (int mode = 0; mode <= 6; ++mode) {
        const QByteArray number = QByteArray::number(mode);
        QTest::newRow(("mode " + number).constData())
            << "<bonding_mode>" + number + "</bonding_mode>" << QString(number);
    }
    QTest::newRow("blanks around") << QByteArray("<bonding_mode> 4 </bonding_mode>") << "4";
    QTest::newRow("name") << QByteArray("<bonding_mode>balance-tlb</bonding_mode>") << "0";
    QTest::newRow("hexadecimal") << QByteArray("<bonding_mode>0x1</bonding_mode>") << "0";
    QTest::newRow("fraction") << QByteArray("<bonding_mode>1.5</bonding_mode>") << "0";
    QTest::newRow("above the known ones") << QByteArray("<bonding_mode>9</bonding_mode>") << "9";
}

void TestBondedDevice::modeIsGivenAsANumber()
{
    QFETCH(QByteArray, settings);
    GivenSettings(settings);
    const BondedDevice bond(nullptr);

    QTEST(bond.GetDesiredMode(), "mode");
    QTEST(bond.GetDesiredMode(), "mode");
}

void TestBondedDevice::driverIsLookedForEachTime_data()
{
    QTest::addColumn<QByteArray>("script");
    QTest::addColumn<bool>("found");

    QTest::newRow("module") << QByteArray("echo 'filename:       /lib/modules/6.1/bonding.ko'; echo a: b")
                            << true;
    QTest::newRow("built in") << QByteArray(
                                     "echo 'name:           bonding'; echo 'filename:       (builtin)'")
                              << true;
    QTest::newRow("not found") << QByteArray("echo 'modinfo: ERROR: Module bonding not found.' >&2; exit 1")
                               << false;
    QTest::newRow("crash") << QByteArray("echo filename: x; kill -SEGV $$") << false;
}

void TestBondedDevice::driverIsLookedForEachTime()
{
    QFETCH(QByteArray, script);
    QFETCH(bool, found);
    TestSupport::Answer("modinfo", script);
    BondedDevice bond(nullptr);

    QCOMPARE(bond.isAvailable(), found);
    QCOMPARE(BondedDevice::driverFound, found);
    QVERIFY(BondedDevice::enableChecked);

    TestSupport::Answer("modinfo", found ? "exit 1" : "echo filename: x");
    QCOMPARE(bond.isAvailable(), !found);
    QCOMPARE(BondedDevice::driverFound, !found);
    QCOMPARE(Journal(), (QStringList{"modinfo bonding", "modinfo bonding"}));
}

void TestBondedDevice::enablingTakesOverTheWiredName()
{
    BondedDevice bond(nullptr);
    bond.setRenaming(true);
    bond.setUsePrimary(true);

    bond.EnableBonding();

    QCOMPARE(Journal(), (QStringList{"modinfo bonding", "ip link delete bond0 type bond", "dhclient -r",
                                     "ip link set name eth0-swap eth0", "ip link set name eth0 bond0",
                                     "modprobe bonding mode=1 miimon=100 primary=eth0-swap",
                                     "ip link add eth0 type bond", "ip link set dev eth0-swap down",
                                     "ip link set dev eth0-swap master eth0", "ip link set dev eth1 down",
                                     "ip link set dev eth1 master eth0", "ip link set dev eth0 up"}));
    QVERIFY(bond.isBondingActive());
}

void TestBondedDevice::enablingAgainReleasesTwiceAndKeepsTheBondsName()
{
    TestSupport::Answer("ip", DRIVER);
    TestSupport::Answer("modprobe", DRIVER);
    BondedDevice bond(nullptr);
    bond.setRenaming(true);
    bond.EnableBonding();
    TestSupport::ClearJournal();

    bond.EnableBonding();

    QCOMPARE(Journal().filter("dhclient"), (QStringList{"dhclient -r", "dhclient -r"}));
    const auto modprobe = Journal().indexOf("modprobe bonding mode=1 miimon=100");
    QCOMPARE(Journal().mid(modprobe - 2, 2),
             (QStringList{"ip link set name eth0-swap eth0", "ip link set name eth0 eth0"}));
}

void TestBondedDevice::enablingWithoutRenamingUsesTheBondsOwnName()
{
    BondedDevice bond(nullptr);

    bond.EnableBonding();

    QCOMPARE(Journal(), (QStringList{"modinfo bonding", "ip link delete bond0 type bond", "dhclient -r",
                                     "modprobe bonding mode=1 miimon=100", "ip link add bond0 type bond",
                                     "ip link set dev eth0 down", "ip link set dev eth0 master bond0",
                                     "ip link set dev eth1 down", "ip link set dev eth1 master bond0",
                                     "ip link set dev bond0 up"}));
    QCOMPARE(bond.getSlaves(), (QStringList{"eth0", "eth1"}));
}

void TestBondedDevice::enablingWithoutInterfacesDisablesNothing()
{
    net->Remove("eth0");
    net->Remove("eth1");
    BondedDevice bond(nullptr);

    bond.EnableBonding();

    QCOMPARE(Journal(), (QStringList{"modinfo bonding", "dhclient -r", "modprobe bonding mode=1 miimon=100",
                                     "ip link add bond0 type bond", "ip link set dev bond0 up"}));
}

void TestBondedDevice::enablingTakesTheInterfacesThatAreThere()
{
    BondedDevice bond(nullptr);
    net->Remove("eth1");
    net->Add("enp3s0");

    bond.EnableBonding();

    QCOMPARE(bond.getSlaves(), (QStringList{"enp3s0", "eth0"}));
    QCOMPARE(Journal().filter("master"),
             (QStringList{"ip link set dev enp3s0 master bond0", "ip link set dev eth0 master bond0"}));
}

void TestBondedDevice::enablingWithoutInterfacesNamesTheRenamedOneAsPrimary()
{
    net->Remove("eth0");
    net->Remove("eth1");
    BondedDevice bond(nullptr);
    bond.setRenaming(true);
    bond.setUsePrimary(true);

    bond.EnableBonding();

    QVERIFY(Journal().contains("modprobe bonding mode=1 miimon=100 primary=eth0-swap"));
}

void TestBondedDevice::enablingIsLogged_data()
{
    QTest::addColumn<bool>("found");

    QTest::newRow("driver found") << true;
    QTest::newRow("driver not found, goes on") << false;
}

void TestBondedDevice::enablingIsLogged()
{
    QFETCH(bool, found);
    if (found)
        TestSupport::Answer("modinfo", "echo filename: x");
    Logging::GetInstance(Logging::KEEP_LEVEL, false)->SetLoggingLevel(Level::NOTICE);
    BondedDevice bond(nullptr);
    bond.setRenaming(true);
    bond.setUsePrimary(true);

    bond.EnableBonding();

    QVERIFY2(LogText().contains(" Renaming 1 BringUp 0 usePrimary 1 \n"), qPrintable(LogText()));
    QVERIFY(LogText().contains(" Renaming 1 BringUp 0 \n"));
    QCOMPARE(LogText().contains(" Bonding driver was not found \n"), !found);
    QVERIFY(Journal().contains("ip link add eth0 type bond"));
}

void TestBondedDevice::enablingBringsTheBondUp()
{
    BondedDevice bond(nullptr);
    bond.setBringupInterface(true);

    bond.EnableBonding();

    QVERIFY(TestSupport::WaitForJournal(13));
    QCOMPARE(Journal().mid(10),
             (QStringList{"ip link set dev bond0 up", "ip link set dev bond0 up", "dhclient bond0"}));
    QCOMPARE(Journal().at(2), QString("ip link set dev eth0 up"));
}

void TestBondedDevice::slavesHaveTheirCurrentNames()
{
    TestSupport::Answer("ip", DRIVER);
    TestSupport::Answer("modprobe", DRIVER);
    BondedDevice bond(nullptr);
    bond.setRenaming(true);
    QCOMPARE(bond.getSlaves(), (QStringList{"eth0", "eth1"}));

    bond.EnableBonding();
    QCOMPARE(bond.getSlaves(), (QStringList{"eth0-swap", "eth1"}));

    bond.DisableBonding();
    QCOMPARE(bond.getSlaves(), (QStringList{"eth0", "eth1"}));
}

void TestBondedDevice::disablingTearsTheBondDown()
{
    net->Write("bonding_masters", "eth0\n");
    net->Add("eth0-swap");
    BondedDevice bond(nullptr);
    bond.setRenaming(true);

    bond.DisableBonding();

    QCOMPARE(Journal(),
             (QStringList{"dhclient -r", "ip link set dev eth0 down", "ip link set name bond0 eth0",
                          "ip link set name eth0 eth0-swap", "ip link set dev eth0-swap nomaster",
                          "ip link set dev eth1 nomaster", "modprobe -r bonding",
                          "ip link delete bond0 type bond", "ip link set name eth0 eth0-swap"}));
    QVERIFY(!bond.isBondingActive());
    QVERIFY(LogText().contains(" Renaming 1 BringUp 0 \n"));
}

void TestBondedDevice::disablingWithoutRenamingKeepsNames()
{
    net->Write("bonding_masters", "bond0\n");
    BondedDevice bond(nullptr);

    bond.DisableBonding();

    QCOMPARE(Journal(), (QStringList{"dhclient -r", "ip link set dev bond0 down",
                                     "ip link set dev eth0 nomaster", "ip link set dev eth1 nomaster",
                                     "modprobe -r bonding", "ip link delete bond0 type bond"}));
}

void TestBondedDevice::bondsAreListedOneALine_data()
{
    QTest::addColumn<QByteArray>("masters");
    QTest::addColumn<QString>("bond");

    QTest::newRow("two in a line are one entry") << QByteArray("bond0 eth0\n") << "'bond0 eth0'";
    QTest::newRow("the first of two lines") << QByteArray("bond0\neth0\n") << "bond0";
}

void TestBondedDevice::bondsAreListedOneALine()
{
    QFETCH(QByteArray, masters);
    QFETCH(QString, bond);
    net->Write("bonding_masters", masters);
    BondedDevice device(nullptr);

    device.DisableBonding();

    QVERIFY2(Journal().contains("ip link set dev " + bond + " down"), qPrintable(Journal().join('\n')));
}

void TestBondedDevice::disablingWithoutBondSkipsTheTeardown_data()
{
    QTest::addColumn<bool>("exists");
    QTest::addColumn<QByteArray>("contents");

    QTest::newRow("driver not loaded") << false << QByteArray();
    QTest::newRow("no bond") << true << QByteArray("\n");
    QTest::newRow("empty") << true << QByteArray();
}

void TestBondedDevice::disablingWithoutBondSkipsTheTeardown()
{
    QFETCH(bool, exists);
    QFETCH(QByteArray, contents);
    if (exists)
        net->Write("bonding_masters", contents);
    BondedDevice bond(nullptr);
    bond.setRenaming(true);

    bond.DisableBonding();

    QCOMPARE(Journal(), QStringList{"ip link delete bond0 type bond"});
    QVERIFY(!bond.isBondingActive());
}

void TestBondedDevice::disablingBringsTheFirstSlaveUp()
{
    BondedDevice bond(nullptr);
    bond.setBringupInterface(true);

    bond.DisableBonding();

    QCOMPARE(Journal(), (QStringList{"ip link delete bond0 type bond", "ip link set dev eth0 up"}));
}

void TestBondedDevice::disablingWithoutInterfacesAsksForNone()
{
    net->Remove("eth0");
    net->Remove("eth1");
    BondedDevice bond(nullptr);
    bond.setBringupInterface(true);

    bond.DisableBonding();

    QCOMPARE(Journal(), QStringList{"ip link delete bond0 type bond"});
}

void TestBondedDevice::disablingGivesTheNameBack()
{
    net->Remove("eth0");
    net->Add("eth0-swap");
    BondedDevice bond(nullptr);

    bond.DisableBonding();

    QCOMPARE(Journal(), (QStringList{"ip link delete bond0 type bond", "ip link set name eth0 eth0-swap"}));
    QCOMPARE(bond.getSlaves(), (QStringList{"eth0", "eth1"}));
}

void TestBondedDevice::switchingOnAndOffLeavesNothing_data()
{
    QTest::addColumn<bool>("renaming");
    QTest::addColumn<int>("times");

    QTest::newRow("once") << false << 1;
    QTest::newRow("three times") << false << 3;
    QTest::newRow("with renaming, once") << true << 1;
    QTest::newRow("with renaming, three times") << true << 3;
}

void TestBondedDevice::switchingOnAndOffLeavesNothing()
{
    QFETCH(bool, renaming);
    QFETCH(int, times);
    TestSupport::Answer("ip", DRIVER);
    TestSupport::Answer("modprobe", DRIVER);
    BondedDevice bond(nullptr);
    bond.setRenaming(renaming);
    const QStringList before = Entries();

    for (int i = 0; i < times; ++i) {
        bond.EnableBonding();
        QVERIFY(bond.isBondingActive());
        QCOMPARE(Entries().contains("eth0-swap"), renaming);
        QVERIFY(Entries().contains("bonding_masters"));
        bond.DisableBonding();
        QCOMPARE(Entries(), before);
    }
}

void TestBondedDevice::activeSlaveFileFollowsTheName()
{
    BondedDevice bond(nullptr);
    bond.setRenaming(true);

    bond.EnableBonding();

    QCOMPARE(bond.getBondedDeviceActiveSlaveFileName(), QString("/sys/class/net/eth0/bonding/active_slave"));
}

QTEST_GUILESS_MAIN(TestBondedDevice)
#include "tst_bondeddevice.moc"
