// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "processstat.h"

#include <QString>

#include <sys/stat.h>

bool ProcessStat::IsInOurNetwork(const QByteArray &process)
{
    struct stat theirs = {};
    struct stat ours = {};
    return ::stat(QByteArray("/proc/" + process + "/net/dev").constData(), &theirs) == 0 &&
           ::stat("/proc/self/net/dev", &ours) == 0 && theirs.st_dev == ours.st_dev &&
           theirs.st_ino == ours.st_ino;
}

std::optional<bool> ProcessStat::IsStopped(const QByteArray &stat)
{
    // "PID (NAME) STATE ...", and a name may hold anything.
    const auto nameEnd = stat.lastIndexOf(')');
    if (nameEnd < 0)
        return std::nullopt;
    const QByteArray state = stat.mid(nameEnd, 3);
    return state == ") T" || state == ") t";
}
