// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include "zebnetstatus.h"

#include <QLocalSocket>
#include <QProcess>
#include <QSharedMemory>
#include <QtTest>

#include <cstring>

/// What the tests of corvi-status share: the tool as a person starts it, and a daemon that publishes.

inline const QString KEY = QStringLiteral("com.qarbo.zebnetstatus");
inline const QString SOCKET = QStringLiteral("/tmp/corvin");

/// Of every wait for the tool: only a tool that hangs takes that long, on a busy machine, too.
constexpr int LIMIT_MS = 60000;

struct Result
{
    int exitCode = -1;
    QString output;
    QString error;
};

inline Result Run(const QStringList &arguments,
                  const QProcessEnvironment &environment = QProcessEnvironment::systemEnvironment())
{
    QProcess tool;
    tool.setProcessEnvironment(environment);
    tool.start(QStringLiteral(CORVI_STATUS), arguments);
    if (!tool.waitForFinished(LIMIT_MS) || tool.exitStatus() != QProcess::NormalExit)
        return {};
    return {tool.exitCode(), QString::fromUtf8(tool.readAllStandardOutput()),
            QString::fromUtf8(tool.readAllStandardError())};
}

inline ZebNetStatus WiredStatus()
{
    ZebNetStatus status;
    status.SetConnected(true);
    status.SetIfaceInfo("02:00:5E:10:00:01", "10.0.0.5", "10.0.0.255", "255.255.255.0");
    return status;
}

/// Publishes as the daemon does.
class Publisher
{
public:
    Publisher() : segment(KEY)
    {
        if (!segment.create(512))
            qFatal("cannot create the segment: %s", qPrintable(segment.errorString()));
    }

    void Publish(const QByteArray &record)
    {
        segment.lock();
        std::memcpy(segment.data(), record.constData(), 512);
        segment.unlock();
    }

    QSharedMemory segment;
};

/// The tool, watching.
class Watcher
{
public:
    explicit Watcher(const QStringList &arguments = {"--watch"},
                     const QProcessEnvironment &environment = QProcessEnvironment::systemEnvironment())
    {
        tool.setProcessEnvironment(environment);
        tool.start(QStringLiteral(CORVI_STATUS), arguments);
        tool.waitForStarted();
    }
    ~Watcher()
    {
        tool.terminate();
        tool.waitForFinished();
    }
    Watcher(const Watcher &) = delete;
    Watcher &operator=(const Watcher &) = delete;

    /// The output so far; waits until it holds `text`.
    QString OutputWith(const QString &text)
    {
        QDeadlineTimer deadline(LIMIT_MS);
        while (!output.contains(text) && !deadline.hasExpired()) {
            tool.waitForReadyRead(50);
            output += QString::fromUtf8(tool.readAllStandardOutput());
        }
        return output;
    }

    QProcess tool;

private:
    QString output;
};

/// Sends one event as the daemon does, once somebody listens.
inline bool SendEvent(const QByteArray &bytes)
{
    QDeadlineTimer deadline(LIMIT_MS);
    while (!deadline.hasExpired()) {
        QLocalSocket socket;
        socket.connectToServer("corvin");
        if (!socket.waitForConnected(1000)) {
            QTest::qSleep(20);
            continue;
        }
        socket.write(bytes);
        socket.flush();
        socket.disconnectFromServer();
        return true;
    }
    return false;
}
