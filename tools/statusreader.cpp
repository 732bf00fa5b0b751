// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "statusreader.h"

#include "segmentid.h"
#include "zebnetsegment.h"

#include <QSharedMemory>

#include <cerrno>
#include <cstring>

#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <unistd.h>

namespace {

StatusReading Failure(const QString &reason)
{
    return {StatusReading::Outcome::Unreadable, {}, reason};
}

/// The daemon is root's. What somebody else made is to deceive us, or to hold us up at a lock that he keeps.
bool IsAnothers(const ipc_perm &permissions)
{
    return permissions.cuid != 0 && permissions.cuid != ::geteuid();
}

bool IsAnothersSegment(key_t key)
{
    shmid_ds info = {};
    const int id = key == -1 ? -1 : ::shmget(key, 0, 0);
    return id != -1 && ::shmctl(id, IPC_STAT, &info) == 0 && IsAnothers(info.shm_perm);
}

bool IsAnothersLock(key_t key)
{
    semid_ds info = {};
    SemaphoreArgument argument = {};
    argument.info = &info;
    const int id = key == -1 ? -1 : ::semget(key, 0, 0);
    return id != -1 && ::semctl(id, 0, IPC_STAT, argument) == 0 && IsAnothers(info.sem_perm);
}

/// To be asked before anything that takes the lock, as to attach does.
bool IsOfAnotherUser(const QString &segmentFile)
{
    return IsAnothersSegment(KeyOfFile(segmentFile)) || IsAnothersLock(KeyOfFile(LockFileOf(segmentFile)));
}

/// A segment outlives the program that made it, so that its being there says nothing. The number of those
/// that hold it does not tell who they are: two readers at once, or one that stays, vouch for a dead daemon.
/// The last one to let go of the segment removes it, and so ends this.
bool IsSharedWithOthers(int segmentId, QString &error)
{
    shmid_ds info = {};
    if (::shmctl(segmentId, IPC_STAT, &info) != 0) {
        error = QStringLiteral("cannot examine the segment: ") + QString::fromLocal8Bit(std::strerror(errno));
        return false;
    }
    return info.shm_nattch > 1;
}

StatusReading Decode(const QByteArray &bytes)
{
    StatusReading reading;
    if (bytes.count('\0') == bytes.size()) {
        reading.outcome = StatusReading::Outcome::NotYet;
        return reading;
    }
    if (!reading.status.SetData(bytes))
        return Failure(
            QStringLiteral("the record is damaged or of a version that this program does not know"));
    reading.outcome = StatusReading::Outcome::Published;
    return reading;
}

} // namespace

StatusReading ReadStatus()
{
    QSharedMemory segment(ZebNetSegment::KEY);
    if (IsOfAnotherUser(segment.nativeKey()))
        return Failure(QStringLiteral("it belongs to another user"));
    if (const auto keeper = KeeperOfLock(segment.nativeKey(), SEGMENT_LOCK_LIMIT))
        return Failure(QStringLiteral("process %1 keeps its lock").arg(*keeper));
    if (!segment.attach(QSharedMemory::ReadOnly)) {
        if (segment.error() == QSharedMemory::NotFound)
            return {};
        // The library's words are about its own functions.
        if (segment.error() == QSharedMemory::PermissionDenied)
            return Failure(QStringLiteral("permission denied: only the daemon's user may, which is root"));
        return Failure(segment.errorString());
    }

    QString error;
    if (!IsSharedWithOthers(SegmentIdAt(segment.constData()), error))
        return error.isEmpty() ? StatusReading() : Failure(error);

    if (!segment.lock())
        return Failure(segment.errorString());
    const QByteArray bytes(static_cast<const char *>(segment.constData()),
                           qMin(segment.size(), ZebNetStatus::RECORD_SIZE));
    if (!segment.unlock())
        return Failure(segment.errorString());
    return Decode(bytes);
}
