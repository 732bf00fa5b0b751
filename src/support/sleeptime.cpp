// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "sleeptime.h"

#include <ctime>

namespace {

std::chrono::nanoseconds Read(clockid_t clock)
{
    timespec time = {};
    ::clock_gettime(clock, &time);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

} // namespace

/// One clock goes on while the machine sleeps, the other one does not (clock_gettime(2)).
std::chrono::nanoseconds TimeAsleep()
{
    return Read(CLOCK_BOOTTIME) - Read(CLOCK_MONOTONIC);
}
