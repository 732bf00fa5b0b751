// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "networknames.h"

bool HasWiredName(const QString &networkName)
{
    return networkName.startsWith(XML_LAN_NAME) || networkName.startsWith(QLatin1String("wiredeth"));
}
