// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "fastclock.h"
#include "sleeptime.h"

#include <QtTest>

using namespace std::chrono_literals;

/// How long the machine has slept.
class TestSleepTime : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void growsByASleepAlone();
};

void TestSleepTime::growsByASleepAlone()
{
    const std::chrono::nanoseconds before = TimeAsleep();

    FastClock::Advance(1h);
    FastClock::Sleep(90s);

    // The clocks are read one after the other, and this process may be interrupted in between.
    const std::chrono::nanoseconds slept = TimeAsleep() - before;
    QVERIFY2(slept > 80s && slept < 100s, qPrintable(QString::number(slept.count())));
}

QTEST_GUILESS_MAIN(TestSleepTime)
#include "tst_sleeptime.moc"
