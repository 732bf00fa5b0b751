// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

// From the start of the process to the line that tells that the service object exists, beside that of a
// program that makes an application object and nothing else.

#include "sandboxed.h"

#include <QCoreApplication>
#include <QElapsedTimer>

namespace {

double SecondsToCreation(const char *program)
{
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("QT_LOGGING_TO_CONSOLE"), QStringLiteral("1"));
    process.setProcessEnvironment(environment);
    process.setProcessChannelMode(QProcess::MergedChannels);
    QElapsedTimer timer;
    timer.start();
    process.start(QString::fromLocal8Bit(program), QStringList());

    QByteArray output;
    while (!output.contains("Corvi::Corvi  Created")) {
        if (!process.waitForReadyRead(10000))
            Sandboxed::Fail("see the service object created");
        output += process.readAll();
    }
    const double seconds = static_cast<double>(timer.nsecsElapsed()) / 1e9;
    process.kill();
    process.waitForFinished(-1);
    return seconds;
}

void MeasureStart(benchmark::State &state, const char *program)
{
    for (auto _ : state)
        state.SetIterationTime(SecondsToCreation(program));
}

BENCHMARK_CAPTURE(MeasureStart, Floor, BARE_PROGRAM)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(MeasureStart, Daemon, DAEMON)->UseManualTime()->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    return Sandboxed::RunBenchmarks(argc, argv);
}
