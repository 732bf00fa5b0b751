// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "terminationsignals.h"

#include "logging.h"

#include <QSocketNotifier>

#include <cerrno>
#include <csignal>

#include <fcntl.h>
#include <unistd.h>

namespace {

/// The self-pipe: a handler may do little more than write (signal-safety(7)).
int pipeEnds[2] = {-1, -1};

void HandleSignal(int /*number*/)
{
    const int savedErrno = errno;
    const char byte = 1;
    // A full pipe already holds a request; there is nothing else to do about a failure here.
    [[maybe_unused]] const ssize_t written = ::write(pipeEnds[1], &byte, 1);
    errno = savedErrno;
}

} // namespace

TerminationSignals::TerminationSignals(QObject *parent) : QObject(parent)
{
    if (::pipe2(pipeEnds, O_CLOEXEC | O_NONBLOCK) != 0) {
        const QString reason = qt_error_string();
        Log(Level::NOTICE) << "TerminationSignals -- no pipe, a signal ends the daemon without its shutdown:"
                           << reason;
        return;
    }
    notifier = std::make_unique<QSocketNotifier>(pipeEnds[0], QSocketNotifier::Read);
    connect(notifier.get(), &QSocketNotifier::activated, this, &TerminationSignals::OnReadable);

    struct sigaction action = {};
    action.sa_handler = HandleSignal;
    action.sa_flags = SA_RESTART;
    ::sigaction(SIGTERM, &action, nullptr);
    ::sigaction(SIGINT, &action, nullptr);
}

TerminationSignals::~TerminationSignals()
{
    ::signal(SIGTERM, SIG_DFL);
    ::signal(SIGINT, SIG_DFL);
    notifier.reset(); // Before the descriptor that it watches.
    for (int &end : pipeEnds) {
        if (end != -1)
            ::close(end);
        end = -1;
    }
}

void TerminationSignals::OnReadable()
{
    char bytes[16];
    while (::read(pipeEnds[0], bytes, sizeof bytes) > 0) {
    }
    emit terminationRequested();
}
