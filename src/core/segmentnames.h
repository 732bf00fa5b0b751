// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <QString>
#include <QStringList>

/// What the status segment and its lock are found by: a file in /tmp each, from whose inode the System V key
/// follows (ftok(3)). Any user can be the first to use a key: as the lock's owner he would hold the daemon up
/// for ever, as the segment's he would write what others take for the status.
namespace SegmentNames {

/// Makes the key files ours, and sees that neither the segment nor the lock under their keys is another
/// user's, until the daemon's own are there. What is another's is removed where we may; where we may not, a
/// new key file leads past it. Gives back what was another's, for the log. To be called before Qt opens
/// the segment, as it waits for the lock.
[[nodiscard]] QStringList TakeBack(const QString &segmentFile);

/// Leads past a lock that somebody keeps, by a new key file; whoever waits for the earlier one goes on
/// waiting. False, and all as it was, where there can be none. As TakeBack(), before Qt opens the segment.
[[nodiscard]] bool LeaveLock(const QString &segmentFile);

} // namespace SegmentNames
