// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "program.h"

#include <chrono>
#include <csignal>

#include <sys/types.h>
#include <unistd.h>

namespace {

/// A killed program ends at once unless the kernel holds it in a call, where waiting longer does not help.
constexpr std::chrono::milliseconds KILL_TIME_LIMIT{1000};

} // namespace

Program::Program(QObject *parent) : QProcess(parent)
{
    setStandardInputFile(nullDevice());
    setStandardErrorFile(nullDevice());
}

Program::~Program()
{
    if (state() == NotRunning || processId() <= 0)
        return;
    ::kill(-static_cast<pid_t>(processId()), SIGKILL);
    // QProcess would wait too, but complain about it first.
    waitForFinished(static_cast<int>(KILL_TIME_LIMIT.count()));
}

void Program::setupChildProcess()
{
    ::setpgid(0, 0);
}
