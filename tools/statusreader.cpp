// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "statusreader.h"

#include <QFile>
#include <QSharedMemory>

#include <cerrno>
#include <cstdint>
#include <cstring>

#include <sys/shm.h>

namespace {

struct Mapping
{
    std::uintptr_t begin = 0;
    std::uintptr_t end = 0;
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

/// The identifier of the segment mapped at `address`, or -1. The kernel gives it as the inode of the mapping;
/// Qt keeps the one it has to itself.
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

StatusReading Failure(const QString &reason)
{
    return {StatusReading::Outcome::Unreadable, {}, reason};
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
    QSharedMemory segment(ZebNetStatus::SEGMENT_KEY);
    if (!segment.attach(QSharedMemory::ReadOnly)) {
        if (segment.error() == QSharedMemory::NotFound)
            return {};
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
