// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "processsetting.h"

#include <csignal>
#include <cstdlib>

#include <fcntl.h>
#include <unistd.h>

namespace {

/// As systemd's and the shell's own.
constexpr const char *DEFAULT_PATH = "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin";

} // namespace

void ProcessSetting::OpenClosedStreams()
{
    // The lowest number that is free is given out first (open(2)). Inherited by what we start.
    int fd = -1;
    do
        fd = ::open("/dev/null", O_RDWR);
    while (fd != -1 && fd <= STDERR_FILENO);
    if (fd != -1)
        ::close(fd);
}

void ProcessSetting::ResetSignals()
{
    for (int number = 1; number < NSIG; ++number) {
        struct sigaction inherited = {};
        // A handler is not inherited (execve(2)). That SIGPIPE is ignored is our own doing.
        if (number != SIGPIPE && ::sigaction(number, nullptr, &inherited) == 0 &&
            inherited.sa_handler == SIG_IGN)
            ::signal(number, SIG_DFL);
    }
    sigset_t none;
    ::sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
}

void ProcessSetting::SetMissingPath()
{
    ::setenv("PATH", DEFAULT_PATH, 0);
}

void ProcessSetting::OutliveReaders()
{
    ::signal(SIGPIPE, SIG_IGN);
}
