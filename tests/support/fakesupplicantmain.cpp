// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

// A fake supplicant as a program of its own: see FakeSupplicantProcess, which starts it.
//
//   -iINTERFACE          the interface whose socket it binds
//   --silent=COMMAND     does not answer this command
//   --ignore-term        does not end by SIGTERM
//   --associated         was let in
// All else is ignored. SIGUSR1 closes its socket, and it lives on. It closes its standard output when it
// listens.

#include "fakesupplicant.h"

#include <csignal>

#include <unistd.h>

int main(int argc, char *argv[])
{
    QString interfaceName = QStringLiteral("wlan0");
    QList<QByteArray> silent;
    bool isAssociated = false;
    for (int i = 1; i < argc; ++i) {
        const QByteArray argument = argv[i];
        if (argument.startsWith("-i"))
            interfaceName = QString::fromLocal8Bit(argument.mid(2));
        else if (argument.startsWith("--silent="))
            silent << argument.mid(9);
        else if (argument == "--ignore-term")
            std::signal(SIGTERM, SIG_IGN);
        else if (argument == "--associated")
            isAssociated = true;
    }

    sigset_t closing;
    sigemptyset(&closing);
    sigaddset(&closing, SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &closing, nullptr);
    FakeSupplicant supplicant(interfaceName);
    for (const QByteArray &command : qAsConst(silent))
        supplicant.SetSilent(command);
    if (isAssociated)
        supplicant.SetReply("STATUS", "wpa_state=COMPLETED\n");
    close(STDOUT_FILENO);
    for (int number = 0;;) {
        sigwait(&closing, &number);
        supplicant.Die();
    }
}
