// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "storefinding.h"

#include "zebproperties.h"

QString ValueClass(const QString &property)
{
    const ZebProperty *known = ZebProperties::Find(property);
    return known ? QString::fromLatin1(known->rule.valueClass) : QString();
}

StoreFinding NetworkFinding(const ZebNetwork &network, StoreFinding::Severity severity,
                            const QString &property, const QString &reason)
{
    StoreFinding finding;
    finding.severity = severity;
    finding.place = network.places.value(property, network.place);
    finding.network = network.properties.value(QStringLiteral("name"));
    finding.property = property;
    finding.valueClass = ValueClass(property);
    finding.reason = reason;
    return finding;
}
