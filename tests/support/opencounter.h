// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <QHash>
#include <QString>
#include <QStringList>

/// Counts how often files, the entries of folders, and the folders themselves, are opened from now on, by
/// whomever.
class OpenCounter
{
public:
    explicit OpenCounter(const QStringList &paths);
    ~OpenCounter();
    OpenCounter(const OpenCounter &) = delete;
    OpenCounter &operator=(const OpenCounter &) = delete;

    /// By path, since the last call; what was not opened is missing.
    QHash<QString, int> Take();

private:
    const int fd;
    QHash<int, QString> watched;
};
