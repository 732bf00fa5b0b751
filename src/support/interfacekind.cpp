// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "interfacekind.h"

#include "program.h"
#include "timing.h"

bool interfaceIsWireless(const QString &interfaceName)
{
    Program process;
    // The blank belongs to the program string; QProcess takes it as part of the file name.
    process.start(QStringLiteral("iw "), {interfaceName, QStringLiteral("info")});
    if (!process.WaitForEnd(PROGRAM_TIME_LIMIT_MS))
        return false;
    return process.readAllStandardOutput().split('\n').size() > 1;
}
