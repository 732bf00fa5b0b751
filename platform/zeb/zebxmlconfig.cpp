// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "zebxmlconfig.h"

#include "zebstore.h"

QString ZebXmlConfig::GetConfig(const QString &path, const QString &key, bool /*reserved1*/,
                                const QString &defaultValue, bool /*reserved2*/)
{
    const QString networkPrefix = ZebStore::NETWORK_SECTION + QLatin1Char('/');
    if (!path.startsWith(networkPrefix))
        return ZebStore::Section(path).settings.value(key, defaultValue);

    // A name may hold anything, a slash too: all that follows the section is the name.
    const ZebDocument &section = ZebStore::Section(ZebStore::NETWORK_SECTION);
    return section.networks.value(path.mid(networkPrefix.size())).properties.value(key, defaultValue);
}

void ZebXmlConfig::KeepLastGood(const QString &filePath)
{
    ZebStore::KeepLastGood(filePath);
}
