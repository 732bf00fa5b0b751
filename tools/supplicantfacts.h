// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include "interfacereport.h"

/// Asks the interface's supplicant over a connection of its own, which hears no events; the daemon's is not
/// touched. Waits up to 2 s for an answer.
SupplicantFacts AskSupplicant(const QString &interfaceName, bool isWireless);

/// From the replies to "STATUS" and "SIGNAL_POLL": lines of a name, "=" and a value.
SupplicantFacts ParseSupplicant(const QByteArray &status, const QByteArray &signal);
