// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

/// How the process treats its own memory. The first two are for the start, before any other thread
/// and any secret.
namespace ProcessMemory {

/// The daemon handles passphrases: nothing of its memory is to reach a core file or another process of its
/// user (prctl(2), PR_SET_DUMPABLE). Its files in /proc belong to root from here on.
/// The programs that it starts write no core file either (core(5)), as the supplicant holds the same secrets;
/// a core handler behind a pipe is beyond that limit.
void KeepToOurselves();

/// Gives freed memory back to the system: otherwise what one tool printed, a few MB once, stays with the
/// process for good (mallopt(3): each large block that is freed raises the size that is kept).
void GiveBackWhatIsFreed();

/// Gives back what is free by now, also between blocks in use (malloc_trim(3)). At any time, on any thread.
void GiveBackNow();

} // namespace ProcessMemory
