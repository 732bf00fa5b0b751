// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

// readstore [FILE]: prints each network of the store, one a line, as a process that begins with nothing; what
// is told of the store goes to standard error. With FILE, the last good version is kept there.

#include "zebnetconfig.h"
#include "zebxmlconfig.h"

#include <cstdio>

int main(int argc, char *argv[])
{
    if (argc > 1)
        ZebXmlConfig::KeepLastGood(QString::fromLocal8Bit(argv[1]));
    const QStringList names = ZebNetConfig::GetNetworkNames();
    for (const QString &name : names) {
        ZebNetConfig config(nullptr);
        if (config.Load(name, false))
            std::printf("%s\n", qPrintable(config.toString()));
    }
    return 0;
}
