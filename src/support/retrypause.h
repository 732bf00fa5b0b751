// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <chrono>
#include <optional>

/// When the next of several attempts is due: 10 s after the first failure, then after 20 s, 40 s and every
/// 60 s. An attempt blocks the supervision, one to get an address for as long as no server answers; so the
/// pauses grow to leave time for the rest. Works on the clock it is given.
class RetryPause
{
public:
    using Time = std::chrono::steady_clock::time_point;

    /// When the first attempt is due after the need came up.
    enum class First { AFTER_A_PAUSE, AT_ONCE };

    explicit RetryPause(First firstAttempt = First::AFTER_A_PAUSE) : first(firstAttempt) { Reset(); }

    /// The need is gone; the next one starts from the beginning.
    void Reset();
    /// The last attempt had success: the next need starts from the beginning. But what somebody else undoes
    /// again and again, three times within a minute, waits out the pauses that have grown until then.
    void NoteSuccess(Time now);
    /// When the next attempt is due, once a pause for it has begun.
    std::optional<Time> Due() const;
    /// Whether an attempt is due now. Where the first one is not at once, the first call starts its pause.
    bool IsDue(Time now);
    /// An attempt has just ended: starts the next, longer pause.
    void NoteAttempt(Time now);

private:
    static constexpr std::chrono::seconds SHORTEST{10};
    static constexpr std::chrono::seconds LONGEST{60};
    static constexpr int QUICK_SUCCESSES = 3;
    static constexpr std::chrono::seconds SUCCESS_WINDOW{60};

    const First first;
    std::chrono::seconds pause{0};
    std::optional<Time> started;
    bool isTrying = false; ///< an attempt was made, and nobody has said yet that it had success
    int successes = 0;     ///< since windowStart
    std::optional<Time> windowStart;
};
