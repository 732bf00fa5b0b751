// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "corvi.h"

#include "logging.h"
#include "networkdevice.h"
#include "zebnetevent.h"
#include "zebnetstatus.h"

#include <QDataStream>
#include <QLocalSocket>

#include <algorithm>
#include <cstdlib>
#include <cstring>

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

void Corvi::InitSharedMemory()
{
    Log(Level::TRACE) << "Corvi::InitSharedMemory";
    eventSocket = std::make_unique<QLocalSocket>();
    shm.setKey(ZebNetStatus::SEGMENT_KEY);
    if (shm.create(ZebNetStatus::RECORD_SIZE, QSharedMemory::ReadWrite))
        return;
    Log(Level::SETUP) << "Corvi::run - Unable to create shared memory segment";
    if (shm.attach(QSharedMemory::ReadWrite)) {
        Log(Level::SETUP) << "Corvi::run - Attached to shared memory segment";
        return;
    }
    Log(Level::FAULT) << "Corvi::run - Unable to attach to shared memory segment";
    // Other programs read the status from the segment; a daemon that cannot publish is of no use to them.
    std::exit(EXIT_SUCCESS);
}

void Corvi::ShareStatus(NetworkDevice *nd)
{
    Log(Level::TRACE) << "ShareStatus()  Start";
    const QByteArray record = nd->status->GetData();
    if (!shm.lock()) {
        LogOnce(segmentReport) << "ShareStatus() the segment cannot be locked, its record stays as it was";
        return;
    }
    segmentReport.Over();
    // Qt 5 counts in int, Qt 6 in qsizetype.
    const auto recordSize = static_cast<int>(record.size());
    const auto segmentSize = static_cast<int>(shm.size());
    Log(Level::VERBOSE) << "ShareStatus"
                        << "BA Size" << recordSize << "_shm.size" << segmentSize;
    const int length = std::min({segmentSize, ZebNetStatus::RECORD_SIZE, recordSize});
    std::memcpy(shm.data(), record.constData(), static_cast<size_t>(length));
    shm.unlock();
    Log(Level::TRACE) << "ShareStatus()  Complete";
}

void Corvi::SendEvent(NetworkDevice *nd, int event, int status)
{
    Log(Level::TRACE) << "SendEvent()  Start";
    if (nd) {
        ShareStatus(nd);
        Log(Level::TRACE) << "SendEvent()  ShareStatus complete";
    } else {
        Log(Level::TRACE) << "SendEvent -- nd is null";
    }

    eventSocket->abort();
    eventSocket->connectToServer(ZebNetStatus::LISTENER_NAME, QIODevice::ReadWrite);
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
