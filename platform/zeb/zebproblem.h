// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <QString>
#include <QVector>

/// Where a value begins in a section's XML, in lines and characters from 1.
struct ZebPlace
{
    qint64 line = 0;
    qint64 column = 0;
};

/// What follows from a problem.
enum class ZebConsequence {
    DefaultUsed,
    NotUsed,
    FirstHolds,
    CountsAsUnsecured,
    NoSupplicantBlock,
    NetworkLeftOut,
    LastGoodNetworkUsed, ///< of a network that would be left out
    DocumentRefused
};

/// One thing that is wrong with a section of the store. Holds no secret.
struct ZebProblem
{
    ZebPlace place;
    QString network;  ///< empty for a setting and for the document
    QString property; ///< the element; empty for a network or the document as a whole
    QString reason;   ///< the rest of a sentence that the property begins
    ZebConsequence consequence = ZebConsequence::NotUsed;
    QString refused = {}; ///< the value, where it is known to be no secret

    /// As a line of a log, with all of the above. What follows from a refused document only its reader knows.
    QString Text() const;
    /// The reason, and what follows.
    QString ReasonText() const;
};

using ZebProblems = QVector<ZebProblem>;
