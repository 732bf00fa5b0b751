// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

// How long a request may take, by a clock that only its own waits put forward: to the step, and at once.

#include "wpactrl.h"

#include "ctrlconnection.h"
#include "fakesupplicant.h"
#include "testsupport.h"

#include <QTest>

#include <chrono>
#include <ctime>
#include <memory>

#include <dlfcn.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using std::chrono::seconds;

namespace {

/// Of the request's own thread: the supplicant's keeps the time of the machine.
thread_local bool isTimed = false;
nanoseconds now{0};
QVector<nanoseconds> sleeps;

timespec AsTimespec(nanoseconds time)
{
    const auto whole = std::chrono::duration_cast<seconds>(time);
    return {static_cast<time_t>(whole.count()), static_cast<long>((time - whole).count())};
}

} // namespace

extern "C" int clock_gettime(clockid_t clock, timespec *result) noexcept
{
    if (!isTimed)
        return static_cast<int>(::syscall(SYS_clock_gettime, clock, result));
    *result = AsTimespec(now);
    return 0;
}

extern "C" int nanosleep(const timespec *time, timespec *rest)
{
    if (!isTimed)
        return static_cast<int>(::syscall(SYS_nanosleep, time, rest));
    sleeps << seconds(time->tv_sec) + nanoseconds(time->tv_nsec);
    now += sleeps.last();
    return 0;
}

/// A wait in which nothing comes.
extern "C" int poll(pollfd *entries, nfds_t count, int timeoutMs)
{
    using Poll = int (*)(pollfd *, nfds_t, int);
    static const auto real = reinterpret_cast<Poll>(::dlsym(RTLD_NEXT, "poll"));
    if (!isTimed)
        return real(entries, count, timeoutMs);
    now += milliseconds(timeoutMs);
    return 0;
}

class TestWpaCtrlLimits : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup();

    void waitsForAReply_data();
    void waitsForAReply();
    void waitsForTheReplyToAttach();
    void triesToSend_data();
    void triesToSend();

private:
    /// What the request ends with.
    int Request(int timeLimitMs);
    std::unique_ptr<FakeSupplicant> supplicant;
    Ctrl ctrl;
};

void TestWpaCtrlLimits::init()
{
    now = seconds(1000);
    sleeps.clear();
    supplicant = std::make_unique<FakeSupplicant>();
    supplicant->SetSilent("PING");
    ctrl = Open();
    QVERIFY(ctrl);
}

void TestWpaCtrlLimits::cleanup()
{
    ctrl.reset();
    supplicant.reset();
    TestSupport::Remove(QStringLiteral("/var/run/wpa_supplicant"));
}

int TestWpaCtrlLimits::Request(int timeLimitMs)
{
    ctrl->timeLimitMs = timeLimitMs;
    char reply[16];
    size_t length = sizeof(reply);
    isTimed = true;
    const int result = wpa_ctrl_request(ctrl.get(), "PING", 4, reply, &length, nullptr);
    isTimed = false;
    return result;
}

void TestWpaCtrlLimits::waitsForAReply_data()
{
    QTest::addColumn<int>("timeLimitMs");
    QTest::addColumn<int>("expectedMs");
    QTest::newRow("as usual") << 0 << 10000;
    QTest::newRow("with a limit") << 2000 << 2000;
    QTest::newRow("with the shortest limit, one look") << 1 << 100;
}

void TestWpaCtrlLimits::waitsForAReply()
{
    QFETCH(int, timeLimitMs);
    QFETCH(int, expectedMs);

    QCOMPARE(Request(timeLimitMs), -2);

    QCOMPARE((now - seconds(1000)).count(), nanoseconds(milliseconds(expectedMs)).count());
}

void TestWpaCtrlLimits::waitsForTheReplyToAttach()
{
    isTimed = true;
    const int result = wpa_ctrl_attach(ctrl.get());
    isTimed = false;

    QCOMPARE(result, -2);
    QCOMPARE((now - seconds(1000)).count(), nanoseconds(seconds(10)).count());
}

void TestWpaCtrlLimits::triesToSend_data()
{
    QTest::addColumn<int>("timeLimitMs");
    QTest::addColumn<int>("expectedSleeps");
    QTest::newRow("until more than 5 s have passed") << 0 << 6;
    QTest::newRow("with a limit") << 2000 << 3;
}

void TestWpaCtrlLimits::triesToSend()
{
    QFETCH(int, timeLimitMs);
    QFETCH(int, expectedSleeps);
    supplicant->Freeze();
    while (::send(ctrl->s, "x", 1, 0) == 1)
        continue;

    QCOMPARE(Request(timeLimitMs), -1);

    QCOMPARE(sleeps, QVector<nanoseconds>(expectedSleeps, seconds(1)));
}

QTEST_GUILESS_MAIN(TestWpaCtrlLimits)
#include "tst_wpactrl_limits.moc"
