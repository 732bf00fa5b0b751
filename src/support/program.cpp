// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "program.h"

#include <csignal>

#include <sys/types.h>
#include <unistd.h>

Program::~Program()
{
    if (state() != NotRunning && processId() > 0)
        ::kill(-static_cast<pid_t>(processId()), SIGKILL);
}

void Program::setupChildProcess()
{
    ::setpgid(0, 0);
}
