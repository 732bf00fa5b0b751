// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <QString>

#include <optional>

#include <sys/types.h>

/// The DHCP clients (dhclient(8)) that run on this machine, whoever started them. They are looked for in
/// /proc, as starting a program to find that there is none would cost more than the look.
namespace DhcpClients {

/// Ends the clients that give the interface IPv4 addresses, and returns once they and what they run are gone:
/// a client that goes on adds its address and replaces the resolver at its next renewal. Asks first, insists
/// after 2 s and gives up 2 s later. Clients of other interfaces, of other network namespaces, of other users
/// and for IPv6 alone live.
/// @return whether there were any.
bool End(const QString &interfaceName);

/// The process of one that gives the interface IPv4 addresses; nothing where none runs.
std::optional<pid_t> Find(const QString &interfaceName);

} // namespace DhcpClients
