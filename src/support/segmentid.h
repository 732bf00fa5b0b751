// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <QString>

#include <chrono>
#include <optional>

#include <sys/types.h>

struct semid_ds;

/// As semctl(2) wants its callers to define it.
union SemaphoreArgument {
    int value;
    semid_ds *info;
};

/// The identifier of the System V segment that is mapped at `address`, as shmctl(2) takes it; -1 when there
/// is none. Qt keeps the one it has to itself.
[[nodiscard]] int SegmentIdAt(const void *address);

/// What Qt finds a segment's lock by, from what it finds the segment by: it tells only the latter's file.
[[nodiscard]] QString LockFileOf(const QString &segmentFile);

/// The process that has had this segment's lock for all of `limit`; nothing where the lock is free before, or
/// there is none. To be asked before Qt takes the lock, as it does in attach() and detach(), too: it waits
/// without a limit, and a process that is stopped in the middle (SIGSTOP, a debugger) keeps what it has. What
/// one that has ended still has is taken from it, where we may.
[[nodiscard]] std::optional<pid_t> KeeperOfLock(const QString &segmentFile, std::chrono::milliseconds limit);

/// The same, by the lock's own identifier (semget(2)).
[[nodiscard]] std::optional<pid_t> KeeperOfLock(int lockId, std::chrono::milliseconds limit);

/// The identifier of the lock that this segment's file leads to now; -1 when there is none.
[[nodiscard]] int LockIdOf(const QString &segmentFile);

/// What a program that shows the status needs to copy it, many times over.
inline constexpr std::chrono::milliseconds SEGMENT_LOCK_LIMIT{5000};

/// The System V key that Qt makes of such a file (ftok(3)); -1 without the file.
[[nodiscard]] key_t KeyOfFile(const QString &file);
