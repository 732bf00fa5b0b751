// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "deviceworld.h"
#include "heapuse.h"
#include "logging.h"
#include "namednetwork.h"

#include <QtTest>

using TestSupport::LogText;

namespace {

const QByteArray WPA = "<securityMode>WPA Personal 1/2</securityMode><passphrase>";
const QByteArray WPA2_3 = "<securityMode>WPA Personal 2/3</securityMode><passphrase>";
const QByteArray SAE = "<securityMode>WPA Personal 3</securityMode><passphrase>";

/// Gives a key and leaves behind how many definitions were loaded before.
const QString LOADED_COUNT = QStringLiteral("/tmp/loaded");
const QByteArray TELL_LOADED =
    "grep -c Load.props /var/log/corvi-mon.log >/tmp/loaded; echo psk=" + QByteArray(64, 'a');

bool Contains(const QStringList &lines, const QString &part)
{
    return !lines.filter(part).isEmpty();
}

} // namespace

/// Which definitions apply to a device, in which order.
class TestNetworkDeviceDefinitions : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void definitionsBelongToADevice_data();
    void definitionsBelongToADevice();
    void onlyDefinitionHasAName();
    void definitionsAreLogged();
    void definitionsAreTakenOnce();
    void definitionsThatDoNotApplyLeaveNothingBehind();
    void firstDefinitionIsTheFirstByName_data();
    void firstDefinitionIsTheFirstByName();
    void laterDefinitionIsPutInItsPlace();
    void withoutDefinitionsNothingIsFound();
    void driverChoiceIsPassedOn_data();
    void driverChoiceIsPassedOn();
    void lastDefinitionByNameDecidesWhatAllShare();
    void blocksFollowOneAnother();
    void keysOfSeveralDefinitionsAreDerivedBeforeAnyIsLoaded();
    void keyOfASingleDefinitionIsDerivedAsItIsLoaded();
    void wiredDefinitionWithoutSecurityHasNoBlock();
    void askingForBlocksBuildsNone();
    void configurationIsThatOfTheFirstNetwork();
    void withoutNetworkThereIsNoConfiguration();
    void chosenNetworkStays();
    void wirelessConfigurationIsReadAgain();
    void configurationInUseFollowsTheReload();
    void reloadOfAnUnusedConfigurationLeavesItUnused();
    void initDeviceFindsNetworks();
    void initDeviceSucceedsWithoutNetworks();
};

void TestNetworkDeviceDefinitions::init()
{
    TestSupport::ClearAnswers();
    TestSupport::Remove("/tmp/config");
    TestSupport::ClearLog();
    TestSupport::ClearJournal();
    Logging::GetInstance(Logging::KEEP_LEVEL, false)->SetLoggingLevel(Level::TRACE);
}

void TestNetworkDeviceDefinitions::definitionsBelongToADevice_data()
{
    QTest::addColumn<QString>("interface");
    QTest::addColumn<bool>("wireless");
    QTest::addColumn<QStringList>("names");

    QTest::newRow("wired, its own definition first")
        << "eth0" << false << QStringList{"wiredeth0", "lan", "lan2", "lanA", "lana"};
    QTest::newRow("wired, none of its own") << "eth2" << false << QStringList{"lan", "lan2", "lanA", "lana"};
    QTest::newRow("wired, longer name")
        << "eth01" << false << QStringList{"wiredeth01", "lan", "lan2", "lanA", "lana"};
    QTest::newRow("wireless") << "wlan0" << true << QStringList{"Home", "Office", "wiredusb0"};
}

void TestNetworkDeviceDefinitions::definitionsBelongToADevice()
{
    QFETCH(QString, interface);
    QFETCH(bool, wireless);
    QFETCH(QStringList, names);
    TestSupport::WriteNetworks(Network("lana") + Network("Office") + Network("lan2") + Network("wiredeth1") +
                               Network("wiredethernet") + Network("wiredeth01") + Network("lanA") +
                               Network("Home") + Network("wiredeth0") + Network("lan") +
                               Network("wiredusb0"));

    const Device device(interface, wireless);

    QCOMPARE(device.GetNamedNetworks(), names);
    QCOMPARE(device.namedNetworks.size(), names.size());
    for (const QString &name : qAsConst(names))
        QCOMPARE(device.namedNetworks.value(name)->IsWireless(), wireless);
    QCOMPARE(device.OnlyDefinitionName(), QString()); // several: nobody knows which
}

void TestNetworkDeviceDefinitions::onlyDefinitionHasAName()
{
    TestSupport::WriteNetworks(Network("lan") + Network("Office") + Network("wiredeth1"));

    QCOMPARE(Device("eth0").OnlyDefinitionName(), QString("lan"));
    QCOMPARE(Device("wlan0", true).OnlyDefinitionName(), QString("Office"));

    TestSupport::WriteNetworks(Network("Office"));
    QCOMPARE(Device("eth0").OnlyDefinitionName(), QString());
}

void TestNetworkDeviceDefinitions::definitionsAreLogged()
{
    TestSupport::WriteNetworks(Network("lan2") + Network("Office") + Network("lan1"));

    const Device device("eth0");

    QVERIFY(LogText().contains(" NetworkDevice::getNamedNetworksForDevice()   lan2, Office, lan1 \n"));
    QVERIFY(LogText().contains(" NetworkDevice::getNamedNetworksForDevice() -- Done  lan1, lan2 \n"));
}

void TestNetworkDeviceDefinitions::definitionsAreTakenOnce()
{
    TestSupport::WriteNetworks(Network("lan1") + Network("lan2"));
    Device device("eth0");
    NamedNetwork *const first = device.namedNetworks.value("lan1");

    QVERIFY(device.getNamedNetworksForDevice());

    QCOMPARE(device.GetNamedNetworks(), (QStringList{"lan1", "lan2"}));
    QCOMPARE(device.namedNetworks.value("lan1"), first);
}

void TestNetworkDeviceDefinitions::definitionsThatDoNotApplyLeaveNothingBehind()
{
    Logging::GetInstance(Logging::KEEP_LEVEL, false)->SetLoggingLevel(Level::NOTICE);
    TestSupport::WriteNetworks(Network("Office") + Network("wiredeth1") + Network("lan"));
    Device device("eth0");
    device.getNamedNetworksForDevice();
    const std::size_t before = HeapUse();

    for (int i = 0; i < 1000; ++i)
        device.getNamedNetworksForDevice();

    // A definition takes some 2 KiB.
    QVERIFY(HeapUse() < before + 64 * 1024);
}

void TestNetworkDeviceDefinitions::firstDefinitionIsTheFirstByName_data()
{
    QTest::addColumn<QStringList>("names");
    QTest::addColumn<QString>("first");

    QTest::newRow("the interface's own") << QStringList{"wiredeth0", "lan1", "lan2"} << "wiredeth0";
    QTest::newRow("a name that has no network") << QStringList{"gone", "lan2"} << "lan2";
    QTest::newRow("no names") << QStringList() << "lan1";
}

void TestNetworkDeviceDefinitions::firstDefinitionIsTheFirstByName()
{
    QFETCH(QStringList, names);
    QFETCH(QString, first);
    TestSupport::WriteNetworks(Network("lan2") + Network("lan1") + Network("wiredeth0"));
    Device device("eth0");
    device.networkNames = names;

    QCOMPARE(device.getCurrentConfig(), device.namedNetworks.value(first)->Config());
}

void TestNetworkDeviceDefinitions::laterDefinitionIsPutInItsPlace()
{
    TestSupport::WriteNetworks(Network("lan2"));
    Device device("eth0");
    TestSupport::WriteNetworks(Network("lan2") + Network("lan1") + Network("wiredeth0"));

    device.getNamedNetworksForDevice();

    QCOMPARE(device.GetNamedNetworks(), (QStringList{"wiredeth0", "lan1", "lan2"}));
}

void TestNetworkDeviceDefinitions::withoutDefinitionsNothingIsFound()
{
    TestSupport::WriteNetworks(Network("Office"));
    Device device("eth0");

    QVERIFY(!device.getNamedNetworksForDevice());
    QCOMPARE(device.GetNamedNetworks(), QStringList());
    QCOMPARE(device.GetNamedNetworkWpasInformation(), QStringList());
}

void TestNetworkDeviceDefinitions::driverChoiceIsPassedOn_data()
{
    QTest::addColumn<bool>("flagFile");
    QTest::addColumn<bool>("wireless");
    QTest::addColumn<bool>("passedOn");

    QTest::newRow("wireless, asked for") << true << true << true;
    QTest::newRow("wireless, not asked for") << false << true << false;
    QTest::newRow("wired") << true << false << false;
}

void TestNetworkDeviceDefinitions::driverChoiceIsPassedOn()
{
    QFETCH(bool, flagFile);
    QFETCH(bool, wireless);
    QFETCH(bool, passedOn);
    TestSupport::WriteNetworks(Network("Office") + Network("lan"));
    if (flagFile)
        TestSupport::WriteFile("/tmp/config/files/use_nl_driver", QByteArray());

    const Device device(wireless ? "wlan0" : "eth0", wireless);

    QCOMPARE(LogText().contains(" nn UseNewDriver \n"), passedOn);
}

void TestNetworkDeviceDefinitions::lastDefinitionByNameDecidesWhatAllShare()
{
    const QByteArray mode = "<securityMode>802.1X (TLS/EAP)</securityMode><allowWeakCerts>";
    TestSupport::WriteNetworks(Network("lan2", mode + "true</allowWeakCerts>") +
                               Network("lan1", mode + "false</allowWeakCerts>"));

    const Device device("eth0");

    QVERIFY(WpaSupplicantCfg::_allowWeakCerts);
}

void TestNetworkDeviceDefinitions::blocksFollowOneAnother()
{
    TestSupport::WriteNetworks(Network("Office") + Network("Home"));

    const Device device("wlan0", true);

    const QStringList lines = device.GetNamedNetworkWpasInformation();
    QCOMPARE(device.getWpaConfig(), lines);
    QCOMPARE(lines,
             device.namedNetworks.value("Home")->Block() + device.namedNetworks.value("Office")->Block());
    QVERIFY(Contains(lines, "Home") && Contains(lines, "Office"));
}

void TestNetworkDeviceDefinitions::wiredDefinitionWithoutSecurityHasNoBlock()
{
    TestSupport::WriteNetworks(Network("lan", "<securityMode>Unsecured</securityMode>"));

    const Device device("eth0");

    QCOMPARE(device.GetNamedNetworks(), QStringList{"lan"});
    QCOMPARE(device.GetNamedNetworkWpasInformation(), QStringList());
}

void TestNetworkDeviceDefinitions::keysOfSeveralDefinitionsAreDerivedBeforeAnyIsLoaded()
{
    TestSupport::Answer("wpa_passphrase", TELL_LOADED);
    TestSupport::WriteNetworks(Network("Home", WPA + "several 1</passphrase>") +
                               Network("Office", WPA2_3 + "several 2</passphrase>") +
                               Network("Open", "<passphrase>several 3</passphrase>") +
                               Network("Sae", SAE + "several 4</passphrase>"));

    const Device device("wlan0", true);

    QStringList runs = TestSupport::Journal();
    runs.sort();
    QCOMPARE(runs, (QStringList{"wpa_passphrase Home 'several 1'", "wpa_passphrase Office 'several 2'"}));
    QCOMPARE(TestSupport::ReadFile(LOADED_COUNT), QByteArray("0\n"));
    QCOMPARE(device.GetNamedNetworkWpasInformation().filter("psk=" + QString(64, 'a')).size(), 2);
}

void TestNetworkDeviceDefinitions::keyOfASingleDefinitionIsDerivedAsItIsLoaded()
{
    TestSupport::Answer("wpa_passphrase", TELL_LOADED);
    TestSupport::WriteNetworks(Network("Home", WPA + "single one</passphrase>") + Network("Open"));

    const Device device("wlan0", true);

    QCOMPARE(TestSupport::Journal(), QStringList{"wpa_passphrase Home 'single one'"});
    QCOMPARE(TestSupport::ReadFile(LOADED_COUNT), QByteArray("1\n"));
}

void TestNetworkDeviceDefinitions::askingForBlocksBuildsNone()
{
    TestSupport::WriteNetworks(Network("Office", "<securityMode>WPA Personal 1/2</securityMode>"
                                                 "<passphrase>correct horse</passphrase>"));
    const Device device("wlan0", true);
    TestSupport::ClearJournal();
    TestSupport::ClearLog();

    const QStringList lines = device.GetNamedNetworkWpasInformation();

    QCOMPARE(device.GetNamedNetworkWpasInformation(), lines);
    QCOMPARE(TestSupport::Journal(), QStringList());
    QVERIFY(!LogText().contains("NetworkDevice::Load props"));
}

void TestNetworkDeviceDefinitions::configurationIsThatOfTheFirstNetwork()
{
    TestSupport::WriteStore(
        "<x><network><name>lan2</name></network><network><name>lan1</name></network></x>");
    NetworkDevice device("eth0", nullptr);
    device.InitDevice();

    ZebNetConfig *const config = device.UpdateConfig();

    QVERIFY(config != nullptr);
    QCOMPARE(config->GetName(), QString("lan1"));
    QCOMPARE(device.currentNetwork, device.namedNetworks.value("lan1"));
    QVERIFY2(device.currentConfig == nullptr, "asking does not choose what is applied");
}

void TestNetworkDeviceDefinitions::withoutNetworkThereIsNoConfiguration()
{
    TestSupport::WriteNetworks("");
    NetworkDevice device("eth0", nullptr);
    device.InitDevice();

    QVERIFY(device.getCurrentConfig() == nullptr);
    QVERIFY(device.currentNetwork == nullptr);
}

void TestNetworkDeviceDefinitions::chosenNetworkStays()
{
    TestSupport::WriteStore(
        "<x><network><name>lan1</name></network><network><name>lan2</name></network></x>");
    NetworkDevice device("eth0", nullptr);
    device.InitDevice();
    device.currentNetwork = device.namedNetworks.value("lan2");

    QCOMPARE(device.getCurrentConfig()->GetName(), QString("lan2"));
}

void TestNetworkDeviceDefinitions::wirelessConfigurationIsReadAgain()
{
    TestSupport::WriteStore(
        "<x><network><name>Office</name><ssid>Office</ssid><mtu>1400</mtu></network></x>");
    NetworkDevice device("wlan0", nullptr);
    device.isWireless = true;
    device.InitDevice();
    TestSupport::ClearLog();
    TestSupport::WriteStore("<x><network><name>Office</name><ssid>Office</ssid><mtu>900</mtu></network></x>");

    QCOMPARE(device.getCurrentConfig()->mtu, QString("900"));
    QVERIFY(TestSupport::LogText().contains(" NetworkDevice::getCurrentConfig() \n"));
    QVERIFY(device.currentNetwork->IsWireless());
}

void TestNetworkDeviceDefinitions::configurationInUseFollowsTheReload()
{
    TestSupport::WriteStore(
        "<x><network><name>Office</name><ssid>Office</ssid><mtu>1400</mtu></network></x>");
    NetworkDevice device("wlan0", nullptr);
    device.isWireless = true;
    device.InitDevice();
    device.currentConfig = device.getCurrentConfig();

    ZebNetConfig *const config = device.getCurrentConfig();

    QCOMPARE(device.currentConfig, config);
    QCOMPARE(device.currentConfig->mtu, QString("1400"));
}

void TestNetworkDeviceDefinitions::reloadOfAnUnusedConfigurationLeavesItUnused()
{
    TestSupport::WriteStore("<x><network><name>Office</name><ssid>Office</ssid></network></x>");
    NetworkDevice device("wlan0", nullptr);
    device.isWireless = true;
    device.InitDevice();

    device.getCurrentConfig();

    QVERIFY(device.currentConfig == nullptr);
}

void TestNetworkDeviceDefinitions::initDeviceFindsNetworks()
{
    TestSupport::WriteStore("<x><network><name>lan</name></network></x>");
    NetworkDevice device("eth0", nullptr);

    QCOMPARE(device.InitDevice(), 1);

    QCOMPARE(device.GetNamedNetworks(), QStringList{"lan"});
}

void TestNetworkDeviceDefinitions::initDeviceSucceedsWithoutNetworks()
{
    TestSupport::WriteNetworks("");
    NetworkDevice device("eth0", nullptr);

    QCOMPARE(device.InitDevice(), 1);
}

QTEST_GUILESS_MAIN(TestNetworkDeviceDefinitions)
#include "tst_networkdevice_definitions.moc"
