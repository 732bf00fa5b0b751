// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "storeplantext.h"

#include "supplicantvalues.h"

#include <QJsonObject>
#include <QRegularExpression>

namespace {

/// As the file has it, with a mask for the stand-ins of secrets, and for those of the platform's own lines.
QStringList Shown(const QStringList &block)
{
    QStringList lines = block.join(QLatin1Char('\n')).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    for (QString &line : lines) {
        const QString key = line.section(QLatin1Char('='), 0, 0);
        if (SupplicantValues::IsSecretOption(key.trimmed()))
            line = key + QStringLiteral("=********");
    }
    return lines;
}

/// The supplicant repeats what it does not take, the platform's own lines too.
QStringList ShownComplaints(const QStringList &complaints)
{
    static const QRegularExpression quoted(QStringLiteral("'.*'|\".*\""));
    QStringList lines = complaints;
    return lines.replaceInStrings(quoted, QStringLiteral("'...'"));
}

QString NetworkText(const PlannedNetwork &network, int number)
{
    QString text = QStringLiteral("  %1. %2: %3").arg(number).arg(network.name, network.securityMode);
    if (number == 1)
        text += QStringLiteral("; sets the addresses: ") + network.addresses;
    text += QLatin1Char('\n');
    for (const QString &problem : network.problems)
        text += QStringLiteral("     ") + problem + QLatin1Char('\n');
    const QStringList lines = Shown(network.block);
    for (const QString &line : lines)
        text += QStringLiteral("     ") + QString(line).replace(QLatin1Char('\t'), QStringLiteral("    ")) +
                QLatin1Char('\n');
    return text;
}

QString SupplicantText(const InterfacePlan &plan)
{
    if (!plan.usesSupplicant)
        return QStringLiteral("  no supplicant: the first network is unsecured\n");
    if (!plan.complaints)
        return QStringLiteral("  wpa_supplicant is not installed or does not run\n");
    if (plan.complaints->isEmpty())
        return QStringLiteral("  wpa_supplicant takes its file\n");
    const QStringList complaints = ShownComplaints(*plan.complaints);
    return QStringLiteral("  wpa_supplicant refuses its file:\n    ") +
           complaints.join(QStringLiteral("\n    ")) + QLatin1Char('\n');
}

QJsonObject Object(const PlannedNetwork &network)
{
    return {{QStringLiteral("name"), network.name},
            {QStringLiteral("securityMode"), network.securityMode},
            {QStringLiteral("addresses"), network.addresses},
            {QStringLiteral("block"), QJsonArray::fromStringList(Shown(network.block))},
            {QStringLiteral("problems"), QJsonArray::fromStringList(network.problems)}};
}

} // namespace

QString StorePlanText::ForPerson(const StorePlan &plans)
{
    QString text;
    for (const InterfacePlan &plan : plans) {
        text += plan.interfaceName + QStringLiteral(": ") + plan.kind + QLatin1Char('\n');
        int number = 0;
        for (const PlannedNetwork &network : plan.networks)
            text += NetworkText(network, ++number);
        if (plan.takesNetworks)
            text += plan.networks.isEmpty() ? QStringLiteral("  no network is stored for it\n")
                                            : SupplicantText(plan);
    }
    return text;
}

QJsonArray StorePlanText::ForProgram(const StorePlan &plans)
{
    QJsonArray array;
    for (const InterfacePlan &plan : plans) {
        QJsonArray networks;
        for (const PlannedNetwork &network : plan.networks)
            networks.append(Object(network));
        QJsonObject object = {{QStringLiteral("interface"), plan.interfaceName},
                              {QStringLiteral("kind"), plan.kind},
                              {QStringLiteral("networks"), networks},
                              {QStringLiteral("usesSupplicant"), plan.usesSupplicant}};
        if (plan.complaints)
            object.insert(QStringLiteral("complaints"),
                          QJsonArray::fromStringList(ShownComplaints(*plan.complaints)));
        array.append(object);
    }
    return array;
}
