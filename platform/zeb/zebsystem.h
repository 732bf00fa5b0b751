// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <QString>

class Q_DECL_EXPORT ZebSystem
{
public:
    /// Runs a shell line with `HOSTNAME` set in its environment and waits for it without limit. Returns its
    /// exit status, or -1 when the shell could not be started or was killed.
    static int execShell(const QString &commandLine);
};
