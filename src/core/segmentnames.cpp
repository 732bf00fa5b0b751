// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "segmentnames.h"

#include "securefile.h"
#include "segmentid.h"

#include <QFileInfo>

#include <cerrno>

#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <unistd.h>

namespace {

/// Two files can have one key, as it holds but 16 bits of the inode: the new one may lead to another's, too.
constexpr int TRIES = 3;
/// As Qt makes the key's file.
constexpr mode_t FILE_MODE = 0640;

/// Its maker keeps his rights when the owner changes.
bool IsOurs(const ipc_perm &permissions)
{
    return permissions.uid == ::geteuid() && permissions.cuid == ::geteuid();
}

/// True when what was under the key was another user's; it is removed where we may.
bool RemoveForeignSegment(key_t key)
{
    const int id = ::shmget(key, 0, 0);
    if (id == -1)
        return false;
    shmid_ds info = {};
    if (::shmctl(id, IPC_STAT, &info) == 0 && IsOurs(info.shm_perm))
        return false;
    ::shmctl(id, IPC_RMID, nullptr); // Without CAP_SYS_ADMIN it stays: another key then leads past it.
    return true;
}

/// As above. Where there was no lock there is ours from now on, so that nobody makes one before Qt does.
bool RemoveForeignLock(key_t key)
{
    SemaphoreArgument argument = {1};
    if (const int made = ::semget(key, 1, IPC_CREAT | IPC_EXCL | 0600); made != -1) {
        ::semctl(made, 0, SETVAL, argument);
        return false;
    }
    const int id = ::semget(key, 0, 0);
    if (id == -1)
        return false;
    semid_ds info = {};
    argument.info = &info;
    if (::semctl(id, 0, IPC_STAT, argument) == 0 && IsOurs(info.sem_perm))
        return false;
    ::semctl(id, 0, IPC_RMID); // As above.
    return true;
}

/// True when the file, or what its key led to, was another user's.
bool TakeBackFile(const QString &file, bool (*removeForeign)(key_t))
{
    bool wasForeign = QFileInfo::exists(file) && !SecureFile::IsOurs(file);
    for (int attempt = 0; attempt < TRIES; ++attempt) {
        // A new file is there before the old one goes, so it has another inode.
        if ((attempt > 0 || !SecureFile::IsOurs(file)) && !SecureFile::Replace(file, QByteArray(), FILE_MODE))
            return wasForeign;
        if (!removeForeign(KeyOfFile(file)))
            return wasForeign;
        wasForeign = true;
    }
    return wasForeign;
}

} // namespace

QStringList SegmentNames::TakeBack(const QString &segmentFile)
{
    QStringList found;
    if (TakeBackFile(segmentFile, RemoveForeignSegment))
        found += QStringLiteral("the status segment");
    if (TakeBackFile(LockFileOf(segmentFile), RemoveForeignLock))
        found += QStringLiteral("its lock");
    return found;
}

bool SegmentNames::LeaveLock(const QString &segmentFile)
{
    const QString lockFile = LockFileOf(segmentFile);
    if (!SecureFile::Replace(lockFile, QByteArray(), FILE_MODE))
        return false;
    TakeBackFile(lockFile, RemoveForeignLock); // What the new key leads to.
    return true;
}
