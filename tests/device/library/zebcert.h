// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <QString>

class Q_DECL_EXPORT ZebCert
{
public:
    static QString GetFullPath(const QString &certName);
};
