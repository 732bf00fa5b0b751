// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "corvipeer.h"
#include "eapolpeer.h"
#include "fastclock.h"

#include <chrono>
#include <thread>

#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

using namespace CorviWorld;
using namespace TestSupport;
using namespace std::chrono_literals;

namespace {

/// As an authenticator in the switch does.
void AskAtTheFarEnd()
{
    bool isSent = false;
    // The far end has a network of its own, which a thread can be in.
    std::thread([&isSent] {
        const int network = ::open("/run/netns/far", O_RDONLY | O_CLOEXEC);
        isSent = ::setns(network, CLONE_NEWNET) == 0 && SendEapol("far-eth0", EAP_REQUEST);
        ::close(network);
    }).join();
    QVERIFY(isSent);
}

} // namespace

/// A port in its 802.1X fallback whose switch asks who we are. The supervisor's state is set by hand.
class TestCorviFallback : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { StartFromNothing(); }

    void authenticatorThatAsksEndsTheFallback();
    void portOfAGatewayThatAnswersStaysInItsFallback();
};

/// The gateway is silent: the port is closed. What is asked before the pause is over does not count.
void TestCorviFallback::authenticatorThatAsksEndsTheFallback()
{
    CorviPeer corvi(LAN_8021X_STATIC, {"eth0"}, SET_UP);
    NetworkDevice *const device = corvi.WiredDevice();
    Supervisor::Set(GONE);
    LogFromHere(2);

    // Each attempt that leads into the fallback again has a longer pause.
    for (const auto pause : {10s, 20s, 40s, 60s, 60s}) {
        device->inFallback = true;
        corvi.Tick();
        AskAtTheFarEnd();
        corvi.Tick(12);
        QVERIFY(device->inFallback);
        FastClock::Advance(pause);
        corvi.Tick(12);
        QVERIFY(device->inFallback);

        AskAtTheFarEnd();
        corvi.Tick(9);
        QVERIFY(device->inFallback);

        QVERIFY(QTest::qWaitFor([&] {
            corvi.WiredNetworkSetup();
            return !device->inFallback;
        }));
    }
    QCOMPARE(LogLines().filter("the fallback ends on eth0").size(), 1);
}

/// As a switch does at a port that it has opened for guests.
void TestCorviFallback::portOfAGatewayThatAnswersStaysInItsFallback()
{
    CorviPeer corvi(LAN_8021X_STATIC, {"eth0"}, SET_UP);
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
