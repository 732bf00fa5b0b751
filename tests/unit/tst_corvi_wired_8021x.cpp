// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "corvipeer.h"
#include "fakesupplicant.h"

using namespace CorviWorld;
using namespace TestSupport;

namespace {

/// The decisions about the supplicant, of all that a wired tick logs.
QStringList Decisions()
{
    return LogLines().filter(QRegularExpression("^(Corvi::WiredNetworkSetup:: (starting|Start|Wired|Set)"
                                                "|Corvi::ReconfigureWpa|WpaSuppThread::Stop)"));
}

/// The supplicant runs, is connected to, and has been waited for so long.
void WaitForAuthentication(CorviPeer &corvi, bool fallbackEnabled, int ticks)
{
    corvi.SettleSupplicant(RUNNING);
    Supervisor::Connect(QStringLiteral("eth0"));
    corvi.WiredDevice()->fallbackEnabled = fallbackEnabled;
    corvi.WiredDevice()->authWaitTicks = ticks;
}

/// The event comes while the status is asked for, which drops it.
void DropBeforeTheStatus(FakeSupplicant &supplicant, const QByteArray &event, const QByteArray &status)
{
    FakeSupplicant::Answer answer;
    answer.eventsFirst = {event};
    answer.reply = status;
    supplicant.SetAnswer("STATUS", answer);
}

} // namespace

/// 802.1X on the wired network, and its fallback. The supervisor's state is set by hand.
class TestCorviWired8021x : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void supplicantFollowsTheState_data();
    void supplicantFollowsTheState();
    void linkUpClearsTheFallback();
    void linkUpLeavesTheWait();
    void linkUpWithoutSupplicantLeavesTheFlags_data();
    void linkUpWithoutSupplicantLeavesTheFlags();
    void supplicantThatPausesIsLeftAlone();
    void keepFileDoesNotKeepTheSupplicant();
    void authenticationTogglesTheCount();
    void waitIsCountedByTicks();
    void announcedPortFallsBackAfterElevenTicks();
    void portWithoutItsAddressWaitsLonger();
    void fallbackIsForcedAfterSixtyTicks();
    void fallbackIsNewsAfterAnAuthentication_data();
    void fallbackIsNewsAfterAnAuthentication();
    void unreadSuccessPreventsTheFallback_data();
    void unreadSuccessPreventsTheFallback();
    void successDuringTheFallbackKeepsTheSupplicant_data();
    void successDuringTheFallbackKeepsTheSupplicant();
    void successDuringTheFallbackCountsBesideAKeptRadio();
    void droppedSuccessCounts();
    void droppedEndIsTold();
    void portInFallbackIsLeftAlone();
};

void TestCorviWired8021x::init()
{
    StartFromNothing();
}

void TestCorviWired8021x::supplicantFollowsTheState_data()
{
    QTest::addColumn<bool>("wiredUp");
    QTest::addColumn<bool>("usesSupplicant");
    QTest::addColumn<bool>("running");
    QTest::addColumn<bool>("restarting");
    QTest::addColumn<bool>("reconfigure");
    QTest::addColumn<QStringList>("decisions");
    QTest::addColumn<int>("holdoff");
    const QString starting = "Corvi::WiredNetworkSetup:: starting wired connected %1";
    const QString start = "Corvi::WiredNetworkSetup:: Start Wpa supplicant";
    const QString reconfigure = "Corvi::WiredNetworkSetup:: Wired 802.1x Reconfigure";

    QTest::newRow("link stays, no supplicant wanted, none there")
        << true << false << false << false << false << QStringList() << 2;
    QTest::newRow("link stays, no supplicant wanted, one runs")
        << true << false << true << false << false << QStringList{"WpaSuppThread::Stop 6 true 1"} << 2;
    QTest::newRow("link stays, no supplicant wanted, one restarts")
        << true << false << false << true << false << QStringList{"WpaSuppThread::Stop 6 false 1"} << 2;
    QTest::newRow("link stays, supplicant wanted, none there")
        << true << true << false << false << false
        << QStringList{start, "Corvi::ReconfigureWpa 1", "Corvi::ReconfigureWpa in Holdoff"} << 0;
    QTest::newRow("link stays, supplicant wanted, one runs")
        << true << true << true << false << false << QStringList() << 1;
    QTest::newRow("link stays, supplicant wanted, one runs, file changed")
        << true << true << true << false << true
        << QStringList{starting.arg(1), reconfigure, "Corvi::ReconfigureWpa 1",
                       "WpaSuppThread::Stop 4 true 1"}
        << 1;

    QTest::newRow("link came up, no supplicant wanted, none there")
        << false << false << false << false << false << QStringList{starting.arg(0)} << 2;
    QTest::newRow("link came up, supplicant wanted, none there")
        << false << true << false << false << false
        << QStringList{starting.arg(1), start, "Corvi::ReconfigureWpa 2", "Corvi::ReconfigureWpa in Holdoff"}
        << 1;
    QTest::newRow("link came up, supplicant wanted, one runs")
        << false << true << true << false << false
        << QStringList{starting.arg(1), reconfigure, "Corvi::ReconfigureWpa 2",
                       "WpaSuppThread::Stop 4 true 1"}
        << 2;
}

void TestCorviWired8021x::supplicantFollowsTheState()
{
    QFETCH(bool, wiredUp);
    QFETCH(bool, usesSupplicant);
    QFETCH(bool, running);
    QFETCH(bool, restarting);
    QFETCH(bool, reconfigure);
    QFETCH(int, holdoff);
    CorviPeer corvi(usesSupplicant ? LAN_8021X_STATIC : LAN_STATIC, {"eth0"}, SET_UP);
    QCOMPARE(corvi.WiredDevice()->usesSupplicant, usesSupplicant);
    corvi.NoteWiredUp(wiredUp);
    if (reconfigure)
        corvi.BeginHoldOff(1);
    else
        corvi.LeaveHoldOff(1);
    Supervisor::Set({running, restarting, false});
    LogFromHere(4);

    QVERIFY(corvi.WiredNetworkSetup());

    QTEST(Decisions(), "decisions");
    QCOMPARE(corvi.HoldOff(), holdoff);
    QVERIFY(!usesSupplicant || wiredUp || corvi.IsReconfigureWanted());
}

void TestCorviWired8021x::linkUpClearsTheFallback()
{
    CorviPeer corvi(LAN_8021X_STATIC, {"eth0"}, SET_UP);
    corvi.WiredDevice()->inFallback = true;
    corvi.NoteWiredUp(false);
    corvi.NoteReconfigured(true);
    // Configuring the device would do the same.
    corvi.disconnect(&corvi, &Corvi::wiredStateChange, &corvi, nullptr);

    corvi.WiredNetworkSetup();

    QVERIFY(!corvi.WiredDevice()->inFallback);
    QVERIFY(corvi.IsReconfigureWanted());
}

void TestCorviWired8021x::linkUpLeavesTheWait()
{
    CorviPeer corvi(LAN_8021X_STATIC, {"eth0"}, SET_UP);
    corvi.SettleSupplicant(RUNNING);
    corvi.WiredDevice()->authWaitTicks = 5;
    corvi.NoteWiredUp(false);

    corvi.WiredNetworkSetup();

    QCOMPARE(corvi.WiredDevice()->authWaitTicks, 5);
}

void TestCorviWired8021x::linkUpWithoutSupplicantLeavesTheFlags_data()
{
    QTest::addColumn<bool>("flag");
    QTest::newRow("set") << true;
    QTest::newRow("clear") << false;
}

void TestCorviWired8021x::linkUpWithoutSupplicantLeavesTheFlags()
{
    QFETCH(bool, flag);
    CorviPeer corvi(LAN_STATIC, {"eth0"}, SET_UP);
    corvi.WiredDevice()->inFallback = flag;
    corvi.NoteReconfigured(!flag);
    corvi.NoteWiredUp(false);
    // Configuring the device clears the fallback.
    corvi.disconnect(&corvi, &Corvi::wiredStateChange, &corvi, nullptr);

    corvi.WiredNetworkSetup();

    QCOMPARE(corvi.WiredDevice()->inFallback, flag);
    QCOMPARE(corvi.IsReconfigureWanted(), flag);
}

void TestCorviWired8021x::supplicantThatPausesIsLeftAlone()
{
    CorviPeer corvi(LAN_8021X_STATIC, {"eth0"}, SET_UP);
    corvi.SettleSupplicant(GONE);
    Supervisor::Pause(2);
    LogFromHere(4);

    corvi.Tick(3);
    QCOMPARE(Decisions(), QStringList());

    Supervisor::Pause(0);
    corvi.Tick();
    QCOMPARE(Decisions().value(0), QString("Corvi::WiredNetworkSetup:: Start Wpa supplicant"));
}

void TestCorviWired8021x::keepFileDoesNotKeepTheSupplicant()
{
    CorviPeer corvi(LAN_STATIC, {"eth0"}, SET_UP);
    corvi.SettleSupplicant(RUNNING);
    WriteFile(KEEP_WIRELESS_FLAG, "");
    LogFromHere(4);

    corvi.Tick();

    QCOMPARE(Decisions(), QStringList{"WpaSuppThread::Stop 6 true 1"});
}

void TestCorviWired8021x::authenticationTogglesTheCount()
{
    CorviPeer corvi(LAN_8021X_STATIC, {"eth0"}, SET_UP);
    corvi.SettleSupplicant(ASSOCIATED);
    corvi.WiredDevice()->authWaitTicks = 42;

    corvi.Tick();
    QCOMPARE(corvi.WiredDevice()->authWaitTicks, 0);
    corvi.Tick();
    QCOMPARE(corvi.WiredDevice()->authWaitTicks, 1);
}

void TestCorviWired8021x::waitIsCountedByTicks()
{
    CorviPeer corvi(LAN_8021X_STATIC, {"eth0"}, SET_UP);
    corvi.SettleSupplicant(RUNNING);

    corvi.Tick(7);

    QCOMPARE(corvi.WiredDevice()->authWaitTicks, 7);
}

void TestCorviWired8021x::announcedPortFallsBackAfterElevenTicks()
{
    CorviPeer corvi(LAN_8021X_STATIC, {"eth0"}, SET_UP);
    NetworkDevice *const device = corvi.WiredDevice();
    device->fallbackEnabled = true;
    QVERIFY(device->ipAnnounced);
    corvi.SettleSupplicant(RUNNING);
    LogFromHere(4);

    corvi.Tick(11);
    QVERIFY(!device->inFallback);
    QCOMPARE(device->authWaitTicks, 11);

    corvi.Tick();
    QVERIFY(device->inFallback);
    QCOMPARE(device->authWaitTicks, 11);
    QCOMPARE(Decisions(), QStringList({"Corvi::WiredNetworkSetup:: Set in fallback mode",
                                       "WpaSuppThread::Stop 0 true 1"}));
    QVERIFY(Supervisor::IsStopRequested());
    QCOMPARE(JournalOf("ifconfig"), QStringList());
}

/// There is no address any more that could be kept.
void TestCorviWired8021x::portWithoutItsAddressWaitsLonger()
{
    CorviPeer corvi(LAN_8021X_STATIC, {"eth0"}, SET_UP);
    NetworkDevice *const device = corvi.WiredDevice();
    device->fallbackEnabled = true;
    QVERIFY(device->ipAnnounced);
    corvi.SettleSupplicant(RUNNING);
    RealIp({"addr", "flush", "dev", "eth0"});

    corvi.Tick(20);

    QVERIFY(!device->inFallback);
    QCOMPARE(device->authWaitTicks, 20);
    QVERIFY(!Supervisor::IsStopRequested());
}

void TestCorviWired8021x::fallbackIsForcedAfterSixtyTicks()
{
    CorviPeer corvi(LAN_8021X_STATIC, {"eth0"}, SET_UP);
    corvi.SettleSupplicant(RUNNING);
    corvi.Tick(60);
    bool wasInFallbackWhenStopped = false;
    connect(WpaSuppThread::GetInstance(), &WpaSuppThread::TriggerStopSupplicant, &corvi,
            [&] { wasInFallbackWhenStopped = corvi.WiredDevice()->inFallback; });
    LogFromHere(4);

    corvi.Tick();

    const QStringList lines = LogLines();
    const auto decision = lines.indexOf("Corvi::WiredNetworkSetup:: Wired 802.1x Fallback");
    QVERIFY(decision != -1);
    QCOMPARE(lines.at(decision + 1), QString("WpaSuppThread::Stop 5 true 1"));
    QCOMPARE(lines.at(decision + 2), QString("NetworkDevice::ConfigureNetwork -- start  eth0"));
    QCOMPARE(JournalOf("ifconfig"), QStringList{"ifconfig eth0 10.1.0.2 netmask 255.255.255.0 up"});
    QVERIFY(Supervisor::IsStopRequested());
    QVERIFY(wasInFallbackWhenStopped);
    // An unsecured attempt now, and authentication again: the configuration clears the flag.
    QVERIFY(!corvi.WiredDevice()->inFallback);
}

void TestCorviWired8021x::fallbackIsNewsAfterAnAuthentication_data()
{
    QTest::addColumn<bool>("isAuthenticated");
    QTest::addColumn<int>("told");
    QTest::newRow("the next attempt fails too") << false << 1;
    QTest::newRow("authenticated in between") << true << 2;
}

void TestCorviWired8021x::fallbackIsNewsAfterAnAuthentication()
{
    QFETCH(bool, isAuthenticated);
    QFETCH(int, told);
    CorviPeer corvi(LAN_8021X_STATIC, {"eth0"}, SET_UP);
    NetworkDevice *const device = corvi.WiredDevice();
    LogFromHere(2);

    for (int i = 0; i < 2; ++i) {
        corvi.SettleSupplicant({true, false, isAuthenticated && i > 0});
        corvi.Tick();
        corvi.SettleSupplicant(RUNNING);
        device->inFallback = false;
        device->fallbackEnabled = true;
        device->authWaitTicks = 11;
        corvi.Tick();
        QVERIFY(device->inFallback);
        device->inFallback = false;
    }

    QCOMPARE(LogCount("Corvi::WiredNetworkSetup:: Set in fallback mode"), told);
}

void TestCorviWired8021x::unreadSuccessPreventsTheFallback_data()
{
    QTest::addColumn<bool>("fallbackEnabled");
    QTest::addColumn<int>("ticks");
    QTest::newRow("a port with an address") << true << 11;
    QTest::newRow("a port without") << false << 60;
}

void TestCorviWired8021x::unreadSuccessPreventsTheFallback()
{
    QFETCH(bool, fallbackEnabled);
    QFETCH(int, ticks);
    FakeSupplicant supplicant(QStringLiteral("eth0"));
    CorviPeer corvi(LAN_8021X_STATIC, {"eth0"}, SET_UP);
    WaitForAuthentication(corvi, fallbackEnabled, ticks);
    LogFromHere(4);

    QVERIFY(supplicant.SendEvent("<3>CTRL-EVENT-CONNECTED - "));
    corvi.WiredNetworkSetup();

    QCOMPARE(Decisions(), QStringList());
    QVERIFY(!corvi.WiredDevice()->inFallback);
    QVERIFY(!Supervisor::IsStopRequested());
    // Authenticated, so the count toggles.
    QCOMPARE(corvi.WiredDevice()->authWaitTicks, 0);
    QCOMPARE(LogCount("NetworkDevice::ConfigureNetwork -- start  eth0"), 1);
}

void TestCorviWired8021x::successDuringTheFallbackKeepsTheSupplicant_data()
{
    unreadSuccessPreventsTheFallback_data();
}

void TestCorviWired8021x::successDuringTheFallbackKeepsTheSupplicant()
{
    QFETCH(bool, fallbackEnabled);
    QFETCH(int, ticks);
    FakeSupplicant supplicant(QStringLiteral("eth0"));
    CorviPeer corvi(LAN_8021X_STATIC, {"eth0"}, SET_UP);
    WaitForAuthentication(corvi, fallbackEnabled, ticks);
    corvi.WiredNetworkSetup();
    QVERIFY(Supervisor::IsStopRequested());

    QVERIFY(supplicant.SendEvent("<3>CTRL-EVENT-CONNECTED - "));
    Supervisor::Tick();

    QVERIFY(!supplicant.Commands().contains("TERMINATE"));
    QVERIFY(!Supervisor::IsStopRequested());
    // The port is not left in its fallback, and the next ticks find it authenticated.
    QVERIFY(!corvi.WiredDevice()->inFallback);
    LogFromHere(4);
    corvi.Tick(3);
    QCOMPARE(Decisions(), QStringList());
}

/// The radio is told of the success, as whoever is kept up is; the port must not stay in its fallback.
void TestCorviWired8021x::successDuringTheFallbackCountsBesideAKeptRadio()
{
    FakeSupplicant supplicant(QStringLiteral("eth0"));
    CorviPeer corvi(LAN_8021X_STATIC, {"eth0", "wlan0"}, SET_UP);
    corvi.AdoptWireless("wlan0");
    WriteFile(KEEP_WIRELESS_FLAG, "");
    WaitForAuthentication(corvi, true, 11);
    corvi.WiredNetworkSetup();
    QVERIFY(corvi.WiredDevice()->inFallback);

    QVERIFY(supplicant.SendEvent("<3>CTRL-EVENT-CONNECTED - "));
    Supervisor::Tick();
    corvi.Tick();

    QVERIFY(!Supervisor::IsStopRequested());
    QVERIFY(!corvi.WiredDevice()->inFallback);
    LogFromHere(4);
    corvi.Tick(3);
    QCOMPARE(Decisions(), QStringList());
}

void TestCorviWired8021x::droppedSuccessCounts()
{
    FakeSupplicant supplicant(QStringLiteral("eth0"));
    DropBeforeTheStatus(supplicant, "<3>CTRL-EVENT-CONNECTED - ", "wpa_state=COMPLETED\n");
    CorviPeer corvi(LAN_8021X_STATIC, {"eth0"}, SET_UP);
    corvi.SettleSupplicant(RUNNING);
    Supervisor::Connect(QStringLiteral("eth0"));
    Supervisor::AskForStatus();
    EventListener listener;
    Forget();

    Supervisor::Tick();
    corvi.Tick(2);

    QCOMPARE(listener.Take(), Events({ASSOCIATION_UP, ADDRESS_PRESENT}));
    QCOMPARE(JournalOf("ifconfig"), QStringList{"ifconfig eth0 10.1.0.2 netmask 255.255.255.0 up"});
}

void TestCorviWired8021x::droppedEndIsTold()
{
    FakeSupplicant supplicant(QStringLiteral("eth0"));
    DropBeforeTheStatus(supplicant, "<3>CTRL-EVENT-DISCONNECTED reason=3", "wpa_state=DISCONNECTED\n");
    CorviPeer corvi(LAN_8021X_STATIC, {"eth0"}, SET_UP);
    corvi.SettleSupplicant(RUNNING);
    Supervisor::Connect(QStringLiteral("eth0"));
    Supervisor::Hear(QStringLiteral("<3>CTRL-EVENT-CONNECTED - "));
    Supervisor::AskForStatus();
    EventListener listener;

    Supervisor::Tick();
    corvi.Tick(2);

    QCOMPARE(listener.Take(), Events({ASSOCIATION_DOWN}));
}

void TestCorviWired8021x::portInFallbackIsLeftAlone()
{
    CorviPeer corvi(LAN_8021X_STATIC, {"eth0"}, SET_UP);
    corvi.WiredDevice()->inFallback = true;
    corvi.WiredDevice()->authWaitTicks = 5;
    Supervisor::Set(GONE);
    LogFromHere(4);

    corvi.Tick(3);

    QCOMPARE(Decisions(), QStringList());
    QCOMPARE(corvi.WiredDevice()->authWaitTicks, 5);
    QVERIFY(corvi.WiredDevice()->inFallback);

    // The cable out and in again ends it.
    corvi.WiredDevice()->fallbackEnabled = true;
    PullCable("eth0");
    corvi.Tick();
    QVERIFY(!corvi.WiredDevice()->inFallback);
}

QTEST_GUILESS_MAIN(TestCorviWired8021x)
#include "tst_corvi_wired_8021x.moc"
