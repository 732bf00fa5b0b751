// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include "statusreader.h"

#include <QJsonObject>
#include <QString>

/// How readings and events look, for a person and for a program.
namespace StatusText {

/// Several lines, the last one ended too.
QString ForPerson(const StatusReading &reading);
QJsonObject ForProgram(const StatusReading &reading);

/// What an event code and its status mean, in a few words.
QString EventMeaning(int code, int status);

} // namespace StatusText
