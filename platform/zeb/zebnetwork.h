// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include "zebproblem.h"

#include <QMap>
#include <QString>
#include <QStringList>

/// One network as stored, without what was refused.
struct ZebNetwork
{
    QMap<QString, QString> properties;
    QStringList hosts;

    ZebPlace place;
    QMap<QString, ZebPlace> places; ///< of the properties
};
