// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <chrono>
#include <optional>

/// When the next of several attempts is due: 10 s after the first failure, then after 20 s, 40 s and every
/// 60 s. An attempt blocks the supervision: for 30 s where no server answers, longer where one of the tools
/// around the client hangs, too. So the pauses grow to leave time for the rest.
/// Works on the clock it is given.
class RetryPause
{
public:
    using Time = std::chrono::steady_clock::time_point;

    /// The need is gone; the next one starts with the shortest pause.
    void Reset();
    /// Whether an attempt is due now. The first call after a Reset() starts the first pause.
    bool IsDue(Time now);
    /// An attempt has just ended: starts the next, longer pause.
    void NoteAttempt(Time now);

private:
    static constexpr std::chrono::seconds SHORTEST{10};
    static constexpr std::chrono::seconds LONGEST{60};

    std::chrono::seconds pause = SHORTEST;
    std::optional<Time> started;
};
