// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <QString>
#include <QStringList>

/// A program that does what a test says: the shell, with a script as its arguments.

inline const QString SHELL = QStringLiteral("sh");

inline QStringList Script(const QString &script)
{
    return {"-c", script};
}
