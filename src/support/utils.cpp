// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "utils.h"

#include "program.h"
#include "timing.h"

#include <QByteArray>
#include <QDeadlineTimer>
#include <QDebug>
#include <QProcess>
#include <QProcessEnvironment>
#include <QThread>

#include <algorithm>
#include <cstddef>
#include <initializer_list>
#include <memory>
#include <queue>

namespace {

void SetEnvironment(QProcess &process)
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("DISPLAY"), QStringLiteral(":0"));
    process.setProcessEnvironment(environment);
}

QString DecodeToFirstNul(const QByteArray &bytes)
{
    const auto end = bytes.indexOf('\0');
    return QString::fromUtf8(bytes.constData(), end == -1 ? bytes.size() : end);
}

} // namespace

QStringList Utils::GetResults(QProcess *process)
{
    if (process->exitStatus() != QProcess::NormalExit)
        return {QStringLiteral("Process Crashed")};
    // A program that could not be started left nothing to read from.
    if (!process->isOpen())
        return {QString()};
    return LinesOf(process->readAll());
}

QStringList Utils::Execute(const QString &program, const QStringList &arguments, bool /*ignored*/)
{
    Program process;
    SetEnvironment(process);
    process.Start(program, arguments);
    process.WaitForEnd(PROGRAM_TIME_LIMIT_MS);
    return GetResults(&process);
}

QVector<QStringList> Utils::ExecuteEach(const QString &program, const QVector<QStringList> &argumentLists,
                                        int limitMs)
{
    const auto most = static_cast<std::size_t>(std::max(1, QThread::idealThreadCount()));
    // For all of them: where each one hangs, a hundred would keep the caller for the better part of an hour.
    const QDeadlineTimer deadline(limitMs);
    QVector<QStringList> results;
    std::queue<std::unique_ptr<Program>> running;
    const auto takeFirst = [&results, &running, &deadline, limitMs] {
        running.front()->WaitForEnd(static_cast<int>(deadline.remainingTime()), limitMs);
        results << GetResults(running.front().get());
        running.pop();
    };
    for (const QStringList &arguments : argumentLists) {
        if (running.size() == most)
            takeFirst();
        if (deadline.hasExpired())
            break;
        running.push(std::make_unique<Program>());
        SetEnvironment(*running.back());
        running.back()->Start(program, arguments);
    }
    while (!running.empty())
        takeFirst();
    results.resize(argumentLists.size());
    return results;
}

bool Utils::Succeeds(const QString &program, const QStringList &arguments)
{
    Program process;
    SetEnvironment(process);
    process.Start(program, arguments);
    return process.WaitForEnd(PROGRAM_TIME_LIMIT_MS) && process.exitStatus() == QProcess::NormalExit &&
           process.exitCode() == 0;
}

QStringList Utils::ExecuteMerged(const QString &program, const QStringList &arguments, int timeoutMs)
{
    return ExecuteMerged(program, arguments, timeoutMs, [] { return false; });
}

QStringList Utils::ExecuteMerged(const QString &program, const QStringList &arguments, int timeoutMs,
                                 const std::function<bool()> &isPointless)
{
    qDebug() << "ExecuteMerged" << program << arguments;
    Program process;
    SetEnvironment(process);
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.setStandardErrorFile(QString()); // Or Qt 6 complains of two ways for one channel.
    process.Start(program, arguments);
    process.WaitForEndUnless(isPointless, timeoutMs);
    return GetResults(&process);
}

bool Utils::SpawnExecute(const QString &program, const QStringList &arguments)
{
    QProcess process;
    SetEnvironment(process);
    process.setProgram(program);
    process.setArguments(arguments);
    qDebug() << "SpawnExecute" << program << arguments;
    const bool started = process.startDetached();
    qDebug() << "SpawnExecute started" << (started ? "true" : "false");
    return started;
}

QStringList Utils::ExecutePiped(const QString &program1, const QStringList &arguments1,
                                const QString &program2, const QStringList &arguments2,
                                const QString &program3, const QStringList &arguments3)
{
    const bool hasThird = !program3.isEmpty();
    Program first;
    Program second;
    Program third;
    for (QProcess *process : {&first, &second, &third})
        SetEnvironment(*process);
    first.setStandardOutputProcess(&second);
    if (hasThird)
        second.setStandardOutputProcess(&third);

    first.Start(program1, arguments1);
    second.Start(program2, arguments2);
    if (hasThird)
        third.Start(program3, arguments3);

    first.WaitForEnd(PROGRAM_TIME_LIMIT_MS);
    second.WaitForEnd(PROGRAM_TIME_LIMIT_MS);
    if (hasThird)
        third.WaitForEnd(PROGRAM_TIME_LIMIT_MS);
    return GetResults(hasThird ? &third : &second);
}

QString Utils::SsidToString(const QString &escaped)
{
    if (!escaped.contains(QStringLiteral("\\x")))
        return escaped;

    QByteArray output;
    int i = 0;
    while (i < escaped.length()) {
        if (escaped.at(i) == QLatin1Char('\\') && i < escaped.length() - 3 &&
            escaped.at(i + 1) == QLatin1Char('x')) {
            output += QByteArray::fromHex(escaped.mid(i + 2, 2).toLatin1());
            i += 4;
            continue;
        }
        output += escaped.at(i).toLatin1();
        ++i;
    }
    return DecodeToFirstNul(output);
}

QStringList Utils::LinesOf(const QByteArray &output)
{
    return DecodeToFirstNul(output).split(QLatin1Char('\n'));
}
