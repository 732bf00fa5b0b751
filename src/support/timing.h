// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <chrono>

/// Period of the supervision tick, of the supplicant supervisor's tick and of the DHCP poll.
inline constexpr std::chrono::milliseconds TICK_INTERVAL{1000};
/// How long an ordinary program may run before what it printed so far is taken as its answer. A plain number,
/// as QProcess takes it.
inline constexpr int PROGRAM_TIME_LIMIT_MS = 30000;
