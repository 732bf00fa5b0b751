// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "corvipeer.h"
#include "fakesupplicant.h"
#include "mountpoint.h"

#include "zebnetstatus.h"

using namespace CorviWorld;
using namespace TestSupport;

namespace {

/// What the service itself logs, without the devices and the supplicant's file.
QStringList OwnLines()
{
    return LogLines().filter(QRegularExpression("^(Corvi::|Wireless )"));
}

QByteArray SupplicantFile()
{
    return ReadFile(SUPPLICANT_FILE);
}

} // namespace

/// The supplicant: its file, its (re)start and what it signals. The supervisor's state is set by hand.
class TestCorviSupplicant : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    // The supervisor
    void supervisorIsStoppedWithTheModeOfItsUse();
    void supervisorSignalsReachTheService();
    void supervisorIsConnectedOnce();

    // Reconfigure
    void holdOffWithoutNeedStopsTheSupplicant_data();
    void holdOffWithoutNeedStopsTheSupplicant();
    void holdOffCountsOneStepACall();
    void holdOffStopsAnActiveSupplicant_data();
    void holdOffStopsAnActiveSupplicant();
    void holdOffWaitsForAPendingStop();
    void reconfigureWithoutNeedOnlyWritesTheFile();

    // The file
    void fileHoldsTheNamedInterface_data();
    void fileHoldsTheNamedInterface();
    void nameOfAnInterfaceIsTakenWhole();
    void fileHoldsEveryNetworkOfADevice();
    void fileHoldsWhoContributes_data();
    void fileHoldsWhoContributes();
    void fileIsTracedByInterface();
    void fileThatCannotBeWrittenIsLogged();
    void certificateThatIsMissingIsTold();

    // Association
    void associationConfiguresWireless();
    void everyAssociationConfiguresAgain_data();
    void everyAssociationConfiguresAgain();
    void onlyTheLastOfManyAssociationsConfigures_data();
    void onlyTheLastOfManyAssociationsConfigures();
    void lossOfAssociationIsOnlyReported();
    void associationOfAWiredDevice_data();
    void associationOfAWiredDevice();
    void associationWithoutDevices_data();
    void associationWithoutDevices();
    void slotsOfSilentSignalsOnlyLog();
};

void TestCorviSupplicant::init()
{
    StartFromNothing();
}

void TestCorviSupplicant::supervisorIsStoppedWithTheModeOfItsUse()
{
    WriteFile(DEBUG_FLAG, "");
    CorviPeer corvi;
    QCOMPARE(LogLines().filter("WpaSuppThread::Stop"), QStringList{"WpaSuppThread::Stop 2 false 0"});
    ClearLog();

    corvi.ReinitSupThread();

    QCOMPARE(LogLines(), QStringList{"WpaSuppThread::Stop 1 false 0"});
}

void TestCorviSupplicant::supervisorSignalsReachTheService()
{
    CorviPeer corvi;
    LogFromHere(4);

    emit WpaSuppThread::GetInstance()->associatedChanged(true);
    emit WpaSuppThread::GetInstance()->wifiConnected();
    emit WpaSuppThread::GetInstance()->scanningFailed();
    emit corvi.wiredStateChange(false);

    QCOMPARE(LogLines(), QStringList({"Corvi::onAssociatedChanged(bool state) 1",
                                      "Wireless and Wired devices not defined", "Corvi::onWifiConnected()",
                                      "Corvi::onWiredStateChange(bool state) 0", "WIRED DEVICE UNDEFINED",
                                      "Corvi::onWiredStateChange(bool state)  complete"}));
}

void TestCorviSupplicant::supervisorIsConnectedOnce()
{
    CorviPeer corvi;
    corvi.ReinitSupThread();
    corvi.ReinitSupThread();
    LogFromHere(4);

    emit WpaSuppThread::GetInstance()->associatedChanged(true);

    QCOMPARE(LogCount("Corvi::onAssociatedChanged(bool state) 1"), 1);
}

void TestCorviSupplicant::holdOffWithoutNeedStopsTheSupplicant_data()
{
    QTest::addColumn<bool>("running");
    QTest::addColumn<bool>("restarting");
    QTest::addColumn<QStringList>("stop");
    QTest::newRow("none there") << false << false << QStringList();
    QTest::newRow("running") << true << false << QStringList{"WpaSuppThread::Stop 3 true 1"};
    QTest::newRow("restarting") << false << true << QStringList{"WpaSuppThread::Stop 3 false 1"};
}

void TestCorviSupplicant::holdOffWithoutNeedStopsTheSupplicant()
{
    QFETCH(bool, running);
    QFETCH(bool, restarting);
    QFETCH(QStringList, stop);
    CorviPeer corvi({"eth0"}, DISCOVERED);
    corvi.BeginHoldOff();
    Supervisor::Set({running, restarting, false});
    LogFromHere(4);

    corvi.ReconfigureWpa(corvi.Device("eth0"));

    QCOMPARE(LogLines(),
             QStringList({"Corvi::ReconfigureWpa 2", "Corvi::ReconfigureWpa wpa not required"}) + stop);
    QVERIFY(!corvi.IsReconfigureWanted());
    QCOMPARE(corvi.HoldOff(), 0);
}

void TestCorviSupplicant::holdOffCountsOneStepACall()
{
    CorviPeer corvi({"eth0"}, DISCOVERED);
    NetworkDevice *const device = corvi.Device("eth0");
    device->usesSupplicant = true;
    corvi.BeginHoldOff();
    LogFromHere(4);

    corvi.ReconfigureWpa(device);
    QCOMPARE(corvi.HoldOff(), 1);
    corvi.ReconfigureWpa(device);
    QCOMPARE(corvi.HoldOff(), 0);

    QCOMPARE(LogLines(), QStringList({"Corvi::ReconfigureWpa 2", "Corvi::ReconfigureWpa in Holdoff",
                                      "Corvi::ReconfigureWpa 1", "Corvi::ReconfigureWpa in Holdoff"}));
    QVERIFY(corvi.IsReconfigureWanted());
    QVERIFY(!QFile::exists(SUPPLICANT_FILE));
}

void TestCorviSupplicant::holdOffStopsAnActiveSupplicant_data()
{
    QTest::addColumn<bool>("running");
    QTest::addColumn<bool>("restarting");
    QTest::addColumn<QString>("stop");
    QTest::newRow("running") << true << false << "WpaSuppThread::Stop 4 true 1";
    QTest::newRow("restarting") << false << true << "WpaSuppThread::Stop 4 false 1";
}

void TestCorviSupplicant::holdOffStopsAnActiveSupplicant()
{
    QFETCH(bool, running);
    QFETCH(bool, restarting);
    QFETCH(QString, stop);
    CorviPeer corvi({"eth0"}, DISCOVERED);
    NetworkDevice *const device = corvi.Device("eth0");
    device->usesSupplicant = true;
    corvi.BeginHoldOff();
    Supervisor::Set({running, restarting, false});
    LogFromHere(4);

    corvi.ReconfigureWpa(device);

    QCOMPARE(LogLines(), QStringList({"Corvi::ReconfigureWpa 2", stop}));
    QCOMPARE(corvi.HoldOff(), 2);
    QVERIFY(corvi.IsReconfigureWanted());
}

void TestCorviSupplicant::holdOffWaitsForAPendingStop()
{
    CorviPeer corvi({"eth0"}, DISCOVERED);
    NetworkDevice *const device = corvi.Device("eth0");
    device->usesSupplicant = true;
    corvi.BeginHoldOff();
    Supervisor::Set(RUNNING);
    Supervisor::SetStopPending(true);
    LogFromHere(4);

    corvi.ReconfigureWpa(device);

    QCOMPARE(LogLines(),
             QStringList({"Corvi::ReconfigureWpa 2", "Corvi::ReconfigureWpa in Holdoff, wst stopping"}));
    QCOMPARE(corvi.HoldOff(), 2);
}

void TestCorviSupplicant::reconfigureWithoutNeedOnlyWritesTheFile()
{
    CorviPeer corvi({"eth0"}, DISCOVERED);
    NetworkDevice *const device = corvi.Device("eth0");
    device->authWaitTicks = 5;
    device->inFallback = true;
    corvi.BeginHoldOff(0);
    LogFromHere(4);

    corvi.ReconfigureWpa(device);

    QCOMPARE(LogLines().filter("Corvi::"),
             QStringList({"Corvi::ReconfigureWpa 0", "Corvi::ReconfigureWpa Set reconfigureWpa to false"}));
    QVERIFY(QFile::exists(SUPPLICANT_FILE));
    QVERIFY(!corvi.IsReconfigureWanted());
    QCOMPARE(device->authWaitTicks, 0);
    QVERIFY(!device->inFallback);
    QCOMPARE(JournalOf("wpa_supplicant"), QStringList());
}

void TestCorviSupplicant::fileHoldsTheNamedInterface_data()
{
    QTest::addColumn<QString>("interfaceName");
    QTest::addColumn<bool>("hasWired");
    QTest::addColumn<bool>("hasWireless");
    QTest::newRow("every one") << "" << true << true;
    QTest::newRow("wired") << "eth0" << true << false;
    QTest::newRow("wireless") << "wlan0" << false << true;
    QTest::newRow("unknown") << "eth7" << false << false;
}

void TestCorviSupplicant::fileHoldsTheNamedInterface()
{
    QFETCH(QString, interfaceName);
    QFETCH(bool, hasWired);
    QFETCH(bool, hasWireless);
    CorviPeer corvi(WLAN_AND_8021X, {"eth0", "wlan0"}, SET_UP);
    QVERIFY(corvi.Device("eth0")->usesSupplicant && corvi.Device("eth0")->isRunning);
    corvi.NoteFileWritten(false);

    corvi.UpdateWpaConfFile(interfaceName);

    const QByteArray file = SupplicantFile();
    QCOMPARE(file.contains("IEEE8021X"), hasWired);
    QCOMPARE(file.contains("\"Office\""), hasWireless);
    QVERIFY2(corvi.FileContents().isEmpty(), "a copy of the secrets that nobody reads");
    QVERIFY(corvi.Flags().contains("wpaConfUpdated"));
}

void TestCorviSupplicant::nameOfAnInterfaceIsTakenWhole()
{
    CorviPeer corvi(LAN_8021X, {"eth1", "eth10"}, DISCOVERED);
    for (const char *name : {"eth1", "eth10"})
        corvi.Device(name)->usesSupplicant = true;
    corvi.Device("eth10")->isRunning = true;
    corvi.Device("eth1")->isRunning = false;

    corvi.UpdateWpaConfFile("eth1");

    QVERIFY(!SupplicantFile().contains("network={"));
}

void TestCorviSupplicant::fileHoldsEveryNetworkOfADevice()
{
    MakeMachine("<networkconfig>"
                "<network><name>lan</name><securityMode>802.1X (PEAP/MSCHAPv2)</securityMode>"
                "<identity>me</identity><password>secret</password></network>"
                "<network><name>B</name><ssid>B</ssid><securityMode>Unsecured</securityMode></network>"
                "<network><name>A</name><ssid>A</ssid><securityMode>Unsecured</securityMode></network>"
                "</networkconfig>",
                {"wlan0", "eth1"});
    CorviPeer corvi(DISCOVERED);
    corvi.Device("eth1")->usesSupplicant = true;
    corvi.Device("eth1")->isRunning = true;

    corvi.UpdateWpaConfFile(QString());

    const QByteArray file = SupplicantFile();
    const QVector<qsizetype> places{file.indexOf("IEEE8021X"), file.indexOf("ssid=\"A\""),
                                    file.indexOf("ssid=\"B\"")};
    QVERIFY2(places.at(0) != -1 && places.at(0) < places.at(1) && places.at(1) < places.at(2),
             file.constData());
}

void TestCorviSupplicant::fileHoldsWhoContributes_data()
{
    QTest::addColumn<QString>("interfaceName");
    QTest::addColumn<bool>("usesSupplicant");
    QTest::addColumn<bool>("isRunning");
    QTest::addColumn<bool>("contributes");
    QTest::newRow("wired, 802.1X, carrier") << "eth0" << true << true << true;
    QTest::newRow("wired, 802.1X, no carrier") << "eth0" << true << false << false;
    QTest::newRow("wired, unsecured") << "eth0" << false << true << false;
    QTest::newRow("wireless, carrier") << "wlan0" << true << true << true;
    QTest::newRow("wireless, no carrier") << "wlan0" << true << false << true;
    QTest::newRow("wireless without the supplicant") << "wlan0" << false << true << false;
}

void TestCorviSupplicant::fileHoldsWhoContributes()
{
    QFETCH(QString, interfaceName);
    QFETCH(bool, usesSupplicant);
    QFETCH(bool, isRunning);
    QFETCH(bool, contributes);
    CorviPeer corvi(WLAN_AND_8021X, {interfaceName}, DISCOVERED);
    corvi.Device(interfaceName)->usesSupplicant = usesSupplicant;
    corvi.Device(interfaceName)->isRunning = isRunning;

    corvi.UpdateWpaConfFile(QString());

    QCOMPARE(SupplicantFile().contains("network={"), contributes);
}

void TestCorviSupplicant::fileIsTracedByInterface()
{
    CorviPeer corvi({"wlan0", "eth0"}, DISCOVERED);
    corvi.LoseInterface("zz0");
    corvi.Device("wlan0")->isRunning = true;
    LogFromHere(4);

    corvi.UpdateWpaConfFile(QString());

    QCOMPARE(LogLines().filter("UpdateWpaConfFile"),
             QStringList({"UpdateWpaConfFile -- Get NetworkDevice", "UpdateWpaConfFile -- isActive 0",
                          "UpdateWpaConfFile -- Get NetworkDevice", "UpdateWpaConfFile -- isActive 1",
                          "UpdateWpaConfFile -- Get NetworkDevice"}));
    // Sorted in a copy only.
    QCOMPARE(corvi.AllInterfaces(), QStringList({"zz0", "eth0", "wlan0"}));
}

void TestCorviSupplicant::fileThatCannotBeWrittenIsLogged()
{
    CorviPeer corvi;
    ClearLog();
    for (int i = 1; i <= 2; ++i) {
        QDir().mkpath(SUPPLICANT_FILE);
        auto taken = std::make_unique<MountPoint>(SUPPLICANT_FILE);
        corvi.NoteFileWritten(false);

        corvi.UpdateWpaConfFile(QString());
        corvi.UpdateWpaConfFile(QString());

        QCOMPARE(LogCount("UpdateWpaConfFile -- the supplicant's file cannot be written"), i);
        // It was tried, and is not tried on every tick.
        QVERIFY(corvi.Flags().contains("wpaConfUpdated"));

        // The next time is news again.
        taken.reset();
        Remove(SUPPLICANT_FILE);
        corvi.UpdateWpaConfFile(QString());
        QVERIFY(QFile::remove(SUPPLICANT_FILE));
    }
}

void TestCorviSupplicant::certificateThatIsMissingIsTold()
{
    const QString told = "UpdateWpaConfFile -- a certificate or key for the authentication is missing: "
                         "/tmp/ca.pem, /tmp/me.key";
    MakeMachine("<networkconfig><network><name>lan</name><securityMode>802.1X (TLS/EAP)</securityMode>"
                "<identity>me</identity><caCert>/tmp/ca.pem</caCert><clientCert>/tmp/me.pem</clientCert>"
                "<privateKey>/tmp/me.key</privateKey></network></networkconfig>",
                {"eth0"});
    WriteFile("/tmp/me.pem", "");
    CorviPeer corvi(SET_UP);
    for (int i = 1; i <= 2; ++i) {
        corvi.UpdateWpaConfFile("eth0");
        corvi.UpdateWpaConfFile("eth0");
        QCOMPARE(LogCount(told), i);

        // The next time is news again.
        WriteFile("/tmp/ca.pem", "");
        WriteFile("/tmp/me.key", "");
        corvi.UpdateWpaConfFile("eth0");
        QVERIFY(QFile::remove("/tmp/ca.pem"));
        QVERIFY(QFile::remove("/tmp/me.key"));
    }
}

void TestCorviSupplicant::associationConfiguresWireless()
{
    MakeMachine(WLAN, {"eth0", "wlan0"});
    UseDhcpServer();
    BringUp("wlan0");
    EventListener listener;
    CorviPeer corvi(DISCOVERED);
    // Wireless comes first where there is a wired device too.
    corvi.AdoptWired("eth0");
    corvi.PickWireless("wlan0");
    LogFromHere(4);

    corvi.onAssociatedChanged(true);

    QCOMPARE(listener.Take(), Events({ASSOCIATION_UP, DHCP_STARTED, ADDRESS_PRESENT}));
    QCOMPARE(OwnLines(), QStringList({"Corvi::onAssociatedChanged(bool state) 1",
                                      "Corvi::onAssociatedChanged start on_wifi_assoc"}));
    QVERIFY(
        WaitForJournal(static_cast<int>(Journal().size()) + (JournalOf("on_wifi_assoc").isEmpty() ? 1 : 0)));
    const QStringList journal = Journal();
    QCOMPARE(journal.mid(journal.size() - 3),
             QStringList({"killall -9 on_wifi_assoc", "killall -9 qwebauth", "on_wifi_assoc"}));
    QVERIFY(journal.indexOf("dhclient -v -cf /etc/dhcp/dhclient.conf wlan0") < journal.size() - 3);
    QVERIFY(corvi.WirelessDevice()->isRunning);
}

void TestCorviSupplicant::everyAssociationConfiguresAgain_data()
{
    QTest::addColumn<bool>("hasServer");
    QTest::newRow("with an address") << true;
    QTest::newRow("without") << false;
}

void TestCorviSupplicant::everyAssociationConfiguresAgain()
{
    QFETCH(bool, hasServer);
    MakeMachine(WLAN, {"wlan0"});
    if (hasServer)
        UseDhcpServer();
    BringUp("wlan0");
    CorviPeer corvi(DISCOVERED);
    corvi.PickWireless("wlan0");
    Forget();

    corvi.onAssociatedChanged(true);
    QCOMPARE(corvi.WirelessDevice()->ipAddress, hasServer ? QString("10.0.0.5") : QString());
    corvi.onAssociatedChanged(true);

    QCOMPARE(DhcpAttempts(), 2);
    // With an address or without, the platform is told that the radio is connected.
    QTRY_COMPARE(JournalOf("on_wifi_assoc").size(), 2);
}

void TestCorviSupplicant::onlyTheLastOfManyAssociationsConfigures_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QByteArrayList>("words");
    QTest::addColumn<int>("attempts");
    const QByteArray in = "<3>CTRL-EVENT-CONNECTED - ";
    const QByteArray out = "<3>CTRL-EVENT-DISCONNECTED reason=3";
    for (const char *const name : {"wlan0", "eth0"}) {
        QTest::addRow("%s, let in at last", name) << name << QByteArrayList({in, out, in, out, in}) << 1;
        QTest::addRow("%s, thrown out at last", name) << name << QByteArrayList({in, out, in, out}) << 0;
        QTest::addRow("%s, let in twice", name) << name << QByteArrayList({in, in}) << 2;
    }
}

/// They have come while the service was busy.
void TestCorviSupplicant::onlyTheLastOfManyAssociationsConfigures()
{
    QFETCH(QString, name);
    QFETCH(QByteArrayList, words);
    QFETCH(int, attempts);
    MakeMachine(name == "wlan0" ? WLAN : LAN_DHCP, {name});
    UseDhcpServer();
    BringUp(name);
    FakeSupplicant supplicant(name);
    CorviPeer corvi(DISCOVERED);
    if (name == "wlan0")
        corvi.PickWireless(name);
    else
        corvi.AdoptWired(name);
    Supervisor::Connect(name);
    Forget();
    for (const QByteArray &word : qAsConst(words))
        QVERIFY(supplicant.SendEvent(word));

    WpaSuppThread::GetInstance()->HearUnread();

    QCOMPARE(DhcpAttempts(), attempts);
    QCOMPARE(JournalOf("killall").size(), name == "wlan0" ? 2 * attempts : 0);
}

void TestCorviSupplicant::lossOfAssociationIsOnlyReported()
{
    MakeMachine(WLAN, {"wlan0"});
    EventListener listener;
    CorviPeer corvi(DISCOVERED);
    corvi.PickWireless("wlan0");
    BringUp("wlan0");
    Forget();

    corvi.onAssociatedChanged(false);

    QCOMPARE(listener.Take(), Events({ASSOCIATION_DOWN}));
    QCOMPARE(Journal(), QStringList());
    // Read again before it is published.
    QVERIFY(corvi.WirelessDevice()->isRunning);
    ZebNetStatus published;
    QVERIFY(published.SetData(corvi.Segment()));
    QVERIFY(published.IsConnected());
}

void TestCorviSupplicant::associationOfAWiredDevice_data()
{
    QTest::addColumn<bool>("state");
    QTest::newRow("associated") << true;
    QTest::newRow("lost") << false;
}

void TestCorviSupplicant::associationOfAWiredDevice()
{
    QFETCH(bool, state);
    MakeMachine(LAN_DHCP, {"eth0"});
    UseDhcpServer();
    BringUp("eth0");
    EventListener listener;
    CorviPeer corvi(DISCOVERED);
    corvi.AdoptWired("eth0");
    LogFromHere(4);

    corvi.onAssociatedChanged(state);

    QCOMPARE(OwnLines(), QStringList({QString("Corvi::onAssociatedChanged(bool state) %1").arg(int(state)),
                                      "Wireless device not defined"}));
    QCOMPARE(listener.Take(),
             state ? Events({ASSOCIATION_UP, DHCP_STARTED, ADDRESS_PRESENT}) : Events({ASSOCIATION_DOWN}));
    QCOMPARE(DhcpAttempts(), int(state));
    QCOMPARE(JournalOf("killall"), QStringList());
}

void TestCorviSupplicant::associationWithoutDevices_data()
{
    QTest::addColumn<bool>("state");
    QTest::newRow("associated") << true;
    QTest::newRow("lost") << false;
}

void TestCorviSupplicant::associationWithoutDevices()
{
    QFETCH(bool, state);
    EventListener listener;
    CorviPeer corvi(DISCOVERED);
    LogFromHere(4);

    corvi.onAssociatedChanged(state);

    QCOMPARE(LogLines(), QStringList({QString("Corvi::onAssociatedChanged(bool state) %1").arg(int(state)),
                                      "Wireless and Wired devices not defined"}));
    QCOMPARE(listener.Take(), Events());
    QCOMPARE(Journal(), QStringList());
}

void TestCorviSupplicant::slotsOfSilentSignalsOnlyLog()
{
    CorviPeer corvi;
    LogFromHere(4);

    corvi.onWifiConnected();
    corvi.onScanningFailed();

    QCOMPARE(LogLines(), QStringList({"Corvi::onWifiConnected()", "Corvi::onScanningFailed()"}));
    QCOMPARE(Journal(), QStringList());
}

QTEST_GUILESS_MAIN(TestCorviSupplicant)
#include "tst_corvi_supplicant.moc"
