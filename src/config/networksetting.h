// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <QString>

class ZebXmlConfig;

/// One of the daemon's own settings, which stand beside the network definitions in the store; empty when the
/// store has none of this key.
QString NetworkSetting(ZebXmlConfig &store, const QString &key);

/// Only the text "true" switches a setting on.
bool IsNetworkSettingOn(ZebXmlConfig &store, const QString &key);
