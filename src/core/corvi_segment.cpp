// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "corvi.h"

#include "logging.h"
#include "segmentid.h"
#include "segmentnames.h"
#include "zebnetsegment.h"

#include <QDir>
#include <QFile>
#include <QLocalSocket>
#include <QThread>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>

#include <unistd.h>

namespace {

/// A program that shows the status attaches to the segment and lets go of it again, ten times a second some
/// of them, and the one that lets go last removes it: between our failure to create the segment and our
/// attempt to attach to it, too. Five tries over half a second meet several of its turns.
constexpr int SEGMENT_TRIES = 5;
constexpr std::chrono::milliseconds SEGMENT_PAUSE{125};

/// The segment's key is that of a file there.
void TellOfReadOnlyTmp()
{
    const QString folder = QDir::tempPath();
    if (::access(QFile::encodeName(folder).constData(), W_OK) == 0)
        return;
    const QString reason = qt_error_string();
    Log(Level::NOTICE) << "Corvi::InitSharedMemory -" << folder + QLatin1Char(':') << reason;
}

} // namespace

void Corvi::InitSharedMemory()
{
    // The lines that say "Corvi::run" name an operation that there is not: kept as they are.
    Log(Level::TRACE) << "Corvi::InitSharedMemory";
    eventSocket = std::make_unique<QLocalSocket>();
    shm.setKey(ZebNetSegment::KEY);
    for (int attempt = 1; attempt <= SEGMENT_TRIES; ++attempt) {
        if (attempt > 1)
            QThread::msleep(static_cast<unsigned long>(SEGMENT_PAUSE.count()));
        if (OpenSegment())
            return;
    }
    TellOfReadOnlyTmp();
    Log(Level::FAULT) << "Corvi::run - Unable to attach to shared memory segment";
    // Other programs read the status from the segment; a daemon that cannot publish is of no use to them.
    std::exit(EXIT_SUCCESS);
}

/// One try. False, and no segment, also where the one we got is on its way out already.
bool Corvi::OpenSegment()
{
    const QStringList foreign = SegmentNames::TakeBack(shm.nativeKey());
    if (!foreign.isEmpty())
        LogOnce(foreignSegmentReport)
            << "Corvi::OpenSegment - made by another user, removed and made anew:" << foreign;
    if (IsLockKept() && !SegmentNames::LeaveLock(shm.nativeKey()))
        return false; // What follows would wait for it.
    hasEarlierRecord = !shm.create(ZebNetSegment::SIZE, QSharedMemory::ReadWrite);
    if (hasEarlierRecord) {
        Log(Level::SETUP) << "Corvi::run - Unable to create shared memory segment";
        if (!shm.attach(QSharedMemory::ReadWrite))
            return false;
        Log(Level::SETUP) << "Corvi::run - Attached to shared memory segment";
    }
    segmentPlace.Note(shm);
    if (segmentPlace.IsFound())
        return true;
    shm.detach();
    return false;
}

/// False where another process keeps the lock; it is named once.
bool Corvi::LockSegment()
{
    return !IsLockKept() && shm.lock();
}

/// A reader delays the tick for as long as it copies; one that is stopped in the middle must not hold the
/// network up. Once waited for in vain, it is only looked at.
bool Corvi::IsLockKept()
{
    std::optional<pid_t> keeper = segmentPlace.KeeperOfItsLock(shm, std::chrono::milliseconds(0));
    if (keeper && keeper != lockKeeper)
        keeper = segmentPlace.KeeperOfItsLock(shm, SEGMENT_LOCK_LIMIT);
    lockKeeper = keeper;
    if (keeper)
        LogOnce(lockReport, QString::number(*keeper))
            << "Corvi::IsLockKept - process" << static_cast<int>(*keeper)
            << "keeps the lock of the status segment and is not waited for any more";
    else
        lockReport.Over();
    return keeper.has_value();
}

/// What others read there; empty when it cannot be locked or is not there.
QByteArray Corvi::ReadRecord()
{
    if (!shm.isAttached() || !LockSegment())
        return {};
    const int length = std::min(static_cast<int>(shm.size()), ZebNetSegment::SIZE);
    QByteArray record(static_cast<const char *>(shm.constData()), length);
    shm.unlock();
    return record;
}

/// False, and the segment as it was, when it cannot be locked or is not there. The record is put later then.
bool Corvi::PutRecord(const QByteArray &record)
{
    lostRecord = record;
    if (!shm.isAttached())
        return false; // Told where the segment was lost.
    if (!LockSegment()) {
        LogOnce(segmentReport) << "ShareStatus() the segment cannot be locked, its record stays as it was";
        return false;
    }
    segmentReport.Over();
    // Qt 5 counts in int, Qt 6 in qsizetype.
    const auto recordSize = static_cast<int>(record.size());
    const auto segmentSize = static_cast<int>(shm.size());
    Log(Level::VERBOSE) << "ShareStatus"
                        << "BA Size" << recordSize << "_shm.size" << segmentSize;
    const int length = std::min({segmentSize, ZebNetSegment::SIZE, recordSize});
    std::memcpy(shm.data(), record.constData(), static_cast<size_t>(length));
    shm.unlock();
    lostRecord.clear();
    return true;
}

/// A segment that its key does not lead to any more is of no use to anybody: made anew, with what was in it.
void Corvi::KeepSegmentFound()
{
    if (shm.isAttached() && segmentPlace.IsFound()) {
        lostSegmentReport.Over();
        if (!lostRecord.isEmpty())
            PutRecord(lostRecord);
        return;
    }
    if (shm.isAttached()) {
        if (IsLockKept())
            return; // It would be waited for. Looked at again on the next tick.
        if (lostRecord.isEmpty())
            lostRecord = QByteArray(static_cast<const char *>(shm.constData()), shm.size());
        shm.detach();
    }
    const bool wasEarlierRecord = hasEarlierRecord; // The one that is put into the new segment.
    const bool isOpen = OpenSegment();
    hasEarlierRecord = hasEarlierRecord || wasEarlierRecord;
    if (!isOpen) {
        LogOnce(lostSegmentReport)
            << "Corvi::KeepSegmentFound - the status segment is gone and cannot be made anew, "
               "tried again every second:"
            << shm.errorString();
        return;
    }
    PutRecord(lostRecord);
    LogOnce(lostSegmentReport, QStringLiteral("lost"))
        << "Corvi::KeepSegmentFound - the status segment was lost "
           "and is made anew";
}
