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
    void saysWhenTheNextAttemptIsDue();
    void pausesGrowToAMinute();
    void attemptStaysDueUntilItIsMade();
    void resetStartsAnew();
    void pauseRunsFromTheEndOfTheAttempt();
    void firstAttemptMayBeAtOnce();
    void pausesGrowAfterTheAttemptAtOnce();
    void successStartsAnew();
    void successWithoutAnAttemptChangesNothing();
    void whatIsUndoneAgainAndAgainWaits();
    void quickAttemptsComeBackAfterAMinute();
    void attemptBeforeAResetHasNoSuccess();
    void successCountsOnceForEachAttempt();

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

void TestRetryPause::saysWhenTheNextAttemptIsDue()
{
    RetryPause pause;
    QVERIFY(!pause.Due());

    pause.IsDue(start);
    QVERIFY(pause.Due() == start + seconds(10));
    pause.NoteAttempt(start + seconds(12));
    QVERIFY(pause.Due() == start + seconds(32));
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

void TestRetryPause::firstAttemptMayBeAtOnce()
{
    RetryPause pause(RetryPause::First::AT_ONCE);

    QVERIFY(pause.IsDue(start));
}

void TestRetryPause::pausesGrowAfterTheAttemptAtOnce()
{
    RetryPause pause(RetryPause::First::AT_ONCE);
    RetryPause::Time now = start;
    pause.NoteAttempt(now);

    for (const int expected : {10, 20, 40, 60, 60}) {
        QVERIFY(!pause.IsDue(now + seconds(expected) - milliseconds(1)));
        now += seconds(expected);
        QVERIFY(pause.IsDue(now));
        pause.NoteAttempt(now);
    }
}

void TestRetryPause::successStartsAnew()
{
    RetryPause pause(RetryPause::First::AT_ONCE);
    pause.NoteAttempt(start);
    pause.NoteAttempt(start);

    pause.NoteSuccess(start + seconds(1));

    QVERIFY(pause.IsDue(start + seconds(2)));
}

void TestRetryPause::successWithoutAnAttemptChangesNothing()
{
    RetryPause pause;
    pause.IsDue(start);

    for (int i = 0; i < 5; ++i)
        pause.NoteSuccess(start + seconds(i));

    QVERIFY(pause.IsDue(start + seconds(10)));
}

/// Three times at once, then after the pause.
void TestRetryPause::whatIsUndoneAgainAndAgainWaits()
{
    RetryPause pause(RetryPause::First::AT_ONCE);
    RetryPause::Time now = start;
    for (int i = 0; i < 4; ++i) {
        QVERIFY(pause.IsDue(now));
        pause.NoteAttempt(now);
        pause.NoteSuccess(now);
        now += seconds(1);
    }

    QVERIFY(!pause.IsDue(now));
    QVERIFY(!pause.IsDue(start + seconds(3 + 10) - milliseconds(1)));
    QVERIFY(pause.IsDue(start + seconds(3 + 10)));
}

void TestRetryPause::quickAttemptsComeBackAfterAMinute()
{
    RetryPause pause(RetryPause::First::AT_ONCE);
    for (int i = 0; i < 5; ++i) {
        pause.NoteAttempt(start);
        pause.NoteSuccess(start);
    }

    pause.NoteAttempt(start + seconds(60));
    pause.NoteSuccess(start + seconds(60));
    QVERIFY(!pause.IsDue(start + seconds(60)));

    const RetryPause::Time later = start + seconds(60) + milliseconds(1);
    for (const bool isQuick : {true, true, true, false}) {
        pause.NoteAttempt(later);
        pause.NoteSuccess(later);
        QCOMPARE(pause.IsDue(later), isQuick);
    }
}

void TestRetryPause::attemptBeforeAResetHasNoSuccess()
{
    RetryPause pause;
    pause.NoteAttempt(start);
    pause.Reset();
    pause.IsDue(start);

    pause.NoteSuccess(start + seconds(1));

    QVERIFY(pause.Due());
}

void TestRetryPause::successCountsOnceForEachAttempt()
{
    RetryPause pause(RetryPause::First::AT_ONCE);
    for (int i = 0; i < 4; ++i) {
        pause.NoteAttempt(start);
        pause.NoteSuccess(start);
    }

    // As at each look at what lasts.
    pause.NoteSuccess(start + seconds(61));

    QVERIFY(pause.Due());
}

QTEST_APPLESS_MAIN(TestRetryPause)
#include "tst_retrypause.moc"
