// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "segmentplace.h"

#include "segmentid.h"

#include <QFile>
#include <QSharedMemory>

#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <unistd.h>

void SegmentPlace::Note(const QSharedMemory &segment)
{
    keyFile = QFile::encodeName(segment.nativeKey());
    segmentId = segment.isAttached() ? SegmentIdAt(segment.constData()) : -1;
    lockId = LockIdOf(segment.nativeKey());
    struct stat file = {};
    if (::stat(keyFile.constData(), &file) == 0) {
        device = file.st_dev;
        inode = file.st_ino;
    }
}

bool SegmentPlace::IsFound() const
{
    if (segmentId == -1)
        return true;
    struct stat file = {};
    if (::stat(keyFile.constData(), &file) != 0 || file.st_dev != device || file.st_ino != inode)
        return false;
    shmid_ds segment = {};
    if (::shmctl(segmentId, IPC_STAT, &segment) != 0 || (segment.shm_perm.mode & SHM_DEST) != 0)
        return false;
    // Its maker keeps his rights when the owner changes.
    return segment.shm_perm.uid == ::geteuid() && segment.shm_perm.cuid == ::geteuid();
}

std::optional<pid_t> SegmentPlace::KeeperOfItsLock(const QSharedMemory &segment,
                                                   std::chrono::milliseconds limit) const
{
    // Where it was removed, Qt takes the one that its file leads to.
    const bool isThere = lockId != -1 && ::semctl(lockId, 0, GETVAL) != -1;
    return isThere ? KeeperOfLock(lockId, limit) : KeeperOfLock(segment.nativeKey(), limit);
}
