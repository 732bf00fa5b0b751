// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "retrypause.h"

#include <algorithm>

void RetryPause::Reset()
{
    pause = first == First::AT_ONCE ? std::chrono::seconds(0) : SHORTEST;
    started.reset();
    isTrying = false;
}

void RetryPause::NoteSuccess(Time now)
{
    if (!isTrying)
        return;
    isTrying = false;
    if (!windowStart || now - *windowStart > SUCCESS_WINDOW) {
        windowStart = now;
        successes = 0;
    }
    if (++successes <= QUICK_SUCCESSES)
        Reset();
}

std::optional<RetryPause::Time> RetryPause::Due() const
{
    return started ? std::make_optional(*started + pause) : std::nullopt;
}

bool RetryPause::IsDue(Time now)
{
    if (!started)
        started = now;
    return now - *started >= pause;
}

void RetryPause::NoteAttempt(Time now)
{
    pause = std::clamp(pause * 2, SHORTEST, LONGEST);
    started = now;
    isTrying = true;
}
