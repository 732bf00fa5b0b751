// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "storekeeping.h"

#include "zebxmlconfig.h"

#include <QString>

void KeepStoreOverRestarts()
{
    // Not in /tmp, which the next start of the device empties.
    ZebXmlConfig::KeepLastGood(QStringLiteral("/var/lib/corvi/last-good.xml"));
}
