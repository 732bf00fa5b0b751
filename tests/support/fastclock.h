// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <chrono>

/// The monotonic clock of a program that links this: the machine's, and ahead of it by what the program was
/// told and what it has slept. So whatever waits for a time (Qt's timers, pauses, limits) comes at once, and
/// in order. Programs that are run, and waiting for them, take the time that they take.
namespace FastClock {

/// Puts the clock forward.
void Advance(std::chrono::nanoseconds time);
/// How far it is ahead of the machine's.
std::chrono::nanoseconds Ahead();
/// The machine sleeps: only the clock that counts that, too, goes on meanwhile.
void Sleep(std::chrono::nanoseconds time);

} // namespace FastClock
