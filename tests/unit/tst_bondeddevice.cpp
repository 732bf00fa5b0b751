// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "bondeddevice.h"

#include "fakesysnet.h"
#include "logging.h"
#include "mountpoint.h"
#include "testsupport.h"

#include <QElapsedTimer>
#include <QFile>
#include <QSignalSpy>
#include <QTimer>
#include <QtTest>

#include <csignal>
#include <memory>

#include <sys/stat.h>

using TestSupport::Journal;
using TestSupport::LogText;

namespace {

const QString SAVED_MAC = QStringLiteral("/tmp/config/files/network/bondedMac");
const QByteArray MAC = "02:00:5e:0a:bc:0f";

/// What the driver does to /sys/class/net: bonds appear, are renamed and go, `bonding_masters` lists them.
const QByteArray DRIVER = R"(
net=/sys/class/net
list_masters() {
    [ -e $net/bonding_masters ] || return 0
    (cd $net && ls -d */bonding 2>/dev/null | sed 's,/bonding,,' | tr '\n' ' ' | sed 's/ $//'; echo) >/tmp/masters
    mv /tmp/masters $net/bonding_masters
}
add_bond() {
    mkdir -p $net/$1/bonding
    echo 02:bb:bb:bb:bb:bb >$net/$1/address
}
case "$(basename $0) $*" in
    "modprobe bonding"*) : >$net/bonding_masters; add_bond bond0 ;;
    "modprobe -r bonding") for b in $net/*/bonding; do rm -rf ${b%/bonding}; done; rm -f $net/bonding_masters ;;
    "ip link set name"*) [ ! -d $net/$5 ] || [ -e $net/$4 ] || mv $net/$5 $net/$4 ;;
    "ip link add"*) [ ! -e $net/bonding_masters ] || add_bond $3 ;;
    "ip link delete"*) rm -rf $net/$3 ;;
    "ip link set"*address*) echo $5 >$net/$3/address ;;
esac
list_masters
)";

/// Everything in the place of the network's interfaces, by name.
QStringList Entries()
{
    return QDir("/sys/class/net").entryList(QDir::AllEntries | QDir::NoDotAndDotDot, QDir::Name);
}

void GivenSettings(const QByteArray &settings)
{
    TestSupport::WriteStore("<x>" + settings + "</x>");
}

} // namespace

/// The bond: what it runs, in which order, and what it finds at its start.
class TestBondedDevice : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void beginsWithWhatIsThere_data();
    void beginsWithWhatIsThere();
    void modesStandInTheOrderOfTheirNumbers();
    void settingDecidesWhetherBondingIsWanted_data();
    void settingDecidesWhetherBondingIsWanted();
    void modeIsGivenAsANumber_data();
    void modeIsGivenAsANumber();
    void driverIsLookedForEachTime_data();
    void driverIsLookedForEachTime();
    void enablingTakesOverTheWiredName();
    void enablingWithoutRenamingUsesTheBondsOwnName();
    void enablingWithoutInterfacesDisablesNothing();
    void enablingWithoutInterfacesNamesTheRenamedOneAsPrimary();
    void enablingIsLogged_data();
    void enablingIsLogged();
    void enablingBringsTheBondUp();
    void enablingWaitsForTheClient();
    void slavesHaveTheirCurrentNames();
    void savedAddressIsUsed_data();
    void savedAddressIsUsed();
    void savedAddressThatOthersMayWriteIsNotUsed();
    void unusableSavedAddressIsReplaced();
    void addressIsSavedWhereThereIsNoFolder();
    void addressThatCannotBeReadIsNotSaved();
    void savedAddressDoesNotFollowALink();
    void namedPipeInPlaceOfTheAddressIsNotWaitedFor();
    void addressThatCannotBeSavedIsLogged();
    void disablingTearsTheBondDown();
    void disablingWithoutRenamingKeepsNames();
    void disablingWithoutBondSkipsTheTeardown_data();
    void disablingWithoutBondSkipsTheTeardown();
    void disablingBringsTheFirstSlaveUp();
    void disablingWithoutInterfacesAsksForNone();
    void disablingGivesTheNameBack();
    void switchingOnAndOffLeavesNothing_data();
    void switchingOnAndOffLeavesNothing();
    void clientIsStartedAndReportsOnce();
    void secondClientWaitsForTheFirst();
    void missingClientDoesNotReport();
    void leaseIsReleased();
    void clientRunsOnTheInterfaceThatCarries_data();
    void clientRunsOnTheInterfaceThatCarries();
    void activeSlaveFileFollowsTheName();
    void clientEndsWithItsOwner();
    void clientIsGivenNoChannels();

private:
    std::unique_ptr<FakeSysNet> net;
};

void TestBondedDevice::init()
{
    TestSupport::RestorePrograms();
    TestSupport::ClearAnswers();
    TestSupport::ClearJournal();
    TestSupport::Remove("/tmp/config/files");
    GivenSettings("<bonding_enable>true</bonding_enable><bonding_mode>1</bonding_mode>");
    BondedDevice::driverFound = false;
    BondedDevice::enableChecked = false;
    Logging::GetInstance(Logging::KEEP_LEVEL, false)->SetLoggingLevel(Level::TRACE);
    TestSupport::ClearLog();
    net = std::make_unique<FakeSysNet>();
    for (const char *name : {"lo", "eth0", "eth1", "wlan0"})
        net->Add(name);
    net->Write("eth0/address", MAC + "\n");
}

void TestBondedDevice::cleanup()
{
    net.reset();
}

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
}

void TestBondedDevice::settingDecidesWhetherBondingIsWanted()
{
    QFETCH(QByteArray, settings);
    GivenSettings(settings);
    const BondedDevice bond(nullptr);

    QTEST(bond.isBondingEnabled(), "wanted");
    QTEST(bond.isBondingEnabled(), "wanted");
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

void TestBondedDevice::enablingWaitsForTheClient()
{
    TestSupport::Answer("dhclient", "[ \"$1\" = -r ] || { sleep 1; echo >/tmp/client.done; }");
    TestSupport::Remove("/tmp/client.done");
    BondedDevice bond(nullptr);
    bond.StartDhclientInit("eth0");

    bond.EnableBonding();

    QVERIFY(QFile::exists("/tmp/client.done"));
    QVERIFY(LogText().contains(" Waiting for dhclient to finish \n"));
    QCOMPARE(Journal().filter("dhclient -r").size(), 1);
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

void TestBondedDevice::savedAddressIsUsed_data()
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

void TestBondedDevice::savedAddressIsUsed()
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

void TestBondedDevice::savedAddressThatOthersMayWriteIsNotUsed()
{
    TestSupport::WriteFile(SAVED_MAC, MAC + "\n");
    TestSupport::SetMode(SAVED_MAC, 0666);
    BondedDevice bond(nullptr);
    bond.setRenaming(true);

    bond.EnableBonding();

    QVERIFY(!Journal().contains("ip link set eth0 address " + MAC));
}

void TestBondedDevice::unusableSavedAddressIsReplaced()
{
    TestSupport::WriteFile(SAVED_MAC, MAC.left(15) + "99");
    BondedDevice bond(nullptr);
    bond.setRenaming(true);

    bond.EnableBonding();

    QCOMPARE(TestSupport::ReadFile(SAVED_MAC), MAC + "\n");
}

void TestBondedDevice::addressIsSavedWhereThereIsNoFolder()
{
    TestSupport::Answer("ip", DRIVER);
    TestSupport::Answer("modprobe", DRIVER);
    BondedDevice bond(nullptr);
    bond.setRenaming(true);

    bond.EnableBonding();

    QCOMPARE(TestSupport::ReadFile(SAVED_MAC), QByteArray("02:bb:bb:bb:bb:bb\n"));
}

void TestBondedDevice::addressThatCannotBeReadIsNotSaved()
{
    TestSupport::WriteFile(SAVED_MAC, "short\n");
    BondedDevice bond(nullptr);

    bond.EnableBonding();

    QCOMPARE(TestSupport::ReadFile(SAVED_MAC), QByteArray("short\n"));
}

void TestBondedDevice::savedAddressDoesNotFollowALink()
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

void TestBondedDevice::addressThatCannotBeSavedIsLogged()
{
    QVERIFY(QDir().mkpath(SAVED_MAC));
    const MountPoint taken(SAVED_MAC);
    BondedDevice bond(nullptr);
    bond.setRenaming(true);

    bond.EnableBonding();

    QVERIFY(LogText().contains("the bond's address could not be saved to " + SAVED_MAC));
}

void TestBondedDevice::namedPipeInPlaceOfTheAddressIsNotWaitedFor()
{
    QVERIFY(QDir().mkpath("/tmp/config/files/network"));
    QCOMPARE(::mkfifo(QFile::encodeName(SAVED_MAC).constData(), 0600), 0);
    BondedDevice bond(nullptr);
    bond.setRenaming(true);

    bond.EnableBonding();

    QVERIFY(bond.isBondingActive());
    QVERIFY(Journal().filter(" address ").isEmpty());
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

void TestBondedDevice::clientIsStartedAndReportsOnce()
{
    TestSupport::Answer("dhclient", "exit 2");
    BondedDevice bond(nullptr);
    QSignalSpy ready(&bond, &BondedDevice::dhclientReady);
    QElapsedTimer timer;
    timer.start();

    bond.StartDhclientInit("eth0");

    QTRY_COMPARE(ready.size(), 1);
    QVERIFY2(timer.elapsed() >= 900, qPrintable(QString::number(timer.elapsed())));
    QTest::qWait(1200);
    QCOMPARE(ready.size(), 1);
    QVERIFY2(!bond.findChild<QTimer *>()->isActive(), "nothing is left to poll for");
    QCOMPARE(Journal(), QStringList{"dhclient eth0"});
    QVERIFY(LogText().contains(" Calling dhclient eth0 \n"));
    QVERIFY(LogText().contains(" Process exitCode 2 \n"));
}

void TestBondedDevice::secondClientWaitsForTheFirst()
{
    TestSupport::Answer("dhclient", "sleep 0.5; echo >/tmp/client.$1");
    TestSupport::Remove("/tmp/client.eth0");
    BondedDevice bond(nullptr);
    QSignalSpy ready(&bond, &BondedDevice::dhclientReady);

    bond.StartDhclientInit("eth0");
    bond.StartDhclientInit("eth1");

    QVERIFY(QFile::exists("/tmp/client.eth0"));
    QTRY_COMPARE(Journal(), (QStringList{"dhclient eth0", "dhclient eth1"}));
    QTRY_COMPARE(ready.size(), 1);
    QVERIFY(QFile::exists("/tmp/client.eth1"));
}

void TestBondedDevice::missingClientDoesNotReport()
{
    TestSupport::RemoveProgram("dhclient");
    BondedDevice bond(nullptr);
    QSignalSpy ready(&bond, &BondedDevice::dhclientReady);

    bond.StartDhclientInit("eth0");
    QVERIFY2(!bond.findChild<QTimer *>()->isActive(), "nothing is left to poll for");
    QTest::qWait(1300);

    QCOMPARE(ready.size(), 0);
    QVERIFY2(LogText().contains("BondedDevice::StartDhclientInit dhclient cannot be started on eth0"),
             qPrintable(LogText()));
}

void TestBondedDevice::leaseIsReleased()
{
    BondedDevice bond(nullptr);

    bond.ReleaseDhclient();

    QCOMPARE(Journal(), QStringList{"dhclient -r"});
}

void TestBondedDevice::clientRunsOnTheInterfaceThatCarries_data()
{
    QTest::addColumn<bool>("enabled");
    QTest::addColumn<bool>("interfaces");
    QTest::addColumn<QStringList>("journal");

    QTest::newRow("bond") << true << true << QStringList{"dhclient -r", "dhclient bond0"};
    QTest::newRow("no bond") << false << true << QStringList{"dhclient -r", "dhclient eth0"};
    QTest::newRow("no bond and no interface") << false << false << QStringList{"dhclient -r"};
}

void TestBondedDevice::clientRunsOnTheInterfaceThatCarries()
{
    QFETCH(bool, enabled);
    QFETCH(bool, interfaces);
    QFETCH(QStringList, journal);
    if (!interfaces) {
        net->Remove("eth0");
        net->Remove("eth1");
    }
    BondedDevice bond(nullptr);
    if (enabled)
        bond.EnableBonding();
    TestSupport::ClearJournal();

    bond.SetDhclient();

    QTRY_COMPARE(Journal(), journal);
}

void TestBondedDevice::activeSlaveFileFollowsTheName()
{
    BondedDevice bond(nullptr);
    bond.setRenaming(true);

    bond.EnableBonding();

    QCOMPARE(bond.getBondedDeviceActiveSlaveFileName(), QString("/sys/class/net/eth0/bonding/active_slave"));
}

void TestBondedDevice::clientEndsWithItsOwner()
{
    static QStringList complaints;
    // It works in a child of its own.
    TestSupport::Answer("dhclient",
                        "sleep 100 & echo $! >/tmp/client.new; mv /tmp/client.new /tmp/client.child; wait");
    TestSupport::Remove("/tmp/client.child");
    QtMessageHandler previous = nullptr;
    QElapsedTimer timer;
    timer.start();
    {
        BondedDevice bond(nullptr);
        bond.StartDhclientInit("eth0");
        QTRY_VERIFY(QFile::exists("/tmp/client.child"));
        previous = qInstallMessageHandler(
            [](QtMsgType, const QMessageLogContext &, const QString &text) { complaints << text; });
    }
    qInstallMessageHandler(previous);

    QCOMPARE(complaints, QStringList());
    QVERIFY2(timer.elapsed() < 2000, qPrintable(QString::number(timer.elapsed())));
    const int child = TestSupport::ReadFile("/tmp/client.child").trimmed().toInt();
    QVERIFY(child > 0);
    QTRY_COMPARE(::kill(child, 0), -1);
}

void TestBondedDevice::clientIsGivenNoChannels()
{
    TestSupport::Answer("dhclient",
                        "channels=$(readlink /proc/$$/fd/[012]); echo \"$channels\" >/tmp/channels");
    BondedDevice bond(nullptr);
    QSignalSpy ready(&bond, &BondedDevice::dhclientReady);

    bond.StartDhclientInit("eth0");

    QTRY_COMPARE(ready.size(), 1);
    QCOMPARE(TestSupport::ReadFile("/tmp/channels"), QByteArray("/dev/null\n/dev/null\n/dev/null\n"));
}

QTEST_GUILESS_MAIN(TestBondedDevice)
#include "tst_bondeddevice.moc"
