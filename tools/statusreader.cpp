// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "statusreader.h"

#include "segmentid.h"
#include "zebnetsegment.h"

#include <QSharedMemory>

#include <cerrno>
#include <cstring>

#include <sys/shm.h>

namespace {

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
    QSharedMemory segment(ZebNetSegment::KEY);
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
