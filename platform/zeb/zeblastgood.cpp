// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "zeblastgood.h"

#include "filetrust.h"
#include "securefile.h"

#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <cstring>

#include <sys/stat.h>

namespace {

constexpr int SIZE_LIMIT_MIB = 8; // what the store may have, and room for its escapes

} // namespace

bool ZebLastGood::Restore(ZebDocument &document, QString &problem)
{
    if (!QFile::exists(filePath))
        return false;
    problem = TrustProblem(filePath);
    if (!problem.isEmpty())
        return false;
    const SecureFile::Reading reading = SecureFile::Read(filePath, SIZE_LIMIT_MIB);
    problem = reading.problem;
    if (!problem.isEmpty())
        return false;
    ZebDocument read;
    ZebProblems problems;
    if (!read.Parse(reading.contents, problems)) {
        problem = problems.constLast().Text();
        return false;
    }
    document = read;
    kept = reading.contents;
    return true;
}

QString ZebLastGood::Keep(const ZebDocument &document)
{
    const QByteArray xml = document.ToXml();
    if (xml == kept)
        return QString();
    const QString folder = QFileInfo(filePath).path();
    if (::mkdir(QFile::encodeName(folder).constData(), 0700) != 0 && errno != EEXIST)
        return QString::fromLocal8Bit(std::strerror(errno));
    QString problem = TrustProblem(folder);
    if (!problem.isEmpty())
        return problem;
    if (!SecureFile::ReplaceLasting(filePath, xml, 0600))
        return QString::fromLocal8Bit(std::strerror(errno));
    kept = xml;
    return QString();
}
