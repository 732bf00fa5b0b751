// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <QString>
#include <QStringList>

/// The candidate that a misspelt word was most likely meant to be, the first one of several; empty where none
/// is near or the word is one of them. Letter case does not count.
QString NearestWord(const QString &word, const QStringList &candidates);
