// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "program.h"

#include "reportonce.h"

#include <QDeadlineTimer>
#include <QHash>
#include <QLoggingCategory>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <mutex>

#include <pthread.h>
#include <sys/prctl.h>
#include <sys/types.h>
#include <unistd.h>

namespace {

/// A killed program ends at once unless the kernel holds it in a call, where waiting longer does not help.
constexpr std::chrono::milliseconds KILL_TIME_LIMIT{1000};

/// How often it is asked whether there still is a point in what a program does.
constexpr std::chrono::milliseconds POINT_INTERVAL{250};

/// Many times what any tool prints that we run.
constexpr qint64 OUTPUT_LIMIT = qint64{16} * 1024 * 1024;

/// What a device still needs it has tried again by then; a settled one may run no program for days.
constexpr std::chrono::hours FAULT_AGE{1};

Q_LOGGING_CATEGORY(programLog, "corvi.program")

struct ProgramFaults
{
    QHash<QString, ReportOnce> reports; ///< by fault
    QString lasting;                    ///< what keeps it from working
    ReportOnce::Time seen;              ///< when that was so last
};

QHash<QString, ProgramFaults> faultsOfPrograms;
std::mutex faultsMutex;

ReportOnce::Telling NoteFault(const QString &program, const QString &fault, bool isLasting)
{
    const std::lock_guard<std::mutex> lock(faultsMutex);
    ProgramFaults &faults = faultsOfPrograms[program];
    faults.lasting = isLasting ? fault : QString();
    faults.seen = ReportOnce::Time::clock::now();
    return faults.reports[fault].Tell(fault, faults.seen);
}

void TellFault(const QString &program, const QString &fault, bool isLasting)
{
    const auto telling = NoteFault(program, fault, isLasting);
    // The log may take its time, and may ask for the faults itself: nothing is locked here.
    if (telling.level == Level::NOTICE)
        qCWarning(programLog, "%s %s %s", qUtf8Printable(program), qUtf8Printable(fault),
                  qUtf8Printable(telling.Summary()));
}

void ForgetFaults(const QString &program)
{
    const std::lock_guard<std::mutex> lock(faultsMutex);
    const auto faults = faultsOfPrograms.find(program);
    if (faults == faultsOfPrograms.end())
        return;
    faults->lasting.clear();
    for (ReportOnce &report : faults->reports)
        report.Over(); // Not forgotten: what fails now and then is told a few times an hour.
}

/// Our process id, while this thread forks for a program.
thread_local pid_t startingProcess = 0;

/// Runs in every child of Qt 5, which has it wait for a word of ours that never comes when we are killed in
/// between, and it holds both ends of what it waits at (forkfd): it would stay for ever. The signal comes
/// with the end of the thread that forked, which does nothing else meanwhile.
void EndWithParent()
{
    if (startingProcess == 0)
        return; // Not for a program: somebody may count on outliving us.
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::getppid() != startingProcess)
        ::_exit(EXIT_FAILURE); // It was killed before it could be followed.
}

/// Runs in the child, right before exec. From here on it outlives us.
void BecomeProgram()
{
    ::prctl(PR_SET_PDEATHSIG, 0);
    ::setpgid(0, 0);
    // Ours ignores them while a shell line runs (shellline.h), or where a script starts it with "&".
    for (const int number : {SIGINT, SIGQUIT})
        ::signal(number, SIG_DFL);
}

} // namespace

Program::Program(QObject *parent) : QProcess(parent)
{
    setStandardInputFile(nullDevice());
    setStandardErrorFile(nullDevice());
#if QT_VERSION >= QT_VERSION_CHECK(6, 0, 0)
    setChildProcessModifier(BecomeProgram);
#endif
    connect(this, &QProcess::readyReadStandardOutput, this, [this] {
        if (bytesAvailable() >= OUTPUT_LIMIT)
            closeReadChannel(StandardOutput); // What was read stays.
    });
}

Program::~Program()
{
    if (state() == NotRunning || processId() <= 0)
        return;
    ::kill(-static_cast<pid_t>(processId()), SIGKILL);
    // QProcess would wait too, but complain about it first.
    waitForFinished(static_cast<int>(KILL_TIME_LIMIT.count()));
}

#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
void Program::setupChildProcess()
{
    BecomeProgram();
}
#endif

void Program::Start(const QString &program, const QStringList &arguments)
{
    [[maybe_unused]] static const int isFollowed = ::pthread_atfork(nullptr, nullptr, EndWithParent);
    startingProcess = ::getpid();
    start(program, arguments, QIODevice::ReadWrite);
    startingProcess = 0;
}

void Program::TellFault(const QString &program, const QString &fault)
{
    ::TellFault(program, fault, true);
}

bool Program::WaitForEnd(int leftMs, int limitMs)
{
    const bool hasEnded = waitForFinished(leftMs);
    TellHowItEnded(limitMs);
    return hasEnded;
}

void Program::WaitForEndUnless(const std::function<bool()> &isPointless, int limitMs)
{
    const QDeadlineTimer deadline(limitMs);
    const auto nextMs = [&deadline] {
        return std::min<qint64>(deadline.remainingTime(), POINT_INTERVAL.count());
    };
    while (!waitForFinished(static_cast<int>(nextMs())) && state() != NotRunning && !deadline.hasExpired())
        if (isPointless())
            return;
    TellHowItEnded(limitMs);
}

void Program::TellHowItEnded(int limitMs) const
{
    const QString fault = Fault(limitMs);
    if (fault.isEmpty())
        ForgetFaults(program());
    else
        ::TellFault(program(), fault, state() == NotRunning);
}

QStringList Program::Faults()
{
    const std::lock_guard<std::mutex> lock(faultsMutex);
    QStringList faults;
    const auto now = ReportOnce::Time::clock::now();
    for (auto entry = faultsOfPrograms.constBegin(); entry != faultsOfPrograms.constEnd(); ++entry)
        if (!entry->lasting.isEmpty() && now - entry->seen < FAULT_AGE)
            faults.append(entry.key() + QLatin1Char(' ') + entry->lasting);
    faults.sort();
    return faults;
}

/// Empty for a program that ended by itself, with any status.
QString Program::Fault(int limitMs) const
{
    if (state() != NotRunning)
        return QStringLiteral("is killed, it still ran after %1 s").arg(limitMs / 1000.0);
    if (error() == FailedToStart)
        return QStringLiteral("cannot be started: ") + errorString();
    return exitStatus() == CrashExit ? QStringLiteral("crashed") : QString();
}
