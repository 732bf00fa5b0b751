// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <optional>

#include <sys/types.h>

/// Two daemons on one device undo each other's work: the one that comes second is to notice.
namespace InstanceLock {

/// Why the lock was not got.
struct Refusal
{
    pid_t holder; ///< has it; 0 for a process that our PID namespace does not show
    bool isNews;  ///< nobody was refused since the holder took it, or for an hour
};

/// Takes the lock for the life of this process, where another one has it after up to 3 s: one that was killed
/// or asked to end is about to let go of it. Nothing when it is ours, and where no file for it can be had.
/// Its children do not have it, in whatever state they outlive it (fcntl(2), record locks).
std::optional<Refusal> Take();

/// Whether this other process has it, as a refusal named it. Not for a process that has it itself: that one
/// would lose it (fcntl(2)).
bool IsHeldBy(pid_t process);

} // namespace InstanceLock
