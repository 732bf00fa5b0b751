// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "zebcert.h"

#include <QFileInfo>

QString ZebCert::GetFullPath(const QString &certName)
{
    if (certName.isEmpty() || certName.startsWith(QLatin1Char('/')))
        return certName;

    const QStringList folders = {QStringLiteral("/etc/ssl/certs/"), QStringLiteral("/etc/ssl/private/"),
                                 QStringLiteral("/tmp/config/files/certificates/")};
    for (const QString &folder : folders) {
        if (QFileInfo(folder + certName).isFile())
            return folder + certName;
    }
    return folders.first() + certName;
}
