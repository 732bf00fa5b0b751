// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

/// The numbers of the four bytes that the listener at ZebNetStatus::LISTENER_NAME gets for each event.
/// docs/status-interface.md says what each pair means, and which of them are sent.
namespace ZebNetEvent {

enum Code : int { CONNECTIONS = 0, ADDRESS = 1, ASSOCIATION = 2, CONFIGURATION = 3 };

/// A configuration always comes with 0.
enum Status : int { FAILED = -1, STARTED = 0, SUCCEEDED = 1 };

} // namespace ZebNetEvent
