// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "retrypause.h"

#include <QtTest>

using std::chrono::milliseconds;
using std::chrono::seconds;

/// When the next attempt is due.
class TestRetryPause : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void firstCallStartsThePause();
    void pausesGrowToAMinute();
    void attemptStaysDueUntilItIsMade();
    void resetStartsAnew();
    void pauseRunsFromTheEndOfTheAttempt();

private:
    const RetryPause::Time start{seconds(1000)};
};

void TestRetryPause::firstCallStartsThePause()
{
    RetryPause pause;

    QVERIFY(!pause.IsDue(start));
    QVERIFY(!pause.IsDue(start + seconds(10) - milliseconds(1)));
    QVERIFY(pause.IsDue(start + seconds(10)));
}

void TestRetryPause::pausesGrowToAMinute()
{
    RetryPause pause;
    RetryPause::Time now = start;
    pause.IsDue(now);

    for (const int expected : {10, 20, 40, 60, 60, 60}) {
        QVERIFY(!pause.IsDue(now + seconds(expected) - milliseconds(1)));
        now += seconds(expected);
        QVERIFY(pause.IsDue(now));
        pause.NoteAttempt(now);
    }
}

void TestRetryPause::attemptStaysDueUntilItIsMade()
{
    RetryPause pause;
    pause.IsDue(start);

    QVERIFY(pause.IsDue(start + seconds(11)));
    QVERIFY(pause.IsDue(start + seconds(12)));
}

void TestRetryPause::resetStartsAnew()
{
    RetryPause pause;
    pause.IsDue(start);
    pause.NoteAttempt(start);
    pause.NoteAttempt(start);

    pause.Reset();

    QVERIFY(!pause.IsDue(start + seconds(500)));
    QVERIFY(pause.IsDue(start + seconds(510)));
}

void TestRetryPause::pauseRunsFromTheEndOfTheAttempt()
{
    RetryPause pause;
    pause.IsDue(start);
    QVERIFY(pause.IsDue(start + seconds(10)));

    pause.NoteAttempt(start + seconds(40));

    QVERIFY(!pause.IsDue(start + seconds(59)));
    QVERIFY(pause.IsDue(start + seconds(60)));
}

QTEST_APPLESS_MAIN(TestRetryPause)
#include "tst_retrypause.moc"
