// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "supplicantreading.h"

#include "program.h"

#include <QRegularExpression>
#include <QTemporaryFile>

std::optional<QStringList> SupplicantComplaints(const QByteArray &configuration)
{
    constexpr int TIME_LIMIT_MS = 10000; // it takes some 50 ms
    QTemporaryFile file;
    if (!file.open() || file.write(configuration) != configuration.size() || !file.flush())
        return std::nullopt;
    Program supplicant;
    supplicant.start(
        QStringLiteral("wpa_supplicant"),
        {QStringLiteral("-Dwired"), QStringLiteral("-icorvi-check"), QStringLiteral("-c") + file.fileName()});
    if (!supplicant.waitForStarted() || !supplicant.WaitForEnd(TIME_LIMIT_MS))
        return std::nullopt;
    const QStringList lines = QString::fromUtf8(supplicant.readAllStandardOutput()).split(QLatin1Char('\n'));
    return lines.filter(QRegularExpression(QStringLiteral("\\ALine [0-9]+: ")));
}
