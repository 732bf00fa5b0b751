// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "corvipeer.h"
#include "fakesysnet.h"

using namespace CorviWorld;
using namespace TestSupport;

/// What a discovery does about the bond.
class TestCorviBonding : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void bondingFollowsTheStore_data();
    void bondingFollowsTheStore();
    void enslavedInterfacesAreSkipped();
    void bondingLeavesTheListAsItIs();
    void bondMadeByADiscoveryIsTakenByTheNext();
    void bondThatIsMissingIsMade();
    void bondTakesOverTheWiredNameAndPrefersAPort();
    void liveBondIsTakenOverAsItIs_data();
    void liveBondIsTakenOverAsItIs();
    void bondThatIsNotWantedIsTakenDownOnce();
    void portThatIsLooseBecomesOneAgain_data();
    void portThatIsLooseBecomesOneAgain();
};

void TestCorviBonding::init()
{
    StartFromNothing();
}

void TestCorviBonding::bondingFollowsTheStore_data()
{
    QTest::addColumn<bool>("isEnabled");
    QTest::addColumn<bool>("isActive");
    QTest::addColumn<QString>("change");
    QTest::newRow("off and off") << false << false << "";
    QTest::newRow("switched on") << true << false << "ip link add eth0 type bond";
    QTest::newRow("switched off") << false << true << "ip link delete bond0 type bond";
    QTest::newRow("on and on") << true << true << "";
}

void TestCorviBonding::bondingFollowsTheStore()
{
    QFETCH(bool, isEnabled);
    QFETCH(bool, isActive);
    QFETCH(QString, change);
    Answer("ip", "");
    CorviPeer corvi;
    if (isActive)
        corvi.Bond().EnableBonding();
    QCOMPARE(corvi.Bond().isBondingActive(), isActive);
    if (isEnabled)
        WriteNetworks("<bonding_enable>true</bonding_enable>");
    else
        WriteStore("<networkconfig/>");
    LogFromHere(4);

    corvi.FindAllInterfaces();

    QCOMPARE(corvi.Flags().contains("bondingEnabled"), isEnabled);
    QCOMPARE(corvi.Bond().isBondingActive(), isEnabled);
    QCOMPARE(LogCount(QString("Corvi::FindAllInterfaces()  bonding %1").arg(int(isEnabled))), 1);
    if (change.isEmpty())
        QCOMPARE(JournalOf("ip link"), QStringList());
    else
        QVERIFY2(Journal().contains(change), qPrintable(Journal().join('\n')));
}

void TestCorviBonding::enslavedInterfacesAreSkipped()
{
    MakeMachine("<networkconfig><bonding_enable>true</bonding_enable></networkconfig>",
                {"eth0", "eth1", "wlan0", "usb0"});
    Answer("ip", "");
    CorviPeer corvi;
    // The bond stands; its ports are eth0-swap and eth1, and it is called eth0 itself.
    corvi.Bond().EnableBonding();
    LogFromHere(4);

    corvi.FindAllInterfaces();

    QCOMPARE(corvi.Bond().getSlaves(), QStringList({"eth0-swap", "eth1"}));
    QCOMPARE(corvi.WiredInterfaces(), QStringList({"eth0", "usb0"}));
    QCOMPARE(corvi.WirelessInterfaces(), QStringList{"wlan0"});
    QVERIFY(!corvi.Device("eth1"));
    QCOMPARE(LogCount("interface is bonded -- skip"), 1);
    QCOMPARE(LogCount("found interface eth1"), 0);
}

void TestCorviBonding::bondingLeavesTheListAsItIs()
{
    MakeMachine("<networkconfig><bonding_enable>true</bonding_enable></networkconfig>",
                {"eth0", "eth1", "usb0"});
    // With the bond an interface comes that was not listed.
    Answer("ip", "[ \"$2\" = add ] && ip link add name usb1 type veth peer name usb2\nexit 0");
    CorviPeer corvi;

    corvi.FindAllInterfaces();

    QVERIFY(QFile::exists("/sys/class/net/usb1"));
    QVERIFY(corvi.Bond().isBondingActive());
    QCOMPARE(corvi.AllInterfaces(), QStringList({"eth0", "usb0"}));
}

/// Where an adapter had its name, it was listed.
void TestCorviBonding::bondMadeByADiscoveryIsTakenByTheNext()
{
    MakeMachine("<networkconfig><bonding_enable>true</bonding_enable></networkconfig>",
                {"eth0", "enp1s0", "bond0"});
    FakeSysNet folder;
    folder.Write("enp1s0/type", "1\n");
    Answer("ip", "[ \"$2\" = add ] && cd /sys/class/net && mkdir eth0 && echo 1 >eth0/type &&\n"
                 "echo eth0 >bonding_masters\nexit 0");
    CorviPeer corvi;
    corvi.Tick();
    QVERIFY(corvi.Bond().isBondingActive());
    QCOMPARE(corvi.AllInterfaces(), QStringList());

    corvi.Tick(10);

    QCOMPARE(corvi.AllInterfaces(), QStringList{"eth0"});
    QCOMPARE(LogCount("Corvi::Loop Force Rescan "), 2);
    // One of somebody else, as the driver itself makes.
    folder.Write("bonding_masters", "eth0 bond0\n");
    folder.Write("bond0/type", "1\n");
    corvi.Tick(10);
    QCOMPARE(LogCount("Corvi::Loop Force Rescan "), 2);
}

/// The driver was loaded at boot, or somebody deleted the bond.
void TestCorviBonding::bondThatIsMissingIsMade()
{
    WriteNetworks("<bonding_enable>true</bonding_enable>");
    FakeSysNet folder;
    folder.Write("bonding_masters", "\n");
    CorviPeer corvi;
    QVERIFY(corvi.Bond().isBondingActive());
    ClearJournal();

    corvi.FindAllInterfaces();

    QVERIFY2(Journal().contains("ip link add eth0 type bond"), qPrintable(Journal().join('\n')));
    QVERIFY(corvi.Bond().isBondingActive());
}

void TestCorviBonding::bondTakesOverTheWiredNameAndPrefersAPort()
{
    CorviPeer corvi;

    corvi.Bond().EnableBonding();

    QCOMPARE(LogCount("Renaming 1 BringUp 0 usePrimary 1"), 1);
}

void TestCorviBonding::liveBondIsTakenOverAsItIs_data()
{
    QTest::addColumn<QString>("port");
    QTest::newRow("made of eth0") << "eth0-swap";
    QTest::newRow("made of others") << "enp1s0";
}

void TestCorviBonding::liveBondIsTakenOverAsItIs()
{
    QFETCH(QString, port);
    WriteNetworks("<bonding_enable>true</bonding_enable>");
    FakeSysNet folder;
    folder.Write("bonding_masters", "eth0\n");
    for (const QString &name : {QString("eth0"), port})
        folder.Write(name + "/type", "1\n");
    CorviPeer corvi;
    ClearJournal();

    corvi.FindAllInterfaces();

    QCOMPARE(JournalOf("ip ") + JournalOf("modprobe") + JournalOf("dhclient"), QStringList());
    QCOMPARE(corvi.AllInterfaces(), QStringList{"eth0"});
}

void TestCorviBonding::bondThatIsNotWantedIsTakenDownOnce()
{
    WriteStore("<networkconfig/>");
    FakeSysNet folder;
    folder.Write("bonding_masters", "");
    CorviPeer corvi;
    QVERIFY(corvi.Bond().isBondingActive());

    corvi.FindAllInterfaces();
    corvi.FindAllInterfaces();

    QCOMPARE(LogCount("Renaming 1 BringUp 0"), 1);
}

void TestCorviBonding::portThatIsLooseBecomesOneAgain_data()
{
    QTest::addColumn<bool>("isEnabled");
    QTest::addColumn<QStringList>("commands");
    QTest::newRow("bonding wanted") << true
                                    << QStringList({"ip link set dev eth1 down",
                                                    "ip link set dev eth1 master bond0"});
    QTest::newRow("bonding not wanted") << false << QStringList();
}

void TestCorviBonding::portThatIsLooseBecomesOneAgain()
{
    QFETCH(bool, isEnabled);
    WriteStore(isEnabled ? "<networkconfig><bonding_enable>true</bonding_enable></networkconfig>"
                         : "<networkconfig/>");
    FakeSysNet folder;
    folder.Write("bonding_masters", "bond0 bond1\n");
    folder.Add("bond0");
    folder.Add("eth1");
    CorviPeer corvi;
    corvi.Tick();
    Forget();

    corvi.Tick(3);

    QTEST(JournalOf("ip link set dev eth1"), "commands");
}

QTEST_GUILESS_MAIN(TestCorviBonding)
#include "tst_corvi_bonding.moc"
