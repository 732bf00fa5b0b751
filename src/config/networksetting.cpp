// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "networksetting.h"

#include "paths.h"
#include "zebxmlconfig.h"

QString NetworkSetting(ZebXmlConfig &store, const QString &key)
{
    return store.GetConfig(XML_NETWORK_PATH, key, false, QString(), false);
}

bool IsNetworkSettingOn(ZebXmlConfig &store, const QString &key)
{
    return NetworkSetting(store, key) == QLatin1String("true");
}
