// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "corvipeer.h"
#include "fakesupplicant.h"
#include "fastclock.h"
#include "managersocket.h"
#include "processsignals.h"
#include "standinclient.h"
#include "zebnetconfig.h"

#include <QDir>
#include <QFileInfo>
#include <QScopeGuard>

#include <chrono>
#include <csignal>
#include <functional>
#include <memory>

#include <sys/stat.h>

using namespace CorviWorld;
using namespace TestSupport;
using namespace std::chrono_literals;

/// What befalls the service object's machine.
using Deed = std::function<void(CorviPeer &)>;
Q_DECLARE_METATYPE(Deed)

namespace {

void SetUpWiredFor(CorviPeer &corvi, std::chrono::seconds time)
{
    for (std::chrono::seconds passed{0}; passed < time; ++passed) {
        FastClock::Advance(1s);
        corvi.WiredNetworkSetup();
    }
}

/// The one in the background got it late.
std::unique_ptr<StandInClient> GivenLeaseOfAClient(CorviPeer &corvi)
{
    auto client = std::make_unique<StandInClient>(QStringList{"eth0"});
    RealIp({"addr", "add", "10.0.0.5/24", "dev", "eth0"});
    SetUpWiredFor(corvi, 15s);
    UseDhcpServer();
    Forget();
    return client;
}

void AssociateWithTheFirstOfTwo(CorviPeer &corvi, FakeSupplicant &supplicant)
{
    supplicant.SetReply("LIST_NETWORKS",
                        "network id / ssid / bssid / flags\n0\toffice\tany\t[CURRENT]\n1\tannex\tany\t\n");
    corvi.AdoptWireless("wlan0");
    corvi.SettleSupplicant(ASSOCIATED);
    Supervisor::Connect();
}

} // namespace

/// Further attempts to get an address, and what the hook of the DHCP client reports.
class TestCorviDhcp : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { qputenv("CORVI_JOURNAL", "1"); } // asked for once, with the first line
    void init();

    // Wired
    void failedDhcpIsRetriedAfterGrowingPauses();
    void makeshiftAddressDoesNotEndTheRetries();
    void lateServerIsFound();
    void retryNeedsAReason_data();
    void retryNeedsAReason();
    void addressThatCameInTheSameTickNeedsNoRetry();
    void retriesStopFillingTheLog();
    void lostLinkStartsThePausesAnew();
    void journalNamesInterfaceAndDefinition();

    void clientThatEndedIsStartedAgain();
    void clientThatEndedIsOfNoUse_data();
    void clientThatEndedIsOfNoUse();

    // Wireless
    void addressIsRetriedWhileAssociated_data();
    void addressIsRetriedWhileAssociated();
    void deviceThatMissedItsEventIsConfigured();
    void cableWithoutAddressesLeavesNoNetwork();
    void networkWithoutAddressesIsLeftAfterTwoAttempts_data();
    void networkWithoutAddressesIsLeftAfterTwoAttempts();
    void roundsInVainBecomeRare_data();
    void roundsInVainBecomeRare();

    // Hook of the DHCP client
    void dhcpEventUpdatesTheDevicesItNames_data();
    void dhcpEventUpdatesTheDevicesItNames();
    void dhcpEventIsReadOnce();
    void dhcpEventIsAPlainFile_data();
    void dhcpEventIsAPlainFile();
};

void TestCorviDhcp::init()
{
    StartFromNothing();
}

void TestCorviDhcp::failedDhcpIsRetriedAfterGrowingPauses()
{
    CorviPeer corvi(LAN_DHCP, {"eth0"}, SET_UP);
    QCOMPARE(DhcpAttempts(), 1);

    int expected = 1;
    int attempt = 0;
    for (const int pauseSeconds : {10, 20, 40, 60, 60}) {
        corvi.AgeWiredRetry(attempt, std::chrono::seconds(pauseSeconds - 1));
        corvi.Tick();
        QCOMPARE(DhcpAttempts(), expected);

        corvi.AgeWiredRetry(attempt, std::chrono::seconds(pauseSeconds));
        corvi.Tick(3);
        ++expected;
        ++attempt;
        QCOMPARE(DhcpAttempts(), expected);
    }
}

void TestCorviDhcp::makeshiftAddressDoesNotEndTheRetries()
{
    CorviPeer corvi(LAN_DHCP, {"eth0"}, SET_UP);

    RealIp({"addr", "add", "169.254.7.7/16", "dev", "eth0"});
    corvi.Tick();
    QCOMPARE(corvi.WiredDevice()->ipAddress, "169.254.7.7");
    corvi.AgeWiredRetry(0, std::chrono::seconds(10));
    corvi.Tick();

    QCOMPARE(DhcpAttempts(), 2);
}

void TestCorviDhcp::lateServerIsFound()
{
    MakeMachine(LAN_DHCP, {"eth0"});
    EventListener listener;
    CorviPeer corvi(SET_UP);
    QCOMPARE(listener.Take(), Events({ASSOCIATION_UP, DHCP_STARTED}));

    UseDhcpServer();
    corvi.AgeWiredRetry(0, std::chrono::seconds(10));
    corvi.Tick();

    QCOMPARE(listener.Take(), Events({DHCP_STARTED, ADDRESS_PRESENT}));
    QCOMPARE(
        LogCount(
            "Corvi::RetryDhcp - no address, trying again on eth0 - then after 20 s, 40 s and every 60 s"),
        1);

    // The address is there: the next loss starts with the shortest pause.
    corvi.Tick();
    QVERIFY(!corvi.IsWiredRetryDue(std::chrono::seconds(0)));
    QVERIFY(corvi.IsWiredRetryDue(std::chrono::seconds(10)));
}

void TestCorviDhcp::retryNeedsAReason_data()
{
    QTest::addColumn<QByteArray>("store");
    QTest::addColumn<bool>("associated");
    QTest::addColumn<bool>("inFallback");
    QTest::addColumn<bool>("isRetried");
    QTest::newRow("DHCP without an address") << LAN_DHCP << false << false << true;
    QTest::newRow("static address") << LAN_STATIC << false << false << false;
    QTest::newRow("no definition") << QByteArray("<networkconfig/>") << false << false << false;
    QTest::newRow("waits for authentication") << LAN_8021X << false << false << false;
    QTest::newRow("authenticated") << LAN_8021X << true << false << true;
    QTest::newRow("in fallback") << LAN_8021X << false << true << true;
}

void TestCorviDhcp::retryNeedsAReason()
{
    QFETCH(QByteArray, store);
    QFETCH(bool, associated);
    QFETCH(bool, inFallback);
    QFETCH(bool, isRetried);
    CorviPeer corvi(store, {"eth0"}, SET_UP);
    corvi.WiredDevice()->inFallback = inFallback;
    corvi.SettleSupplicant({true, false, associated});
    RealIp({"addr", "flush", "dev", "eth0"});
    corvi.AgeWiredRetry(0, std::chrono::seconds(10));
    Forget();

    corvi.Tick();

    QCOMPARE(DhcpAttempts(), int(isRetried));
    QCOMPARE(LogLines().filter("RetryDhcp").size(), int(isRetried));
}

void TestCorviDhcp::addressThatCameInTheSameTickNeedsNoRetry()
{
    CorviPeer corvi(LAN_DHCP, {"eth0", "eth1"}, SET_UP);
    // The second port is stopped when the first one has been looked at.
    corvi.Device("eth1")->Up();
    Answer("ifconfig", "ip addr add 10.0.0.5/24 dev eth0");
    corvi.AgeWiredRetry(0, std::chrono::seconds(10));
    Forget();

    corvi.Tick();

    QCOMPARE(JournalOf("ifconfig"), QStringList{"ifconfig eth1 down"});
    QCOMPARE(DhcpAttempts(), 0);
    QCOMPARE(corvi.WiredDevice()->ipAddress, QString("10.0.0.5"));
}

void TestCorviDhcp::retriesStopFillingTheLog()
{
    CorviPeer corvi(LAN_DHCP, {"eth0"}, SET_UP);

    for (int attempt = 0; attempt < 6; ++attempt) {
        corvi.AgeWiredRetry(attempt, std::chrono::seconds(60));
        corvi.Tick();
    }

    QCOMPARE(DhcpAttempts(), 7);
    const QString told =
        "Corvi::RetryDhcp - no address, trying again on eth0 - then after 20 s, 40 s and every 60 s";
    QCOMPARE(LogCount(told), 1);

    // Once there was an address, its loss is news.
    RealIp({"addr", "add", "10.0.0.5/24", "dev", "eth0"});
    corvi.Tick(2);
    RealIp({"addr", "flush", "dev", "eth0"});
    corvi.AgeWiredRetry(0, std::chrono::seconds(10));
    corvi.Tick();
    QCOMPARE(LogCount(told), 2);
}

void TestCorviDhcp::lostLinkStartsThePausesAnew()
{
    CorviPeer corvi(LAN_DHCP, {"eth0"}, SET_UP);
    corvi.AgeWiredRetry(3, std::chrono::seconds(0));

    PullCable("eth0");
    corvi.Tick();

    QVERIFY(!corvi.IsWiredRetryDue(std::chrono::seconds(0)));
    QVERIFY(corvi.IsWiredRetryDue(std::chrono::seconds(10)));
}

void TestCorviDhcp::journalNamesInterfaceAndDefinition()
{
    CorviPeer corvi(LAN_DHCP, {"eth0"}, SET_UP);
    QVERIFY(QDir().mkpath("/run/systemd/journal"));
    const auto folder = qScopeGuard([] { Remove("/run/systemd/journal"); });
    ManagerSocket journal("/run/systemd/journal/socket");
    QVERIFY(journal.bound);

    corvi.AgeWiredRetry(0, std::chrono::seconds(10));
    corvi.Tick();

    QByteArray told;
    while (!told.contains("RetryDhcp")) {
        told = journal.Heard();
        QVERIFY(!told.isEmpty());
    }
    QVERIFY2(told.contains("\nINTERFACE=eth0\nDEFINITION=lan\n"), told.constData());
}

void TestCorviDhcp::clientThatEndedIsStartedAgain()
{
    CorviPeer corvi(LAN_DHCP, {"eth0"}, SET_UP);
    auto client = GivenLeaseOfAClient(corvi);

    client.reset();
    SetUpWiredFor(corvi, 30s);

    QCOMPARE(DhcpAttempts(), 1);
    QCOMPARE(
        LogLines().filter("client has ended"),
        QStringList{"NetworkDevice::KeepDhcpClient - the DHCP client has ended, starting it again on eth0"});
    // The lease is still good: nobody is cut off.
    QCOMPARE(JournalOf("dhclient "),
             QStringList{"dhclient -v -cf /etc/dhcp/dhclient.conf -e corvi_kept_address=10.0.0.5 eth0"});
    QCOMPARE(JournalOf("ip addr flush"), QStringList());
}

void TestCorviDhcp::clientThatEndedIsOfNoUse_data()
{
    QTest::addColumn<Deed>("deed");
    QTest::newRow("static address") << Deed(
        [](CorviPeer &c) { c.WiredDevice()->currentConfig->staticIp = true; });
    QTest::newRow("no cable") << Deed([](CorviPeer &) { PullCable("eth0"); });
    QTest::newRow("another is configured") << Deed([](CorviPeer &c) { c.NoteConfigured("wlan0"); });
}

void TestCorviDhcp::clientThatEndedIsOfNoUse()
{
    QFETCH(Deed, deed);
    CorviPeer corvi(LAN_DHCP, {"eth0"}, SET_UP);
    auto client = GivenLeaseOfAClient(corvi);

    deed(corvi);
    client.reset();
    SetUpWiredFor(corvi, 60s);

    QCOMPARE(DhcpAttempts(), 0);
    QCOMPARE(LogLines().filter("client has ended"), QStringList());
}

void TestCorviDhcp::addressIsRetriedWhileAssociated_data()
{
    QTest::addColumn<bool>("associated");
    QTest::addColumn<bool>("hasCarrier");
    QTest::addColumn<bool>("hasAddress");
    QTest::addColumn<int>("ageSeconds");
    QTest::addColumn<int>("attempts");
    QTest::newRow("associated, no address, due") << true << true << false << 10 << 1;
    QTest::newRow("not due yet") << true << true << false << 9 << 0;
    QTest::newRow("not associated") << false << true << false << 10 << 0;
    QTest::newRow("no carrier") << true << false << false << 10 << 0;
    QTest::newRow("has an address") << true << true << true << 10 << 0;
}

void TestCorviDhcp::addressIsRetriedWhileAssociated()
{
    QFETCH(bool, associated);
    QFETCH(bool, hasCarrier);
    QFETCH(bool, hasAddress);
    QFETCH(int, ageSeconds);
    MakeMachine(WLAN, {"wlan0"});
    BringUp("wlan0");
    if (!hasCarrier)
        PullCable("wlan0");
    CorviPeer corvi(DISCOVERED);
    corvi.AdoptWireless("wlan0");
    corvi.WirelessDevice()->ConfigureNetwork(true);
    if (hasAddress)
        RealIp({"addr", "add", "10.0.0.5/24", "dev", "wlan0"});
    corvi.SettleSupplicant({true, false, associated});
    corvi.AgeWirelessRetry(0, std::chrono::seconds(ageSeconds));
    Forget();

    corvi.WirelessNetworkSetup(false);

    QTEST(DhcpAttempts(), "attempts");
}

void TestCorviDhcp::deviceThatMissedItsEventIsConfigured()
{
    // The supplicant was connected before anybody listened to it.
    MakeMachine(WLAN, {"wlan0"});
    UseDhcpServer();
    BringUp("wlan0");
    CorviPeer corvi(DISCOVERED);
    corvi.AdoptWireless("wlan0");
    corvi.SettleSupplicant(ASSOCIATED);
    corvi.AgeWirelessRetry(0, std::chrono::seconds(10));

    corvi.WirelessNetworkSetup(false);

    QCOMPARE(corvi.WirelessDevice()->ipAddress, QString("10.0.0.5"));
}

/// A radio may be kept up beside it.
void TestCorviDhcp::cableWithoutAddressesLeavesNoNetwork()
{
    FakeSupplicant supplicant;
    CorviPeer corvi(LAN_DHCP, {"eth0"}, SET_UP);
    Supervisor::Set(ASSOCIATED);
    Supervisor::Connect();
    supplicant.ClearCommands();

    corvi.AgeWiredRetry(0, 10s);
    corvi.WiredNetworkSetup();

    QCOMPARE(corvi.WiredDevice()->dhcpFailures, 2);
    QVERIFY(!supplicant.Commands().contains("LIST_NETWORKS"));
    Supervisor::Set(GONE);
}

void TestCorviDhcp::networkWithoutAddressesIsLeftAfterTwoAttempts_data()
{
    QTest::addColumn<Deed>("befall");
    QTest::addColumn<bool>("isLeft");
    QTest::newRow("without addresses") << Deed([](CorviPeer &) {}) << true;
    QTest::newRow("the service is to end") << Deed([](CorviPeer &) { ::raise(SIGTERM); }) << false;
}

void TestCorviDhcp::networkWithoutAddressesIsLeftAfterTwoAttempts()
{
    QFETCH(Deed, befall);
    QFETCH(bool, isLeft);
    MakeMachine(WLAN, {"wlan0"});
    BringUp("wlan0");
    FakeSupplicant supplicant;
    const ProcessSignals signalSource(nullptr);
    const auto deliver = qScopeGuard([] { QCoreApplication::processEvents(); });
    CorviPeer corvi(DISCOVERED);
    AssociateWithTheFirstOfTwo(corvi, supplicant);
    corvi.WirelessDevice()->ConfigureNetwork(true);
    befall(corvi);
    QVERIFY(!supplicant.Commands().contains("DISABLE_NETWORK 0"));

    corvi.AgeWirelessRetry(0, 10s);
    corvi.WirelessNetworkSetup(false);
    QCOMPARE(supplicant.Commands().contains("DISABLE_NETWORK 0"), isLeft);

    // The next network has two attempts of its own.
    QCOMPARE(corvi.WirelessDevice()->dhcpFailures, isLeft ? 0 : 2);
    const int attempts = DhcpAttempts();
    corvi.WirelessNetworkSetup(false);
    FastClock::Advance(10s);
    corvi.WirelessNetworkSetup(false);
    QCOMPARE(DhcpAttempts(), attempts + static_cast<int>(isLeft));
    Supervisor::Set(GONE);
}

void TestCorviDhcp::roundsInVainBecomeRare_data()
{
    QTest::addColumn<Deed>("befall");
    QTest::addColumn<QList<int>>("expected");
    QTest::newRow("nothing") << Deed([](CorviPeer &) {}) << QList<int>{4, 8, 16, 16};
    QTest::newRow("an address") << Deed([](CorviPeer &corvi) {
        RealIp({"addr", "add", "10.0.0.5/24", "dev", "wlan0"});
        corvi.WirelessNetworkSetup(false);
        RealIp({"addr", "del", "10.0.0.5/24", "dev", "wlan0"});
    }) << QList<int>{2};
    QTest::newRow("an address of the link alone") << Deed([](CorviPeer &corvi) {
        RealIp({"addr", "add", "169.254.7.7/16", "dev", "wlan0"});
        corvi.WirelessNetworkSetup(false);
        RealIp({"addr", "del", "169.254.7.7/16", "dev", "wlan0"});
    }) << QList<int>{4};
    QTest::newRow("the radio is taken up anew") << Deed([](CorviPeer &corvi) {
        corvi.WirelessNetworkSetup(true);
        BringUp("wlan0");
        corvi.WirelessNetworkSetup(false);
        corvi.SettleSupplicant(ASSOCIATED);
        Supervisor::Connect();
    }) << QList<int>{2};
}

/// A round is of one departure here, as there is one definition.
void TestCorviDhcp::roundsInVainBecomeRare()
{
    QFETCH(Deed, befall);
    QFETCH(QList<int>, expected);
    MakeMachine(WLAN, {"wlan0"});
    BringUp("wlan0");
    FakeSupplicant supplicant;
    CorviPeer corvi(DISCOVERED);
    AssociateWithTheFirstOfTwo(corvi, supplicant);
    const auto isLeftByNextAttempt = [&corvi, &supplicant] {
        corvi.AgeWirelessRetry(0, 10s);
        corvi.WirelessNetworkSetup(false);
        return supplicant.Commands().contains("DISABLE_NETWORK 0");
    };
    QVERIFY(!isLeftByNextAttempt());
    QVERIFY(isLeftByNextAttempt());
    befall(corvi);

    for (const int attempts : expected) {
        supplicant.ClearCommands();
        corvi.WirelessDevice()->dhcpFailures = attempts - 2;
        QVERIFY2(!isLeftByNextAttempt(), qPrintable(QString::number(attempts)));
        QVERIFY2(isLeftByNextAttempt(), qPrintable(QString::number(attempts)));
    }
    Supervisor::Set(GONE);
}

void TestCorviDhcp::dhcpEventUpdatesTheDevicesItNames_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QStringList>("updated");
    QTest::newRow("wired") << QByteArray("BOUND eth0\n") << QStringList{"eth0"};
    QTest::newRow("wireless") << QByteArray("BOUND wlan0\n") << QStringList{"wlan0"};
    QTest::newRow("wireless of the other name") << QByteArray("BOUND mlan0\n") << QStringList{"wlan0"};
    QTest::newRow("modem") << QByteArray("BOUND wwan0\n") << QStringList{"wwan0"};
    QTest::newRow("all") << QByteArray("eth wlan wwan") << QStringList{"eth0", "wlan0", "wwan0"};
    QTest::newRow("behind a NUL") << QByteArray("BOUND\0eth0", 10) << QStringList{"eth0"};
    QTest::newRow("none") << QByteArray("usb0") << QStringList();
    QTest::newRow("empty") << QByteArray() << QStringList();
}

void TestCorviDhcp::dhcpEventUpdatesTheDevicesItNames()
{
    QFETCH(QByteArray, text);
    EventListener listener;
    CorviPeer corvi({"eth0", "wlan0", "wwan0"}, DISCOVERED);
    corvi.AdoptWired("eth0");
    corvi.PickWireless("wlan0");
    for (const char *name : {"eth0", "wlan0", "wwan0"}) {
        corvi.Device(name)->ipAddress = "10.0.0.5";
        corvi.Device(name)->isUp = true;
    }
    WriteFile(DHCP_EVENT, text);

    corvi.CheckDhcpEvent();

    QStringList updated;
    for (const char *name : {"eth0", "wlan0", "wwan0"}) {
        if (corvi.Device(name)->ipAnnounced)
            updated << name;
    }
    QTEST(updated, "updated");
    QCOMPARE(listener.Take(), Events(updated.size(), ADDRESS_PRESENT));
    QVERIFY(!QFile::exists(DHCP_EVENT));
}

void TestCorviDhcp::dhcpEventIsReadOnce()
{
    EventListener listener;
    CorviPeer corvi;

    corvi.CheckDhcpEvent();
    WriteFile(DHCP_EVENT, "eth0 wlan0 wwan0");
    corvi.CheckDhcpEvent();

    QVERIFY(!QFile::exists(DHCP_EVENT));
    QCOMPARE(listener.Take(), Events());
}

void TestCorviDhcp::dhcpEventIsAPlainFile_data()
{
    QTest::addColumn<bool>("isPipe");
    QTest::newRow("named pipe") << true;
    QTest::newRow("symbolic link") << false;
}

void TestCorviDhcp::dhcpEventIsAPlainFile()
{
    QFETCH(bool, isPipe);
    EventListener listener;
    CorviPeer corvi({"eth0"}, DISCOVERED);
    corvi.AdoptWired("eth0");
    corvi.WiredDevice()->ipAddress = "10.0.0.5";
    corvi.WiredDevice()->isUp = true;
    WriteFile("/tmp/event_elsewhere", "BOUND eth0");
    if (isPipe)
        QCOMPARE(::mkfifo(QFile::encodeName(DHCP_EVENT).constData(), 0600), 0);
    else
        QVERIFY(QFile::link("/tmp/event_elsewhere", DHCP_EVENT));

    corvi.CheckDhcpEvent();

    QVERIFY(!corvi.WiredDevice()->ipAnnounced);
    QCOMPARE(listener.Take(), Events());
    QVERIFY(!QFileInfo(DHCP_EVENT).isSymLink() && !QFile::exists(DHCP_EVENT));
    QVERIFY(QFile::exists("/tmp/event_elsewhere"));
}

QTEST_GUILESS_MAIN(TestCorviDhcp)
#include "tst_corvi_dhcp.moc"
