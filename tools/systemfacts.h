// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include "interfacereport.h"

/// Looks at the machine. Changes nothing, starts nothing, and needs no rights, but tells less without.
namespace SystemFacts {

/// The links that the daemon may manage, and the ports of a bond, by name.
QVector<LinkFacts> ReadLinks();

/// Name servers of a resolver's file, resolv.conf(5).
QStringList NameServers(const QByteArray &resolvConf);

/// The last lease of an interface in a file of the DHCP client's, dhclient.leases(5).
std::optional<LeaseFacts> LastLease(const QByteArray &leases, const QString &interfaceName);

/// All of it. Waits up to 10 s for a supplicant that does not answer.
SystemReport Read();

} // namespace SystemFacts
