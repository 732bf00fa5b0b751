// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "zebsystem.h"

#include <QProcess>
#include <QSysInfo>

int ZebSystem::execShell(const QString &commandLine)
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    // An interactive shell would know it; the daemon is not started by one.
    if (!environment.contains(QStringLiteral("HOSTNAME")))
        environment.insert(QStringLiteral("HOSTNAME"), QSysInfo::machineHostName());

    QProcess shell;
    shell.setProcessEnvironment(environment);
    // The caller's own channels, as with system(3): a background job of the line that keeps a pipe open
    // must not keep us waiting for it.
    shell.setProcessChannelMode(QProcess::ForwardedChannels);
    shell.setInputChannelMode(QProcess::ForwardedInputChannel);
    shell.start(QStringLiteral("/bin/sh"), {QStringLiteral("-c"), commandLine});
    if (!shell.waitForStarted(-1) || !shell.waitForFinished(-1))
        return -1;
    return shell.exitStatus() == QProcess::NormalExit ? shell.exitCode() : -1;
}
