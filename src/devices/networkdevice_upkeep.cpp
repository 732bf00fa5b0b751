// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "networkdevice.h"

#include "defaultroute.h"
#include "interfacekind.h"
#include "ipaddress.h"
#include "logging.h"
#include "utils.h"
#include "zebnetconfig.h"

#include <QFile>

#include <sys/ioctl.h>

namespace {

const QString IP = QStringLiteral("ip");
/// The client's hook leaves this file, one an interface, where the last answer of the server named no
/// gateway.
const QString NO_ROUTER = QStringLiteral("/run/corvi-no-router.");

/// Why the kernel refuses a route by this gateway, for which only the definition can be to blame; empty where
/// it does not.
QString GatewayFault(const QString &gateway, const QString &address, const QString &netmask)
{
    const auto number = Ipv4Number(gateway);
    if (!number)
        return QStringLiteral(": the gateway %1 is no address").arg(gateway);
    const quint32 mask = Ipv4Number(netmask).value_or(0);
    if (!AreInOneSubnet(*number, Ipv4Number(address).value_or(0), mask))
        return QStringLiteral(": the gateway %1 is outside its subnet").arg(gateway);
    if (IsBroadcastAddress(*number, mask))
        return QStringLiteral(": the gateway %1 is the broadcast address of its subnet").arg(gateway);
    return {};
}

} // namespace

/// Not by SetGateway(), which deletes first: where the gateway cannot be reached, that would take the way out
/// from whoever has one, once a minute.
void NetworkDevice::RestoreGateway(const QString &gateway, const QStringList &options)
{
    const QStringList arguments = QStringList{QStringLiteral("route"),
                                              QStringLiteral("replace"),
                                              QStringLiteral("default"),
                                              QStringLiteral("via"),
                                              gateway,
                                              QStringLiteral("dev"),
                                              name} +
                                  options;
    if (!Utils::Succeeds(IP, arguments) && RestoreSubnetRoute(gateway))
        Utils::Execute(IP, arguments, false);
}

/// The kernel sets the route of the subnet with its address, and not again: whoever clears all routes of the
/// interface takes it along, and the gateway is out of reach. Not by "replace", which takes the route of
/// another interface in the same subnet.
bool NetworkDevice::RestoreSubnetRoute(const QString &gateway)
{
    if (!GatewayFault(gateway, ipAddress, netmask).isEmpty())
        return false;
    const quint32 network = Ipv4Number(ipAddress).value_or(0) & Ipv4Number(netmask).value_or(0);
    return Utils::Succeeds(IP, {QStringLiteral("route"), QStringLiteral("append"),
                                Ipv4Text(network) + QLatin1Char('/') + netmask, QStringLiteral("dev"), name,
                                QStringLiteral("proto"), QStringLiteral("kernel"), QStringLiteral("scope"),
                                QStringLiteral("link"), QStringLiteral("src"), ipAddress});
}

/// A lease of a single address, and many a modem, have a gateway outside of the subnet: the kernel takes it
/// only where it is told that the link leads there.
QStringList NetworkDevice::LeasedRouteOptions() const
{
    QStringList options;
    if (leasedMetric > 0)
        options << QStringLiteral("metric") << QString::number(leasedMetric);
    const quint32 mask = Ipv4Number(netmask).value_or(0);
    if (!AreInOneSubnet(Ipv4Number(leasedGateway).value_or(0), Ipv4Number(ipAddress).value_or(0), mask))
        options << QStringLiteral("onlink");
    return options;
}

void NetworkDevice::KeepStaticAddress()
{
    if (!currentConfig || !currentConfig->staticIp)
        return;
    const auto now = RetryPause::Time::clock::now();
    if (HasStaticAddress() && HasStaticRoute()) {
        staticPause.NoteSuccess(now);
        reports->upkeep.Over();
        return;
    }
    if (!staticPause.IsDue(now))
        return;
    // The routes are read now, the address was at the tick's begin, and takes its route along when it goes.
    ReadAddress(SIOCGIFADDR, ipAddress);
    const bool hasAddress = HasStaticAddress();
    const QString missing = hasAddress ? QStringLiteral("default route") : QStringLiteral("static address");
    const QString place = hasAddress ? name + GatewayFault(currentConfig->gateway, ipAddress, netmask) : name;
    LogOnce(reports->upkeep, missing + place)
        << "NetworkDevice::KeepStaticAddress - the" << missing << "is missing, setting it again on" << place;
    if (!hasAddress) {
        ConfigureNetwork(true);
        return;
    }
    RestoreGateway(currentConfig->gateway, {});
    staticPause.NoteAttempt(RetryPause::Time::clock::now());
}

/// A disk that is full, a file system that cannot be written, or a tool that fails becomes right again, and
/// nobody configures the interface anew for that.
void NetworkDevice::KeepNames()
{
    if (!(isResolverDue || areHostsDue) || !currentConfig) {
        namesPause.Reset();
        return;
    }
    if (!namesPause.IsDue(RetryPause::Time::clock::now()))
        return;
    if (isResolverDue)
        ApplyResolverAgain();
    if (areHostsDue)
        SetHosts(currentConfig->hosts);
    namesPause.NoteAttempt(RetryPause::Time::clock::now());
}

/// The kernel takes a leased address away when its time is over, hours later as it may be, and until then all
/// looks well.
void NetworkDevice::KeepDhcpClient()
{
    if (ipAddress.isEmpty() || !currentConfig || currentConfig->staticIp) {
        dhcpClientWatch.Forget();
        return;
    }
    if (!dhcpClientWatch.NoticeEnd(name, ipAddress, DhcpClientWatch::Time::clock::now())) {
        if (dhcpClientWatch.IsSteady())
            reports->client.Over();
        return;
    }
    LogOnce(reports->client)
        << "NetworkDevice::KeepDhcpClient - the DHCP client has ended, starting it again on" << name;
    RenewLease();
}

void NetworkDevice::RenewLease()
{
    MakeRoomForDhcp(true); // Nobody counts whether it failed, and the next one is minutes away.
    const QByteArray mtu = LinkAttribute(name, "mtu");
    // For the client's hook.
    StartDhcpClient(name, {QStringLiteral("-e"), QStringLiteral("corvi_kept_address=") + ipAddress});
    ExpectLossForMtu(mtu);
    if (!currentConfig->mtu.isEmpty())
        ApplyMtu(); // The server's came with the lease.
    RefreshStatus();
    dhcpClientWatch.Begin(name, ipAddress, DhcpClientWatch::Time::clock::now());
}

/// Two hosts with one address cut each other off, now the one and now the other, and all else looks well.
void NetworkDevice::WatchForDuplicate()
{
    const QString &holder = duplicateWatch.Look(kernelName, ipAddress, DuplicateWatch::Time::clock::now());
    if (holder.isEmpty())
        reports->duplicate.Over();
    else
        LogOnce(reports->duplicate, ipAddress + holder)
            << "NetworkDevice::WatchForDuplicate - another host has our address," << ipAddress << "on" << name
            << "--" << holder;
}

QString NetworkDevice::AddressHolder() const
{
    return duplicateWatch.Known(ipAddress, DuplicateWatch::Time::clock::now());
}

QString NetworkDevice::ExpectedGateway() const
{
    QString gateway = Gateway();
    if (gateway.isEmpty() || (currentConfig && currentConfig->staticIp))
        return gateway; // Most interfaces have none, and are asked on every tick.
    // That of a lease is not set again while somebody else, as a VPN, has the way out.
    return ReadDefaultRoutes().isEmpty() && !HasRoutesForBothHalves() ? gateway : QString();
}

QString NetworkDevice::ReachableGateway() const
{
    QString gateway = Gateway();
    if (gateway == ipAddress)
        return QString();
    // By that of a lease the kernel has a route.
    const bool isStatic = currentConfig && currentConfig->staticIp;
    return isStatic && !GatewayFault(gateway, ipAddress, netmask).isEmpty() ? QString() : gateway;
}

/// Empty where none is known.
QString NetworkDevice::Gateway() const
{
    if (currentConfig && currentConfig->staticIp)
        return currentConfig->gateway;
    return leasedGatewayAddress == ipAddress ? leasedGateway : QString();
}

/// The client sets the route of its lease once, and at a renewal not again: where somebody takes it away, as
/// a VPN that ended badly, nobody else brings it back. One that somebody has set instead is not touched.
/// While a VPN takes every address nobody needs it, and the VPN may have taken it away to let nothing past
/// itself: it comes back when the VPN is gone.
void NetworkDevice::KeepLeasedRoute()
{
    // A modem has no definition, and its route is that of its tool.
    const bool isOthers = currentConfig ? currentConfig->staticIp : driver != QLatin1String("modem");
    if (ipAddress.isEmpty() || isOthers) {
        leasedGateway.clear();
        return;
    }
    const auto now = RetryPause::Time::clock::now();
    if (LearnLeasedRoute()) {
        routePause.NoteSuccess(now);
        reports->upkeep.Over();
        return;
    }
    if (QFile::exists(NO_ROUTER + name))
        leasedGateway.clear();
    if (leasedGateway.isEmpty() || leasedGatewayAddress != ipAddress || !routePause.IsDue(now) ||
        HasRoutesForBothHalves())
        return;
    LogOnce(reports->upkeep)
        << "NetworkDevice::KeepLeasedRoute - the default route is missing, setting it again on" << name;
    RestoreGateway(leasedGateway, LeasedRouteOptions());
    routePause.NoteAttempt(now);
}
