// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "corvipeer.h"

#include "zebnetstatus.h"

#include <QSharedMemory>

#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>

using namespace CorviWorld;

namespace {

// What a QSharedMemory of Qt 5 makes of "com.qarbo.zebnetstatus": its letters, and its SHA-1. Readers that
// were built with another Qt than the daemon, or with none, find the segment and its lock by these.
const char *const SEGMENT_FILE =
    "/tmp/qipc_sharedmemory_comqarbozebnetstatusa8737aa16e9a8a0aee386ac7956410d6542e8c5a";
const char *const LOCK_FILE =
    "/tmp/qipc_systemsem_comqarbozebnetstatusa8737aa16e9a8a0aee386ac7956410d6542e8c5a";

/// The segment as a reader without Qt gets it; empty when there is none.
QByteArray ReadSystemVSegment()
{
    const int id = ::shmget(::ftok(SEGMENT_FILE, 'Q'), ZebNetStatus::RECORD_SIZE, 0);
    const void *const address = id == -1 ? nullptr : ::shmat(id, nullptr, SHM_RDONLY);
    if (!address || address == reinterpret_cast<void *>(-1))
        return QByteArray();
    const QByteArray contents(static_cast<const char *>(address), ZebNetStatus::RECORD_SIZE);
    ::shmdt(address);
    return contents;
}

/// 1 when nobody holds the lock, 0 when somebody does, -1 without a lock.
int SystemVLock()
{
    const int id = ::semget(::ftok(LOCK_FILE, 'Q'), 1, 0);
    return id == -1 ? -1 : ::semctl(id, 0, GETVAL);
}

} // namespace

/// Where the published record is found, whichever Qt the daemon was built with.
class TestCorviSegment : public QObject
{
    Q_OBJECT

private slots:
    void init() { StartFromNothing(); }
    void cleanup() { Forget(); }

    void isFoundWithoutQt();
    void isLockedWithoutQt();
};

void TestCorviSegment::isFoundWithoutQt()
{
    CorviPeer corvi(LAN_STATIC, {"eth0"}, SET_UP);

    const QByteArray contents = ReadSystemVSegment();

    QCOMPARE(contents, corvi.Segment());
    ZebNetStatus status;
    QVERIFY(status.SetData(contents));
    QCOMPARE(status.GetIp(), QString("10.1.0.2"));
}

void TestCorviSegment::isLockedWithoutQt()
{
    CorviPeer corvi(LAN_STATIC, {"eth0"}, SET_UP);
    QSharedMemory reader(ZebNetStatus::SEGMENT_KEY);
    QVERIFY(reader.attach(QSharedMemory::ReadOnly));
    QCOMPARE(SystemVLock(), 1);

    QVERIFY(reader.lock());

    QCOMPARE(SystemVLock(), 0);
    QVERIFY(reader.unlock());
    QCOMPARE(SystemVLock(), 1);
}

QTEST_GUILESS_MAIN(TestCorviSegment)
#include "tst_corvi_segment.moc"
