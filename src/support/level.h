// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

/// What a line is for. A line is written when its level is at most the current one.
namespace Level {
inline constexpr int FAULT = 0;  ///< always written, and echoed to the debug output
inline constexpr int NOTICE = 2; ///< what an operator looks for; the current level of a device in the field
inline constexpr int SETUP = 3;  ///< how the shared segment was set up
inline constexpr int TRACE = 4;  ///< what is being done
inline constexpr int DEBUG = 5;  ///< the current level with the debug flag file
inline constexpr int VERBOSE = 6;
} // namespace Level
