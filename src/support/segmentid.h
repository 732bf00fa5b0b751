// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <QString>

#include <sys/types.h>

/// The identifier of the System V segment that is mapped at `address`, as shmctl(2) takes it; -1 when there
/// is none. Qt keeps the one it has to itself.
[[nodiscard]] int SegmentIdAt(const void *address);

/// What Qt finds a segment's lock by, from what it finds the segment by: it tells only the latter's file.
[[nodiscard]] QString LockFileOf(const QString &segmentFile);

/// The System V key that Qt makes of such a file (ftok(3)); -1 without the file.
[[nodiscard]] key_t KeyOfFile(const QString &file);
