// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <QByteArray>

#include <chrono>
#include <optional>

#include <sys/types.h>

class QSharedMemory;

/// What leads others to a segment that we are attached to: the file behind its key, from whose inode the key
/// follows (ftok(3)), and the segment's own entry under that key. A reader that lets go of the segment while
/// nobody else holds it removes both; the one who attaches in between is left with a segment that nobody
/// finds.
class SegmentPlace
{
public:
    /// To be called right after the segment was created or attached.
    void Note(const QSharedMemory &segment);
    /// Whether the key still leads to the segment, and the segment is our own; two system calls. True as well
    /// where that cannot be told.
    bool IsFound() const;
    /// As KeeperOfLock(), of the lock that Qt took into use with the segment and goes on to take, to whatever
    /// other one the file of the lock leads by now: another daemon's start makes a new one.
    std::optional<pid_t> KeeperOfItsLock(const QSharedMemory &segment, std::chrono::milliseconds limit) const;

private:
    QByteArray keyFile;
    int lockId = -1;
    int segmentId = -1;
    dev_t device = 0;
    ino_t inode = 0;
};
