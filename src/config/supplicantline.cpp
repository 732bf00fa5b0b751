// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "supplicantline.h"

#include "supplicantvalues.h"

namespace {

QString WithoutQuotes(const QString &value)
{
    return value.mid(1, value.size() - 2);
}

QString ValueProblem(const QString &key, const QString &value)
{
    if (key == QLatin1String("ssid"))
        return SupplicantValues::SsidProblem(WithoutQuotes(value));
    if (key == QLatin1String("psk"))
        return SupplicantValues::PskProblem(value);
    if (key == QLatin1String("wep_key0"))
        return SupplicantValues::WepKeyProblem(value);
    if (key == QLatin1String("pairwise") || key == QLatin1String("group"))
        return SupplicantValues::CipherProblem(value);
    return QString();
}

} // namespace

QString SupplicantLineProblem(const QString &key, const QString &value)
{
    QString problem = SupplicantValues::LineProblem(key, value);
    if (problem.isEmpty())
        problem = ValueProblem(key, value);
    return problem.isEmpty() ? QString() : key + QLatin1Char(' ') + problem;
}
