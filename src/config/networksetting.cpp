// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "networksetting.h"

#include "paths.h"
#include "zebxmlconfig.h"

QString NetworkSetting(const QString &key)
{
    return ZebXmlConfig().GetConfig(XML_NETWORK_PATH, key, false, QString(), false);
}

bool IsNetworkSettingOn(const QString &key)
{
    return NetworkSetting(key) == QLatin1String("true");
}
