// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include "zebnetevent.h"

#include <QByteArray>
#include <QLocalServer>
#include <QVector>

/// What the daemon tells a listener in one connection.
struct Event
{
    int code;
    int status;
    bool operator==(const Event &other) const { return code == other.code && status == other.status; }
};
using Events = QVector<Event>;

inline const Event ASSOCIATION_UP{ZebNetEvent::ASSOCIATION, ZebNetEvent::SUCCEEDED};
inline const Event ASSOCIATION_DOWN{ZebNetEvent::ASSOCIATION, ZebNetEvent::FAILED};
inline const Event NO_CONFIGURATION{ZebNetEvent::ADDRESS, ZebNetEvent::FAILED};
inline const Event DHCP_STARTED{ZebNetEvent::ADDRESS, ZebNetEvent::STARTED};
inline const Event ADDRESS_PRESENT{ZebNetEvent::ADDRESS, ZebNetEvent::SUCCEEDED};

/// For the report of a failed comparison.
char *toString(const Events &events);

/// The program that is told of events. Connections wait in the socket's queue until they are looked at, so
/// it needs no thread of its own.
class EventListener
{
public:
    EventListener();

    /// The bytes of every connection since the last call, one item each.
    QVector<QByteArray> TakeMessages();
    Events Take();

private:
    QLocalServer server;
};
