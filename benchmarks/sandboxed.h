// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <QByteArray>
#include <QDebug>
#include <QProcess>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>

#include <unistd.h>

/// What the benchmarks that touch interfaces and files of the system share.
namespace Sandboxed {

/// Runs the program's benchmarks; the debug output, which would be measured too, goes nowhere.
inline int RunBenchmarks(int argc, char *argv[])
{
    char name[64] = {};
    if (::gethostname(name, sizeof name - 1) != 0 || qstrcmp(name, "corvi-sandbox") != 0) {
        std::fputs("not in the sandbox; run this through benchmarks/run.sh\n", stderr);
        return 1;
    }
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {});
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}

[[noreturn]] inline void Fail(const char *what)
{
    std::fprintf(stderr, "cannot %s\n", what);
    std::abort();
}

/// Runs `ip` with one command a line.
inline void Ip(const QByteArray &commands)
{
    QProcess ip;
    ip.start(QStringLiteral("ip"), {QStringLiteral("-batch"), QStringLiteral("-")});
    ip.write(commands);
    ip.closeWriteChannel();
    if (!ip.waitForFinished(-1) || ip.exitCode() != 0)
        Fail(("ip: " + ip.readAllStandardError()).constData());
}

} // namespace Sandboxed
