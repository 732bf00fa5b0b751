// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

// The dynamic linker takes these functions before those of the C library (ld.so(8)), for Qt and the C++
// library, too.

#include "fastclock.h"

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <ctime>

#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr std::int64_t NS_PER_S = 1'000'000'000;
std::atomic<std::int64_t> aheadNs{0};
std::atomic<std::int64_t> asleepNs{0};

// Qt's limit of a test function, in ms, goes by this clock, which may be put forward by any time: none but
// the limit of the whole program is left.
[[maybe_unused]] const int LIFTED_LIMIT = setenv("QTEST_FUNCTION_TIMEOUT", "2147483647", 1);

bool IsMonotonic(clockid_t clock)
{
    return clock == CLOCK_MONOTONIC || clock == CLOCK_MONOTONIC_COARSE || clock == CLOCK_BOOTTIME;
}

} // namespace

void FastClock::Advance(std::chrono::nanoseconds time)
{
    aheadNs += time.count();
}

std::chrono::nanoseconds FastClock::Ahead()
{
    return std::chrono::nanoseconds(aheadNs);
}

void FastClock::Sleep(std::chrono::nanoseconds time)
{
    asleepNs += time.count();
}

extern "C" int clock_gettime(clockid_t clock, timespec *result) noexcept
{
    const long failure = syscall(SYS_clock_gettime, clock, result);
    if (failure != 0 || !IsMonotonic(clock))
        return static_cast<int>(failure);
    const std::int64_t nanoseconds =
        result->tv_nsec + aheadNs + (clock == CLOCK_BOOTTIME ? asleepNs.load() : 0);
    result->tv_sec += nanoseconds / NS_PER_S;
    result->tv_nsec = nanoseconds % NS_PER_S;
    return 0;
}

extern "C" int nanosleep(const timespec *time, timespec *)
{
    FastClock::Advance(std::chrono::seconds(time->tv_sec) + std::chrono::nanoseconds(time->tv_nsec));
    return 0;
}

extern "C" int clock_nanosleep(clockid_t, int flags, const timespec *time, timespec *rest)
{
    return flags == 0 ? nanosleep(time, rest) : EINVAL; // Nobody sleeps until a given time.
}
