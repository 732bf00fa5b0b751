// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "corvipeer.h"

#include <QPointer>

using namespace CorviWorld;
using namespace TestSupport;

/// How the service object finds the interfaces.
class TestCorviDiscovery : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void interfaceIsClassified_data();
    void interfaceIsClassified();
    void wirelessFolderMakesAnInterfaceWireless();
    void linksWithoutHardwareAreSkipped();
    void linkTypeDecides_data();
    void linkTypeDecides();
    void unreadableTypeKeepsTheInterface_data();
    void unreadableTypeKeepsTheInterface();
    void onlyFoldersAreInterfaces();
    void onlyWiredDevicesAreStarted();
    void namesAreSorted();
    void wirelessFoundFollowsTheDevices();
    void secondDiscoveryStartsFromNothing();
    void operstateFilesOnlyGrow();
    void oldDevicesAreDeletedAtOnce();
    void missingClassFolderGivesNothing();
    void firstModemByNameIsAdopted();
    void vanishedModemIsForgotten();
    void deviceEventsReachTheListener_data();
    void deviceEventsReachTheListener();
    void bondingFollowsTheStore_data();
    void bondingFollowsTheStore();
    void enslavedInterfacesAreSkipped();
    void discoveryIsTraced();
    void cleanupIsTracedOnlyWithDevices();
    void discoveryIsSilentAtTheNormalLevel();
    void netDeviceChangeIsTraced();
};

namespace {

/// A made-up network class folder; the real one shows only kinds that this kernel can make.
class FakeClassFolder
{
public:
    FakeClassFolder()
    {
        Remove(FOLDER);
        QDir().mkpath(FOLDER);
        Mount({"--bind", FOLDER, "/sys/class/net"});
    }
    ~FakeClassFolder() { Run("umount", {"/sys/class/net"}); }

    void AddInterface(const QString &name, const QByteArray &type) const
    {
        QDir().mkpath(FOLDER + '/' + name);
        WriteFile(FOLDER + '/' + name + "/type", type);
    }
    static void WriteEntry(const QString &path, const QByteArray &bytes)
    {
        WriteFile(FOLDER + '/' + path, bytes);
    }

private:
    static void Run(const QString &program, const QStringList &arguments)
    {
        QProcess process;
        process.start(program, arguments);
        if (!process.waitForFinished() || process.exitCode() != 0)
            qFatal("%s: %s", qPrintable(program), process.readAllStandardError().constData());
    }
    static void Mount(const QStringList &arguments) { Run("mount", arguments); }

    inline static const QString FOLDER = QStringLiteral("/tmp/class-net");
};

const QByteArray ETHERNET = "1\n";

} // namespace

void TestCorviDiscovery::init()
{
    StartFromNothing();
}

void TestCorviDiscovery::interfaceIsClassified_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("kind");
    QTest::newRow("wlan prefix") << "wlan0"
                                 << "wireless";
    QTest::newRow("wlan prefix alone") << "wlan"
                                       << "wireless";
    QTest::newRow("mlan prefix without a wireless folder") << "mlan0"
                                                           << "wireless";
    QTest::newRow("wwan prefix") << "wwan0"
                                 << "modem";
    QTest::newRow("Ethernet") << "eth0"
                              << "wired";
    QTest::newRow("USB") << "usb0"
                         << "wired";
    QTest::newRow("bond") << "bond0"
                          << "wired";
    QTest::newRow("wlan in capitals") << "WLAN0"
                                      << "wired";
    QTest::newRow("wwan in capitals") << "Wwan0"
                                      << "wired";
    QTest::newRow("wlan not in front") << "xwlan0"
                                       << "wired";
    QTest::newRow("15 characters") << "enx0123456789ab"
                                   << "wired";
}

void TestCorviDiscovery::interfaceIsClassified()
{
    QFETCH(QString, name);
    QFETCH(QString, kind);
    RealIp({"link", "add", "name", name, "type", "veth", "peer", "name", "other", "netns", "far"});
    CorviPeer corvi;

    corvi.FindAllInterfaces();

    const QStringList one{name};
    const QStringList none;
    QCOMPARE(corvi.AllInterfaces(), one);
    QCOMPARE(corvi.WirelessInterfaces(), kind == "wireless" ? one : none);
    QCOMPARE(corvi.ModemInterfaces(), kind == "modem" ? one : none);
    QCOMPARE(corvi.WiredInterfaces(), kind == "wired" ? one : none);
    const NetworkDevice *const device = corvi.Device(name);
    QVERIFY(device);
    QCOMPARE(device->name, name);
    QVERIFY(!device->parent());
    QCOMPARE(qobject_cast<const WirelessDevice *>(device) != nullptr, kind == "wireless");
    QCOMPARE(qobject_cast<const Modem *>(device) != nullptr, kind == "modem");
    QCOMPARE(qobject_cast<const WiredDevice *>(device) != nullptr, kind == "wired");
    QCOMPARE(corvi.Flags().contains("wirelessFound"), kind == "wireless");
}

void TestCorviDiscovery::wirelessFolderMakesAnInterfaceWireless()
{
    const FakeClassFolder folder;
    folder.AddInterface("ath0", ETHERNET);
    folder.AddInterface("ath1", ETHERNET);
    folder.AddInterface("wwan0", ETHERNET);
    FakeClassFolder::WriteEntry("ath0/wireless/status", "");
    FakeClassFolder::WriteEntry("ath1/wireless", "a file");
    FakeClassFolder::WriteEntry("wwan0/wireless/status", "");
    CorviPeer corvi;

    corvi.FindAllInterfaces();

    QCOMPARE(corvi.WirelessInterfaces(), QStringList({"ath0", "wwan0"}));
    QCOMPARE(corvi.WiredInterfaces(), QStringList{"ath1"});
    QCOMPARE(corvi.ModemInterfaces(), QStringList());
}

void TestCorviDiscovery::linksWithoutHardwareAreSkipped()
{
    CorviPeer corvi({"eth0"});
    SetLevel(4);

    corvi.FindAllInterfaces();

    // The loopback is there, too.
    QCOMPARE(corvi.AllInterfaces(), QStringList{"eth0"});
    QVERIFY(!corvi.Device("lo"));
    QCOMPARE(LogCount("lo 772"), 1);
    QCOMPARE(LogCount("eth0 1"), 1);
    QCOMPARE(LogCount("found interface eth0"), 1);
    QCOMPARE(LogCount("found interface lo"), 0);
}

void TestCorviDiscovery::linkTypeDecides_data()
{
    QTest::addColumn<QByteArray>("type");
    QTest::addColumn<bool>("isKept");
    QTest::newRow("Ethernet") << QByteArray("1\n") << true;
    QTest::newRow("highest kept") << QByteArray("255\n") << true;
    QTest::newRow("lowest skipped") << QByteArray("256\n") << false;
    QTest::newRow("point-to-point") << QByteArray("512\n") << false;
    QTest::newRow("raw IP modem") << QByteArray("519\n") << false;
    QTest::newRow("void") << QByteArray("65535\n") << false;
    QTest::newRow("blanks around it") << QByteArray("  772 \n1\n") << false;
    QTest::newRow("second line") << QByteArray("1\n772\n") << true;
}

void TestCorviDiscovery::linkTypeDecides()
{
    QFETCH(QByteArray, type);
    QFETCH(bool, isKept);
    const FakeClassFolder folder;
    folder.AddInterface("net0", type);
    CorviPeer corvi;

    corvi.FindAllInterfaces();

    QCOMPARE(corvi.AllInterfaces(), isKept ? QStringList{"net0"} : QStringList());
}

void TestCorviDiscovery::unreadableTypeKeepsTheInterface_data()
{
    QTest::addColumn<QByteArray>("type");
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("not a number") << QByteArray("ether\n");
    QTest::newRow("not decimal") << QByteArray("0x304\n");
    QTest::newRow("more than an integer") << QByteArray("99999999999\n");
}

void TestCorviDiscovery::unreadableTypeKeepsTheInterface()
{
    QFETCH(QByteArray, type);
    const FakeClassFolder folder;
    folder.AddInterface("net0", type);
    FakeClassFolder::WriteEntry("net1/address", "no type file at all");
    CorviPeer corvi;
    SetLevel(4);

    corvi.FindAllInterfaces();

    QCOMPARE(corvi.WiredInterfaces(), QStringList({"net0", "net1"}));
    QCOMPARE(LogCount("net0 0"), 1);
    QCOMPARE(LogCount("net1 0"), 1);
}

void TestCorviDiscovery::onlyFoldersAreInterfaces()
{
    const FakeClassFolder folder;
    folder.AddInterface("net0", ETHERNET);
    FakeClassFolder::WriteEntry("a_file", "");
    CorviPeer corvi;

    corvi.FindAllInterfaces();

    QCOMPARE(corvi.AllInterfaces(), QStringList{"net0"});
}

void TestCorviDiscovery::onlyWiredDevicesAreStarted()
{
    CorviPeer corvi({"eth0", "wlan0", "wwan0"});

    corvi.FindAllInterfaces();

    QCOMPARE(JournalOf("ifconfig"), QStringList{"ifconfig eth0 up"});
    QVERIFY(corvi.Device("eth0")->timer->isActive());
    QVERIFY(!corvi.Device("wlan0")->timer->isActive());
    QVERIFY(!corvi.Device("wwan0")->timer->isActive());
}

void TestCorviDiscovery::namesAreSorted()
{
    CorviPeer corvi({"wwan1", "wlan1", "eth1", "Eth2", "wlan0", "eth0", "wwan0", "eth10"});

    corvi.FindAllInterfaces();

    QCOMPARE(corvi.WiredInterfaces(), QStringList({"Eth2", "eth0", "eth1", "eth10"}));
    QCOMPARE(corvi.WirelessInterfaces(), QStringList({"wlan0", "wlan1"}));
    QCOMPARE(corvi.ModemInterfaces(), QStringList({"wwan0", "wwan1"}));
    QCOMPARE(corvi.AllInterfaces(),
             corvi.WiredInterfaces() + corvi.WirelessInterfaces() + corvi.ModemInterfaces());
    QCOMPARE(corvi.DeviceCount(), 8);
}

void TestCorviDiscovery::wirelessFoundFollowsTheDevices()
{
    CorviPeer corvi({"wlan0"});
    corvi.FindAllInterfaces();
    QVERIFY(corvi.Flags().contains("wirelessFound"));

    RemoveInterfaces();
    corvi.FindAllInterfaces();

    QVERIFY(!corvi.Flags().contains("wirelessFound"));
}

void TestCorviDiscovery::secondDiscoveryStartsFromNothing()
{
    CorviPeer corvi({"eth0", "wlan0", "wwan0"});
    corvi.FindAllInterfaces();

    RemoveInterfaces();
    for (const char *name : {"eth1", "wlan0", "wwan0"})
        MakeInterface(name);
    corvi.FindAllInterfaces();

    QCOMPARE(corvi.AllInterfaces(), QStringList({"eth1", "wlan0", "wwan0"}));
    QCOMPARE(corvi.WiredInterfaces(), QStringList{"eth1"});
    QCOMPARE(corvi.WirelessInterfaces(), QStringList{"wlan0"});
    QCOMPARE(corvi.ModemInterfaces(), QStringList{"wwan0"});
    QCOMPARE(corvi.DeviceCount(), 3);
    QVERIFY(!corvi.Device("eth0"));
}

void TestCorviDiscovery::operstateFilesOnlyGrow()
{
    CorviPeer corvi({"eth0"});

    corvi.FindAllInterfaces();
    corvi.FindAllInterfaces();

    QCOMPARE(corvi.OperstateFiles(),
             QStringList({"/sys/class/net/eth0/operstate", "/sys/class/net/eth0/operstate"}));
    QCOMPARE(corvi.AllInterfaces(), QStringList{"eth0"});
}

void TestCorviDiscovery::oldDevicesAreDeletedAtOnce()
{
    CorviPeer corvi({"eth0"});
    corvi.FindAllInterfaces();
    const QPointer<NetworkDevice> before = corvi.Device("eth0");

    corvi.FindAllInterfaces();

    QVERIFY(!before);
    QVERIFY(corvi.Device("eth0"));
}

void TestCorviDiscovery::missingClassFolderGivesNothing()
{
    CorviPeer corvi;
    QProcess::execute("mount", {"-t", "tmpfs", "none", "/sys"});
    const auto unmount = qScopeGuard([] { QProcess::execute("umount", {"/sys"}); });
    QVERIFY(!QFile::exists("/sys/class/net"));

    corvi.FindAllInterfaces();

    QCOMPARE(corvi.AllInterfaces(), QStringList());
    QCOMPARE(corvi.DeviceCount(), 0);
}

void TestCorviDiscovery::firstModemByNameIsAdopted()
{
    CorviPeer corvi({"wwan1", "wwan0"});

    corvi.FindAllInterfaces();

    QCOMPARE(corvi.ModemDevice(), corvi.Device("wwan0"));
}

void TestCorviDiscovery::vanishedModemIsForgotten()
{
    CorviPeer corvi({"wwan0"});
    corvi.FindAllInterfaces();

    RemoveInterfaces();
    corvi.FindAllInterfaces();

    QVERIFY(!corvi.ModemDevice());
}

void TestCorviDiscovery::deviceEventsReachTheListener_data()
{
    QTest::addColumn<QString>("name");
    for (const char *name : {"eth0", "wlan0", "wwan0"})
        QTest::newRow(name) << name;
}

void TestCorviDiscovery::deviceEventsReachTheListener()
{
    QFETCH(QString, name);
    MakeInterface(name);
    EventListener listener;
    CorviPeer corvi;
    corvi.FindAllInterfaces();

    corvi.Device(name)->SendEvent(7, 8);

    QCOMPARE(listener.Take(), Events({{7, 8}}));
}

void TestCorviDiscovery::bondingFollowsTheStore_data()
{
    QTest::addColumn<bool>("isEnabled");
    QTest::addColumn<bool>("isActive");
    QTest::addColumn<QString>("change");
    QTest::newRow("off and off") << false << false << "";
    QTest::newRow("switched on") << true << false << "ip link add eth0 type bond";
    QTest::newRow("switched off") << false << true << "ip link delete bond0 type bond";
    QTest::newRow("on and on") << true << true << "";
}

void TestCorviDiscovery::bondingFollowsTheStore()
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

void TestCorviDiscovery::enslavedInterfacesAreSkipped()
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

void TestCorviDiscovery::discoveryIsTraced()
{
    CorviPeer corvi(LAN_STATIC, {"eth0", "wlan0", "wwan0"});
    LogFromHere(4);

    corvi.FindAllInterfaces();

    const QStringList lines = LogLines();
    QCOMPARE(lines.first(), QString("Corvi::FindAllInterfaces()"));
    QVERIFY(lines.at(1).startsWith("Corvi::FindAllInterfaces() "));
    QStringList listed = lines.at(1).mid(QString("Corvi::FindAllInterfaces() ").size()).split(", ");
    listed.sort();
    QCOMPARE(listed, QStringList({"eth0", "lo", "wlan0", "wwan0"}));
    QCOMPARE(
        lines.mid(lines.size() - 8),
        QStringList({"Corvi::FindAllInterfaces() -- interfaces eth0, wlan0, wwan0",
                     "Corvi::FindAllInterfaces() -- wireless wlan0",
                     "Corvi::FindAllInterfaces() -- wired eth0", "Corvi::FindAllInterfaces() -- modems wwan0",
                     "Corvi::FindAllInterfaces() -- networkdevices eth0, wlan0, wwan0",
                     "Corvi::FindAllInterfaces() --named lan", "Corvi::FindAllInterfaces() --named ",
                     "Corvi::FindAllInterfaces() --named lan"}));
}

void TestCorviDiscovery::cleanupIsTracedOnlyWithDevices()
{
    CorviPeer corvi({"eth0"});
    SetLevel(4);

    corvi.FindAllInterfaces();
    QCOMPARE(LogCount("Corvi::FindAllInterfaces  Cleanup network Devices"), 0);

    corvi.FindAllInterfaces();
    QCOMPARE(LogCount("Corvi::FindAllInterfaces  Cleanup network Devices"), 1);
}

void TestCorviDiscovery::discoveryIsSilentAtTheNormalLevel()
{
    CorviPeer corvi(LAN_STATIC, {"eth0", "wlan0", "wwan0"});
    SetLevel(3);
    corvi.FindAllInterfaces();
    ClearLog();

    corvi.FindAllInterfaces();

    QCOMPARE(LogLines().filter("Corvi::"), QStringList());
}

void TestCorviDiscovery::netDeviceChangeIsTraced()
{
    CorviPeer corvi({"eth0"});
    corvi.FindAllInterfaces();
    Forget();
    corvi.onNetDeviceChange(corvi.Device("eth0"));
    QCOMPARE(LogLines(), QStringList());

    SetLevel(4);
    corvi.onNetDeviceChange(corvi.Device("eth0"));

    QCOMPARE(LogLines(), QStringList{"Corvi::onNetDeviceChange eth0"});
    QCOMPARE(Journal(), QStringList());
}

QTEST_GUILESS_MAIN(TestCorviDiscovery)
#include "tst_corvi_discovery.moc"
