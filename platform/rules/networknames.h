// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <QString>
#include <QStringList>

inline const QString XML_LAN_NAME = QStringLiteral("lan");

/// Whether a network of this name is for interfaces without a radio, whatever else its definition says: the
/// name begins with "lan" or "wiredeth".
bool HasWiredName(const QString &networkName);

/// Whether an interface uses the network: a radio every one that is not wired, an interface without one those
/// with "lan", and of those with "wired" its own, which is "wired" and the interface's name.
bool IsForInterface(const QString &networkName, const QString &interfaceName, bool isWireless);

/// Puts the networks of an interface into the order in which it considers them: ascending by name, and before
/// all others its own. The first one's settings are the interface's.
void SortForInterface(QStringList &networkNames, const QString &interfaceName, bool isWireless);
