// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "interfacekind.h"

#include "paths.h"
#include "program.h"
#include "timing.h"

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QList>
#include <QStringList>

#include <algorithm>

namespace {

/// Link types above this one (if_arp.h) are loopback, tunnels and other links without hardware.
constexpr int HIGHEST_HARDWARE_TYPE = 255;

bool IsWirelessInterface(const QString &interfaceName)
{
    return QFileInfo(SYS_NET + interfaceName + QStringLiteral("/wireless")).isDir() ||
           interfaceName.startsWith(QStringLiteral("wlan")) ||
           interfaceName.startsWith(QStringLiteral("mlan"));
}

} // namespace

bool interfaceIsWireless(const QString &interfaceName)
{
    Program process;
    // The blank belongs to the program string; QProcess takes it as part of the file name.
    process.Start(QStringLiteral("iw "), {interfaceName, QStringLiteral("info")});
    // Not WaitForEnd(): that nothing has this name is how it is on every machine, and no fault to tell of.
    if (!process.waitForFinished(PROGRAM_TIME_LIMIT_MS))
        return false;
    return process.readAllStandardOutput().split('\n').size() > 1;
}

QByteArray LinkAttribute(const QString &interfaceName, const char *attribute)
{
    QFile file(SYS_NET + interfaceName + QLatin1Char('/') + QLatin1String(attribute));
    return file.open(QIODevice::ReadOnly) ? file.readAll().trimmed() : QByteArray();
}

int ReadLinkType(const QString &interfaceName)
{
    return LinkAttribute(interfaceName, "type").split('\n').first().trimmed().toInt();
}

bool HasHardware(int linkType)
{
    return linkType <= HIGHEST_HARDWARE_TYPE;
}

QString VirtualKind(const QString &interfaceName)
{
    const QString folder = SYS_NET + interfaceName;
    const QString bridge = QFileInfo(folder + QStringLiteral("/brport/bridge")).symLinkTarget();
    if (!bridge.isEmpty())
        return QStringLiteral("port of ") + QFileInfo(bridge).fileName();
    if (QFileInfo::exists(folder + QStringLiteral("/tun_flags")))
        return QStringLiteral("tap");
    const QList<QByteArray> lines = LinkAttribute(interfaceName, "uevent").split('\n');
    for (const char *type : {"bridge", "vlan", "vxlan"})
        if (lines.contains(QByteArray("DEVTYPE=") + type))
            return QLatin1String(type);
    return QString();
}

bool IsBridgePort(const QString &interfaceName)
{
    return QFileInfo::exists(SYS_NET + interfaceName + QStringLiteral("/brport"));
}

QString RadioBlock(const QString &interfaceName)
{
    const QDir radio(SYS_NET + interfaceName + QStringLiteral("/phy80211"));
    const QStringList switches =
        radio.entryList({QStringLiteral("rfkill*")}, QDir::Dirs | QDir::NoDotAndDotDot);
    const auto isSet = [&](const char *state) {
        return std::any_of(switches.begin(), switches.end(), [&](const QString &entry) {
            return LinkAttribute(interfaceName,
                                 QByteArray("phy80211/" + entry.toLatin1() + state).constData()) == "1";
        });
    };
    if (isSet("/hard"))
        return QStringLiteral("by a switch");
    return isSet("/soft") ? QStringLiteral("by software") : QString();
}

bool HasEthernetName(const QString &interfaceName)
{
    return interfaceName.startsWith(QLatin1Char('e'));
}

InterfaceKind KindOfInterface(const QString &interfaceName)
{
    if (IsWirelessInterface(interfaceName))
        return InterfaceKind::Wireless;
    return interfaceName.startsWith(QStringLiteral("wwan")) ? InterfaceKind::Modem : InterfaceKind::Wired;
}
