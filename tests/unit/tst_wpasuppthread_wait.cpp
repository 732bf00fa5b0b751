// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "fastclock.h"
#include "wpasuppthreadpeer.h"

#include <QTest>

/// What a supplicant is given to end, without waiting for it.
class TestWpaSuppThreadWait : public QObject
{
    Q_OBJECT
private slots:
    void waitsLongerForOneThatRuns_data();
    void waitsLongerForOneThatRuns();
};

void TestWpaSuppThreadWait::waitsLongerForOneThatRuns_data()
{
    QTest::addColumn<bool>("running");
    QTest::addColumn<bool>("restarting");
    QTest::addColumn<int>("waitedMs");
    QTest::newRow("nothing runs") << false << false << 100;
    QTest::newRow("one runs") << true << false << 7100;
    QTest::newRow("one is started anew") << false << true << 7100;
}

void TestWpaSuppThreadWait::waitsLongerForOneThatRuns()
{
    QFETCH(bool, running);
    QFETCH(bool, restarting);
    WpaSuppThreadPeer supervisor;
    supervisor.Become({running, restarting, false});
    const auto before = FastClock::Ahead();

    supervisor.WaitForSupplicantToEnd();

    const auto waited = std::chrono::duration_cast<std::chrono::milliseconds>(FastClock::Ahead() - before);
    QTEST(static_cast<int>(waited.count()), "waitedMs");
}

QTEST_GUILESS_MAIN(TestWpaSuppThreadWait)
#include "tst_wpasuppthread_wait.moc"
