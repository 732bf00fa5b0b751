// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <QString>

/// Where the device keeps certificates and keys.
class ZebCert
{
public:
    /// The absolute path of the certificate or key stored under `certName`; where no such file exists, the
    /// path at which it would be looked for first. An empty name gives an empty path.
    static QString GetFullPath(const QString &certName);
};
