// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "namednetwork.h"
#include "storeplantext.h"
#include "testsupport.h"

#include <QDir>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QtTest>

namespace {

const QByteArray REAL_SUPPLICANT = "exec wpa_supplicant \"$@\"";

const QByteArray STORE = R"(<c>
<UseApScan>true</UseApScan>
<network><name>lan 2</name></network>
<network><name>Office</name><ssid>Office</ssid><securityMode>WPA Personal 1/2</securityMode>
  <passphrase>canary passphrase</passphrase></network>
<network><name>lan</name><staticIp>true</staticIp><ipAddress>10.0.0.2</ipAddress>
  <netmask>255.0.0.0</netmask><gateway>10.0.0.1</gateway></network>
<network><name>Attic</name><ssid>Attic</ssid><securityMode>WEP</securityMode><wepKey>"canry"</wepKey></network>
<network><name>wiredeth0</name><securityMode>802.1X (PEAP/MSCHAPv2)</securityMode>
  <identity>terminal</identity><password>canary password</password></network>
<network><name>wiredeth1</name></network>
</c>)";

ZebDocument Document(const QByteArray &xml)
{
    ZebDocument document;
    ZebProblems problems;
    if (!document.Parse(xml, problems))
        qFatal("the store is not well-formed");
    return document;
}

StorePlan Plan(const QByteArray &xml, const QStringList &interfaces)
{
    return PlanStore(Document(xml), interfaces);
}

QStringList Names(const InterfacePlan &plan)
{
    QStringList names;
    for (const PlannedNetwork &network : plan.networks)
        names << network.name;
    return names;
}

/// The block without the values of secrets.
QStringList WithoutSecrets(QStringList block)
{
    return block.replaceInStrings(
        QRegularExpression("^(\\t(psk|sae_password|password|private_key_passwd|wep_key0)=).*"), "\\1");
}

} // namespace

/// What the checker says that the daemon would do.
class TestStorePlan : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void kindIsToldByName_data();
    void kindIsToldByName();
    void networksComeInTheirOrder_data();
    void networksComeInTheirOrder();
    void bondTakesThePorts();
    void loopbackIsLeftAlone();
    void supplicantIsUsedAsTheFirstNetworkSays_data();
    void supplicantIsUsedAsTheFirstNetworkSays();
    void blockIsTheDaemons_data();
    void blockIsTheDaemons();
    void realSupplicantTakesEveryBlock();
    void settingReachesTheSupplicant_data();
    void settingReachesTheSupplicant();
    void complaintIsShownWithoutValues();
    void textShowsThePlan();
    void textSaysWhatTheSupplicantSays_data();
    void textSaysWhatTheSupplicantSays();
    void textSaysWhereNothingApplies_data();
    void textSaysWhereNothingApplies();
    void programGetsTheSame();
    void noSecretIsShownOrGivenToTheSupplicant();
};

void TestStorePlan::init()
{
    TestSupport::Answer("wpa_supplicant", REAL_SUPPLICANT);
    TestSupport::ClearJournal();
}

void TestStorePlan::kindIsToldByName_data()
{
    QTest::addColumn<QString>("interfaceName");
    QTest::addColumn<QString>("kind");
    QTest::newRow("eth0") << "eth0"
                          << "wired";
    QTest::newRow("enp1s0") << "enp1s0"
                            << "wired";
    QTest::newRow("wlan0") << "wlan0"
                           << "wireless";
    QTest::newRow("mlan0") << "mlan0"
                           << "wireless";
    QTest::newRow("wwan0") << "wwan0"
                           << "modem, connected by its own tool";
}

void TestStorePlan::kindIsToldByName()
{
    QFETCH(QString, interfaceName);

    QTEST(Plan("<c/>", {interfaceName}).constFirst().kind, "kind");
}

void TestStorePlan::networksComeInTheirOrder_data()
{
    QTest::addColumn<QString>("interfaceName");
    QTest::addColumn<QStringList>("names");
    QTest::newRow("port with its own") << "eth0" << QStringList{"wiredeth0", "lan", "lan 2"};
    QTest::newRow("port without") << "eth2" << QStringList{"lan", "lan 2"};
    QTest::newRow("radio") << "wlan0" << QStringList{"Attic", "Office"};
    QTest::newRow("modem") << "wwan0" << QStringList();
}

void TestStorePlan::networksComeInTheirOrder()
{
    QFETCH(QString, interfaceName);

    QTEST(Names(Plan(STORE, {interfaceName}).constFirst()), "names");
}

void TestStorePlan::bondTakesThePorts()
{
    const StorePlan plan =
        Plan("<c><bonding_enable>true</bonding_enable><network><name>lan</name></network></c>",
             {"wlan0", "eth1", "eth0"});

    QCOMPARE(plan.at(0).interfaceName, QString("eth0"));
    QCOMPARE(Names(plan.at(0)), QStringList{"lan"});
    QCOMPARE(plan.at(1).kind, QString("port of the bond eth0"));
    QCOMPARE(Names(plan.at(1)), QStringList());
    QCOMPARE(plan.at(2).kind, QString("wireless"));
}

void TestStorePlan::loopbackIsLeftAlone()
{
    QVERIFY(InterfacesHere().contains("lo"));
    QCOMPARE(Plan(STORE, {"lo"}).constFirst().kind,
             QString("left alone, a link without hardware (type 772)"));
}

void TestStorePlan::supplicantIsUsedAsTheFirstNetworkSays_data()
{
    QTest::addColumn<QByteArray>("store");
    QTest::addColumn<QString>("interfaceName");
    QTest::addColumn<bool>("isUsed");
    const QByteArray unsecuredFirst = "<c><network><name>lan</name></network><network><name>lan 2</name>"
                                      "<securityMode>wired_peap</securityMode></network></c>";
    QTest::newRow("port, secured first") << STORE << "eth0" << true;
    QTest::newRow("port, unsecured first") << unsecuredFirst << "eth0" << false;
    QTest::newRow("port, unsecured alone") << STORE << "eth1" << false;
    QTest::newRow("radio") << STORE << "wlan0" << true;
    QTest::newRow("radio without networks") << QByteArray("<c/>") << "wlan0" << false;
}

void TestStorePlan::supplicantIsUsedAsTheFirstNetworkSays()
{
    QFETCH(QByteArray, store);
    QFETCH(QString, interfaceName);

    const InterfacePlan plan = Plan(store, {interfaceName}).constFirst();

    QTEST(plan.usesSupplicant, "isUsed");
    QCOMPARE(plan.complaints.has_value(), plan.usesSupplicant);
}

void TestStorePlan::blockIsTheDaemons_data()
{
    QTest::addColumn<QString>("file");
    for (const QString &file : QDir(SAMPLES_FOLDER).entryList({"*.xml"}, QDir::Files, QDir::Name))
        QTest::newRow(qPrintable(file)) << SAMPLES_FOLDER + file;
}

void TestStorePlan::blockIsTheDaemons()
{
    QFETCH(QString, file);
    const QByteArray store = TestSupport::ReadFile(file);
    TestSupport::WriteStore(store);
    int networks = 0;

    const StorePlan plan = Plan(store, {"eth0", "eth1", "eth2", "wlan0"});

    for (const InterfacePlan &interfacePlan : plan) {
        for (const PlannedNetwork &network : interfacePlan.networks) {
            const NamedNetwork inForce(network.name, false, nullptr);
            QCOMPARE(WithoutSecrets(network.block), WithoutSecrets(inForce.Block()));
            ++networks;
        }
    }
    QVERIFY(networks > 0);
}

void TestStorePlan::realSupplicantTakesEveryBlock()
{
    for (const QString &file : QDir(SAMPLES_FOLDER).entryList({"*.xml"})) {
        const StorePlan plan =
            Plan(TestSupport::ReadFile(SAMPLES_FOLDER + file), {"eth0", "eth1", "eth2", "wlan0"});
        for (const InterfacePlan &interfacePlan : plan)
            QCOMPARE(interfacePlan.complaints.value_or(QStringList()), QStringList());
    }
}

void TestStorePlan::settingReachesTheSupplicant_data()
{
    QTest::addColumn<QByteArray>("setting");
    QTest::addColumn<QByteArray>("line");
    QTest::newRow("scans") << QByteArray("UseApScan") << QByteArray("\nap_scan=2\n");
    QTest::newRow("SSIDs") << QByteArray("FilterSsids") << QByteArray("\nfilter_ssids=1\n");
}

void TestStorePlan::settingReachesTheSupplicant()
{
    QFETCH(QByteArray, setting);
    QFETCH(QByteArray, line);
    TestSupport::Answer("wpa_supplicant", "cat \"${3#-c}\" >/tmp/given");
    const auto given = [&setting](const QByteArray &value) {
        Plan("<c><" + setting + '>' + value + "</" + setting +
                 "><network><name>Attic</name><ssid>Attic</ssid></network></c>",
             {"wlan0"});
        return TestSupport::ReadFile("/tmp/given");
    };

    QVERIFY2(given("true").contains(line), given("true").constData());
    QVERIFY2(!given("false").contains(line), given("false").constData());
}

void TestStorePlan::complaintIsShownWithoutValues()
{
    // A platform's own lines may hold secrets as well.
    TestSupport::WriteFile("/tmp/config/files/wpa_supp_conf", "nonsense=canary\nupdate_config=canary\n");

    const StorePlan plan = Plan(STORE, {"wlan0"});

    TestSupport::Remove("/tmp/config/files/wpa_supp_conf");
    QVERIFY(plan.constFirst().HasProblems());
    const QString text = StorePlanText::ForPerson(plan);
    QVERIFY2(text.contains("wpa_supplicant refuses its file:\n    Line "), qPrintable(text));
    QVERIFY2(!text.contains("canary"), qPrintable(text));
}

void TestStorePlan::textShowsThePlan()
{
    const QString text = StorePlanText::ForPerson(Plan(STORE, {"eth0", "eth1"}));

    QCOMPARE(text, QString(R"(eth0: wired
  1. wiredeth0: 802.1X (PEAP/MSCHAPv2); sets the addresses: DHCP
     network={
         key_mgmt=IEEE8021X
         eapol_flags=0
         eap=PEAP
         identity="terminal"
         password=********
         phase1="peaplabel=0"
         phase2="auth=MSCHAPV2"
     }
  2. lan: Unsecured
  3. lan 2: Unsecured
  wpa_supplicant takes its file
eth1: wired
  1. wiredeth1: Unsecured; sets the addresses: DHCP
  2. lan: Unsecured
  3. lan 2: Unsecured
  no supplicant: the first network is unsecured
)"));
    QVERIFY(StorePlanText::ForPerson(Plan(STORE, {"eth2"}))
                .contains("sets the addresses: 10.0.0.2, netmask 255.0.0.0, gateway 10.0.0.1\n"));
}

void TestStorePlan::textSaysWhatTheSupplicantSays_data()
{
    QTest::addColumn<bool>("isThere");
    QTest::addColumn<QStringList>("complaints");
    QTest::addColumn<QString>("text");
    QTest::newRow("nothing") << false << QStringList() << "is not installed or does not run\n";
    QTest::newRow("no complaint") << true << QStringList() << "takes its file\n";
    QTest::newRow("two") << true << QStringList{"Line 3: unknown 'psk=canary'.", "Line 4: \"canary\" is bad."}
                         << "refuses its file:\n    Line 3: unknown '...'.\n    Line 4: '...' is bad.\n";
}

void TestStorePlan::textSaysWhatTheSupplicantSays()
{
    QFETCH(bool, isThere);
    QFETCH(QStringList, complaints);
    QFETCH(QString, text);
    InterfacePlan plan;
    plan.interfaceName = "wlan0";
    plan.kind = "wireless";
    plan.takesNetworks = true;
    plan.usesSupplicant = true;
    plan.networks = {PlannedNetwork()};
    plan.networks[0].name = "Office";
    plan.networks[0].securityMode = "Unsecured";
    plan.networks[0].problems = QStringList{"has no key"};
    if (isThere)
        plan.complaints = complaints;

    QCOMPARE(StorePlanText::ForPerson({plan}),
             "wlan0: wireless\n  1. Office: Unsecured; sets the addresses: \n"
             "     has no key\n  wpa_supplicant " +
                 text);
}

void TestStorePlan::textSaysWhereNothingApplies_data()
{
    QTest::addColumn<QString>("interfaceName");
    QTest::addColumn<QString>("text");
    QTest::newRow("port") << "eth0"
                          << "eth0: wired\n  no network is stored for it\n";
    QTest::newRow("radio") << "wlan0"
                           << "wlan0: wireless\n  no network is stored for it\n";
    QTest::newRow("modem") << "wwan0"
                           << "wwan0: modem, connected by its own tool\n";
}

void TestStorePlan::textSaysWhereNothingApplies()
{
    QFETCH(QString, interfaceName);

    QTEST(StorePlanText::ForPerson(Plan("<c/>", {interfaceName})), "text");
}

void TestStorePlan::programGetsTheSame()
{
    const QJsonArray array = StorePlanText::ForProgram(Plan(STORE, {"wlan0", "eth0"}));

    QCOMPARE(array.size(), 2);
    const QByteArray eth0 = R"json({
        "interface": "eth0", "kind": "wired", "usesSupplicant": true, "complaints": [],
        "networks": [
            {"name": "wiredeth0", "securityMode": "802.1X (PEAP/MSCHAPv2)", "addresses": "DHCP",
             "block": ["network={", "\tkey_mgmt=IEEE8021X", "\teapol_flags=0", "\teap=PEAP",
                       "\tidentity=\"terminal\"", "\tpassword=********", "\tphase1=\"peaplabel=0\"",
                       "\tphase2=\"auth=MSCHAPV2\"", "}"], "problems": []},
            {"name": "lan", "securityMode": "Unsecured", "block": [], "problems": [],
             "addresses": "10.0.0.2, netmask 255.0.0.0, gateway 10.0.0.1"},
            {"name": "lan 2", "securityMode": "Unsecured", "addresses": "DHCP", "block": [],
             "problems": []}]})json";
    QCOMPARE(QJsonDocument(array.at(0).toObject()).toJson(), QJsonDocument::fromJson(eth0).toJson());
}

void TestStorePlan::noSecretIsShownOrGivenToTheSupplicant()
{
    TestSupport::Answer("wpa_supplicant", "cat \"${3#-c}\" >>/tmp/given");
    const QByteArray secrets = "<passphrase>canary1%1</passphrase><password>canary2%1</password>"
                               "<privateKeyPassword>canary3%1</privateKeyPassword><wepKey>\"c4%1\"</wepKey>";
    QByteArray store = "<c>";
    for (const char *mode :
         {"wep", "wpa", "sae", "wpa2_3", "eap_tls", "eap_leap", "eap_fast", "peap_gtc", "peap_mschapv2"})
        store += QByteArray("<network><name>") + mode + "</name><ssid>a</ssid><securityMode>" + mode +
                 "</securityMode>" + QByteArray(secrets).replace("%1", "abc") + "</network>";
    for (const char *mode : {"wired_tls", "wired_peap"})
        store += QByteArray("<network><name>lan ") + mode + "</name><securityMode>" + mode +
                 "</securityMode>" + QByteArray(secrets).replace("%1", "abc") + "</network>";

    const StorePlan plan = Plan(store + "</c>", {"wlan0", "eth0"});

    const QString shown = StorePlanText::ForPerson(plan) +
                          QJsonDocument(StorePlanText::ForProgram(plan)).toJson() +
                          TestSupport::ReadFile("/tmp/given") + TestSupport::Journal().join('\n');
    QCOMPARE(Names(plan.at(1)).size(), 9);
    QCOMPARE(Names(plan.at(0)).size(), 2);
    QVERIFY(shown.contains("sae_password="));
    QVERIFY2(!shown.contains("canary") && !shown.contains("c4abc"), qPrintable(shown));
    // Nothing else is run.
    for (const QString &line : TestSupport::Journal())
        QVERIFY2(line.startsWith("wpa_supplicant -Dwired -icorvi-check "), qPrintable(line));
}

QTEST_GUILESS_MAIN(TestStorePlan)
#include "tst_storeplan.moc"
