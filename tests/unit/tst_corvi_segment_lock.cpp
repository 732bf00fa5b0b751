// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "corvipeer.h"
#include "segmentnames.h"

#include "zebnetsegment.h"
#include "zebnetstatus.h"

#include <QProcess>
#include <QSharedMemory>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>
#include <functional>

#include <dlfcn.h>
#include <sys/ipc.h>
#include <sys/mount.h>
#include <sys/sem.h>
#include <unistd.h>

using namespace CorviWorld;
using namespace TestSupport;

namespace {

constexpr int LIMIT_MS = 60000;

/// A reader of the segment in a process of its own; it has the lock, and lets go when somebody waits for it,
/// or not before its end.
class Reader
{
public:
    explicit Reader(const QString &manner = QStringLiteral("--hold-lock"))
    {
        process.start(QCoreApplication::applicationFilePath(), {manner});
        hasLock = process.waitForReadyRead(LIMIT_MS);
    }

    bool HasLock() const { return hasLock; }
    qint64 Id() const { return process.processId(); }

    /// What it said until its end.
    QByteArray Output()
    {
        process.waitForFinished(LIMIT_MS);
        return process.readAllStandardOutput();
    }

private:
    QProcess process;
    bool hasLock = false;
};

/// Told of each step (semop(2)) that Qt takes on a lock, before it is taken.
std::function<void(int)> onStep;
/// Told of each wait that has a limit (semtimedop(2)), which then is over in vain.
std::function<void(std::chrono::nanoseconds)> onWait;

} // namespace

/// In the place of the C library's.
extern "C" int semop(int id, sembuf *steps, size_t count) noexcept
{
    using SemaphoreOperation = int (*)(int, sembuf *, size_t);
    static const auto real = reinterpret_cast<SemaphoreOperation>(::dlsym(RTLD_NEXT, "semop"));
    if (onStep)
        onStep(steps[0].sem_op);
    return real(id, steps, count);
}

/// The same.
extern "C" int semtimedop(int id, sembuf *steps, size_t count, const timespec *limit) noexcept
{
    using TimedOperation = int (*)(int, sembuf *, size_t, const timespec *);
    static const auto real = reinterpret_cast<TimedOperation>(::dlsym(RTLD_NEXT, "semtimedop"));
    if (!onWait)
        return real(id, steps, count, limit);
    onWait(std::chrono::seconds(limit->tv_sec) + std::chrono::nanoseconds(limit->tv_nsec));
    errno = EAGAIN;
    return -1;
}

/// The lock of the segment that others read the status from.
class TestCorviSegmentLock : public QObject
{
    Q_OBJECT

private slots:
    void init() { StartFromNothing(); }

    void publishingWaitsForTheLock();
    void recordIsPutUnderTheLock();
    void readerAfterOneThatWasGivenUpIsWaitedFor();
    void readerThatWasGivenUpIsWaitedForOnce();
    void lockThatItsFileLeadsToNoMoreIsNotWaitedFor();
    void lostSegmentWaitsForItsLock();
    void lockThatCannotBeLeftIsNotWaitedFor();
    void earlierRecordIsReadUnderTheLock();
};

void TestCorviSegmentLock::publishingWaitsForTheLock()
{
    CorviPeer corvi({"eth0"}, DISCOVERED);
    FillSegment('x');
    Reader reader;
    QVERIFY(reader.HasLock());

    corvi.ShareStatus(corvi.Device("eth0"));

    // What it read at the end of its lock was the old record, whole.
    QCOMPARE(reader.Output(), QByteArray("locked\nawaited\n") + QByteArray(SEGMENT_SIZE, 'x'));
    QCOMPARE(ReadSegment(), corvi.Device("eth0")->status->GetData());
}

/// The wait for a reader that is there already is not enough: one that comes later must wait, too.
void TestCorviSegmentLock::recordIsPutUnderTheLock()
{
    CorviPeer corvi({"eth0"}, DISCOVERED);
    FillSegment('x');
    QList<QPair<int, QByteArray>> steps;
    onStep = [&](int step) {
        steps << qMakePair(step, corvi.Segment());
    };

    corvi.ShareStatus(corvi.Device("eth0"));

    onStep = nullptr;
    QCOMPARE(steps.size(), 2);
    QCOMPARE(steps[0], qMakePair(-1, QByteArray(SEGMENT_SIZE, 'x')));
    QCOMPARE(steps[1], qMakePair(1, corvi.Device("eth0")->status->GetData()));
}

void TestCorviSegmentLock::readerAfterOneThatWasGivenUpIsWaitedFor()
{
    CorviPeer corvi({"eth0"}, DISCOVERED);
    {
        const Reader stuck("--keep-lock");
        QVERIFY(stuck.HasLock());
        corvi.ShareStatus(corvi.Device("eth0"));
        QCOMPARE(
            LogCount(QString("Corvi::IsLockKept - process %1 keeps the lock of the status segment and is "
                             "not waited for any more")
                         .arg(stuck.Id())),
            1);
    }
    Reader reader;
    QVERIFY(reader.HasLock());

    corvi.ShareStatus(corvi.Device("eth0"));

    QVERIFY(reader.Output().startsWith("locked\nawaited\n"));
    QCOMPARE(ReadSegment(), corvi.Device("eth0")->status->GetData());
}

void TestCorviSegmentLock::readerThatWasGivenUpIsWaitedForOnce()
{
    CorviPeer corvi({"eth0"}, DISCOVERED);
    const Reader stuck("--keep-lock");
    QVERIFY(stuck.HasLock());
    QList<bool> waits;
    onWait = [&waits](std::chrono::nanoseconds limit) {
        waits << (limit > std::chrono::nanoseconds(0));
    };

    for (int time = 0; time < 3; ++time)
        corvi.ShareStatus(corvi.Device("eth0"));

    onWait = nullptr;
    QCOMPARE(waits.count(true), 1);
    QCOMPARE(waits.count(false), 3);
}

/// A second start makes a new lock beside a reader that keeps the old one, and ends then: ours is the old
/// one.
void TestCorviSegmentLock::lockThatItsFileLeadsToNoMoreIsNotWaitedFor()
{
    CorviPeer corvi({"eth0"}, DISCOVERED);
    const Reader stuck("--keep-lock");
    QVERIFY(stuck.HasLock());
    corvi.ShareStatus(corvi.Device("eth0"));
    QVERIFY(SegmentNames::LeaveLock(QSharedMemory(ZebNetSegment::KEY).nativeKey()));
    int steps = 0;
    onStep = [&steps](int) {
        ++steps;
    };

    corvi.ShareStatus(corvi.Device("eth0"));

    onStep = nullptr;
    QCOMPARE(steps, 0);
}

/// To let go of it would take the lock, which the tick must not wait for.
void TestCorviSegmentLock::lostSegmentWaitsForItsLock()
{
    CorviPeer corvi(LAN_STATIC, {"eth0"}, SET_UP);
    const QByteArray record = corvi.Segment();
    {
        const Reader stuck("--keep-lock");
        QVERIFY(stuck.HasLock());
        QCOMPARE(QProcess::execute("ipcrm", {"--all=shm"}), 0);
        corvi.Tick(2);
    }

    corvi.Tick();

    QCOMPARE(ReadSegment(), record);
}

void TestCorviSegmentLock::lockThatCannotBeLeftIsNotWaitedFor()
{
    QSharedMemory earlier(SEGMENT_KEY);
    QVERIFY(earlier.create(SEGMENT_SIZE));
    const Reader stuck("--keep-lock");
    QVERIFY(stuck.HasLock());
    const QByteArray lockFile =
        "/tmp/" + QDir("/tmp").entryList({"qipc_systemsem_*"}, QDir::Files).value(0).toLatin1();
    // Nothing can be put in the place of what is mounted.
    QCOMPARE(::mount(lockFile.constData(), lockFile.constData(), nullptr, MS_BIND, nullptr), 0);
    const auto unmounter = qScopeGuard([&lockFile] { ::umount2(lockFile.constData(), MNT_DETACH); });
    QProcess service;

    service.start(QCoreApplication::applicationFilePath(), {"--construct"});

    QVERIFY(service.waitForFinished(LIMIT_MS));
    QCOMPARE(service.exitCode(), 0);
    QVERIFY(service.readAllStandardError().contains("Unable to attach to shared memory segment"));
}

void TestCorviSegmentLock::earlierRecordIsReadUnderTheLock()
{
    MakeInterface("eth0");
    PullCable("eth0");
    WiredDevice eth("eth0", nullptr);
    eth.RefreshStatus();
    QSharedMemory earlier(SEGMENT_KEY);
    QVERIFY(earlier.create(SEGMENT_SIZE));
    // It is true, so that nothing is published, for which the lock would be taken too.
    const QByteArray record = eth.status->GetData();
    std::memcpy(earlier.data(), record.constData(), SEGMENT_SIZE);
    CorviPeer corvi(DISCOVERED);
    Reader reader;
    QVERIFY(reader.HasLock());

    corvi.Tick();

    QCOMPARE(reader.Output(), QByteArray("locked\nawaited\n") + record);
}

namespace {

/// Whether a process waits for the lock, which is a System V semaphore, before half of the limit is over.
bool IsAwaited()
{
    const QStringList files = QDir("/tmp").entryList({"qipc_systemsem_*"}, QDir::Files | QDir::System);
    const QByteArray file = "/tmp/" + files.value(0).toLatin1();
    const int lock = ::semget(::ftok(file.constData(), 'Q'), 1, 0);
    QElapsedTimer timer;
    timer.start();
    while (::semctl(lock, 0, GETNCNT) != 1) {
        if (timer.elapsed() > LIMIT_MS / 2)
            return false;
        QThread::msleep(10);
    }
    return true;
}

int HoldLock(bool untilTheEnd)
{
    QSharedMemory reader(SEGMENT_KEY);
    if (!reader.attach(QSharedMemory::ReadOnly) || !reader.lock())
        return 1;
    Print("locked\n");
    while (untilTheEnd)
        ::pause();
    Print(IsAwaited() ? "awaited\n" : "not awaited\n");
    Print(QByteArray(static_cast<const char *>(reader.constData()), reader.size()));
    reader.unlock();
    return 0;
}

int Construct()
{
    // Ends the process when there is no segment.
    const CorviPeer corvi;
    return 1;
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    // Another program, as the tests need it.
    const QString manner = application.arguments().value(1);
    if (manner == "--hold-lock" || manner == "--keep-lock")
        return HoldLock(manner == "--keep-lock");
    if (manner == "--construct")
        return Construct();
    TestCorviSegmentLock test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_corvi_segment_lock.moc"
