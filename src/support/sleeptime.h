// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <chrono>

/// For how long the machine has slept (suspend to memory, to idle) since it was started. The clocks are read
/// one after the other, so that two results may differ by some microseconds without any sleep.
std::chrono::nanoseconds TimeAsleep();
