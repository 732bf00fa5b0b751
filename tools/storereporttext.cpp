// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "storereporttext.h"

#include <QJsonArray>
#include <QStringList>

namespace {

QString SeverityWord(StoreFinding::Severity severity)
{
    return severity == StoreFinding::Severity::Error ? QStringLiteral("error") : QStringLiteral("warning");
}

QString ClassOf(const StoreFinding &finding)
{
    return finding.valueClass.isEmpty()
               ? QString()
               : QString(QStringLiteral(" (") + finding.valueClass + QLatin1Char(')'));
}

/// What a finding is about, with a colon; nothing for the store as a whole.
QString Subject(const StoreFinding &finding)
{
    QStringList parts;
    if (!finding.network.isEmpty())
        parts << QStringLiteral("network \"") + finding.network + QLatin1Char('"');
    if (!finding.property.isEmpty())
        parts << QStringLiteral("property \"") + finding.property + QLatin1Char('"') + ClassOf(finding);
    return parts.isEmpty() ? QString() : QString(parts.join(QStringLiteral(", ")) + QStringLiteral(": "));
}

QString Line(const QString &fileName, const StoreFinding &finding)
{
    QString place = fileName;
    if (finding.place.line > 0)
        place += QStringLiteral(":%1:%2").arg(finding.place.line).arg(finding.place.column);
    const QString question = finding.suggestion.isEmpty()
                                 ? QString()
                                 : QStringLiteral(" (did you mean \"%1\"?)").arg(finding.suggestion);
    return place + QStringLiteral(": ") + SeverityWord(finding.severity) + QStringLiteral(": ") +
           Subject(finding) + finding.reason + question + QLatin1Char('\n');
}

QJsonObject Object(const StoreFinding &finding)
{
    return {{QStringLiteral("line"), finding.place.line},
            {QStringLiteral("column"), finding.place.column},
            {QStringLiteral("severity"), SeverityWord(finding.severity)},
            {QStringLiteral("network"), finding.network},
            {QStringLiteral("property"), finding.property},
            {QStringLiteral("valueClass"), finding.valueClass},
            {QStringLiteral("reason"), finding.reason},
            {QStringLiteral("suggestion"), finding.suggestion}};
}

} // namespace

QString StoreReportText::ForPerson(const QString &fileName, const StoreReport &report)
{
    QString text;
    for (const StoreFinding &finding : report.findings)
        text += Line(fileName, finding);
    return text;
}

QJsonObject StoreReportText::ForProgram(const QString &fileName, const StoreReport &report)
{
    QJsonArray findings;
    for (const StoreFinding &finding : report.findings)
        findings.append(Object(finding));
    return {{QStringLiteral("file"), fileName},
            {QStringLiteral("usable"), report.isUsable},
            {QStringLiteral("findings"), findings}};
}
