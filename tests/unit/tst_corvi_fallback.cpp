// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "corvipeer.h"
#include "eapolpeer.h"
#include "fastclock.h"

#include <chrono>

using namespace CorviWorld;
using namespace TestSupport;
using namespace std::chrono_literals;

/// A port in its 802.1X fallback whose switch asks who we are. The supervisor's state is set by hand.
class TestCorviFallback : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { StartFromNothing(); }

    void authenticatorThatAsksEndsTheFallback();
    void fallbackOfTheNextLinkHasNoPause();
    void portThatNobodyKnowsToBeClosedStaysInItsFallback_data();
    void portThatNobodyKnowsToBeClosedStaysInItsFallback();

private:
    static bool IsEndedBySwitch(CorviPeer &corvi);
};

/// Whether the switch, which asks once, ends the fallback of a port whose gateway is silent. The least looks
/// that it takes do not.
bool TestCorviFallback::IsEndedBySwitch(CorviPeer &corvi)
{
    corvi.WiredDevice()->inFallback = true;
    Supervisor::Set(GONE);
    corvi.Tick();
    FastClock::Advance(10s);
    corvi.Tick();
    AskAtTheFarEnd();
    corvi.Tick(9);
    return corvi.WiredDevice()->inFallback && QTest::qWaitFor([&corvi] {
               corvi.WiredNetworkSetup();
               return !corvi.WiredDevice()->inFallback;
           });
}

/// The gateway is silent: the port is closed.
void TestCorviFallback::authenticatorThatAsksEndsTheFallback()
{
    CorviPeer corvi(LAN_8021X_STATIC, {"eth0"}, SET_UP);
    LogFromHere(2);

    QVERIFY(IsEndedBySwitch(corvi));

    QCOMPARE(LogLines().filter("the fallback ends on eth0").size(), 1);
}

/// At another one, an end before has nothing to say.
void TestCorviFallback::fallbackOfTheNextLinkHasNoPause()
{
    CorviPeer corvi(LAN_8021X_STATIC, {"eth0"}, SET_UP);
    QVERIFY(IsEndedBySwitch(corvi));
    PullCable("eth0");
    corvi.Tick();
    PlugCable("eth0");
    corvi.Tick();

    QVERIFY(IsEndedBySwitch(corvi));
}

void TestCorviFallback::portThatNobodyKnowsToBeClosedStaysInItsFallback_data()
{
    QTest::addColumn<QByteArray>("gateway");

    QTest::newRow("opened for guests: the gateway answers") << QByteArray("10.1.0.1");
    QTest::newRow("the gateway is ourselves") << QByteArray("10.1.0.2");
    QTest::newRow("the gateway is out of reach") << QByteArray("192.0.2.1");
}

void TestCorviFallback::portThatNobodyKnowsToBeClosedStaysInItsFallback()
{
    QFETCH(QByteArray, gateway);
    CorviPeer corvi(QByteArray(LAN_8021X_STATIC).replace("10.1.0.1", gateway), {"eth0"}, SET_UP);
    RealIp({"-n", "far", "addr", "add", "10.1.0.1/24", "dev", "far-eth0"});
    corvi.WiredDevice()->inFallback = true;
    Supervisor::Set(GONE);
    LogFromHere(2);
    corvi.Tick();

    for (int i = 0; i < 100; ++i) {
        FastClock::Advance(2s);
        AskAtTheFarEnd();
        corvi.Tick();
        QVERIFY(corvi.WiredDevice()->inFallback);
    }

    QCOMPARE(LogLines().filter("asked to authenticate"), QStringList());
}

QTEST_GUILESS_MAIN(TestCorviFallback)
#include "tst_corvi_fallback.moc"
