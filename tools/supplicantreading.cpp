// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "supplicantreading.h"

#include "program.h"

#include <QFile>
#include <QRegularExpression>

#include <sys/mman.h>

std::optional<QStringList> SupplicantComplaints(const QByteArray &configuration)
{
    constexpr int TIME_LIMIT_MS = 10000; // it takes some 50 ms
    // In memory, as the platform's own lines may hold secrets: nothing stays when we are interrupted.
    const int fd = ::memfd_create("corvi-check", 0); // which the supplicant inherits
    QFile file;
    if (fd == -1 || !file.open(fd, QIODevice::WriteOnly, QFileDevice::AutoCloseHandle) ||
        file.write(configuration) != configuration.size() || !file.flush())
        return std::nullopt;
    Program supplicant;
    supplicant.Start(QStringLiteral("wpa_supplicant"),
                     {QStringLiteral("-Dwired"), QStringLiteral("-icorvi-check"),
                      QStringLiteral("-c/proc/self/fd/%1").arg(fd)});
    if (!supplicant.waitForStarted() || !supplicant.WaitForEnd(TIME_LIMIT_MS))
        return std::nullopt;
    const QStringList lines = QString::fromUtf8(supplicant.readAllStandardOutput()).split(QLatin1Char('\n'));
    return lines.filter(QRegularExpression(QStringLiteral("\\ALine [0-9]+: ")));
}
