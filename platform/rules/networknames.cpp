// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "networknames.h"

#include <algorithm>

namespace {

/// A wired network whose name is this and an interface's name is for that interface alone.
const QString WIRED_PREFIX = QStringLiteral("wired");

} // namespace

bool HasWiredName(const QString &networkName)
{
    return networkName.startsWith(XML_LAN_NAME) || networkName.startsWith(QLatin1String("wiredeth"));
}

bool IsForInterface(const QString &networkName, const QString &interfaceName, bool isWireless)
{
    if (HasWiredName(networkName) == isWireless)
        return false;
    return isWireless || !networkName.startsWith(WIRED_PREFIX) ||
           networkName == QString(WIRED_PREFIX + interfaceName);
}

void SortForInterface(QStringList &networkNames, const QString &interfaceName, bool isWireless)
{
    networkNames.sort();
    const QString own = WIRED_PREFIX + interfaceName;
    std::stable_partition(networkNames.begin(), networkNames.end(),
                          [&own, isWireless](const QString &entry) { return !isWireless && entry == own; });
}
