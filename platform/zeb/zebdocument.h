// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include "zebnetwork.h"
#include "zebproblem.h"

#include <QByteArray>
#include <QHash>
#include <QMap>
#include <QString>
#include <QStringList>

/// One section of the store: its settings, and its networks in the order of the file.
struct ZebDocument
{
    /// Reads a section's XML. What is well-formed but wrong is left out and told in `problems`. False, with
    /// the reason as the last problem and the rest undefined, when the text as a whole is not well-formed,
    /// has a document type definition, which could define entities, or has a tag or a text longer than 16
    /// KiB.
    [[nodiscard]] bool Parse(const QByteArray &bytes, ZebProblems &problems);

    /// Takes over the networks of an earlier version that `problems` say are left out of this one, and
    /// changes what they say to that.
    void KeepLastGood(const ZebDocument &earlier, ZebProblems &problems);

    /// The section as XML, from which Parse() reads the same.
    QByteArray ToXml() const;

    QMap<QString, QString> settings;
    QMap<QString, ZebPlace> settingPlaces;
    QStringList networkNames;
    QHash<QString, ZebNetwork> networks;
};
