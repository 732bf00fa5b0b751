// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include "interfacereport.h"

#include <QString>

#include <chrono>
#include <optional>

/// Waiting until the network is there.
namespace AddressWait {

/// Whether the interface, or with an empty name any, carries and has an address that is good beyond its own
/// link (RFC 3927 speaks of the others).
bool IsOver(const QVector<LinkFacts> &links, const QString &interfaceName);

/// Looks at the links until it is over. False when that takes longer than `limit`.
[[nodiscard]] bool Wait(const QString &interfaceName, std::optional<std::chrono::seconds> limit);

/// What the interface, or each one, waits for: for the end of a line that tells of a wait in vain.
QString Reasons(const SystemReport &report, const QString &interfaceName);

} // namespace AddressWait
