// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "modinfo.h"

#include "paths.h"

#include <QFile>
#include <QStringList>

QString ModInfo::GetDeviceSysInfo(const QString &interfaceName, const QString &file)
{
    QFile source(SYS_NET + interfaceName + QStringLiteral("/device/") + file);
    return source.open(QIODevice::ReadOnly) ? QString::fromUtf8(source.readAll()) : QString();
}

QString ModInfo::GetUEVENTDriver(const QString &interfaceName)
{
    return DriverIn(GetDeviceSysInfo(interfaceName, QStringLiteral("uevent")));
}

QString ModInfo::DriverIn(const QString &uevent)
{
    QString driver;
    const QStringList lines = uevent.split(QLatin1Char('\n'));
    for (const QString &line : lines) {
        // As "(.*)=(.*)" takes it: the key reaches to the last "=".
        const auto separator = line.lastIndexOf(QLatin1Char('='));
        if (separator != -1 && line.left(separator).trimmed() == QLatin1String("DRIVER"))
            driver = line.mid(separator + 1).trimmed();
    }
    return driver;
}

QString ModInfo::GetDeviceType(const QString &interfaceName)
{
    // The driver of these adapters names its interfaces so and is found in no uevent file.
    return interfaceName.startsWith(QLatin1String("ra")) ? QStringLiteral("rt2870sta")
                                                         : GetUEVENTDriver(interfaceName);
}

QString ModInfo::GetDeviceDesc(const QString &driver)
{
    if (driver == QLatin1String("rt2870sta"))
        return QStringLiteral("RT2870 Wireless LAN");
    if (driver == QLatin1String("vntwusb") || driver == QLatin1String("vt6656"))
        return QStringLiteral("VIA Networking Wireless LAN");
    // The spelling is part of the text.
    return QStringLiteral("Unknow adapter");
}
