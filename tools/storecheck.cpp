// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "storecheck.h"

#include "storeadvice.h"
#include "storehints.h"
#include "storemarkup.h"

#include <algorithm>
#include <tuple>

namespace {

StoreFinding FindingOf(const ZebProblem &problem)
{
    StoreFinding finding;
    finding.place = problem.place;
    finding.network = problem.network;
    finding.property = problem.property;
    if (!problem.network.isEmpty())
        finding.valueClass = ValueClass(problem.property);
    finding.reason = problem.ReasonText();
    finding.suggestion = MeantInstead(problem);
    return finding;
}

bool IsEarlier(const StoreFinding &one, const StoreFinding &other)
{
    return std::tie(one.place.line, one.place.column) < std::tie(other.place.line, other.place.column);
}

} // namespace

void StoreReport::Add(const StoreFindings &further)
{
    findings += further;
    std::stable_sort(findings.begin(), findings.end(), IsEarlier);
}

bool StoreReport::HasErrors() const
{
    return std::any_of(findings.begin(), findings.end(), [](const StoreFinding &finding) {
        return finding.severity == StoreFinding::Severity::Error;
    });
}

StoreReport UnreadableStore(const QString &reason)
{
    StoreFinding finding;
    finding.reason = reason;
    StoreReport report;
    report.findings = {finding};
    return report;
}

StoreReport ReadStore(const QByteArray &contents, ZebDocument &document)
{
    ZebProblems problems;
    StoreReport report;
    report.isUsable = document.Parse(contents, problems);
    // Of a text that breaks off, the reader also says what the rest would have told it.
    if (!report.isUsable)
        problems = {problems.constLast()};
    StoreFindings findings;
    for (const ZebProblem &problem : qAsConst(problems))
        findings.append(FindingOf(problem));
    report.Add(findings);
    return report;
}

StoreReport CheckStore(const QByteArray &contents, ZebDocument &document)
{
    StoreReport report = ReadStore(contents, document);
    if (report.isUsable)
        report.Add(StoreAdvice::OnSettings(document) + StoreAdvice::OnNetworks(document) +
                   MarkupFindings(contents));
    return report;
}
