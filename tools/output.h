// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <QJsonObject>
#include <QString>

#include <cstdio>

/// Writes the text and flushes; false, with the reason in errno, when a part of it may be missing: whoever
/// reads the output must not take that, or nothing, for the whole.
[[nodiscard]] bool Print(FILE *stream, const QString &text);

/// For one line. Names come from the store and from access points: none may move the terminal's cursor or
/// turn the text.
[[nodiscard]] QString Printable(QString line);

/// For programs, which read line by line.
[[nodiscard]] QString JsonLine(const QJsonObject &object);
