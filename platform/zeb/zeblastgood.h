// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include "zebdocument.h"

#include <QByteArray>
#include <QString>

/// The file in which the version of a section that is in force outlives the process. It holds secrets: for
/// its owner alone, also the folder, which is made where it is missing.
class ZebLastGood
{
public:
    explicit ZebLastGood(const QString &path) : filePath(path) {}

    QString Path() const { return filePath; }

    /// Reads what was kept, by an earlier process. False where there is nothing, or nothing that can be
    /// trusted and read, with the reason in `problem`; without a file there is none.
    [[nodiscard]] bool Restore(ZebDocument &document, QString &problem);

    /// Writes the section, if it is not what is kept already. Gives the reason where it cannot, or nothing.
    [[nodiscard]] QString Keep(const ZebDocument &document);

private:
    const QString filePath;
    QByteArray kept;
};
