// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <QString>

inline const QString XML_LAN_NAME = QStringLiteral("lan");

/// Whether a network of this name is for interfaces without a radio, whatever else its definition says: the
/// name begins with "lan" or "wiredeth".
bool HasWiredName(const QString &networkName);
