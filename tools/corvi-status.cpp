// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "eventlistener.h"
#include "processsignals.h"
#include "reporttext.h"
#include "statusreader.h"
#include "statustext.h"
#include "systemfacts.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDateTime>
#include <QJsonDocument>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <unistd.h>

namespace {

[[nodiscard]] bool Print(FILE *stream, const QString &text)
{
    const QByteArray bytes = text.toUtf8();
    const auto size = static_cast<size_t>(bytes.size());
    return std::fwrite(bytes.constData(), 1, size, stream) == size && std::fflush(stream) == 0;
}

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

QString JsonLine(const QJsonObject &object)
{
    return QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact)) + QLatin1Char('\n');
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

} // namespace

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("corvi-status"));
    QCoreApplication::setApplicationVersion(QStringLiteral(CORVI_VERSION));

    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Shows the network status that the Corvi daemon publishes."));
    parser.addHelpOption();
    parser.addVersionOption();
    const QCommandLineOption json(QStringLiteral("json"),
                                  QStringLiteral("Print for a program: one JSON object a line."));
    const QCommandLineOption watch(QStringLiteral("watch"),
                                   QStringLiteral("Print each event as it comes, until interrupted."));
    const QCommandLineOption all(
        QStringLiteral("all"),
        QStringLiteral("Print all that is known of each interface, and what it waits for."));
    parser.addOptions({json, watch, all});
    parser.process(application);
    if (!parser.positionalArguments().isEmpty())
        return Fail(QStringLiteral("unexpected argument: ") + parser.positionalArguments().constFirst());

    if (parser.isSet(all))
        return ShowAll(parser.isSet(json));
    return parser.isSet(watch) ? WatchEvents(parser.isSet(json)) : ShowStatus(parser.isSet(json));
}
