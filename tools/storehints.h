// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include "zebproblem.h"

#include <QString>
#include <QStringList>

/// What a refused element or value was most likely meant to be; empty where nothing is near.
QString MeantInstead(const ZebProblem &problem);

/// The same of an element beside the networks that has the name of no setting.
QString SettingMeantInstead(const QString &name);

/// The settings that are true or false.
const QStringList &BooleanSettings();
