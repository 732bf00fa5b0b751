// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include "interfacereport.h"

/// What the tests of corvi-status --all share: an interface that works, and the system around it.

inline constexpr qint64 NOW_MS = 1000000;

/// An interface that works, in a system where it carries the traffic.
inline InterfaceReport Connected()
{
    InterfaceReport interface;
    interface.link.name = "eth0";
    interface.link.macAddress = "02:00:5E:10:00:01";
    interface.link.isUp = true;
    interface.link.hasCarrier = true;
    interface.link.speedMbits = 1000;
    interface.link.addresses = QStringList{"10.0.0.5/24"};
    interface.link.gateway = "10.0.0.1";
    interface.isCarrier = true;
    interface.daemon = InterfaceState();
    interface.daemon->name = "eth0";
    interface.daemon->kind = "wired";
    interface.daemon->definition = "lan";
    interface.daemon->definitionCount = 1;
    interface.daemon->isInUse = true;
    return interface;
}

inline SystemReport SystemWith(const InterfaceReport &interface, const QString &carrier = "eth0")
{
    SystemReport system;
    system.daemon.outcome = ServiceStateReading::Outcome::Read;
    system.daemon.pid = 17;
    system.daemon.state.carrier = carrier;
    system.nowMs = NOW_MS;
    system.resolver = QStringList{"10.0.0.1", "2001:db8::1"};
    system.interfaces = {interface};
    return system;
}
