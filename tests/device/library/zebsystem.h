// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <QString>

class Q_DECL_EXPORT ZebSystem
{
public:
    static int execShell(const QString &commandLine);
};
