// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "mountpoint.h"
#include "segmentid.h"
#include "statusworld.h"
#include "testsupport.h"

#include <QDir>
#include <QFile>
#include <QLocalSocket>
#include <QScopeGuard>
#include <QtTest>

#include <array>
#include <cerrno>
#include <csignal>

#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

/// As root, every call works. From now on one of the tool's fails.
QProcessEnvironment WithFailingCall(const QString &call, int from = 1, int error = EACCES)
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("LD_PRELOAD", FAILING_CALLS);
    environment.insert("FAILING_CALL", call);
    environment.insert("FAILING_FROM", QString::number(from));
    environment.insert("FAILING_ERROR", QString::number(error));
    // The module comes before a sanitizer, which complains of that.
    environment.insert("ASAN_OPTIONS", environment.value("ASAN_OPTIONS") + ":verify_asan_link_order=0");
    return environment;
}

/// The segment and its lock, as an administrator may do it.
bool OpenToAll(const QSharedMemory &segment)
{
    const int segmentId = ::shmget(KeyOfFile(segment.nativeKey()), 0, 0);
    shmid_ds ofSegment = {};
    if (::shmctl(segmentId, IPC_STAT, &ofSegment) != 0)
        return false;
    ofSegment.shm_perm.mode = 0644;
    const int lockId = ::semget(KeyOfFile(LockFileOf(segment.nativeKey())), 0, 0);
    semid_ds ofLock = {};
    if (::semctl(lockId, 0, IPC_STAT, &ofLock) != 0)
        return false;
    ofLock.sem_perm.mode = 0666;
    return ::shmctl(segmentId, IPC_SET, &ofSegment) == 0 && ::semctl(lockId, 0, IPC_SET, &ofLock) == 0;
}

void RemoveSegment()
{
    QProcess::execute("ipcrm", {"--all"});
    const QDir folder("/tmp");
    for (const QString &name : folder.entryList({"qipc_*"}, QDir::Files | QDir::System))
        TestSupport::Remove(folder.filePath(name));
}

/// Comes to the listener, which has begun to listen.
bool Connect(QLocalSocket &socket)
{
    socket.connectToServer("corvin");
    return socket.waitForConnected(LIMIT_MS);
}

} // namespace

/// What the tool says of calls that fail, and that it fails then itself.
class TestStatusToolFaults : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void segmentThatCannotBeReadIsAFailure_data();
    void segmentThatCannotBeReadIsAFailure();
    void segmentOfAnotherUserIsNotShown_data();
    void segmentOfAnotherUserIsNotShown();
    void partOfAnotherUserIsEnough_data();
    void partOfAnotherUserIsEnough();
    void statusThatAllMayReadIsShownToAnotherUser();
    void keeperOfTheLockIsNamed();
    void socketThatCannotBeMadeIsAFailure();
    void withoutAPipeSignalsEndTheWatchOutright_data();
    void withoutAPipeSignalsEndTheWatchOutright();
    void connectionThatStaysIsGivenUp();
    void connectionIsClosedOnceItsEventIsThere();
};

void TestStatusToolFaults::init()
{
    TestSupport::Remove(SOCKET);
}

void TestStatusToolFaults::segmentThatCannotBeReadIsAFailure_data()
{
    QTest::addColumn<QString>("call");
    QTest::addColumn<int>("from");
    QTest::addColumn<int>("error");
    QTest::addColumn<QString>("reason");

    // The attachment takes the lock too, and gives it back; and it asks for the size, as we do for the maker.
    const QString withoutRights = "permission denied: only the daemon's user may, which is root";
    QTest::newRow("attached") << "shmat" << 1 << EACCES << withoutRights;
    QTest::newRow("attached with no room") << "shmat" << 1 << ENOMEM << "out of resources";
    QTest::newRow("its lock found") << "semget" << 1 << EACCES << withoutRights;
    QTest::newRow("examined") << "shmctl" << 3 << EACCES << "cannot examine the segment: Permission denied";
    QTest::newRow("found among the mappings")
        << "maps" << 1 << EACCES << "cannot examine the segment: Invalid argument";
    QTest::newRow("locked") << "semop" << 3 << EACCES << "unable to lock";
    QTest::newRow("unlocked") << "semop" << 4 << EACCES << "unable to unlock";
}

void TestStatusToolFaults::segmentThatCannotBeReadIsAFailure()
{
    QFETCH(QString, call);
    QFETCH(int, from);
    QFETCH(int, error);
    QFETCH(QString, reason);
    Publisher publisher;
    publisher.Publish(WiredStatus().GetData());

    const Result result = Run({}, WithFailingCall(call, from, error));

    QCOMPARE(result.exitCode, 1);
    QCOMPARE(result.output, QString());
    QVERIFY2(result.error.startsWith("corvi-status: The status cannot be read: "), qPrintable(result.error));
    QVERIFY2(result.error.contains(reason), qPrintable(result.error));
}

void TestStatusToolFaults::segmentOfAnotherUserIsNotShown_data()
{
    QTest::addColumn<bool>("isLocked");

    QTest::newRow("as the daemon would publish") << false;
    QTest::newRow("with a lock that is never given back") << true;
}

void TestStatusToolFaults::segmentOfAnotherUserIsNotShown()
{
    QFETCH(bool, isLocked);
    std::array<int, 2> published = {};
    QCOMPARE(::pipe(published.data()), 0);
    const pid_t user = ::fork();
    if (user == 0) {
        if (::setuid(65534) != 0)
            _exit(1);
        Publisher publisher;
        publisher.Publish(WiredStatus().GetData());
        if (isLocked)
            publisher.segment.lock();
        if (::write(published[1], "", 1) == 1)
            ::pause();
        _exit(1);
    }
    const auto ender = qScopeGuard([user] {
        ::kill(user, SIGKILL);
        ::waitpid(user, nullptr, 0);
        RemoveSegment();
    });
    char byte = 0;
    QCOMPARE(::read(published[0], &byte, 1), ssize_t(1));

    const Result result = Run({});

    QCOMPARE(result.exitCode, 1);
    QCOMPARE(result.output, QString());
    QCOMPARE(result.error, QString("corvi-status: The status cannot be read: it belongs to another user.\n"));
}

void TestStatusToolFaults::partOfAnotherUserIsEnough_data()
{
    QTest::addColumn<bool>("isLock");
    QTest::newRow("segment") << false;
    QTest::newRow("lock") << true;
}

void TestStatusToolFaults::partOfAnotherUserIsEnough()
{
    QFETCH(bool, isLock);
    const QString file = QSharedMemory(KEY).nativeKey();
    const auto removal = qScopeGuard([] { RemoveSegment(); });
    const pid_t user = ::fork();
    if (user == 0) {
        if (::setuid(65534) != 0)
            _exit(1);
        auto *const publisher = new Publisher;
        publisher->Publish(WiredStatus().GetData());
        if (isLock)
            ::shmctl(::shmget(KeyOfFile(file), 0, 0), IPC_RMID, nullptr);
        else
            ::semctl(::semget(KeyOfFile(LockFileOf(file)), 0, 0), 0, IPC_RMID);
        _exit(0); // Without its destructor: what it made stays.
    }
    QCOMPARE(::waitpid(user, nullptr, 0), user);
    QSharedMemory ours(KEY);
    if (isLock)
        QVERIFY(ours.create(512));
    else
        QVERIFY(::semget(KeyOfFile(LockFileOf(file)), 1, IPC_CREAT | 0600) != -1);

    QCOMPARE(Run({}).error,
             QString("corvi-status: The status cannot be read: it belongs to another user.\n"));
}

void TestStatusToolFaults::statusThatAllMayReadIsShownToAnotherUser()
{
    Publisher publisher;
    publisher.Publish(WiredStatus().GetData());
    QVERIFY(OpenToAll(publisher.segment));
    QProcess tool;

    tool.start("setpriv", {"--reuid=65534", "--clear-groups", CORVI_STATUS});

    QVERIFY(tool.waitForFinished(LIMIT_MS));
    QCOMPARE(tool.readAllStandardError(), QByteArray());
    QVERIFY(tool.readAllStandardOutput().contains("10.0.0.5"));
    QCOMPARE(tool.exitCode(), 0);
}

void TestStatusToolFaults::keeperOfTheLockIsNamed()
{
    Publisher publisher;
    QVERIFY(publisher.segment.lock());

    const Result result = Run({});

    QCOMPARE(result.exitCode, 1);
    QCOMPARE(result.error, QString("corvi-status: The status cannot be read: process %1 keeps its lock.\n")
                               .arg(QCoreApplication::applicationPid()));
}

void TestStatusToolFaults::socketThatCannotBeMadeIsAFailure()
{
    QVERIFY(QDir().mkpath(SOCKET));
    const MountPoint taken(SOCKET);

    const Result result = Run({"--watch"});

    QCOMPARE(result.exitCode, 1);
    QCOMPARE(result.output, QString());
    QVERIFY2(result.error.startsWith("corvi-status: QLocalServer::listen: "), qPrintable(result.error));
}

void TestStatusToolFaults::withoutAPipeSignalsEndTheWatchOutright_data()
{
    QTest::addColumn<int>("signal");

    QTest::newRow("terminated") << SIGTERM;
    QTest::newRow("interrupted") << SIGINT;
}

void TestStatusToolFaults::withoutAPipeSignalsEndTheWatchOutright()
{
    QFETCH(int, signal);
    // What a script starts in the background begins with SIGINT ignored, and so does what that starts.
    std::signal(signal, SIG_DFL);
    Watcher watcher({"--watch"}, WithFailingCall("pipe2"));
    QVERIFY(SendEvent(QByteArray::fromHex("00030000")));
    watcher.OutputWith("event 3");

    ::kill(static_cast<pid_t>(watcher.tool.processId()), signal);

    QVERIFY(watcher.tool.waitForFinished(LIMIT_MS));
    QCOMPARE(watcher.tool.exitStatus(), QProcess::CrashExit);
    QCOMPARE(watcher.tool.exitCode(), signal);
}

void TestStatusToolFaults::connectionThatStaysIsGivenUp()
{
    Watcher watcher;
    QVERIFY(SendEvent(QByteArray::fromHex("00030000")));
    watcher.OutputWith("event 3");
    QLocalSocket silent;
    QLocalSocket stalled;
    QVERIFY(Connect(silent) && Connect(stalled));
    stalled.write("ab");
    QVERIFY(stalled.flush());

    QTRY_COMPARE_WITH_TIMEOUT(silent.state(), QLocalSocket::UnconnectedState, 30000);
    QTRY_COMPARE_WITH_TIMEOUT(stalled.state(), QLocalSocket::UnconnectedState, 30000);

    watcher.tool.waitForReadyRead(0);
    QCOMPARE(QString::fromUtf8(watcher.tool.readAllStandardError()),
             QString("corvi-status: an event of 2 bytes instead of 4 was left out\n"));
}

void TestStatusToolFaults::connectionIsClosedOnceItsEventIsThere()
{
    Watcher watcher;
    QVERIFY(SendEvent(QByteArray::fromHex("00030000")));
    watcher.OutputWith("event 3");
    QLocalSocket silent;
    QLocalSocket reporting;
    QVERIFY(Connect(silent) && Connect(reporting));

    reporting.write(QByteArray::fromHex("00030000"));

    QVERIFY(reporting.waitForDisconnected(LIMIT_MS));
    // The one that came before it has the end of its time before it, too.
    QVERIFY(!silent.waitForDisconnected(0));
}

QTEST_GUILESS_MAIN(TestStatusToolFaults)
#include "tst_statustool_faults.moc"
