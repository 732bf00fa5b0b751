// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <QStringList>

/// The other network managers that have one of these interfaces in hand, as they say under /run, a line of
/// text each: "NetworkManager (eth0, wlan0)". Two managers of one interface undo each other's work.
QStringList OtherManagers(const QStringList &interfaceNames);
