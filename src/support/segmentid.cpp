// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "segmentid.h"

#include <QByteArray>
#include <QDeadlineTimer>
#include <QFile>
#include <QList>

#include <cerrno>
#include <cstdint>

#include <signal.h>
#include <sys/ipc.h>
#include <sys/sem.h>

namespace {

/// Addresses as they are read, also where a pointer is shorter.
struct Mapping
{
    quint64 begin = 0;
    quint64 end = 0;
    int segmentId = -1;
};

/// A line of /proc/self/maps (proc(5)): "begin-end permissions offset device inode path".
Mapping ParseMapping(const QByteArray &line)
{
    const QList<QByteArray> fields = line.simplified().split(' ');
    if (fields.size() < 5)
        return {};
    const QList<QByteArray> range = fields.at(0).split('-');
    if (range.size() != 2)
        return {};
    return {range.at(0).toULongLong(nullptr, 16), range.at(1).toULongLong(nullptr, 16), fields.at(4).toInt()};
}

/// Waits until the lock is free, at most so long; else false, with the reason in errno. Taken and given back
/// in one step: whatever becomes of us, we never have it.
bool AwaitFree(int lockId, std::chrono::milliseconds limit)
{
    sembuf steps[] = {{0, -1, 0}, {0, 1, 0}};
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(limit);
    const std::chrono::nanoseconds rest = limit - seconds;
    const timespec time = {static_cast<time_t>(seconds.count()), static_cast<long>(rest.count())};
    return ::semtimedop(lockId, steps, 2, &time) == 0;
}

/// The kernel gives back what a process had with SEM_UNDO, as Qt takes it, before its id is free; without
/// that (semop(2)) nobody would. False where the process goes on, is not ours to see (0), or we may not.
bool IsFreedFrom(pid_t keeper, int semaphoreId)
{
    if (keeper <= 0 || ::kill(keeper, 0) == 0 || errno != ESRCH)
        return false;
    // It may have given it back just before its end. Then it is free, or another's, who would lose it.
    if (AwaitFree(semaphoreId, std::chrono::milliseconds(0)) || ::semctl(semaphoreId, 0, GETPID) != keeper)
        return true;
    const SemaphoreArgument freed = {1};
    return ::semctl(semaphoreId, 0, SETVAL, freed) == 0;
}

} // namespace

/// The kernel gives the identifier as the inode of the mapping.
int SegmentIdAt(const void *address)
{
    const auto position = reinterpret_cast<std::uintptr_t>(address);
    QFile maps(QStringLiteral("/proc/self/maps"));
    if (!maps.open(QIODevice::ReadOnly))
        return -1;
    for (QByteArray line = maps.readLine(); !line.isEmpty(); line = maps.readLine()) {
        const Mapping mapping = ParseMapping(line);
        if (position >= mapping.begin && position < mapping.end)
            return mapping.segmentId;
    }
    return -1;
}

QString LockFileOf(const QString &segmentFile)
{
    QString lockFile = segmentFile;
    return lockFile.replace(QStringLiteral("qipc_sharedmemory_"), QStringLiteral("qipc_systemsem_"));
}

std::optional<pid_t> KeeperOfLock(const QString &segmentFile, std::chrono::milliseconds limit)
{
    return KeeperOfLock(LockIdOf(segmentFile), limit);
}

std::optional<pid_t> KeeperOfLock(int lockId, std::chrono::milliseconds limit)
{
    const QDeadlineTimer deadline(limit);
    for (;;) {
        const std::chrono::milliseconds left(deadline.remainingTime());
        if (AwaitFree(lockId, left) || (errno != EAGAIN && errno != EINTR))
            return std::nullopt;
        if (errno == EINTR) // By the end of a child.
            continue;
        const pid_t keeper = ::semctl(lockId, 0, GETPID);
        if (!IsFreedFrom(keeper, lockId))
            return keeper;
    }
}

int LockIdOf(const QString &segmentFile)
{
    return ::semget(KeyOfFile(LockFileOf(segmentFile)), 0, 0);
}

key_t KeyOfFile(const QString &file)
{
    return ::ftok(QFile::encodeName(file).constData(), 'Q');
}
