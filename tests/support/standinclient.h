// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include "testsupport.h"

#include <QFile>
#include <QProcess>

#include <functional>

#include <sys/stat.h>

/// A process that shows as a DHCP client started with these words, and lives until it is ended.
class StandInClient : public QProcess
{
public:
    explicit StandInClient(const QStringList &words, std::function<void()> before = {},
                           const QByteArray &body = {}, const QString &name = QStringLiteral("dhclient"))
        : prepare(std::move(before))
    {
        const QString path = QStringLiteral("/tmp/clients/") + name;
        // The shell keeps the name of its script, and waits for an input that never comes.
        TestSupport::WriteFile(path, "#!/bin/sh\n" + body + "\necho ready\nwhile :; do read -r line; done\n");
        ::chmod(QFile::encodeName(path).constData(), 0755);
#if QT_VERSION >= QT_VERSION_CHECK(6, 0, 0)
        setChildProcessModifier(prepare);
#endif
        start(path, words);
        if (!waitForReadyRead())
            qFatal("the client does not start");
    }
    ~StandInClient() override
    {
        kill();
        waitForFinished();
    }
    bool Lives()
    {
        return !waitForFinished(100);
    }
    int EndedBy()
    {
        return waitForFinished(1000) && exitStatus() == CrashExit ? exitCode() : 0;
    }

private:
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
    void setupChildProcess() override
    {
        if (prepare)
            prepare();
    }
#endif

    std::function<void()> prepare;
};
