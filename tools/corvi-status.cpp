// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "addresswait.h"
#include "commandline.h"
#include "eventlistener.h"
#include "output.h"
#include "processsignals.h"
#include "reporttext.h"
#include "statusreader.h"
#include "statustext.h"
#include "supportreport.h"
#include "systemfacts.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDateTime>
#include <QLoggingCategory>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>

#include <unistd.h>

namespace {

/// Of --wait.
constexpr int TIMED_OUT = 2;

/// What cannot be written to standard error can be told nowhere.
void Complain(const QString &text)
{
    static_cast<void>(Print(stderr, QStringLiteral("corvi-status: %1\n").arg(text)));
}

int Fail(const QString &reason)
{
    Complain(reason);
    return EXIT_FAILURE;
}

/// The exit status: whoever reads the output must not take a part of it, or nothing, for the whole.
int Show(const QString &text)
{
    if (Print(stdout, text))
        return EXIT_SUCCESS;
    return Fail(QStringLiteral("cannot write: ") + QString::fromLocal8Bit(std::strerror(errno)));
}

int ShowStatus(bool asJson)
{
    const StatusReading reading = ReadStatus();
    if (reading.outcome == StatusReading::Outcome::NoDaemon ||
        reading.outcome == StatusReading::Outcome::Unreadable)
        return Fail(StatusText::ForPerson(reading).trimmed());
    return Show(asJson ? JsonLine(StatusText::ForProgram(reading)) : StatusText::ForPerson(reading));
}

int ShowAll(bool asJson)
{
    const SystemReport report = SystemFacts::Read();
    if (asJson)
        return Show(JsonLine(ReportText::ForProgram(report)));
    return Show(ReportText::ForPerson(report, ::isatty(STDOUT_FILENO) == 1));
}

QString EventForProgram(const QString &time, int code, int status, const StatusReading &reading)
{
    return JsonLine({{QStringLiteral("time"), time},
                     {QStringLiteral("event"), code},
                     {QStringLiteral("status"), status},
                     {QStringLiteral("meaning"), StatusText::EventMeaning(code, status)},
                     {QStringLiteral("record"), StatusText::ForProgram(reading)}});
}

QString EventForPerson(const QString &time, int code, int status, const StatusReading &reading)
{
    QString record = StatusText::ForPerson(reading).trimmed();
    record.replace(QLatin1Char('\n'), QStringLiteral("\n  "));
    return QStringLiteral("%1  event %2, status %3: %4\n  ")
               .arg(time)
               .arg(code)
               .arg(status)
               .arg(StatusText::EventMeaning(code, status)) +
           record + QLatin1Char('\n');
}

int WatchEvents(bool asJson)
{
    EventListener listener;
    QObject::connect(&listener, &EventListener::eventReceived, &listener, [asJson](int code, int status) {
        const QString time = QDateTime::currentDateTime().toString(Qt::ISODateWithMs);
        // The daemon puts the record in place before it sends the event.
        const StatusReading reading = ReadStatus();
        const int outcome = Show(asJson ? EventForProgram(time, code, status, reading)
                                        : EventForPerson(time, code, status, reading));
        if (outcome != EXIT_SUCCESS)
            QCoreApplication::exit(outcome);
    });
    QObject::connect(&listener, &EventListener::brokenEvent, &listener, [](int byteCount) {
        Complain(QStringLiteral("an event of %1 bytes instead of 4 was left out").arg(byteCount));
    });

    QString error;
    if (!listener.Listen(error))
        return Fail(error);
    // Each ends the event loop, so that the socket is removed; nothing is there to be reloaded.
    const ProcessSignals signalSource(nullptr);
    QObject::connect(&signalSource, &ProcessSignals::terminationRequested, qApp, &QCoreApplication::quit);
    QObject::connect(&signalSource, &ProcessSignals::reloadRequested, qApp, &QCoreApplication::quit);
    return QCoreApplication::exec();
}

/// The options, each named once.
class CommandLine
{
public:
    void Parse(const QCoreApplication &application)
    {
        parser.setApplicationDescription(
            QStringLiteral("Shows the network status that the Corvi daemon publishes."));
        parser.addHelpOption();
        parser.addVersionOption();
        parser.addOptions({json, all, watch, wait, interface, timeout, report});
        parser.process(application);
    }

    /// Why the options make no sense together; empty when they do.
    QString Problem() const
    {
        if (!parser.positionalArguments().isEmpty())
            return QStringLiteral("unexpected argument: ") + parser.positionalArguments().constFirst();
        if (int(IsSet(all)) + int(IsSet(watch)) + int(IsSet(wait)) + int(IsSet(report)) > 1)
            return QStringLiteral("--all, --watch, --wait and --report are for one at a time");
        if (!IsSet(wait) && (IsSet(interface) || IsSet(timeout)))
            return QStringLiteral("--interface and --timeout go with --wait");
        if (IsSet(json) && (IsSet(wait) || IsSet(report)))
            return QStringLiteral("--wait and --report have nothing to print with --json");
        if (IsSet(report) && ReportFolder().isEmpty())
            return QStringLiteral("--report needs a folder");
        if (IsSet(timeout) && !Timeout())
            return QStringLiteral("not a number of seconds: ") + parser.value(timeout);
        return QString();
    }

    bool IsSet(const QCommandLineOption &option) const { return parser.isSet(option); }
    QString Interface() const { return parser.value(interface); }
    QString ReportFolder() const { return parser.value(report); }

    std::optional<std::chrono::seconds> Timeout() const
    {
        bool isNumber = false;
        const uint seconds = parser.value(timeout).toUInt(&isNumber);
        return isNumber ? std::make_optional(std::chrono::seconds(seconds)) : std::nullopt;
    }

    const QCommandLineOption json = Option("json", "Print for a program: one JSON object a line.");
    const QCommandLineOption all =
        Option("all", "Print all that is known of each interface, and what it waits for.");
    const QCommandLineOption watch = Option("watch", "Print each event as it comes, until interrupted.");
    const QCommandLineOption wait = Option("wait", "End when an interface has an address.");
    const QCommandLineOption report = Option(
        "report", "Collect what a support engineer asks for in an archive, without secrets.", "folder");

private:
    const QCommandLineOption interface = Option("interface", "Wait for this one.", "name");
    const QCommandLineOption timeout =
        Option("timeout", "Wait no longer; the exit status is then 2.", "seconds");
    QCommandLineParser parser;
};

int WaitForAddress(const CommandLine &commandLine)
{
    const QString interface = commandLine.Interface();
    if (AddressWait::Wait(interface, commandLine.Timeout()))
        return EXIT_SUCCESS;
    Complain(QStringLiteral("no address in time: ") + AddressWait::Reasons(SystemFacts::Read(), interface));
    return TIMED_OUT;
}

int WriteReport(const QString &folder)
{
    const SupportReport::Outcome outcome = SupportReport::Write(folder);
    return outcome.archive.isEmpty() ? Fail(outcome.error) : Show(outcome.archive + QLatin1Char('\n'));
}

int Run(const CommandLine &commandLine)
{
    const bool asJson = commandLine.IsSet(commandLine.json);
    if (commandLine.IsSet(commandLine.all))
        return ShowAll(asJson);
    if (commandLine.IsSet(commandLine.watch))
        return WatchEvents(asJson);
    if (commandLine.IsSet(commandLine.wait))
        return WaitForAddress(commandLine);
    if (commandLine.IsSet(commandLine.report))
        return WriteReport(commandLine.ReportFolder());
    return ShowStatus(asJson);
}

} // namespace

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationVersion(QStringLiteral(CORVI_VERSION));
    // What the daemon's own parts tell of each program that they run.
    QLoggingCategory::setFilterRules(QStringLiteral("default.debug=false"));

    CommandLine commandLine;
    commandLine.Parse(application);
    const QString problem = commandLine.Problem();
    return problem.isEmpty() ? Run(commandLine) : Fail(problem);
}
