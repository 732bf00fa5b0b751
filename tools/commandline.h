// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <QCommandLineOption>

/// An option of one of the tools; `value` is what the help calls its value, where it takes one.
inline QCommandLineOption Option(const char *name, const char *description, const char *value = "")
{
    return {QLatin1String(name), QLatin1String(description), QLatin1String(value)};
}
