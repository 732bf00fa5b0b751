// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "corvipeer.h"
#include "fakesysnet.h"
#include "opencounter.h"

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
    void modemNameSavesNoOtherType_data();
    void modemNameSavesNoOtherType();
    void unreadableTypeKeepsTheInterface_data();
    void unreadableTypeKeepsTheInterface();
    void onlyFoldersAreInterfaces();
    void onlyWiredDevicesAreStarted();
    void namesAreSorted();
    void interfacesAreWorkedThroughAsListed();
    void wirelessFoundFollowsTheDevices();
    void secondDiscoveryStartsFromNothing();
    void operstateFilesOnlyGrow();
    void oldDevicesAreDeletedAtOnce();
    void oldDevicesAreGoneBeforeTheFolderIsRead();
    void missingClassFolderGivesNothing();
    void firstModemByNameIsAdopted();
    void vanishedModemIsForgotten();
    void deviceEventsReachTheListener_data();
    void deviceEventsReachTheListener();
    void discoveryIsTraced();
    void cleanupIsTracedOnlyWithDevices();
    void emptyListsAreTraced();
    void nothingIsReadTwice();
    void discoveryIsSilentAtTheNormalLevel();
    void netDeviceChangeIsTraced();
};

namespace {

/// A made-up interface; the real folder shows only kinds that this kernel can make.
void AddInterface(FakeSysNet &folder, const QString &name, const QByteArray &type)
{
    folder.Write(name + "/type", type);
}

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
    FakeSysNet folder;
    AddInterface(folder, "ath0", ETHERNET);
    AddInterface(folder, "ath1", ETHERNET);
    AddInterface(folder, "wwan0", ETHERNET);
    folder.Write("ath0/wireless/status", "");
    folder.Write("ath1/wireless", "a file");
    folder.Write("wwan0/wireless/status", "");
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
    FakeSysNet folder;
    AddInterface(folder, "net0", type);
    CorviPeer corvi;

    corvi.FindAllInterfaces();

    QCOMPARE(corvi.AllInterfaces(), isKept ? QStringList{"net0"} : QStringList());
}

void TestCorviDiscovery::modemNameSavesNoOtherType_data()
{
    QTest::addColumn<QByteArray>("type");
    QTest::newRow("raw IP") << QByteArray("519");
    QTest::newRow("no header at all") << QByteArray("65534");
}

void TestCorviDiscovery::modemNameSavesNoOtherType()
{
    QFETCH(QByteArray, type);
    FakeSysNet folder;
    AddInterface(folder, "wwan0", type + '\n');
    CorviPeer corvi;
    SetLevel(4);

    corvi.FindAllInterfaces();

    QCOMPARE(LogCount("wwan0 " + type), 1);
    QCOMPARE(corvi.AllInterfaces() + corvi.ModemInterfaces() + corvi.WiredInterfaces(), QStringList());
    QVERIFY(!corvi.ModemDevice());
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
    FakeSysNet folder;
    AddInterface(folder, "net0", type);
    folder.Write("net1/address", "no type file at all");
    CorviPeer corvi;
    SetLevel(4);

    corvi.FindAllInterfaces();

    QCOMPARE(corvi.WiredInterfaces(), QStringList({"net0", "net1"}));
    QCOMPARE(LogCount("net0 0"), 1);
    QCOMPARE(LogCount("net1 0"), 1);
}

void TestCorviDiscovery::onlyFoldersAreInterfaces()
{
    FakeSysNet folder;
    AddInterface(folder, "net0", ETHERNET);
    folder.Write("a_file", "");
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

void TestCorviDiscovery::interfacesAreWorkedThroughAsListed()
{
    FakeSysNet folder;
    for (const char *name : {"net1", "net2", "net0"})
        AddInterface(folder, name, ETHERNET);
    CorviPeer corvi;
    LogFromHere(4);

    corvi.FindAllInterfaces();

    const QStringList listed =
        LogLines().at(1).mid(QString("Corvi::FindAllInterfaces() ").size()).split(", ");
    QVERIFY2(listed != QStringList({"net0", "net1", "net2"}), "sorted: this shows nothing");
    QStringList found;
    QStringList broughtUp;
    for (const QString &name : listed) {
        found << "found interface " + name;
        broughtUp << "ifconfig " + name + " up";
    }
    QCOMPARE(LogLines().filter("found interface"), found);
    QCOMPARE(Journal(), broughtUp);
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

void TestCorviDiscovery::oldDevicesAreGoneBeforeTheFolderIsRead()
{
    CorviPeer corvi({"eth0"}, DISCOVERED);
    QStringList linesThen;
    // What comes in the moment of their end is in the list.
    connect(corvi.Device("eth0"), &QObject::destroyed, [&linesThen] {
        linesThen = LogLines();
        MakeInterface("eth9");
    });
    LogFromHere(4);

    corvi.FindAllInterfaces();

    QCOMPARE(linesThen, QStringList({"Corvi::FindAllInterfaces()",
                                     "Corvi::FindAllInterfaces  Cleanup network Devices"}));
    QCOMPARE(corvi.AllInterfaces(), QStringList({"eth0", "eth9"}));
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

void TestCorviDiscovery::emptyListsAreTraced()
{
    CorviPeer corvi;
    LogFromHere(4);

    corvi.FindAllInterfaces();

    for (const char *const kind : {"interfaces", "wireless", "wired", "modems"})
        QVERIFY2(LogText().contains("Corvi::FindAllInterfaces() -- " + QString(kind) + "  \n"), kind);
}

void TestCorviDiscovery::nothingIsReadTwice()
{
    FakeSysNet folder;
    WriteStore(LAN_8021X);
    QStringList types;
    for (int i = 0; i < 20; ++i) {
        const QString name = QString("net%1").arg(i);
        AddInterface(folder, name, ETHERNET);
        types << "/sys/class/net/" + name;
    }
    CorviPeer corvi;
    // A store that is news, and old enough to be taken for one version.
    WriteStore(LAN_DHCP);
    QFile store(STORE_FILE);
    QVERIFY(store.open(QIODevice::Append) &&
            store.setFileTime(QDateTime::currentDateTime().addSecs(-10), QFile::FileModificationTime));
    store.close();
    OpenCounter counter(types + QStringList({"/sys/class/net", STORE_FILE}));

    corvi.FindAllInterfaces();

    const QHash<QString, int> opened = counter.Take();
    QCOMPARE(opened.value("/sys/class/net"), 1);
    QCOMPARE(opened.value(STORE_FILE), 1);
    for (const QString &type : qAsConst(types))
        QCOMPARE(opened.value(type + "/type"), 1);
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
