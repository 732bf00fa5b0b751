// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "processstat.h"

std::optional<bool> ProcessStat::IsStopped(const QByteArray &stat)
{
    // "PID (NAME) STATE ...", and a name may hold anything.
    const auto nameEnd = stat.lastIndexOf(')');
    if (nameEnd < 0)
        return std::nullopt;
    const QByteArray state = stat.mid(nameEnd, 3);
    return state == ") T" || state == ") t";
}
