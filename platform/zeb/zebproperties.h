// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include "zebnetconfig.h"
#include "zebnetwork.h"

#include <QString>

#include <variant>
#include <vector>

/// What a value may be.
struct ZebValueRule
{
    const char *valueClass; ///< in words
    /// Why a value that is a text is not valid, or nothing.
    QString (*check)(const QString &value);
};

/// One property of a network: its element in the store, the member that holds it and what it may be.
struct ZebProperty
{
    const char *key;
    std::variant<QString ZebNetConfig::*, bool ZebNetConfig::*, int ZebNetConfig::*> member;
    ZebValueRule rule;
    /// Going on with the default would be another network, or one with less security.
    bool isEssential;
    /// Neither shown nor logged.
    bool isSecret;
};

namespace ZebProperties {

/// All but the hosts, which are a list.
const std::vector<ZebProperty> &All();
/// Null for an element that is no property.
const ZebProperty *Find(const QString &key);

/// Sets what a network holds in an empty definition.
void Fill(ZebNetConfig &config, const ZebNetwork &network);

} // namespace ZebProperties
