// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "processsignals.h"

#include <QSocketNotifier>

#include <cerrno>
#include <csignal>

#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr int SIGNALS[] = {SIGTERM, SIGINT, SIGHUP};

/// The self-pipe: a handler may do little more than write (signal-safety(7)).
int pipeEnds[2] = {-1, -1};

/// What the bytes in the pipe stand for: a full pipe takes no more of them.
volatile std::sig_atomic_t terminationWanted = 0;
volatile std::sig_atomic_t reloadWanted = 0;

void HandleSignal(int number)
{
    (number == SIGHUP ? reloadWanted : terminationWanted) = 1;
    const int savedErrno = errno;
    const char byte = 1;
    // A full pipe wakes the event loop as well; there is nothing else to do about a failure here.
    [[maybe_unused]] const ssize_t written = ::write(pipeEnds[1], &byte, 1);
    errno = savedErrno;
}

} // namespace

ProcessSignals::ProcessSignals(QObject *parent) : QObject(parent)
{
    if (::pipe2(pipeEnds, O_CLOEXEC | O_NONBLOCK) != 0) {
        error = qt_error_string();
        return;
    }
    notifier = std::make_unique<QSocketNotifier>(pipeEnds[0], QSocketNotifier::Read);
    connect(notifier.get(), &QSocketNotifier::activated, this, &ProcessSignals::OnReadable);

    struct sigaction action = {};
    action.sa_handler = HandleSignal;
    action.sa_flags = SA_RESTART;
    for (const int number : SIGNALS)
        ::sigaction(number, &action, nullptr);
}

ProcessSignals::~ProcessSignals()
{
    for (const int number : SIGNALS)
        ::signal(number, SIG_DFL);
    notifier.reset(); // Before the descriptor that it watches.
    for (int &end : pipeEnds) {
        if (end != -1)
            ::close(end);
        end = -1;
    }
}

bool ProcessSignals::IsEndAsked()
{
    return terminationWanted != 0;
}

void ProcessSignals::OnReadable()
{
    char bytes[16];
    while (::read(pipeEnds[0], bytes, sizeof bytes) > 0) {
    }
    if (reloadWanted) {
        reloadWanted = 0;
        emit reloadRequested();
    }
    if (terminationWanted) {
        terminationWanted = 0;
        emit terminationRequested();
    }
}
