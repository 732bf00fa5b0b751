// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "zebsectionfile.h"

#include "filetrust.h"

SecureFile::Reading ZebSectionFile::Read(const QString &path)
{
    return SecureFile::Read(path, SIZE_LIMIT_MIB);
}

SecureFile::Reading ZebSectionFile::ReadTrusted(const QString &path)
{
    const QString distrust = TrustProblem(path);
    if (distrust.isEmpty())
        return Read(path);
    SecureFile::Reading refused;
    refused.problem = QStringLiteral("is not obeyed: ") + distrust;
    return refused;
}
