// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <QString>

/// Whether `iw` knows the interface. False when it does not answer within 30000 ms. The program asked for is
/// "iw ", with its blank: where nothing has that name, no interface is wireless.
bool interfaceIsWireless(const QString &interfaceName);
