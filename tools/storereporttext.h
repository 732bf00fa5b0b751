// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include "storecheck.h"

#include <QJsonObject>
#include <QString>

/// A report on a store as it is shown.
namespace StoreReportText {

/// A line for each finding, as compilers write them: FILE:LINE:COLUMN: error: ...
QString ForPerson(const QString &fileName, const StoreReport &report);

QJsonObject ForProgram(const QString &fileName, const StoreReport &report);

} // namespace StoreReportText
