// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "corvi.h"

#include "logging.h"
#include "networkdevice.h"
#include "zebnetevent.h"
#include "zebnetsegment.h"
#include "zebnetstatus.h"

#include <QDataStream>
#include <QLocalSocket>

namespace {

/// The listener is on this machine: one that does not accept within this time is not going to.
constexpr int CONNECT_TIME_LIMIT_MS = 1000;

int StatusOf(bool ok)
{
    return ok ? ZebNetEvent::SUCCEEDED : ZebNetEvent::FAILED;
}

/// Two 16-bit signed integers, big-endian.
QByteArray EventMessage(int event, int status)
{
    QByteArray message;
    QDataStream stream(&message, QIODevice::WriteOnly);
    stream << static_cast<qint16>(event) << static_cast<qint16>(status);
    return message;
}

} // namespace

void Corvi::ShareStatus(NetworkDevice *nd)
{
    Log(Level::TRACE) << "ShareStatus()  Start";
    // Also where the record has to wait: its event is sent now, and once.
    nd->NotePublished();
    publishedName = nd->name;
    if (!PutRecord(nd->status->GetData()))
        return;
    Log(Level::TRACE) << "ShareStatus()  Complete";
    KeepSegmentFound();
}

void Corvi::SendEvent(NetworkDevice *nd, int event, int status)
{
    Log(Level::TRACE) << "SendEvent()  Start";
    // An event tells of a change, and the tick that sends it may take half a minute more.
    TellState();
    if (nd) {
        ShareStatus(nd);
        Log(Level::TRACE) << "SendEvent()  ShareStatus complete";
    } else {
        Log(Level::TRACE) << "SendEvent -- nd is null";
    }

    eventSocket->abort();
    eventSocket->connectToServer(ZebNetEvent::LISTENER_NAME, QIODevice::ReadWrite);
    if (eventSocket->waitForConnected(CONNECT_TIME_LIMIT_MS)) {
        Log(Level::TRACE) << "Connected To Client";
        eventSocket->write(EventMessage(event, status));
        eventSocket->flush();
        eventSocket->disconnectFromServer();
    } else {
        Log(Level::TRACE) << "SendEvent()  did not connect to socket";
        // A listener whose queue is full leaves the socket trying on; it would connect later and say nothing.
        // abort() does not end that, close() does.
        eventSocket->close();
    }
    Log(Level::TRACE) << "SendEvent()  Complete";
}

void Corvi::onSendEventMessage(int event, int status, NetworkDevice *nd)
{
    SendEvent(nd, event, status);
}

void Corvi::SendConfigMessage(NetworkDevice *nd)
{
    SendEvent(nd, ZebNetEvent::CONFIGURATION, 0);
}

void Corvi::SendConnectionsMessage(NetworkDevice *nd, bool ok)
{
    SendEvent(nd, ZebNetEvent::CONNECTIONS, StatusOf(ok));
}

void Corvi::SendDhcpMessage(NetworkDevice *nd, bool ok)
{
    SendEvent(nd, ZebNetEvent::ADDRESS, StatusOf(ok));
}

void Corvi::SendAssociationMessage(NetworkDevice *nd, bool ok)
{
    SendEvent(nd, ZebNetEvent::ASSOCIATION, StatusOf(ok));
}

/// After a discovery, whose devices know nothing of what was published. Where the interface has gone, nobody
/// is left to report it, and its record is none of ours.
void Corvi::TakeOverRecord()
{
    if (publishedName.isEmpty())
        return;
    if (NetworkDevice *const device = devices.value(publishedName)) {
        device->publishedCarrier = true; // So that a link that is lost is published, in case it was told of.
        return;
    }
    publishedName.clear();
    hasEarlierRecord = true;
}

/// A record that an earlier daemon left may tell of a link that has gone since, or of an interface, and the
/// next report may be days away. One that is still true stays. Not by ShareStatus(): no event tells of this
/// one, so that an address in it is still to be announced.
void Corvi::ReplaceStaleRecord()
{
    if (!hasEarlierRecord || !publishedName.isEmpty())
        return;
    const QByteArray earlier = ReadRecord();
    if (earlier.isEmpty())
        return; // Looked at again on the next tick.
    hasEarlierRecord = false;
    NetworkDevice *carrying = nullptr;
    NetworkDevice *first = nullptr;
    for (const QString &interfaceName : qAsConst(allInterfaces)) {
        NetworkDevice *const device = devices.value(interfaceName);
        if (!device)
            continue;
        device->RefreshStatus();
        if (device->status->GetData().startsWith(earlier))
            return;
        first = first ? first : device;
        if (!carrying && device->isRunning)
            carrying = device;
    }
    NetworkDevice *const device = carrying ? carrying : first;
    // Without a device as before the first report.
    PutRecord(device ? device->status->GetData() : QByteArray(ZebNetSegment::SIZE, '\0'));
}
