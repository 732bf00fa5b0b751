// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <QString>

/// Why wpa_supplicant would refuse its whole configuration file, drop the network or take it for another one
/// because of this option line; an empty text when it takes the line as meant. `value` is as written, with
/// its quotes. The text never shows the value, which may be a secret.
/// A second gate after the store's own checks: the device's own library may not check at all, and the names
/// of SCEP files, the host name, the MAC address and the hashed key come in only after the store.
QString SupplicantLineProblem(const QString &key, const QString &value);
