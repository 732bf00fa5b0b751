// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include "zebnetwork.h"
#include "zebproblem.h"

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

/// What the values of a network's property are to be, in words; empty where nobody knows.
QString ValueClass(const QString &property);

/// A finding at a property of a network, or at the network where it has none of this name.
StoreFinding NetworkFinding(const ZebNetwork &network, StoreFinding::Severity severity,
                            const QString &property, const QString &reason);
