// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "corvipeer.h"
#include "managersocket.h"

#include <QDir>
#include <QProcess>
#include <QScopeGuard>

using namespace CorviWorld;
using namespace TestSupport;

/// The starts of the supplicant, each of which takes the 7.1 s that the old one is given to end.
class TestCorviRestart : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { qputenv("CORVI_JOURNAL", "1"); } // asked for once, with the first line
    void init();

    void thirdCallStartsTheSupplicant();
    void startNamesAnotherSupplicant();
    void reloadAuthenticatesAgain();
    void wirelessStartsTheSupplicantAfterTheHoldOff();
    void supplicantThatCannotStartIsToldOfOnce_data();
    void supplicantThatCannotStartIsToldOfOnce();
};

void TestCorviRestart::init()
{
    StartFromNothing();
}

void TestCorviRestart::thirdCallStartsTheSupplicant()
{
    // A Wi-Fi network beside it stays out of the file.
    MakeMachine(WLAN_AND_8021X, {"eth0", "wlan0"});
    EventListener listener;
    CorviPeer corvi(SET_UP);
    NetworkDevice *const device = corvi.Device("eth0");
    corvi.BeginHoldOff();
    corvi.ReconfigureWpa(device);
    corvi.ReconfigureWpa(device);
    QCOMPARE(JournalOf("wpa_supplicant"), QStringList());
    device->authWaitTicks = 7;
    device->inFallback = true;
    Remove(SUPPLICANT_FILE);
    listener.Take();
    LogFromHere(4);

    corvi.ReconfigureWpa(device);

    const QStringList own =
        LogLines().filter(QRegularExpression("^(Corvi::Reconf|WpaSuppThread::Sto|WpaSuppThread::Start )"));
    QCOMPARE(own, QStringList({"Corvi::ReconfigureWpa 0", "Corvi::ReconfigureWpa Start wst eth0 wired",
                               "WpaSuppThread::Stop 1 false 0", "WpaSuppThread::Start eth0 wired ",
                               "WpaSuppThread::Start -- Start wpa_supplicant",
                               "Corvi::ReconfigureWpa Set reconfigureWpa to false"}));
    QCOMPARE(
        JournalOf("wpa_supplicant"),
        QStringList{
            "wpa_supplicant -B '' -ieth0 -Dwired -c/tmp/wpa_supplicant.conf -f/var/log/wpa_supplicant.log"});
    QVERIFY(ReadFile(SUPPLICANT_FILE).contains("IEEE8021X"));
    QVERIFY(!ReadFile(SUPPLICANT_FILE).contains("Office"));
    QVERIFY(!corvi.IsReconfigureWanted());
    QCOMPARE(device->authWaitTicks, 0);
    QVERIFY(!device->inFallback);
    // The supervisor reports the association that the stop ended.
    QCOMPARE(listener.Take(), Events({ASSOCIATION_DOWN}));
    QCOMPARE(corvi.HoldOff(), 0);

    corvi.Tick(2);
    QCOMPARE(corvi.HoldOff(), 0);

    // What it says from here on is about the definition that it was started for.
    QVERIFY(QDir().mkpath("/run/systemd/journal"));
    const auto folder = qScopeGuard([] { Remove("/run/systemd/journal"); });
    ManagerSocket journal("/run/systemd/journal/socket");
    QVERIFY(journal.bound);
    WpaSuppThread::GetInstance()->MessageReceived("<3>CTRL-EVENT-EAP-STARTED EAP authentication started");
    QByteArray told;
    do {
        told = journal.Heard();
        QVERIFY(!told.isEmpty());
    } while (!told.contains("EAP-STARTED"));
    QVERIFY2(told.contains("\nINTERFACE=eth0\nDEFINITION=lan\nMESSAGE=WpaSuppThread::MessageReceived"),
             told.constData());
}

void TestCorviRestart::startNamesAnotherSupplicant()
{
    MakeMachine(WLAN_AND_8021X, {"eth0"});
    CorviPeer corvi(SET_UP);
    QProcess another;
    another.start("bash", {"-c", "exec -a wpa_supplicant bash -c 'echo up; read line' -ieth0"});
    QVERIFY(another.waitForReadyRead());

    for (int call = 1; call <= 3; ++call)
        corvi.ReconfigureWpa(corvi.Device("eth0"));

    QCOMPARE(JournalOf("wpa_supplicant").size(), 1);
    QCOMPARE(LogLines().filter("managed by others, too: wpa_supplicant (eth0)").size(), 1);
    another.closeWriteChannel();
    QVERIFY(another.waitForFinished());
}

void TestCorviRestart::reloadAuthenticatesAgain()
{
    CorviPeer corvi(LAN_8021X_STATIC, {"eth0"}, SET_UP);
    corvi.SettleSupplicant(ASSOCIATED);
    WriteFile(DEBUG_FLAG, "");
    WriteFile(RELOAD_FLAG, "");
    Forget();

    corvi.Tick(2);
    QCOMPARE(LogLines().filter("WpaSuppThread::Stop").value(0), QString("WpaSuppThread::Stop 6 true 1"));
    // As the supervisor's next tick does it.
    Supervisor::Set(GONE);
    corvi.Tick(3);

    QCOMPARE(JournalOf("wpa_supplicant").size(), 1);
}

void TestCorviRestart::wirelessStartsTheSupplicantAfterTheHoldOff()
{
    MakeMachine(WLAN, {"wlan0"});
    PullCable("wlan0");
    CorviPeer corvi;

    // The rescan, two ticks of delay, the first bring-up and the rest of the hold-off.
    corvi.Tick(5);
    QCOMPARE(JournalOf("wpa_supplicant"), QStringList());
    QVERIFY(corvi.IsReconfigureWanted());

    corvi.Tick();

    QCOMPARE(JournalOf("wpa_supplicant"),
             QStringList{"wpa_supplicant -B '' -iwlan0 -Dwext,nl80211 -c/tmp/wpa_supplicant.conf "
                         "-f/var/log/wpa_supplicant.log"});
    QVERIFY(!corvi.IsReconfigureWanted());
    QVERIFY(WpaSuppThread::GetInstance()->IsRestarting());

    // It is on its way: nothing is started again.
    corvi.Tick(3);
    QCOMPARE(JournalOf("wpa_supplicant").size(), 1);
}

void TestCorviRestart::supplicantThatCannotStartIsToldOfOnce_data()
{
    QTest::addColumn<bool>("isInstalled");
    QTest::newRow("not installed") << false;
    QTest::newRow("refuses the driver") << true;
}

void TestCorviRestart::supplicantThatCannotStartIsToldOfOnce()
{
    QFETCH(bool, isInstalled);
    if (isInstalled)
        Answer("wpa_supplicant", "echo 'wlan0: Unsupported driver' >&2; exit 255");
    else
        RemoveProgram("wpa_supplicant");
    MakeMachine(WLAN, {"wlan0"});
    PullCable("wlan0");
    CorviPeer corvi;
    // Up to the first start, which is over when the tick returns.
    corvi.Tick(6);
    ClearLog();

    for (int tick = 0; tick < 60; ++tick) {
        WpaSuppThread::GetInstance()->MyTimerTimeout();
        corvi.Tick();
    }

    QCOMPARE(Logging::CurrentLevel(), 2);
    const QStringList lines = LogLines();
    // A few for each start, of which there are two at the most in this time; none on every tick.
    QVERIFY2(!lines.isEmpty() && lines.size() <= 4, qPrintable(lines.join('\n')));
}

QTEST_GUILESS_MAIN(TestCorviRestart)
#include "tst_corvi_restart.moc"
