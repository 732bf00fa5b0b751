// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "zebproblem.h"

namespace {

QString ConsequenceText(ZebConsequence consequence)
{
    switch (consequence) {
    case ZebConsequence::DefaultUsed:
        return QStringLiteral("; its default is used");
    case ZebConsequence::NotUsed:
        return QStringLiteral("; not used");
    case ZebConsequence::FirstHolds:
        return QStringLiteral("; the first one holds");
    case ZebConsequence::CountsAsUnsecured:
        return QStringLiteral("; the network counts as unsecured");
    case ZebConsequence::NoSupplicantBlock:
        return QStringLiteral("; the supplicant gets nothing");
    case ZebConsequence::NetworkLeftOut:
        return QStringLiteral("; the network is left out");
    case ZebConsequence::LastGoodNetworkUsed:
        return QStringLiteral("; the network's last good definition stays in force");
    case ZebConsequence::DocumentRefused:
        break;
    }
    return QString();
}

} // namespace

QString ZebProblem::Text() const
{
    QString text = QStringLiteral("line %1, column %2: ").arg(place.line).arg(place.column);
    if (!network.isEmpty())
        text += QStringLiteral("network \"%1\": ").arg(network);
    if (!property.isEmpty())
        text += property + QStringLiteral(": ");
    return text + ReasonText();
}

QString ZebProblem::ReasonText() const
{
    return reason + ConsequenceText(consequence);
}
