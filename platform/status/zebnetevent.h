// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <QString>

/// The numbers of the four bytes that the listener gets for each event.
/// docs/status-interface.md says what each pair means, and which of them are sent.
namespace ZebNetEvent {

/// The local server that is told.
inline const QString LISTENER_NAME = QStringLiteral("corvin");

enum Code : int { CONNECTIONS = 0, ADDRESS = 1, ASSOCIATION = 2, CONFIGURATION = 3 };

/// A configuration always comes with 0.
enum Status : int { FAILED = -1, STARTED = 0, SUCCEEDED = 1 };

} // namespace ZebNetEvent
