// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "zebcheck.h"
#include "zebdocument.h"

#include <cstdint>
#include <cstdlib>

namespace {

void Require(bool isTrue)
{
    if (!isTrue)
        std::abort();
}

} // namespace

/// Any bytes as a file of the store: whatever is taken is harmless, whatever is told fits into a log line.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    ZebDocument document;
    ZebProblems problems;
    const auto bytes = QByteArray::fromRawData(reinterpret_cast<const char *>(data), static_cast<int>(size));
    if (!document.Parse(bytes, problems)) {
        Require(problems.constLast().consequence == ZebConsequence::DocumentRefused &&
                !problems.constLast().reason.isEmpty());
        return 0;
    }

    Require(document.networkNames.size() == document.networks.size());
    for (const QString &name : qAsConst(document.networkNames)) {
        const auto network = document.networks.constFind(name);
        Require(network != document.networks.constEnd() && !name.isEmpty());
        Require(network->properties.value(QStringLiteral("name")) == name);
        for (const QString &value : network->properties)
            Require(ZebCheck::TextProblem(value).isEmpty() && !value.isEmpty());
        for (const QString &host : network->hosts)
            Require(!host.contains(QLatin1Char('\n')));
    }
    for (const QString &value : qAsConst(document.settings))
        Require(ZebCheck::TextProblem(value).isEmpty());
    for (const ZebProblem &problem : qAsConst(problems))
        Require(!problem.Text().contains(QLatin1Char('\n')) && problem.place.line > 0);

    ZebDocument again;
    ZebProblems toldAgain;
    Require(again.Parse(document.ToXml(), toldAgain) && again.settings == document.settings &&
            again.networkNames == document.networkNames);
    for (const ZebProblem &problem : qAsConst(toldAgain))
        Require(problem.property == QLatin1String("securityMode"));
    for (const QString &name : qAsConst(document.networkNames))
        Require(again.networks.value(name).properties == document.networks.value(name).properties &&
                again.networks.value(name).hosts == document.networks.value(name).hosts);
    return 0;
}
