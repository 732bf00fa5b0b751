// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "platformfile.h"

#include "filetrust.h"
#include "reportonce.h"
#include "securefile.h"

#include <QFile>

#include <map>

bool PlatformFile::Exists(const QString &path)
{
    static std::map<QString, ReportOnce> reports;
    if (!QFile::exists(path))
        return false;
    ReportOnce &report = reports[path];
    const QString problem = TrustProblem(path);
    if (problem.isEmpty()) {
        report.Over();
        return true;
    }
    LogOnce(report, problem) << "PlatformFile::Exists -" << path << "is not obeyed:" << problem;
    return false;
}

std::optional<QByteArray> PlatformFile::Read(const QString &path)
{
    return Exists(path) ? SecureFile::ReadRegular(path) : std::nullopt;
}
