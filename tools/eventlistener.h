// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <QLocalServer>
#include <QObject>
#include <QString>

class QLocalSocket;

/// The listener that the daemon tells about events: one connection an event, four bytes each. Only one
/// program on the system can be it.
class EventListener : public QObject
{
    Q_OBJECT
public:
    EventListener();

    /// Takes the place that a listener left behind when it was killed. False, with the reason in `error`,
    /// when another one is alive or the socket cannot be made.
    [[nodiscard]] bool Listen(QString &error);

signals:
    void eventReceived(int code, int status);
    /// A connection that ended, or lasted too long, with a part of an event.
    void brokenEvent(int byteCount);

private:
    void AcceptConnections();
    void Receive(QLocalSocket *connection);
    void Abandon(QLocalSocket *connection);

    QLocalServer server;
};
