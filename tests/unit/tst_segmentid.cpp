// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "segmentid.h"

#include "testsupport.h"

#include <QtTest>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdarg>
#include <cstring>
#include <functional>
#include <optional>
#include <utility>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace std::chrono_literals;

namespace {

const QString MAPS = QStringLiteral("/tmp/maps");
const QString SEGMENT_FILE = QStringLiteral("/tmp/qipc_sharedmemory_test");

/// The lock of a segment, as Qt makes it.
class Lock
{
public:
    Lock()
    {
        const QString file = LockFileOf(SEGMENT_FILE);
        TestSupport::WriteFile(file, "");
        id = ::semget(::ftok(QFile::encodeName(file).constData(), 'Q'), 1, IPC_CREAT | 0600);
        if (id == -1 || ::semctl(id, 0, SETVAL, 1) != 0)
            qFatal("semaphore: %s", strerror(errno));
    }
    ~Lock() { ::semctl(id, 0, IPC_RMID); }
    Q_DISABLE_COPY(Lock)

    bool Step(short value, short flags = SEM_UNDO) const
    {
        sembuf step = {0, value, flags};
        return ::semop(id, &step, 1) == 0;
    }
    int Value() const { return ::semctl(id, 0, GETVAL); }
    int WaitingCount() const { return ::semctl(id, 0, GETNCNT); }

private:
    int id = -1;
};

/// Another process that has the lock, until it is destroyed or `deed` has ended.
class Keeper
{
public:
    template <typename Deed> Keeper(const Lock &lock, Deed deed)
    {
        std::array<int, 2> ready = {};
        if (::pipe(ready.data()) != 0)
            qFatal("pipe: %s", strerror(errno));
        pid = ::fork();
        if (pid == 0) {
            if (lock.Step(-1) && ::write(ready[1], "", 1) == 1)
                deed();
            ::_exit(0);
        }
        ::close(ready[1]);
        char byte = 0;
        hasLock = ::read(ready[0], &byte, 1) == 1;
        ::close(ready[0]);
    }
    ~Keeper()
    {
        ::kill(pid, SIGKILL);
        ::waitpid(pid, nullptr, 0);
    }
    Q_DISABLE_COPY(Keeper)

    pid_t pid = -1;
    bool hasLock = false;
};

void AwaitWaiter(const Lock &lock)
{
    while (lock.WaitingCount() != 1)
        ::usleep(10000);
}

std::function<void()> beforeTheLookAtAProcess; ///< done once
int errorOfTheLookAtAProcess = 0;              ///< what the look ends with, unless 0

int interruption = -1; ///< the end of a pipe that an interrupted wait writes to

} // namespace

/// In the place of the C library's: the list of our own mappings is a file of the test.
extern "C" int open64(const char *path, int flags, ...)
{
    using Open = int (*)(const char *, int, ...);
    static const auto real = reinterpret_cast<Open>(::dlsym(RTLD_NEXT, "open64"));
    // A mode that is not given is not looked at.
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return real(std::strcmp(path, "/proc/self/maps") == 0 ? "/tmp/maps" : path, flags, mode);
}

/// In the place of the C library's: what others do in the midst of a look at a process, or that we may not
/// look.
extern "C" int kill(pid_t pid, int signal) noexcept
{
    using Kill = int (*)(pid_t, int);
    static const auto real = reinterpret_cast<Kill>(::dlsym(RTLD_NEXT, "kill"));
    if (signal == 0 && beforeTheLookAtAProcess)
        std::exchange(beforeTheLookAtAProcess, nullptr)();
    if (signal == 0 && errorOfTheLookAtAProcess != 0) {
        errno = errorOfTheLookAtAProcess;
        return -1;
    }
    return real(pid, signal);
}

/// Which segment stands at an address, by the list of the process's mappings.
class TestSegmentId : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void segmentIsFoundByItsRange_data();
    void segmentIsFoundByItsRange();
    void listThatCannotBeReadNamesNone();
    void lockIsNamedAsItsSegment();
    void nobodyKeepsALockThatIsNotThere();
    void nobodyKeepsAFreeLock();
    void keeperOfTheLockIsNamed_data();
    void keeperOfTheLockIsNamed();
    void lockThatIsGivenBackInTimeIsNotKept();
    void lockOfOneThatHasEndedIsFreed();
    void lockOfAnotherUsersProcessIsHis();
    void lockThatAnotherHasTakenMeanwhileIsHis();
    void interruptedWaitGoesOn();
};

void TestSegmentId::segmentIsFoundByItsRange_data()
{
    QTest::addColumn<QByteArray>("maps");
    QTest::addColumn<int>("id");

    const QByteArray own = "00006000-00008000 rw-s 00000000 00:01 42     /SYSV51 (deleted)\n";
    QTest::newRow("one line") << own << 42;
    QTest::newRow("another segment") << QByteArray("00001000-00002000 rw-s 00000000 00:01 41 /SYSV52\n")
                                     << -1;
    QTest::newRow("after another segment")
        << "00001000-00002000 rw-s 00000000 00:01 41 /SYSV52\n" + own << 42;
    QTest::newRow("its beginning") << QByteArray("7000-8000 rw-s 00000000 00:01 42\n") << 42;
    QTest::newRow("behind its end") << QByteArray("6000-7000 rw-s 00000000 00:01 42\n") << -1;
    QTest::newRow("line of too few fields") << "6000-8000 rw-s 00000000 7\n" + own << 42;
    QTest::newRow("line without a range") << "heap rw-s 00000000 00:01 7\n" + own << 42;
    QTest::newRow("line with more than a range") << "6000-8000-9000 rw-s 00000000 00:01 7\n" + own << 42;
    QTest::newRow("no line") << QByteArray() << -1;
}

void TestSegmentId::segmentIsFoundByItsRange()
{
    QFETCH(QByteArray, maps);
    TestSupport::WriteFile(MAPS, maps);

    QTEST(SegmentIdAt(reinterpret_cast<const void *>(0x7000)), "id");
}

void TestSegmentId::listThatCannotBeReadNamesNone()
{
    TestSupport::Remove(MAPS);

    QCOMPARE(SegmentIdAt(reinterpret_cast<const void *>(0x7000)), -1);
}

void TestSegmentId::lockIsNamedAsItsSegment()
{
    // As Qt names the two files.
    QCOMPARE(LockFileOf("/tmp/qipc_sharedmemory_key0123"), QString("/tmp/qipc_systemsem_key0123"));
}

void TestSegmentId::nobodyKeepsALockThatIsNotThere()
{
    TestSupport::Remove(LockFileOf(SEGMENT_FILE));

    QVERIFY(!KeeperOfLock(SEGMENT_FILE, 0ms));
}

void TestSegmentId::nobodyKeepsAFreeLock()
{
    const Lock lock;

    QVERIFY(!KeeperOfLock(SEGMENT_FILE, 0ms));

    QCOMPARE(lock.Value(), 1);
}

void TestSegmentId::keeperOfTheLockIsNamed_data()
{
    QTest::addColumn<int>("limitMs");
    for (const int limitMs : {0, 300, 1200})
        QTest::addRow("%d ms", limitMs) << limitMs;
}

void TestSegmentId::keeperOfTheLockIsNamed()
{
    QFETCH(int, limitMs);
    const Lock lock;
    const Keeper keeper(lock, ::pause);
    QVERIFY(keeper.hasLock);
    QElapsedTimer timer;
    timer.start();

    const std::optional<pid_t> found = KeeperOfLock(SEGMENT_FILE, std::chrono::milliseconds(limitMs));

    QVERIFY2(timer.elapsed() >= limitMs, qPrintable(QString::number(timer.elapsed())));
    QVERIFY(found);
    QCOMPARE(*found, keeper.pid);
}

void TestSegmentId::lockThatIsGivenBackInTimeIsNotKept()
{
    const Lock lock;
    const Keeper reader(lock, [&lock] { AwaitWaiter(lock); });
    QVERIFY(reader.hasLock);

    QVERIFY(!KeeperOfLock(SEGMENT_FILE, 60s));

    QCOMPARE(lock.Value(), 1);
}

/// As by a program that takes it without SEM_UNDO.
void TestSegmentId::lockOfOneThatHasEndedIsFreed()
{
    const Lock lock;
    const pid_t keeper = ::fork();
    if (keeper == 0)
        ::_exit(lock.Step(-1, 0) ? 0 : 1);
    QCOMPARE(::waitpid(keeper, nullptr, 0), keeper);
    QCOMPARE(lock.Value(), 0);

    QVERIFY(!KeeperOfLock(SEGMENT_FILE, 0ms));

    QCOMPARE(lock.Value(), 1);
}

void TestSegmentId::lockOfAnotherUsersProcessIsHis()
{
    const Lock lock;
    const Keeper keeper(lock, ::pause);
    QVERIFY(keeper.hasLock);
    errorOfTheLookAtAProcess = EPERM;

    const std::optional<pid_t> found = KeeperOfLock(SEGMENT_FILE, 0ms);

    errorOfTheLookAtAProcess = 0;
    QVERIFY(found);
    QCOMPARE(*found, keeper.pid);
    QCOMPARE(lock.Value(), 0);
}

void TestSegmentId::lockThatAnotherHasTakenMeanwhileIsHis()
{
    const Lock lock;
    std::optional<Keeper> first;
    std::optional<Keeper> second;
    first.emplace(lock, ::pause);
    QVERIFY(first->hasLock);
    beforeTheLookAtAProcess = [&] {
        first.reset();
        second.emplace(lock, ::pause);
    };

    const std::optional<pid_t> found = KeeperOfLock(SEGMENT_FILE, 0ms);

    QVERIFY(second && second->hasLock);
    QCOMPARE(lock.Value(), 0);
    QVERIFY(found);
    QCOMPARE(*found, second->pid);
}

/// As by the end of a child, in the midst of the wait.
void TestSegmentId::interruptedWaitGoesOn()
{
    std::array<int, 2> interrupted = {};
    QCOMPARE(::pipe(interrupted.data()), 0);
    interruption = interrupted[1];
    struct sigaction noted = {};
    noted.sa_handler = [](int) {
        [[maybe_unused]] const ssize_t ignored = ::write(interruption, "", 1);
    };
    QCOMPARE(::sigaction(SIGUSR1, &noted, nullptr), 0);
    const Lock lock;
    const Keeper keeper(lock, [&] {
        AwaitWaiter(lock);
        ::kill(::getppid(), SIGUSR1);
        char byte = 0;
        if (::read(interrupted[0], &byte, 1) == 1)
            AwaitWaiter(lock);
        lock.Step(1);
        ::pause();
    });
    QVERIFY(keeper.hasLock);

    QVERIFY(!KeeperOfLock(SEGMENT_FILE, 60s));

    // Not before the keeper gave it back.
    QCOMPARE(lock.Value(), 1);
    ::close(interrupted[0]);
    ::close(interrupted[1]);
}

QTEST_GUILESS_MAIN(TestSegmentId)
#include "tst_segmentid.moc"
