// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "corvipeer.h"
#include "fastclock.h"

#include "zebnetstatus.h"

#include <chrono>

using namespace CorviWorld;
using namespace TestSupport;
using namespace std::chrono_literals;

namespace {

/// What the modem tool tells from now on.
void SetModemStatus(const QByteArray &text)
{
    WriteFile("/tmp/modem-status", text);
    Answer("modem-tool.sh", "[ \"$1\" = status ] && cat /tmp/modem-status\nexit 0");
}

QStringList ModemCalls()
{
    return JournalOf("modem-tool.sh");
}

} // namespace

/// The modem network.
class TestCorviModem : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void firstBringUpStartsAndConnects();
    void laterBringUpsOnlyAsk();
    void bringUpAfterATakeDownConnectsAgain();
    void adoptionAfterARescanConnectsAgain();
    void changeOfTheConnectionIsReported_data();
    void changeOfTheConnectionIsReported();
    void connectionThatStaysIsNotReported();
    void connectionThatFailedIsTriedAgain();
    void bringUpAfterATakeDownWaitsAsTheFirstOne();
    void faultOfTheModemIsTold();
    void lostDefaultRouteIsSetAgain_data();
    void lostDefaultRouteIsSetAgain();
    void connectionThatWasLostIsMadeAgain();
    void connectionWithoutAnAddressIsConfiguredAgain();
    void addressOfTheNextGenerationIsEnough();
    void modemIsGivenUpAfterElevenFailures();
    void runningLinkIsNotCounted();
    void runningLinkKeepsTheCount();
    void addressOfARunningLinkIsPublished();
    void linkThatIsLostIsPublished();
    void linkThatIsLostAtARescanIsPublished();
    void rescanGivesAFreshCount();
    void wirelessResetsTheCounter();
    void droppedModemComesBackWithARescan();
    void droppedModemIsSoughtAgain();
    void droppedModemLeavesTheTurnToARadio_data();
    void droppedModemLeavesTheTurnToARadio();
    void droppedModemWaitsForARadioThatIsNotInUse();
    void droppedModemIsSoughtAtOnceAfterACable();
    void droppedModemWaitsForARadioBehindACable();
    void wirelessFollowsADroppedModem();
    void takeDownDisconnects();
    void takeDownIsToldWhenItIsDone();
    void takeDownIsDoneOnce();
    void bringUpGoesBeforeTakeDown();
    void neitherOnlyLogs();
    void withoutModemNothingHappens_data();
    void withoutModemNothingHappens();
    void resultTellsWhetherTheLinkRuns();
};

void TestCorviModem::init()
{
    StartFromNothing();
    SetModemStatus("disconnected\n");
}

void TestCorviModem::firstBringUpStartsAndConnects()
{
    CorviPeer corvi({"wwan0"}, DISCOVERED);
    LogFromHere(4);

    corvi.ModemNetworkSetup(false, true);

    QCOMPARE(Journal(), QStringList({"ifconfig wwan0 up", "modem-tool.sh connect", "modem-tool.sh status"}));
    QVERIFY(corvi.ModemDevice()->timer->isActive());
    QCOMPARE(LogLines().first(), QString("Corvi::ModemNetworkSetup"));
}

void TestCorviModem::laterBringUpsOnlyAsk()
{
    CorviPeer corvi({"wwan0"}, SET_UP);
    Forget();

    corvi.Tick(2);

    QCOMPARE(Journal(), QStringList({"modem-tool.sh status", "modem-tool.sh status"}));
}

void TestCorviModem::bringUpAfterATakeDownConnectsAgain()
{
    CorviPeer corvi({"wwan0"}, SET_UP);
    corvi.ModemNetworkSetup(true, false);
    Forget();

    corvi.ModemNetworkSetup(false, true);

    QCOMPARE(Journal(), QStringList({"ifconfig wwan0 up", "modem-tool.sh connect", "modem-tool.sh status"}));
}

void TestCorviModem::adoptionAfterARescanConnectsAgain()
{
    CorviPeer corvi({"wwan0"}, SET_UP);
    WriteFile(RELOAD_FLAG, "");
    corvi.Tick();
    Forget();

    corvi.Tick();

    QCOMPARE(ModemCalls(), QStringList({"modem-tool.sh connect", "modem-tool.sh status"}));
}

void TestCorviModem::changeOfTheConnectionIsReported_data()
{
    QTest::addColumn<bool>("before");
    QTest::addColumn<QByteArray>("status");
    QTest::addColumn<bool>("after");
    QTest::newRow("connected") << false << QByteArray(" connected \n") << true;
    QTest::newRow("disconnected") << true << QByteArray("disconnected\n") << false;
    QTest::newRow("gone") << true << QByteArray("cannot find modem\n") << false;
    QTest::newRow("silent") << true << QByteArray() << false;
}

void TestCorviModem::changeOfTheConnectionIsReported()
{
    QFETCH(bool, before);
    QFETCH(QByteArray, status);
    QFETCH(bool, after);
    MakeInterface("wwan0");
    EventListener listener;
    CorviPeer corvi(SET_UP);
    auto *const modem = qobject_cast<Modem *>(corvi.ModemDevice());
    modem->modemConnected = before;
    SetModemStatus(status);
    listener.Take();
    Forget();

    corvi.Tick();

    QCOMPARE(modem->modemConnected, after);
    QCOMPARE(LogCount("modem connected"), 1);
    QCOMPARE(ModemCalls(), QStringList({"modem-tool.sh status", "modem-tool.sh ip_config"}));
    // The status is true in either direction.
    QCOMPARE(listener.Take(), Events({ASSOCIATION_UP}));
}

void TestCorviModem::connectionThatStaysIsNotReported()
{
    MakeInterface("wwan0");
    SetModemStatus("connected\n");
    EventListener listener;
    CorviPeer corvi(SET_UP);
    listener.Take();
    Forget();

    corvi.Tick(3);

    QCOMPARE(LogLines(), QStringList());
    QCOMPARE(listener.Take(), Events());
    QCOMPARE(ModemCalls(),
             QStringList({"modem-tool.sh status", "modem-tool.sh status", "modem-tool.sh status"}));
}

void TestCorviModem::connectionThatFailedIsTriedAgain()
{
    const QString connect = QStringLiteral("modem-tool.sh connect");
    CorviPeer corvi({"wwan0"}, SET_UP);
    corvi.ModemDevice()->isRunning = true;
    Forget();

    FastClock::Advance(10s);
    corvi.Tick(2);
    QCOMPARE(ModemCalls(), QStringList({"modem-tool.sh status", connect, "modem-tool.sh status"}));
    FastClock::Advance(10s);
    corvi.Tick();
    QCOMPARE(JournalOf(connect).size(), 1);
    FastClock::Advance(10s);
    corvi.Tick();
    QCOMPARE(JournalOf(connect).size(), 2);
    QCOMPARE(LogLines(), QStringList{"Corvi::ModemNetworkSetup - not connected, connecting again: wwan0"});

    SetModemStatus("connected\n");
    FastClock::Advance(60s);
    corvi.Tick(2);
    QCOMPARE(JournalOf(connect).size(), 2);

    // The next failure is news, and waits as the first one did.
    SetModemStatus("disconnected\n");
    FastClock::Advance(60s);
    Forget();
    corvi.Tick();
    QCOMPARE(JournalOf(connect).size(), 0);
    FastClock::Advance(10s);
    corvi.Tick();
    QCOMPARE(JournalOf(connect).size(), 1);
    QCOMPARE(LogLines().filter("connecting again").size(), 1);
}

void TestCorviModem::bringUpAfterATakeDownWaitsAsTheFirstOne()
{
    const QString connect = QStringLiteral("modem-tool.sh connect");
    CorviPeer corvi({"wwan0"}, SET_UP);
    corvi.ModemDevice()->isRunning = true;
    corvi.Tick();
    FastClock::Advance(10s);
    corvi.Tick();
    corvi.ModemNetworkSetup(true, false);
    corvi.ModemDevice()->isRunning = true;
    corvi.Tick();
    Forget();

    FastClock::Advance(10s);
    corvi.Tick();

    QCOMPARE(JournalOf(connect).size(), 1);
}

void TestCorviModem::faultOfTheModemIsTold()
{
    SetModemStatus("the SIM is locked\n");
    CorviPeer corvi({"wwan0"}, SET_UP);
    Forget();

    FastClock::Advance(10s);
    corvi.Tick();

    QCOMPARE(LogLines(), QStringList{"Corvi::ModemNetworkSetup - not connected, connecting again: "
                                     "wwan0 -- the SIM is locked"});
}

void TestCorviModem::lostDefaultRouteIsSetAgain_data()
{
    QTest::addColumn<QString>("address");
    QTest::addColumn<QString>("route");

    QTest::newRow("gateway in the subnet") << "10.7.0.5/24"
                                           << "default via 10.7.0.1 dev wwan0 metric 500";
    QTest::newRow("gateway outside the subnet") << "10.7.0.5/32"
                                                << "default via 10.7.0.1 dev wwan0 metric 500 onlink";
}

void TestCorviModem::lostDefaultRouteIsSetAgain()
{
    QFETCH(QString, address);
    QFETCH(QString, route);
    SetModemStatus("connected\n");
    CorviPeer corvi({"wwan0"}, SET_UP);
    RealIp({"addr", "add", address, "dev", "wwan0"});
    RealIp(QStringList{"route", "add"} + route.split(' '));
    corvi.ModemDevice()->RefreshStatus();
    corvi.Tick();
    Forget();

    RealIp({"route", "del", "default"});
    corvi.Tick();

    QCOMPARE(JournalOf("ip route"), QStringList{"ip route replace " + route});
    QCOMPARE(LogLines(), QStringList{"NetworkDevice::KeepLeasedRoute - the default route is missing, "
                                     "setting it again on wwan0"});
}

void TestCorviModem::connectionThatWasLostIsMadeAgain()
{
    SetModemStatus("connected\n");
    CorviPeer corvi({"wwan0"}, SET_UP);
    corvi.Tick();
    FastClock::Advance(60s);
    SetModemStatus("disconnected\n");
    Forget();

    corvi.Tick();
    QCOMPARE(ModemCalls(), QStringList({"modem-tool.sh status", "modem-tool.sh ip_config"}));
    FastClock::Advance(10s);
    corvi.Tick();

    QCOMPARE(JournalOf("modem-tool.sh connect").size(), 1);
}

void TestCorviModem::connectionWithoutAnAddressIsConfiguredAgain()
{
    const QString configure = QStringLiteral("modem-tool.sh ip_config");
    SetModemStatus("connected\n");
    CorviPeer corvi({"wwan0"}, SET_UP);
    corvi.Tick();
    Forget();

    for (const auto pause : {10s, 20s, 40s, 60s}) {
        corvi.Tick();
        QCOMPARE(JournalOf(configure).size(), 0);
        FastClock::Advance(pause);
        corvi.Tick();
        QCOMPARE(JournalOf(configure).size(), 1);
        ClearJournal();
    }
    QCOMPARE(LogLines(), QStringList{"Corvi::ModemNetworkSetup - connected without an address, "
                                     "configuring again: wwan0"});

    RealIp({"addr", "add", "10.7.0.5/24", "dev", "wwan0"});
    corvi.ModemDevice()->RefreshStatus();
    FastClock::Advance(60s);
    corvi.Tick(2);
    QCOMPARE(JournalOf(configure).size(), 0);

    // Lost again, the pauses begin anew.
    RealIp({"addr", "flush", "dev", "wwan0"});
    corvi.ModemDevice()->RefreshStatus();
    corvi.Tick();
    QCOMPARE(JournalOf(configure).size(), 0);
    FastClock::Advance(10s);
    corvi.Tick();
    QCOMPARE(JournalOf(configure).size(), 1);
}

/// As a network gives that has no other one.
void TestCorviModem::addressOfTheNextGenerationIsEnough()
{
    SetModemStatus("connected\n");
    CorviPeer corvi({"wwan0"}, SET_UP);
    RealIp({"-6", "addr", "add", "2001:db8::5/64", "dev", "wwan0", "nodad"});
    corvi.Tick();
    Forget();

    FastClock::Advance(60s);
    corvi.Tick(2);
    FastClock::Advance(60s);
    corvi.Tick(2);

    QCOMPARE(JournalOf("modem-tool.sh ip_config").size(), 0);
    QCOMPARE(LogLines(), QStringList());
}

void TestCorviModem::modemIsGivenUpAfterElevenFailures()
{
    MakeInterface("wwan0");
    PullCable("wwan0");
    CorviPeer corvi(DISCOVERED);

    corvi.Tick(10);
    QVERIFY(corvi.ModemDevice());
    QCOMPARE(Corvi::conn_counter, 10);
    Forget();

    corvi.Tick();
    QVERIFY(!corvi.ModemDevice());
    QCOMPARE(Corvi::conn_counter, 11);
    QCOMPARE(Journal(), QStringList({"modem-tool.sh status", "ifconfig wwan0 down"}));
    QCOMPARE(LogLines(),
             QStringList{"Corvi::ModemNetworkSetup - no link, unused until the next rescan: wwan0"});
    QVERIFY(corvi.Device("wwan0"));
}

void TestCorviModem::runningLinkIsNotCounted()
{
    MakeInterface("wwan0");
    SetModemStatus("connected\n");
    CorviPeer corvi;

    corvi.Tick(15);

    // Running since the change of the connection refreshed the device.
    QCOMPARE(Corvi::conn_counter, 0);
    QVERIFY(corvi.ModemDevice());
    QVERIFY(corvi.ModemDevice()->isRunning);
}

void TestCorviModem::runningLinkKeepsTheCount()
{
    SetModemStatus("connected\n");
    CorviPeer corvi({"wwan0"}, SET_UP);
    QVERIFY(corvi.ModemDevice()->isRunning);
    Corvi::conn_counter = 5;

    corvi.Tick(3);

    QCOMPARE(Corvi::conn_counter, 5);
}

void TestCorviModem::addressOfARunningLinkIsPublished()
{
    SetModemStatus("connected\n");
    CorviPeer corvi({"wwan0"}, SET_UP);
    corvi.Tick();

    RealIp({"addr", "add", "10.7.0.5/24", "dev", "wwan0"});
    corvi.ModemDevice()->RefreshStatus();
    corvi.Tick();

    ZebNetStatus published;
    QVERIFY(published.SetData(corvi.Segment()));
    QCOMPARE(published.GetIp(), QString("10.7.0.5"));
}

void TestCorviModem::linkThatIsLostIsPublished()
{
    SetModemStatus("connected\n");
    CorviPeer corvi({"wwan0"}, SET_UP);
    RealIp({"addr", "add", "10.7.0.5/24", "dev", "wwan0"});
    corvi.ModemDevice()->RefreshStatus();
    corvi.Tick();
    const QByteArray connected = corvi.Segment();

    PullCable("wwan0");
    corvi.ModemDevice()->RefreshStatus();
    corvi.Tick();
    ZebNetStatus published;
    QVERIFY(published.SetData(corvi.Segment()));
    QVERIFY(!published.IsConnected());
    LogFromHere(4);
    corvi.Tick();
    QCOMPARE(LogCount("ShareStatus()  Start"), 0);

    PlugCable("wwan0");
    corvi.ModemDevice()->RefreshStatus();
    corvi.Tick();
    QCOMPARE(corvi.Segment(), connected);
}

void TestCorviModem::linkThatIsLostAtARescanIsPublished()
{
    SetModemStatus("connected\n");
    CorviPeer corvi({"wwan0"}, SET_UP);
    corvi.Tick();
    SetModemStatus("disconnected\n");
    PullCable("wwan0");

    corvi.ForceRescan();
    corvi.Tick(2);

    ZebNetStatus published;
    QVERIFY(published.SetData(corvi.Segment()));
    QVERIFY(!published.IsConnected());
}

void TestCorviModem::rescanGivesAFreshCount()
{
    MakeInterface("wwan0");
    PullCable("wwan0");
    CorviPeer corvi;
    corvi.Tick(12);
    QCOMPARE(Corvi::conn_counter, 11);

    WriteFile(RELOAD_FLAG, "");
    corvi.Tick();
    QCOMPARE(corvi.ModemDevice(), corvi.Device("wwan0"));
    QCOMPARE(Corvi::conn_counter, 0);
    corvi.Tick(10);
    QVERIFY(corvi.ModemDevice());
    corvi.Tick();

    QVERIFY(!corvi.ModemDevice());
}

void TestCorviModem::wirelessResetsTheCounter()
{
    MakeInterface("wwan0");
    MakeInterface("wlan0");
    PullCable("wwan0");
    BringUp("wlan0");
    CorviPeer corvi;
    corvi.Tick(12);
    QCOMPARE(Corvi::conn_counter, 11);

    corvi.Tick(3);

    QCOMPARE(Corvi::conn_counter, 0);
    QCOMPARE(corvi.WirelessDevice(), corvi.Device("wlan0"));
}

void TestCorviModem::droppedModemComesBackWithARescan()
{
    MakeInterface("wwan0");
    PullCable("wwan0");
    CorviPeer corvi;
    corvi.Tick(12);
    QVERIFY(!corvi.ModemDevice());

    corvi.ForceRescan();
    corvi.Tick();

    QCOMPARE(corvi.ModemDevice(), corvi.Device("wwan0"));
}

void TestCorviModem::droppedModemIsSoughtAgain()
{
    MakeInterface("wwan0");
    PullCable("wwan0");
    CorviPeer corvi;
    corvi.Tick(13);
    QVERIFY(!corvi.ModemDevice());

    FastClock::Advance(30s);
    corvi.Tick(2);
    QVERIFY(!corvi.ModemDevice());
    FastClock::Advance(30s);
    corvi.Tick(2);
    QVERIFY(corvi.ModemDevice());

    corvi.Tick(12);
    QVERIFY(!corvi.ModemDevice());
}

void TestCorviModem::droppedModemLeavesTheTurnToARadio_data()
{
    QTest::addColumn<QByteArray>("store");
    QTest::addColumn<bool>("isConnected");
    QTest::addColumn<QList<int>>("rests"); // in s, one after another
    QTest::addColumn<bool>("isSought");
    QTest::newRow("radio without a network")
        << QByteArray(LAN_STATIC) << false << QList<int>{200, 100} << true;
    QTest::newRow("radio that finds none") << WLAN << false << QList<int>{200, 100} << true;
    QTest::newRow("the same, early") << WLAN << false << QList<int>{200, 50} << false;
    QTest::newRow("radio that serves") << WLAN << true << QList<int>{200, 200} << false;
}

void TestCorviModem::droppedModemLeavesTheTurnToARadio()
{
    QFETCH(QByteArray, store);
    QFETCH(bool, isConnected);
    QFETCH(QList<int>, rests);
    QFETCH(bool, isSought);
    MakeMachine(store, {"wwan0", "wlan0"});
    PullCable("wwan0");
    PullCable("wlan0");
    CorviPeer corvi;
    corvi.Tick(16);
    QVERIFY(!corvi.ModemDevice());
    QVERIFY(corvi.WirelessDevice());
    if (isConnected)
        PlugCable("wlan0");

    for (const int rest : rests) {
        QVERIFY(!corvi.ModemDevice());
        FastClock::Advance(std::chrono::seconds(rest));
        corvi.Tick(3);
    }

    QCOMPARE(corvi.ModemDevice() != nullptr, isSought);
}

void TestCorviModem::droppedModemWaitsForARadioThatIsNotInUse()
{
    MakeMachine(WLAN, {"wwan0", "wlan0"});
    PullCable("wwan0");
    PullCable("wlan0");
    CorviPeer corvi;
    corvi.Tick(12);
    QVERIFY(!corvi.ModemDevice());
    QVERIFY(!corvi.WirelessDevice());

    FastClock::Advance(300s);
    corvi.Tick(4);

    QVERIFY(!corvi.ModemDevice());
    QVERIFY(corvi.WirelessDevice());
}

/// There is no radio whose turn it could be.
void TestCorviModem::droppedModemIsSoughtAtOnceAfterACable()
{
    MakeMachine(LAN_STATIC, {"eth0", "wwan0"});
    for (const char *name : {"eth0", "wwan0"})
        PullCable(name);
    CorviPeer corvi;
    corvi.Tick(13);
    QVERIFY(!corvi.ModemDevice());
    PlugCable("eth0");
    corvi.Tick();
    FastClock::Advance(100s);
    corvi.Tick();
    PullCable("eth0");

    corvi.Tick(2);

    QVERIFY(corvi.ModemDevice());
}

/// It is kept up there, and the tick after the cable's end is its first one.
void TestCorviModem::droppedModemWaitsForARadioBehindACable()
{
    MakeMachine(WLAN, {"eth0", "wwan0", "wlan0"});
    for (const char *name : {"eth0", "wwan0", "wlan0"})
        PullCable(name);
    WriteFile("/tmp/keepwirelessup", "");
    CorviPeer corvi;
    corvi.Tick(16);
    QVERIFY(!corvi.ModemDevice());
    QVERIFY(corvi.WirelessDevice());
    PlugCable("eth0");
    corvi.Tick();
    FastClock::Advance(400s);
    corvi.Tick();
    PullCable("eth0");

    corvi.Tick(5);

    QVERIFY(!corvi.ModemDevice());
    QVERIFY(corvi.WirelessDevice());
}

void TestCorviModem::wirelessFollowsADroppedModem()
{
    MakeInterface("wwan0");
    MakeInterface("wlan0");
    PullCable("wwan0");
    CorviPeer corvi;
    corvi.Tick(12);
    QVERIFY(!corvi.ModemDevice());
    QVERIFY(!corvi.WirelessDevice());

    corvi.Tick(2);
    QVERIFY(!corvi.WirelessDevice());
    corvi.Tick();
    QVERIFY(corvi.WirelessDevice());
}

void TestCorviModem::takeDownDisconnects()
{
    MakeInterface("wwan0");
    SetModemStatus("connected\n");
    EventListener listener;
    CorviPeer corvi(SET_UP);
    listener.Take();
    Forget();

    corvi.ModemNetworkSetup(true, false);

    QCOMPARE(Journal(), QStringList({"modem-tool.sh disconnect", "ifconfig wwan0 down"}));
    QCOMPARE(listener.Take(), Events({ASSOCIATION_DOWN}));
    QVERIFY(!qobject_cast<Modem *>(corvi.ModemDevice())->modemConnected);
    QCOMPARE(corvi.ModemDevice(), corvi.Device("wwan0"));
}

void TestCorviModem::takeDownIsToldWhenItIsDone()
{
    CorviPeer corvi({"wwan0"}, SET_UP);
    // The tools write into the log, so that it tells what came before what.
    for (const char *tool : {"modem-tool.sh", "ifconfig"})
        Answer(tool, QByteArray("echo '2025-05-03 17:05:01.234 :  ") + tool +
                         " '\"$*\"' ' >>/var/log/corvi-mon.log");
    LogFromHere(4);

    corvi.ModemNetworkSetup(true, false);

    const QStringList lines = LogLines();
    const QVector<qsizetype> places{lines.indexOf("modem-tool.sh disconnect"),
                                    lines.indexOf("ifconfig wwan0 down"),
                                    lines.indexOf("SendEvent()  Start")};
    QVERIFY2(places.at(0) != -1 && places.at(0) < places.at(1) && places.at(1) < places.at(2),
             qPrintable(lines.join('\n')));
}

void TestCorviModem::takeDownIsDoneOnce()
{
    MakeMachine(LAN_STATIC, {"eth0", "wwan0", "wwan1"});
    BringUp("wwan0");
    RealIp({"addr", "add", "10.8.0.8/24", "dev", "wwan0"});
    EventListener listener;
    CorviPeer corvi(DISCOVERED);
    Forget();

    corvi.Tick();
    QCOMPARE(ModemCalls(), QStringList{"modem-tool.sh disconnect"});
    QCOMPARE(listener.Take().count(ASSOCIATION_DOWN), 1);
    ZebNetStatus record;
    QVERIFY(record.SetData(corvi.Segment()));
    QVERIFY(!record.IsConnected());
    QCOMPARE(record.GetIp(), QString());

    corvi.Tick(3);
    QCOMPARE(ModemCalls().size(), 1);
    QCOMPARE(listener.Take(), Events());
    // What carries is published again.
    QVERIFY(record.SetData(corvi.Segment()));
    QCOMPARE(record.GetIp(), QString("10.1.0.2"));
}

void TestCorviModem::bringUpGoesBeforeTakeDown()
{
    CorviPeer corvi({"wwan0"}, DISCOVERED);
    Forget();

    corvi.ModemNetworkSetup(true, true);

    QCOMPARE(ModemCalls(), QStringList({"modem-tool.sh connect", "modem-tool.sh status"}));
}

void TestCorviModem::neitherOnlyLogs()
{
    CorviPeer corvi({"wwan0"}, DISCOVERED);
    LogFromHere(4);

    corvi.ModemNetworkSetup(false, false);

    QCOMPARE(LogLines(), QStringList{"Corvi::ModemNetworkSetup"});
    QCOMPARE(Journal(), QStringList());
}

void TestCorviModem::withoutModemNothingHappens_data()
{
    QTest::addColumn<bool>("takeDown");
    QTest::addColumn<bool>("bringUp");
    QTest::newRow("neither") << false << false;
    QTest::newRow("take down") << true << false;
    QTest::newRow("bring up") << false << true;
}

void TestCorviModem::withoutModemNothingHappens()
{
    QFETCH(bool, takeDown);
    QFETCH(bool, bringUp);
    EventListener listener;
    CorviPeer corvi;
    Forget();

    QCOMPARE(corvi.ModemNetworkSetup(takeDown, bringUp), 0);

    QCOMPARE(Journal(), QStringList());
    QCOMPARE(listener.Take(), Events());
}

void TestCorviModem::resultTellsWhetherTheLinkRuns()
{
    CorviPeer corvi({"wwan0"}, DISCOVERED);
    QCOMPARE(corvi.ModemNetworkSetup(false, true), 0);

    SetModemStatus("connected\n");
    QCOMPARE(corvi.ModemNetworkSetup(false, true), 1);
}

QTEST_GUILESS_MAIN(TestCorviModem)
#include "tst_corvi_modem.moc"
