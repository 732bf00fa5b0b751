// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "storehints.h"

#include "securitymodes.h"
#include "spelling.h"
#include "supplicantvalues.h"
#include "zebproperties.h"

namespace {

QStringList PropertyNames()
{
    QStringList names = {QStringLiteral("hosts")};
    for (const ZebProperty &property : ZebProperties::All())
        names << QString::fromLatin1(property.key);
    return names;
}

/// The list with the first misspelt word put right.
QString CipherMeantInstead(const QString &value)
{
    QStringList words = value.split(QLatin1Char(' '), Qt::SkipEmptyParts);
    for (QString &word : words) {
        if (SupplicantValues::Ciphers().contains(word))
            continue;
        word = NearestWord(word, SupplicantValues::Ciphers());
        return word.isEmpty() ? QString() : words.join(QLatin1Char(' '));
    }
    return QString();
}

QString ValueMeantInstead(const ZebProperty &property, const QString &value)
{
    const QLatin1String key(property.key);
    const QLatin1String valueClass(property.rule.valueClass);
    if (key == QLatin1String("securityMode"))
        return NearestWord(value, SecurityModes.keys());
    if (key == QLatin1String("cipher"))
        return CipherMeantInstead(value);
    if (valueClass == QLatin1String("boolean"))
        return NearestWord(value, {QStringLiteral("true"), QStringLiteral("false")});
    if (key == QLatin1String("dot1xFallback"))
        return NearestWord(value, {QStringLiteral("fallback")});
    return QString();
}

} // namespace

QString MeantInstead(const ZebProblem &problem)
{
    const ZebProperty *known = ZebProperties::Find(problem.property);
    if (!known)
        return problem.network.isEmpty() ? SettingMeantInstead(problem.property)
                                         : NearestWord(problem.property, PropertyNames());
    return problem.refused.isEmpty() ? QString() : ValueMeantInstead(*known, problem.refused);
}

const QStringList &BooleanSettings()
{
    static const QStringList names = {QStringLiteral("useNewDriver"), QStringLiteral("UseApScan"),
                                      QStringLiteral("FilterSsids"), QStringLiteral("AddWpsSaeCred"),
                                      QStringLiteral("bonding_enable")};
    return names;
}

QString SettingMeantInstead(const QString &name)
{
    const QStringList known =
        BooleanSettings() + QStringList{QStringLiteral("bonding_mode"), QStringLiteral("network")};
    return known.contains(name) ? QString() : NearestWord(name, known);
}
