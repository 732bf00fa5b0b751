// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <QString>

#include <optional>

/// An IPv4 address or netmask in its dotted form, as a number in the machine's own byte order; nothing for
/// any other text.
std::optional<quint32> Ipv4Number(const QString &text);
/// The other way round.
QString Ipv4Text(quint32 number);

/// Whether two addresses are in one subnet: the kernel refuses a gateway that is outside of its interface's.
constexpr bool AreInOneSubnet(quint32 address, quint32 other, quint32 netmask)
{
    return ((address ^ other) & netmask) == 0;
}

/// Whether an address is that of all hosts of its subnet, which the kernel refuses as a gateway. A network of
/// one or two addresses has none (RFC 3021).
constexpr bool IsBroadcastAddress(quint32 address, quint32 netmask)
{
    return ~netmask > 1 && (address | netmask) == 0xffffffffU;
}
