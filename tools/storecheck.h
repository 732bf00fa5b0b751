// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include "zebdocument.h"
#include "zebproblem.h"

#include <QByteArray>
#include <QString>
#include <QVector>

/// One thing that is wrong with a store. Holds no secret.
struct StoreFinding
{
    enum class Severity {
        Error,  ///< the daemon does not take what stands there, or it cannot work
        Warning ///< taken, but it may not work on this machine or with every network
    };
    Severity severity = Severity::Error;
    ZebPlace place;
    QString network;    ///< empty for a setting and for the store as a whole
    QString property;   ///< the element; empty for a network or the store as a whole
    QString valueClass; ///< what the property's value is to be, in words; empty where nobody knows
    QString reason;     ///< the rest of a sentence that the property begins
    QString suggestion; ///< what was most likely meant; empty where nothing is near
};

using StoreFindings = QVector<StoreFinding>;

/// What a check of a store gives.
struct StoreReport
{
    /// Whether the daemon would take the store, apart from what the findings say. If not, the only finding
    /// says why; without a place, when the store could not be read at all.
    bool isUsable = false;
    StoreFindings findings; ///< in the order of their places

    void Add(const StoreFindings &further);
    bool HasErrors() const;
};

/// A finding at a property of a network, or at the network where it has none of this name.
StoreFinding NetworkFinding(const ZebNetwork &network, StoreFinding::Severity severity,
                            const QString &property, const QString &reason);

/// The report on a store that could not be read.
StoreReport UnreadableStore(const QString &reason);

/// Reads a store into an empty document with the daemon's own reader, and says what that says.
StoreReport ReadStore(const QByteArray &contents, ZebDocument &document);

/// As ReadStore(), with all that the store alone shows to be wrong.
StoreReport CheckStore(const QByteArray &contents, ZebDocument &document);
