// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "systemfacts.h"

#include "defaultroute.h"
#include "interfacekind.h"
#include "paths.h"
#include "securefile.h"
#include "supplicantfacts.h"

#include <QDir>
#include <QFileInfo>
#include <QHash>
#include <QNetworkInterface>
#include <QRegularExpression>
#include <QTimeZone>

#include <algorithm>
#include <chrono>

#include <net/if.h>

namespace {

const QString RESOLV_CONF = QStringLiteral("/etc/resolv.conf");
/// The client only adds to the file until its next start.
constexpr int LEASES_LIMIT_MIB = 16;

/// An IPv4 one of this kind was given to the link by somebody.
bool IsOfEveryLink(const QHostAddress &address)
{
    return address.protocol() == QAbstractSocket::IPv6Protocol && address.isLinkLocal();
}

QStringList Addresses(const QNetworkInterface &source, QAbstractSocket::NetworkLayerProtocol protocol)
{
    QStringList addresses;
    const QList<QNetworkAddressEntry> entries = source.addressEntries();
    for (const QNetworkAddressEntry &entry : entries)
        if (entry.ip().protocol() == protocol && !IsOfEveryLink(entry.ip()))
            addresses.append(QStringLiteral("%1/%2").arg(entry.ip().toString()).arg(entry.prefixLength()));
    return addresses;
}

QString GatewayOf(const QString &interfaceName, const QVector<DefaultRoute> &routes)
{
    const auto route = std::find_if(routes.begin(), routes.end(), [&](const DefaultRoute &candidate) {
        return candidate.interfaceName == interfaceName;
    });
    return route == routes.end() ? QString() : route->gateway;
}

/// By name. To ask for one alone lists them all, too.
QHash<QString, QNetworkInterface> ListInterfaces()
{
    QHash<QString, QNetworkInterface> interfaces;
    const QList<QNetworkInterface> list = QNetworkInterface::allInterfaces();
    for (const QNetworkInterface &interface : list)
        interfaces.insert(interface.name(), interface);
    return interfaces;
}

LinkFacts ReadLink(const QString &interfaceName, const QNetworkInterface &source,
                   const QVector<DefaultRoute> &routes)
{
    LinkFacts link;
    link.name = interfaceName;
    link.macAddress = source.hardwareAddress();
    // Qt takes a link without a carrier for one that is down.
    link.isUp = (LinkAttribute(interfaceName, "flags").toUInt(nullptr, 16) & IFF_UP) != 0;
    link.hasCarrier = LinkAttribute(interfaceName, "carrier") == "1";
    const QString folder = SYS_NET + interfaceName;
    link.isWireless = QFileInfo(folder + QStringLiteral("/wireless")).isDir() ||
                      QFileInfo(folder + QStringLiteral("/phy80211")).exists();
    link.radioBlock = RadioBlock(interfaceName);
    link.virtualKind = VirtualKind(interfaceName);
    link.speedMbits = std::max(0, LinkAttribute(interfaceName, "speed").toInt());
    link.bond = QFileInfo(QFileInfo(folder + QStringLiteral("/master")).symLinkTarget()).fileName();
    link.addresses = Addresses(source, QAbstractSocket::IPv4Protocol);
    link.ipv6Addresses = Addresses(source, QAbstractSocket::IPv6Protocol);
    link.gateway = GatewayOf(interfaceName, routes);
    return link;
}

QString Captured(const QString &text, const char *pattern)
{
    return QRegularExpression(QLatin1String(pattern), QRegularExpression::MultilineOption)
        .match(text)
        .captured(1);
}

/// "expire 6 2026/11/21 20:55:01;" in UTC, "epoch" with seconds where the client's "db-time-format" is
/// "local", or "never" (dhclient.leases(5)).
QDateTime ExpiryOf(const QString &lease)
{
    const QString seconds = Captured(lease, R"(^\s*expire epoch (\d{1,11});)");
    if (!seconds.isEmpty())
        return QDateTime::fromSecsSinceEpoch(seconds.toLongLong(), Qt::UTC);
    const QString text = Captured(lease, R"(^\s*expire \d (\d+/\d+/\d+ \d+:\d+:\d+);)");
    QDateTime time = QDateTime::fromString(text, QStringLiteral("yyyy/MM/dd HH:mm:ss"));
    time.setTimeSpec(Qt::UTC);
    return time;
}

std::optional<LeaseFacts> LeaseOf(const LinkFacts &link, const QByteArray &leases)
{
    auto lease = SystemFacts::LastLease(leases, link.name);
    const auto isInUse = [&lease](const QString &address) {
        return address.section(QLatin1Char('/'), 0, 0) == lease->address;
    };
    // An address that was set since then is not of that lease.
    if (lease && std::any_of(link.addresses.begin(), link.addresses.end(), isInUse))
        return lease;
    return std::nullopt;
}

std::optional<InterfaceState> StateOf(const QString &interfaceName, const ServiceState &state)
{
    for (const InterfaceState &candidate : state.interfaces)
        if (candidate.name == interfaceName)
            return candidate;
    return std::nullopt;
}

bool HasSupplicant(const QString &interfaceName)
{
    return QFileInfo::exists(WPA_CONTROL_FOLDER + QLatin1Char('/') + interfaceName);
}

} // namespace

QVector<LinkFacts> SystemFacts::ReadLinks()
{
    QVector<LinkFacts> links;
    const QVector<DefaultRoute> routes = ReadDefaultRoutes();
    const QHash<QString, QNetworkInterface> interfaces = ListInterfaces();
    const QStringList names = QDir(SYS_NET).entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name);
    for (const QString &interfaceName : names)
        if (HasHardware(ReadLinkType(interfaceName))) // Others the daemon leaves alone.
            links.append(ReadLink(interfaceName, interfaces.value(interfaceName), routes));
    return links;
}

QStringList SystemFacts::NameServers(const QByteArray &resolvConf)
{
    QStringList servers;
    const QStringList lines = QString::fromUtf8(resolvConf).split(QLatin1Char('\n'));
    for (const QString &line : lines) {
        const QStringList words = line.simplified().split(QLatin1Char(' '));
        if (words.size() > 1 && words.first() == QLatin1String("nameserver"))
            servers.append(words.at(1));
    }
    return servers;
}

std::optional<LeaseFacts> SystemFacts::LastLease(const QByteArray &leases, const QString &interfaceName)
{
    const QString ours = QStringLiteral("interface \"%1\";").arg(interfaceName);
    // What follows the last one that is ended is being written.
    QStringList blocks = QString::fromUtf8(leases).split(QStringLiteral("\n}"));
    blocks.removeLast();
    const auto last = std::find_if(blocks.crbegin(), blocks.crend(),
                                   [&ours](const QString &block) { return block.contains(ours); });
    if (last == blocks.crend())
        return std::nullopt;
    return LeaseFacts{Captured(*last, "^\\s*fixed-address ([0-9.]+);"),
                      Captured(*last, "^\\s*option dhcp-server-identifier ([0-9.]+);"), ExpiryOf(*last)};
}

SystemReport SystemFacts::Read()
{
    SystemReport report;
    report.daemon = ReadServiceState();
    if (!report.IsDaemonKnown())
        report.segment = ReadStatus();
    report.nowMs = std::chrono::duration_cast<std::chrono::milliseconds>(
                       std::chrono::steady_clock::now().time_since_epoch())
                       .count();
    report.resolver = NameServers(SecureFile::ReadRegular(RESOLV_CONF).value_or(QByteArray()));
    const QByteArray leases = SecureFile::Read(DHCP_LEASES, LEASES_LIMIT_MIB).contents;
    const QVector<LinkFacts> links = ReadLinks();
    for (const LinkFacts &link : links) {
        InterfaceReport entry;
        entry.link = link;
        entry.daemon = StateOf(link.name, report.daemon.state);
        // A definition may set the very address that was leased before.
        if (!entry.daemon || !entry.daemon->isStatic)
            entry.lease = LeaseOf(link, leases);
        if (HasSupplicant(link.name))
            entry.supplicant = AskSupplicant(link.name, link.isWireless);
        entry.isCarrier = report.daemon.state.carrier == link.name;
        report.interfaces.append(entry);
    }
    return report;
}
