// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "eventlistener.h"

#include "zebnetevent.h"

#include <QLocalSocket>
#include <QTimer>
#include <QtEndian>

#include <chrono>

namespace {

constexpr int EVENT_SIZE = 4;
// The daemon itself gives a connection one second.
constexpr std::chrono::seconds CONNECTION_LIMIT{5};

bool AnotherListenerIsAlive()
{
    QLocalSocket probe;
    probe.connectToServer(ZebNetEvent::LISTENER_NAME);
    if (probe.waitForConnected(1000))
        return true;
    // One that is stopped, or has more connections waiting than it takes, does not answer in time.
    return probe.error() != QLocalSocket::ConnectionRefusedError &&
           probe.error() != QLocalSocket::ServerNotFoundError;
}

} // namespace

EventListener::EventListener()
{
    // Only the listener's own user may report events, and root, as which the daemon runs.
    server.setSocketOptions(QLocalServer::UserAccessOption);
    connect(&server, &QLocalServer::newConnection, this, &EventListener::AcceptConnections);
}

bool EventListener::Listen(QString &error)
{
    if (AnotherListenerIsAlive()) {
        error = QStringLiteral("another program already listens for events");
        return false;
    }
    QLocalServer::removeServer(ZebNetEvent::LISTENER_NAME);
    if (server.listen(ZebNetEvent::LISTENER_NAME))
        return true;
    error = server.errorString();
    return false;
}

void EventListener::AcceptConnections()
{
    while (QLocalSocket *connection = server.nextPendingConnection()) {
        connect(connection, &QLocalSocket::readyRead, this, [this, connection] { Receive(connection); });
        connect(connection, &QLocalSocket::disconnected, this, [this, connection] { Abandon(connection); });
        auto *const limit = new QTimer(connection);
        connect(limit, &QTimer::timeout, this, [this, connection] { Abandon(connection); });
        limit->start(CONNECTION_LIMIT);
        // What came together with the connection was announced before anybody could hear it.
        Receive(connection);
    }
}

void EventListener::Receive(QLocalSocket *connection)
{
    if (connection->bytesAvailable() < EVENT_SIZE)
        return;
    const QByteArray event = connection->read(EVENT_SIZE);
    connection->disconnect(this);
    connection->deleteLater();
    emit eventReceived(qFromBigEndian<qint16>(event.constData()),
                       qFromBigEndian<qint16>(event.constData() + sizeof(qint16)));
}

void EventListener::Abandon(QLocalSocket *connection)
{
    const auto byteCount = static_cast<int>(connection->bytesAvailable());
    connection->disconnect(this);
    connection->deleteLater();
    // Another listener that finds out whether this one is alive says nothing.
    if (byteCount > 0)
        emit brokenEvent(byteCount);
}
