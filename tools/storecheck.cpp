// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "storecheck.h"

#include "zebdocument.h"
#include "zebproperties.h"

#include <algorithm>
#include <tuple>

namespace {

QString ValueClass(const ZebProblem &problem)
{
    const ZebProperty *known = problem.network.isEmpty() ? nullptr : ZebProperties::Find(problem.property);
    return known ? QString::fromLatin1(known->rule.valueClass) : QString();
}

StoreFinding FindingOf(const ZebProblem &problem)
{
    return {StoreFinding::Severity::Error, problem.place,       problem.network, problem.property,
            ValueClass(problem),           problem.ReasonText()};
}

bool IsEarlier(const StoreFinding &one, const StoreFinding &other)
{
    return std::tie(one.place.line, one.place.column) < std::tie(other.place.line, other.place.column);
}

} // namespace

bool StoreReport::HasErrors() const
{
    return std::any_of(findings.begin(), findings.end(), [](const StoreFinding &finding) {
        return finding.severity == StoreFinding::Severity::Error;
    });
}

StoreReport UnreadableStore(const QString &reason)
{
    StoreReport report;
    report.findings.append({StoreFinding::Severity::Error, {}, {}, {}, {}, reason});
    return report;
}

StoreReport CheckStore(const QByteArray &contents)
{
    ZebDocument document;
    ZebProblems problems;
    StoreReport report;
    report.isUsable = document.Parse(contents, problems);
    // Of a text that breaks off, the reader also says what the rest would have told it.
    if (!report.isUsable)
        problems = {problems.constLast()};
    for (const ZebProblem &problem : qAsConst(problems))
        report.findings.append(FindingOf(problem));
    std::stable_sort(report.findings.begin(), report.findings.end(), IsEarlier);
    return report;
}
