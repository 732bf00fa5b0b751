// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <QString>

/// Collects what a support engineer asks for into one archive for its owner alone, without a secret.
namespace SupportReport {

/// What came of it.
struct Outcome
{
    QString archive; ///< its path, or empty
    QString error;   ///< why there is none
};

/// Makes the archive in the folder. Takes as long as the programs that it asks, each at most 30 s.
[[nodiscard]] Outcome Write(const QString &folder);

} // namespace SupportReport
