// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include "interfacereport.h"

#include <QJsonArray>
#include <QJsonObject>

/// How a report looks, for a person and for a program.
namespace ReportText {

/// Lines of at most 80 columns; with colours only for a terminal.
QString ForPerson(const SystemReport &report, bool withColours);
QJsonObject ForProgram(const SystemReport &report);

/// Breaks a text at blanks, and words that are too long themselves, into lines of at most `width` columns.
QStringList Wrapped(const QString &text, int width);

} // namespace ReportText
