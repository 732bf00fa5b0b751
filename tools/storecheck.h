// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include "storefinding.h"
#include "zebdocument.h"

#include <QByteArray>
#include <QString>

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

/// The report on a store that could not be read.
StoreReport UnreadableStore(const QString &reason);

/// Reads a store into an empty document with the daemon's own reader, and says what that says.
StoreReport ReadStore(const QByteArray &contents, ZebDocument &document);

/// As ReadStore(), with all that the store alone shows to be wrong.
StoreReport CheckStore(const QByteArray &contents, ZebDocument &document);
