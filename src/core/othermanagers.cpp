// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "othermanagers.h"

#include "interfacekind.h"
#include "paths.h"
#include "supplicantprocess.h"

#include <QFile>

#include <algorithm>
#include <functional>
#include <iterator>

namespace {

QByteArray Read(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QString IndexOf(const QString &interfaceName)
{
    return QString::fromLatin1(LinkAttribute(interfaceName, "ifindex"));
}

bool NetworkManagerHas(const QString &interfaceName)
{
    return Read(QStringLiteral("/run/NetworkManager/devices/") + IndexOf(interfaceName))
        .contains("managed=true");
}

/// It has a file for every link, also for those that it leaves alone.
bool NetworkdHas(const QString &interfaceName)
{
    const QByteArray state = Read(QStringLiteral("/run/systemd/netif/links/") + IndexOf(interfaceName));
    return state.contains("ADMIN_STATE=") && !state.contains("ADMIN_STATE=unmanaged");
}

/// What `ifup` brought up: one NAME=NAME a line.
bool IfupdownHas(const QString &interfaceName)
{
    const QList<QByteArray> lines = Read(QStringLiteral("/run/network/ifstate")).split('\n');
    return std::any_of(lines.cbegin(), lines.cend(), [&](const QByteArray &line) {
        return line.startsWith(QByteArray(interfaceName.toLatin1() + '='));
    });
}

/// One client for all interfaces, or one for each.
bool DhcpcdHas(const QString &interfaceName)
{
    return QFile::exists(QStringLiteral("/run/dhcpcd/pid")) ||
           QFile::exists(QStringLiteral("/run/dhcpcd/%1.pid").arg(interfaceName));
}

struct Manager
{
    QString name;
    std::function<bool(const QString &)> has;
};

} // namespace

QStringList OtherManagers(const QStringList &interfaceNames)
{
    // Such as that of wpa_supplicant@.service.
    const auto supplicantHas =
        [theirs = SupplicantProcess::ForeignInterfaces(WPA_SUPPLICANT_CONF)](const QString &interfaceName) {
            return theirs.contains(interfaceName);
        };
    const Manager managers[] = {{QStringLiteral("NetworkManager"), NetworkManagerHas},
                                {QStringLiteral("systemd-networkd"), NetworkdHas},
                                {QStringLiteral("ifupdown"), IfupdownHas},
                                {QStringLiteral("dhcpcd"), DhcpcdHas},
                                {QStringLiteral("wpa_supplicant"), supplicantHas}};
    QStringList found;
    for (const Manager &manager : managers) {
        QStringList theirs;
        std::copy_if(interfaceNames.cbegin(), interfaceNames.cend(), std::back_inserter(theirs), manager.has);
        if (!theirs.isEmpty())
            found += QStringLiteral("%1 (%2)").arg(manager.name, theirs.join(QStringLiteral(", ")));
    }
    return found;
}
