// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "processsetting.h"

#include <QByteArray>
#include <QTest>
#include <QVector>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <functional>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

/// Whether it holds in a process of its own, which loses what it needs.
bool HoldsInChild(const std::function<bool()> &question)
{
    const pid_t child = ::fork();
    if (child == 0)
        ::_exit(question() ? 0 : 1);
    int status = -1;
    return ::waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

bool IsNull(int fd)
{
    struct stat here = {};
    struct stat null = {};
    return ::fstat(fd, &here) == 0 && ::stat("/dev/null", &null) == 0 && S_ISCHR(here.st_mode) &&
           here.st_rdev == null.st_rdev;
}

} // namespace

class TestProcessSetting : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void closedStreamsLeadNowhere_data();
    void closedStreamsLeadNowhere();
    void openStreamsStayAndNothingElseIsOpen();
    void inheritedSignalsAreReset();
    void whatWeSetOurselvesStays();
    void missingPathIsSet();
    void pathThatIsSetStays_data();
    void pathThatIsSetStays();
    void readerThatIsGoneEndsNobody();
};

void TestProcessSetting::closedStreamsLeadNowhere_data()
{
    QTest::addColumn<QVector<int>>("closed");
    QTest::newRow("input") << QVector<int>{0};
    QTest::newRow("output") << QVector<int>{1};
    QTest::newRow("error") << QVector<int>{2};
    QTest::newRow("all") << QVector<int>{0, 1, 2};
}

void TestProcessSetting::closedStreamsLeadNowhere()
{
    QFETCH(QVector<int>, closed);

    QVERIFY(HoldsInChild([closed] {
        for (const int fd : closed)
            ::close(fd);
        ProcessSetting::OpenClosedStreams();
        return std::all_of(closed.begin(), closed.end(), IsNull);
    }));
}

void TestProcessSetting::openStreamsStayAndNothingElseIsOpen()
{
    QVERIFY(HoldsInChild([] {
        struct stat before = {};
        struct stat after = {};
        const int next = ::dup(STDOUT_FILENO);
        ::close(next);
        if (::fstat(STDOUT_FILENO, &before) != 0)
            return false;
        ProcessSetting::OpenClosedStreams();
        return ::fstat(STDOUT_FILENO, &after) == 0 && before.st_ino == after.st_ino &&
               ::dup(STDOUT_FILENO) == next;
    }));
}

void TestProcessSetting::inheritedSignalsAreReset()
{
    QVERIFY(HoldsInChild([] {
        sigset_t blocked;
        ::sigemptyset(&blocked);
        ::sigaddset(&blocked, SIGCHLD);
        ::sigprocmask(SIG_SETMASK, &blocked, nullptr);
        ::signal(SIGTERM, SIG_IGN);
        ProcessSetting::ResetSignals();
        ::sigprocmask(SIG_SETMASK, nullptr, &blocked);
        return ::sigismember(&blocked, SIGCHLD) == 0 && ::signal(SIGTERM, SIG_DFL) == SIG_DFL;
    }));
}

void TestProcessSetting::whatWeSetOurselvesStays()
{
    QVERIFY(HoldsInChild([] {
        ProcessSetting::OutliveReaders();
        ProcessSetting::ResetSignals();
        return ::signal(SIGPIPE, SIG_DFL) == SIG_IGN;
    }));
    QVERIFY(HoldsInChild([] {
        const auto handler = [](int) {
        };
        ::signal(SIGUSR1, handler);
        ProcessSetting::ResetSignals();
        return ::signal(SIGUSR1, SIG_DFL) == static_cast<void (*)(int)>(handler);
    }));
}

void TestProcessSetting::missingPathIsSet()
{
    qunsetenv("PATH");

    ProcessSetting::SetMissingPath();

    QCOMPARE(qgetenv("PATH"), QByteArray("/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"));
}

void TestProcessSetting::pathThatIsSetStays_data()
{
    QTest::addColumn<QByteArray>("path");
    QTest::newRow("a folder") << QByteArray("/nowhere");
    QTest::newRow("empty") << QByteArray("");
}

void TestProcessSetting::pathThatIsSetStays()
{
    QFETCH(QByteArray, path);
    qputenv("PATH", path);

    ProcessSetting::SetMissingPath();

    QVERIFY(qEnvironmentVariableIsSet("PATH"));
    QCOMPARE(qgetenv("PATH"), path);
}

void TestProcessSetting::readerThatIsGoneEndsNobody()
{
    QVERIFY(HoldsInChild([] {
        std::signal(SIGPIPE, SIG_DFL); // As it is where nobody has changed it.
        std::array<int, 2> ends = {};
        if (::pipe(ends.data()) != 0)
            return false;
        ::close(ends[0]);
        ProcessSetting::OutliveReaders();
        return ::write(ends[1], "x", 1) == -1 && errno == EPIPE;
    }));
}

QTEST_GUILESS_MAIN(TestProcessSetting)
#include "tst_processsetting.moc"
