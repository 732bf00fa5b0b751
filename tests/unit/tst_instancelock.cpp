// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "instancelock.h"

#include "testsupport.h"

#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QtTest>

#include <array>
#include <cerrno>
#include <cstdarg>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

const QString LOCK = QStringLiteral("/run/corvi.lock");
const QString OTHER_LOCK = QStringLiteral("/tmp/corvi.lock");

/// Another process that holds the lock: until it is destroyed, or for a time of its own.
class Holder
{
public:
    explicit Holder(const QString &path, unsigned milliseconds = 0)
    {
        std::array<int, 2> ready = {};
        if (::pipe(ready.data()) != 0)
            qFatal("pipe: %s", strerror(errno));
        pid = ::fork();
        if (pid == 0) {
            const int fd = ::open(QFile::encodeName(path).constData(), O_RDWR | O_CREAT, 0600);
            struct flock lock = {};
            lock.l_type = F_WRLCK;
            if (::fcntl(fd, F_SETLK, &lock) == 0 && ::write(ready[1], "", 1) == 1)
                milliseconds == 0 ? static_cast<void>(::pause())
                                  : static_cast<void>(::usleep(milliseconds * 1000));
            ::_exit(0);
        }
        ::close(ready[1]);
        char byte = 0;
        holds = ::read(ready[0], &byte, 1) == 1;
        ::close(ready[0]);
    }
    ~Holder()
    {
        ::kill(pid, SIGKILL);
        ::waitpid(pid, nullptr, 0);
    }
    Q_DISABLE_COPY(Holder)

    pid_t pid = -1;
    bool holds = false;
};

/// Who has the lock, as another process sees it; 0 for nobody.
pid_t HolderOf(const QString &path)
{
    std::array<int, 2> answer = {};
    if (::pipe(answer.data()) != 0)
        return -1;
    const pid_t child = ::fork();
    if (child == 0) {
        struct flock lock = {};
        lock.l_type = F_RDLCK; // Only what keeps everybody out is in the way of this.
        const int fd = ::open(QFile::encodeName(path).constData(), O_RDWR);
        const bool isAnswered = ::fcntl(fd, F_GETLK, &lock) == 0;
        const pid_t holder = !isAnswered ? -1 : lock.l_type == F_UNLCK ? 0 : lock.l_pid;
        ::_exit(::write(answer[1], &holder, sizeof(holder)) == sizeof(holder) ? 0 : 1);
    }
    ::close(answer[1]);
    pid_t holder = -1;
    if (::read(answer[0], &holder, sizeof(holder)) != sizeof(holder))
        holder = -1;
    ::close(answer[0]);
    ::waitpid(child, nullptr, 0);
    return holder;
}

/// As if the last refusal had been marked so long ago.
bool SetAge(int minutes)
{
    const timespec time = {::time(nullptr) - minutes * 60, 0};
    const std::array<timespec, 2> times = {time, time};
    return ::utimensat(AT_FDCWD, QFile::encodeName(LOCK).constData(), times.data(), 0) == 0;
}

int lockError = 0; ///< what taking a lock ends with, unless 0

} // namespace

/// In the place of the C library's: no lock of another process ends with each of the errors.
extern "C" int fcntl64(int descriptor, int command, ...)
{
    va_list arguments;
    va_start(arguments, command);
    const long argument = va_arg(arguments, long);
    va_end(arguments);
    if (lockError != 0 && command == F_SETLK) {
        errno = lockError;
        return -1;
    }
    return static_cast<int>(::syscall(SYS_fcntl, descriptor, command, argument));
}
extern "C" int fcntl(int, int, ...) __attribute__((alias("fcntl64")));

/// The lock that keeps a second daemon from working beside the first.
class TestInstanceLock : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup();
    void freeLockIsTakenForLife();
    void refusalIsNewsOncePerHolder();
    void refusalIsNewsAgainAfterAnHour_data();
    void refusalIsNewsAgainAfterAnHour();
    void holderIsKnownForAsLongAsItHolds();
    void oneThatIsAboutToEndIsWaitedFor();
    void otherPlaceServesWhereTheFirstIsNotOurs_data();
    void otherPlaceServesWhereTheFirstIsNotOurs();
    void onlyALockThatIsTakenIsRefused_data();
    void onlyALockThatIsTakenIsRefused();
};

/// The lock of this process stays with the removed file.
void TestInstanceLock::cleanup()
{
    QFile::remove(LOCK);
    QFile::remove(OTHER_LOCK);
}

void TestInstanceLock::freeLockIsTakenForLife()
{
    QVERIFY(!InstanceLock::Take());

    QCOMPARE(HolderOf(LOCK), ::getpid());
    QCOMPARE(QFileInfo(LOCK).permissions(),
             QFile::ReadOwner | QFile::WriteOwner | QFile::ReadUser | QFile::WriteUser);
    QVERIFY(!QFileInfo::exists(OTHER_LOCK));
}

void TestInstanceLock::refusalIsNewsOncePerHolder()
{
    {
        const Holder other(LOCK);
        QVERIFY(other.holds);
        const int descriptors = TestSupport::OpenDescriptors();
        for (const bool isNews : {true, false}) {
            const auto refusal = InstanceLock::Take();
            QVERIFY(refusal);
            QCOMPARE(refusal->holder, other.pid);
            QCOMPARE(refusal->isNews, isNews);
        }
        QCOMPARE(TestSupport::OpenDescriptors(), descriptors);
    }

    QVERIFY(!InstanceLock::Take());

    // Who is refused by us is told of us.
    QCOMPARE(QFileInfo(LOCK).size(), 0);
}

void TestInstanceLock::refusalIsNewsAgainAfterAnHour_data()
{
    QTest::addColumn<int>("minutes");
    QTest::addColumn<bool>("isNews");
    QTest::newRow("59 min ago") << 59 << false;
    QTest::newRow("an hour ago") << 60 << true;
    QTest::newRow("before the clock was set back") << -61 << true;
}

void TestInstanceLock::refusalIsNewsAgainAfterAnHour()
{
    QFETCH(int, minutes);
    QFETCH(bool, isNews);
    const Holder other(LOCK);
    QVERIFY(other.holds);
    {
        QFile mark(LOCK);
        QVERIFY(mark.open(QIODevice::WriteOnly) && mark.putChar('1'));
    }
    QVERIFY(SetAge(minutes));

    const auto refusal = InstanceLock::Take();

    QVERIFY(refusal);
    QCOMPARE(refusal->isNews, isNews);
    // What is news leaves a mark of its own time.
    QCOMPARE(qAbs(QFileInfo(LOCK).lastModified().secsTo(QDateTime::currentDateTime())) < 30 * 60, isNews);
}

void TestInstanceLock::holderIsKnownForAsLongAsItHolds()
{
    pid_t holder = 0;
    {
        const Holder other(LOCK);
        holder = other.pid;
        QVERIFY(other.holds);
        const int descriptors = TestSupport::OpenDescriptors();
        QVERIFY(InstanceLock::IsHeldBy(holder));
        QVERIFY(!InstanceLock::IsHeldBy(::getpid()));
        QCOMPARE(TestSupport::OpenDescriptors(), descriptors);
    }

    QVERIFY(!InstanceLock::IsHeldBy(holder));
}

void TestInstanceLock::oneThatIsAboutToEndIsWaitedFor()
{
    const Holder other(LOCK, 300); // Well within the 3 s, well beyond the first look.
    QVERIFY(other.holds);

    QVERIFY(!InstanceLock::Take());

    QCOMPARE(HolderOf(LOCK), ::getpid());
}

void TestInstanceLock::otherPlaceServesWhereTheFirstIsNotOurs_data()
{
    QTest::addColumn<QString>("kind");
    for (const char *kind : {"file of another user", "second name", "symbolic link", "named pipe"})
        QTest::newRow(kind) << kind;
}

void TestInstanceLock::otherPlaceServesWhereTheFirstIsNotOurs()
{
    QFETCH(QString, kind);
    const QByteArray path = QFile::encodeName(LOCK);
    QTemporaryFile other(QStringLiteral("/run/other"));
    QVERIFY(other.open());
    const QByteArray otherPath = QFile::encodeName(other.fileName());
    if (kind == "second name")
        QCOMPARE(::link(otherPath.constData(), path.constData()), 0);
    else if (kind == "symbolic link")
        QCOMPARE(::symlink(otherPath.constData(), path.constData()), 0);
    else if (kind == "named pipe")
        QCOMPARE(::mkfifo(path.constData(), 0600), 0);
    else
        QVERIFY(other.rename(LOCK) && ::chown(path.constData(), 1000, 1000) == 0);

    const int descriptors = TestSupport::OpenDescriptors();

    QVERIFY(!InstanceLock::Take());

    QCOMPARE(HolderOf(OTHER_LOCK), ::getpid());
    // The lock's, and none of the first place.
    QCOMPARE(TestSupport::OpenDescriptors(), descriptors + 1);
}

void TestInstanceLock::onlyALockThatIsTakenIsRefused_data()
{
    QTest::addColumn<int>("error");
    QTest::addColumn<bool>("isRefused");
    QTest::newRow("taken") << EAGAIN << true;
    QTest::newRow("taken, in another system's word") << EACCES << true;
    QTest::newRow("a file system without locks") << ENOLCK << false;
}

void TestInstanceLock::onlyALockThatIsTakenIsRefused()
{
    QFETCH(int, error);
    lockError = error;

    const bool isRefused = InstanceLock::Take().has_value();

    lockError = 0;
    QTEST(isRefused, "isRefused");
}

QTEST_GUILESS_MAIN(TestInstanceLock)
#include "tst_instancelock.moc"
