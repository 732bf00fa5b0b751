// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "eventlistener.h"

#include <QLocalSocket>
#include <QStringList>
#include <QtEndian>

char *toString(const Events &events)
{
    QStringList items;
    for (const Event &event : events)
        items << QStringLiteral("(%1, %2)").arg(event.code).arg(event.status);
    return qstrdup(qPrintable(items.join(QStringLiteral(" "))));
}

EventListener::EventListener()
{
    QLocalServer::removeServer(QStringLiteral("corvin"));
    if (!server.listen(QStringLiteral("corvin")))
        qFatal("no event listener: %s", qPrintable(server.errorString()));
    server.setMaxPendingConnections(1000);
}

QVector<QByteArray> EventListener::TakeMessages()
{
    QVector<QByteArray> messages;
    while (server.hasPendingConnections() || server.waitForNewConnection(0)) {
        QLocalSocket *const connection = server.nextPendingConnection();
        // The sender has written and closed before it went on.
        while (connection->state() == QLocalSocket::ConnectedState && connection->waitForReadyRead(1000)) {
        }
        messages << connection->readAll();
        delete connection;
    }
    return messages;
}

Events EventListener::Take()
{
    Events events;
    const QVector<QByteArray> messages = TakeMessages();
    for (const QByteArray &message : messages) {
        if (message.size() != 4)
            qFatal("an event of %s", message.toHex().constData());
        events << Event{qFromBigEndian<qint16>(message.constData()),
                        qFromBigEndian<qint16>(message.constData() + 2)};
    }
    return events;
}
