// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "corvipeer.h"

using namespace CorviWorld;
using namespace TestSupport;

/// The starts of the supplicant, each of which takes the 7.1 s that the old one is given to end.
class TestCorviRestart : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void thirdCallStartsTheSupplicant();
    void wirelessStartsTheSupplicantAfterTheHoldOff();
};

void TestCorviRestart::init()
{
    StartFromNothing();
}

void TestCorviRestart::thirdCallStartsTheSupplicant()
{
    MakeMachine(LAN_8021X, {"eth0"});
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
    QVERIFY(!corvi.IsReconfigureWanted());
    QCOMPARE(device->authWaitTicks, 0);
    QVERIFY(!device->inFallback);
    // The supervisor reports the association that the stop ended.
    QCOMPARE(listener.Take(), Events({ASSOCIATION_DOWN}));
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

QTEST_GUILESS_MAIN(TestCorviRestart)
#include "tst_corvi_restart.moc"
