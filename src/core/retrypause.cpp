// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "retrypause.h"

#include <algorithm>

void RetryPause::Reset()
{
    pause = SHORTEST;
    started.reset();
}

bool RetryPause::IsDue(Time now)
{
    if (!started)
        started = now;
    return now - *started >= pause;
}

void RetryPause::NoteAttempt(Time now)
{
    pause = std::min(pause * 2, LONGEST);
    started = now;
}
