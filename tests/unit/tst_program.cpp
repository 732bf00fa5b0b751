// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "program.h"

#include "fastclock.h"
#include "testsupport.h"

#include <QFile>
#include <QtTest>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <future>

#include <poll.h>
#include <pthread.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

/// Runs in the parent, right after a fork.
void Die()
{
    ::raise(SIGKILL);
}

/// Is killed between the fork for a program and its exec.
[[noreturn]] void DieWhileAProgramStarts()
{
    ::pthread_atfork(nullptr, Die, nullptr);
    Program program;
    program.Start(QStringLiteral("true"), {});
    ::_exit(EXIT_FAILURE);
}

/// Waits by the machine's clock, unlike what sleeps here.
bool ComesUp(const QString &path)
{
    for (int i = 0; i < 6000 && !QFile::exists(path); ++i)
        ::poll(nullptr, 0, 10);
    return QFile::exists(path);
}

void RunOnce(const QString &name)
{
    Program program;
    program.Start(name, {});
    program.WaitForEnd(60000);
}

} // namespace

class TestProgram : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void childOfAKilledProcessEnds();
    void childIgnoresNoSignalThatWeIgnore();
    void programOutlivesAKilledProcess();
    void otherChildrenMayOutliveUs();
    void faultIsToldWithNothingLocked();
    void faultsAreListedUntilTheyAreOver();
    void faultIsNotListedAfterAnHour();
};

void TestProgram::childOfAKilledProcessEnds()
{
    int ends[2] = {-1, -1};
    QCOMPARE(::pipe(ends), 0);
    const pid_t process = ::fork();
    QVERIFY(process != -1);
    if (process == 0)
        DieWhileAProgramStarts();
    ::close(ends[1]);
    int status = 0;
    QCOMPARE(::waitpid(process, &status, 0), process);
    QVERIFY(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);

    // The child, as long as it is there, holds the other end.
    pollfd end = {ends[0], POLLIN, 0};
    const int limitMs = 20000;
    QCOMPARE(::poll(&end, 1, limitMs), 1);
    QVERIFY(end.revents & POLLHUP);
    ::close(ends[0]);
}

void TestProgram::programOutlivesAKilledProcess()
{
    const pid_t process = ::fork();
    QVERIFY(process != -1);
    if (process == 0) {
        Program program;
        program.Start("sh",
                      {"-c", "touch /tmp/up; until [ -e /tmp/go ]; do sleep 0.05; done; touch /tmp/done"});
        ::_exit(ComesUp("/tmp/up") && ::raise(SIGKILL) == 0 ? 0 : EXIT_FAILURE);
    }
    int status = 0;
    QCOMPARE(::waitpid(process, &status, 0), process);
    QVERIFY(WIFSIGNALED(status));

    TestSupport::WriteFile("/tmp/go", "");

    QVERIFY(ComesUp("/tmp/done"));
}

void TestProgram::otherChildrenMayOutliveUs()
{
    Program program;
    program.Start("true", {});
    QVERIFY(program.WaitForEnd(60000));

    const pid_t child = ::fork();
    QVERIFY(child != -1);
    if (child == 0) {
        int signal = -1;
        ::prctl(PR_GET_PDEATHSIG, &signal);
        ::_exit(signal);
    }

    int status = -1;
    QCOMPARE(::waitpid(child, &status, 0), child);
    QCOMPARE(status, 0);
}

void TestProgram::childIgnoresNoSignalThatWeIgnore()
{
    const int numbers[] = {SIGINT, SIGQUIT};
    for (const int number : numbers)
        ::signal(number, SIG_IGN);
    const auto restore = qScopeGuard([&numbers] {
        for (const int number : numbers)
            ::signal(number, SIG_DFL);
    });

    Program program;
    program.Start("sed", {"-n", "s/^SigIgn:\t//p", "/proc/self/status"});
    QVERIFY(program.WaitForEnd(60000));

    bool isNumber = false;
    const quint64 ignored = program.readAll().trimmed().toULongLong(&isNumber, 16);
    QVERIFY(isNumber);
    for (const int number : numbers)
        QVERIFY2((ignored >> (number - 1) & 1) == 0, strsignal(number));
}

/// The log of a fault may ask for the faults, and one that is slow must not hold up the other thread.
void TestProgram::faultIsToldWithNothingLocked()
{
    static QStringList seen;
    const auto previous = qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {
        // On a thread of its own: here, asking would not come back.
        auto faults = std::async(std::launch::async, [] { return Program::Faults(); });
        if (faults.wait_for(std::chrono::seconds(20)) != std::future_status::ready)
            ::_exit(EXIT_FAILURE); // The thread could not be ended otherwise.
        seen = faults.get();
    });

    Program program;
    program.Start("no-such-program", {});
    program.WaitForEnd(1000, 1000);
    qInstallMessageHandler(previous);

    QCOMPARE(seen.size(), 1);
    QVERIFY(seen.first().startsWith("no-such-program cannot be started"));
}

void TestProgram::faultsAreListedUntilTheyAreOver()
{
    QStringList names;
    for (int i = 0; i < 8; ++i) {
        names << QStringLiteral("/tmp/tool%1").arg(i);
        RunOnce(names.last());
    }
    const QStringList faults = Program::Faults().filter("/tmp/tool");
    QCOMPARE(faults.size(), names.size());
    for (int i = 0; i < names.size(); ++i)
        QVERIFY2(faults.at(i).startsWith(names.at(i) + ' '), qPrintable(faults.at(i)));

    QVERIFY(QFile::link("/bin/true", names.first()));
    RunOnce(names.first());

    QCOMPARE(Program::Faults().filter("/tmp/tool").size(), names.size() - 1);
}

void TestProgram::faultIsNotListedAfterAnHour()
{
    RunOnce("/tmp/another-tool");

    FastClock::Advance(std::chrono::minutes(59));
    QCOMPARE(Program::Faults().filter("/tmp/another-tool").size(), 1);

    FastClock::Advance(std::chrono::minutes(1));
    QCOMPARE(Program::Faults().filter("/tmp/another-tool").size(), 0);
}

QTEST_APPLESS_MAIN(TestProgram)
#include "tst_program.moc"
