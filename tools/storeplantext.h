// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include "storeplan.h"

#include <QJsonArray>
#include <QString>

/// A plan as it is shown.
namespace StorePlanText {

QString ForPerson(const StorePlan &plans);

QJsonArray ForProgram(const StorePlan &plans);

} // namespace StorePlanText
