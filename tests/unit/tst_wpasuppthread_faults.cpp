// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

// What lasts: the pauses between starts that fail, and what the log says of it.

#include "fakesupplicant.h"
#include "logging.h"
#include "testsupport.h"
#include "wpasuppthreadpeer.h"

#include <QCoreApplication>
#include <QTest>

#include <functional>
#include <memory>

namespace {

const QString CONFIGURATION = QStringLiteral("/tmp/wpa_supplicant.conf");
using Act = std::function<void(WpaSuppThreadPeer &)>;

int PauseOf(WpaSuppThreadPeer &supervisor)
{
    int ticks = 0;
    for (; supervisor.IsPausing(); ++ticks)
        supervisor.Tick();
    return ticks;
}

/// A start that fails: there is no file.
void FailToStart(WpaSuppThreadPeer &supervisor)
{
    TestSupport::Remove(CONFIGURATION);
    supervisor.LaunchSupplicant();
}

void Hear(WpaSuppThreadPeer &supervisor, const char *event)
{
    supervisor.MessageReceived(QString::fromLatin1(event));
}

} // namespace

Q_DECLARE_METATYPE(Act)

class TestWpaSuppThreadFaults : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup();

    void pausesLongerAfterEachFailure();
    void countsAsAFailedStart_data();
    void countsAsAFailedStart();
    void countsAsAGoodStart_data();
    void countsAsAGoodStart();
    void tellsWhenItTriesAgain();
    void tellsALastingFaultOnce_data();
    void tellsALastingFaultOnce();
    void tellsAgainAfterItWasMended();

private:
    std::unique_ptr<FakeSupplicant> supplicant;
    std::unique_ptr<WpaSuppThreadPeer> supervisor;
};

void TestWpaSuppThreadFaults::init()
{
    Logging::GetInstance(Logging::KEEP_LEVEL, false)->SetLoggingLevel(Level::NOTICE);
    TestSupport::ClearLog();
    TestSupport::ClearJournal();
    TestSupport::ClearAnswers();
    TestSupport::WriteFile(CONFIGURATION, "ctrl_interface=/var/run/wpa_supplicant\n");
    supplicant = std::make_unique<FakeSupplicant>();
    supervisor = std::make_unique<WpaSuppThreadPeer>();
}

void TestWpaSuppThreadFaults::cleanup()
{
    supervisor.reset();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    supplicant.reset();
    TestSupport::Remove(QStringLiteral("/var/run/wpa_supplicant"));
}

void TestWpaSuppThreadFaults::pausesLongerAfterEachFailure()
{
    for (const int expected : {0, 10, 20, 40, 60, 60}) {
        FailToStart(*supervisor);
        QCOMPARE(PauseOf(*supervisor), expected);
    }
}

void TestWpaSuppThreadFaults::countsAsAFailedStart_data()
{
    QTest::addColumn<Act>("fail");
    QTest::newRow("no file") << Act(FailToStart);
    QTest::newRow("never reached") << Act([this](WpaSuppThreadPeer &peer) {
        supplicant.reset();
        peer.Supervise();
        peer.Tick(32);
    });
    QTest::newRow("ended at once") << Act([](WpaSuppThreadPeer &peer) {
        peer.Supervise();
        Hear(peer, "<3>CTRL-EVENT-TERMINATING ");
        peer.Tick();
    });
    QTest::newRow("ended before the proof") << Act([](WpaSuppThreadPeer &peer) {
        peer.Supervise();
        peer.Tick(59);
        Hear(peer, "<3>CTRL-EVENT-TERMINATING ");
        peer.Tick();
    });
    QTest::newRow("ended early, not as the one before") << Act([](WpaSuppThreadPeer &peer) {
        peer.Supervise();
        peer.Tick(59);
        peer.TakeOverRequest();
        peer.Supervise();
        peer.Tick();
        Hear(peer, "<3>CTRL-EVENT-TERMINATING ");
        peer.Tick();
    });
}

void TestWpaSuppThreadFaults::countsAsAFailedStart()
{
    QFETCH(Act, fail);
    FailToStart(*supervisor);
    QVERIFY(!supervisor->IsPausing());

    fail(*supervisor);

    QVERIFY(!supervisor->IsRunning());
    QVERIFY(supervisor->IsPausing());
}

void TestWpaSuppThreadFaults::countsAsAGoodStart_data()
{
    QTest::addColumn<Act>("succeed");
    QTest::newRow("connected") << Act([](WpaSuppThreadPeer &peer) {
        peer.Supervise();
        Hear(peer, "<3>CTRL-EVENT-CONNECTED - ");
    });
    QTest::newRow("connected, by the status") << Act([](WpaSuppThreadPeer &peer) {
        peer.Supervise();
        peer.TakeForAssociated();
        peer.Tick();
    });
    QTest::newRow("there for a minute") << Act([](WpaSuppThreadPeer &peer) {
        peer.Supervise();
        peer.Tick(60);
    });
}

void TestWpaSuppThreadFaults::countsAsAGoodStart()
{
    QFETCH(Act, succeed);
    for (int i = 0; i < 4; ++i)
        FailToStart(*supervisor);

    succeed(*supervisor);
    Hear(*supervisor, "<3>CTRL-EVENT-TERMINATING ");
    supervisor->Tick(41); // What is left of the pause before.

    QVERIFY(!supervisor->IsPausing());
    // The next failure is a first one.
    supervisor->TakeOverRequest();
    FailToStart(*supervisor);
    QVERIFY(!supervisor->IsPausing());
    FailToStart(*supervisor);
    QVERIFY(supervisor->IsPausing());
}

void TestWpaSuppThreadFaults::tellsWhenItTriesAgain()
{
    supervisor->Request(QStringLiteral("eth0"));

    for (int i = 0; i < 5; ++i)
        FailToStart(*supervisor);

    const QString text = TestSupport::LogText();
    QVERIFY(text.contains(" :  WpaSuppThread -- No supplicant stays on eth0 - next try in 10 s, see "
                          "/var/log/wpa_supplicant.log \n"));
    QCOMPARE(text.count("next try"), 1);
}

void TestWpaSuppThreadFaults::tellsALastingFaultOnce_data()
{
    QTest::addColumn<Act>("round");
    QTest::newRow("no file") << Act(FailToStart);
    QTest::newRow("the supplicant refuses its file") << Act([this](WpaSuppThreadPeer &peer) {
        supplicant.reset();
        TestSupport::Answer(QStringLiteral("wpa_supplicant"), "echo Line 7: unknown field");
        peer.LaunchSupplicant();
        peer.Tick(40);
    });
    QTest::newRow("the supplicant says goodbye") << Act([](WpaSuppThreadPeer &peer) {
        peer.Supervise();
        Hear(peer, "<3>CTRL-EVENT-CONNECTED - ");
        Hear(peer, "<3>CTRL-EVENT-TERMINATING ");
        peer.Tick(2);
    });
    QTest::newRow("the supplicant dies") << Act([](WpaSuppThreadPeer &peer) {
        FakeSupplicantProcess mortal;
        peer.Supervise();
        Hear(peer, "<3>CTRL-EVENT-CONNECTED - ");
        mortal.Kill();
        peer.Tick(2);
    });
    QTest::newRow("wrong password on Wi-Fi") << Act([](WpaSuppThreadPeer &peer) {
        peer.Supervise();
        Hear(peer, "<3>CTRL-EVENT-SSID-TEMP-DISABLED id=0 ssid=\"MyNet\" auth_failures=1");
        peer.Tick();
        Hear(peer, "<3>CTRL-EVENT-DISCONNECTED bssid=02:00:00:00:01:00 reason=15");
    });
    QTest::newRow("wrong password on the cable") << Act([](WpaSuppThreadPeer &peer) {
        peer.Supervise(QStringLiteral("wlan0"), QStringLiteral("wired"));
        Hear(peer, "<3>CTRL-EVENT-EAP-FAILURE EAP authentication failed");
        Hear(peer, "<3>CTRL-EVENT-SSID-TEMP-DISABLED id=0 ssid=\"\" auth_failures=1");
        peer.Stop(WpaSuppThread::STOP_FALLBACK);
        peer.Tick();
    });
    QTest::newRow("an access point that flaps") << Act([](WpaSuppThreadPeer &peer) {
        peer.Supervise();
        Hear(peer, "<3>CTRL-EVENT-CONNECTED - ");
        Hear(peer, "<3>CTRL-EVENT-DISCONNECTED bssid=02:00:00:00:01:00 reason=3");
    });
    QTest::newRow("a socket that is lost") << Act([this](WpaSuppThreadPeer &peer) {
        supplicant = std::make_unique<FakeSupplicant>();
        peer.Supervise();
        supplicant->Die();
        peer.Tick(33);
    });
}

void TestWpaSuppThreadFaults::tellsALastingFaultOnce()
{
    QFETCH(Act, round);

    for (int i = 0; i < 100; ++i)
        round(*supervisor);

    const auto lines = TestSupport::LogText().count(QLatin1Char('\n'));
    QVERIFY2(lines >= 1 && lines <= 14, qPrintable(TestSupport::LogText()));
}

void TestWpaSuppThreadFaults::tellsAgainAfterItWasMended()
{
    const auto failures = [] {
        return TestSupport::LogText().count(QStringLiteral("INVALID PASSWORD FOR NETWORK MyNet"));
    };
    const char wrong[] = "<3>CTRL-EVENT-SSID-TEMP-DISABLED id=0 ssid=\"MyNet\" auth_failures=1";
    Hear(*supervisor, wrong);
    Hear(*supervisor, wrong);
    QCOMPARE(failures(), 1);

    Hear(*supervisor, "<3>CTRL-EVENT-CONNECTED - ");
    Hear(*supervisor, wrong);

    QCOMPARE(failures(), 2);
}

QTEST_GUILESS_MAIN(TestWpaSuppThreadFaults)
#include "tst_wpasuppthread_faults.moc"
