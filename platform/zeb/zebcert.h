// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <QString>

/// Where the device keeps certificates and keys.
class Q_DECL_EXPORT ZebCert
{
public:
    /// The absolute path of the certificate or key stored under `certName`; where no such file exists, the
    /// path at which it would be looked for first. An absolute path or an empty name is given back as it is.
    static QString GetFullPath(const QString &certName);
};
