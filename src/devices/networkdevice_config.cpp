// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "networkdevice.h"

#include "interfacekind.h"
#include "ipaddress.h"
#include "journal.h"
#include "logging.h"
#include "namednetwork.h"
#include "networknames.h"
#include "paths.h"
#include "securitymodes.h"
#include "zebnetconfig.h"
#include "zebnetevent.h"
#include "zebxmlconfig.h"

#include <QRegularExpression>
#include <QScopeGuard>

#include <algorithm>

namespace {

/// Bytes of a request by DHCP: the smallest message (RFC 1542, section 2.1), UDP's and IP's headers.
constexpr int DHCP_REQUEST_SIZE = 300 + 8 + 20;
/// Bytes of the largest packet with which a server may answer (RFC 2131, section 2). Most have less.
constexpr int LARGEST_DHCP_ANSWER = 576;
const QString ETHERNET_MTU = QStringLiteral("1500");

bool IsStored(const QString &networkName)
{
    return !ZebXmlConfig()
                .GetConfig(XML_NETWORK_PATH_WS + networkName, QStringLiteral("name"), false, QString(), false)
                .isEmpty();
}

} // namespace

int NetworkDevice::InitDevice()
{
    getNamedNetworksForDevice();
    return 1;
}

ZebNetConfig *NetworkDevice::getCurrentConfig()
{
    if (!currentNetwork) {
        if (namedNetworks.isEmpty())
            return nullptr;
        currentNetwork = FirstNetwork();
    }
    if (isWireless) {
        Log(Level::TRACE) << "NetworkDevice::getCurrentConfig()";
        currentNetwork->Load(currentNetwork->Name(), true);
        // The reload released the record in use.
        if (currentConfig)
            currentConfig = currentNetwork->Config();
    }
    return currentNetwork->Config();
}

/// The hash decides which networks there are, the list of names in which order they come.
NamedNetwork *NetworkDevice::FirstNetwork() const
{
    QStringList names = namedNetworks.keys();
    names.sort();
    names = networkNames + names;
    const auto first = std::find_if(names.cbegin(), names.cend(), [this](const QString &networkName) {
        return namedNetworks.contains(networkName);
    });
    return namedNetworks.value(*first);
}

ZebNetConfig *NetworkDevice::UpdateConfig()
{
    return getCurrentConfig();
}

void NetworkDevice::ConfigureNetwork(bool renew)
{
    const JournalSubject subject(name);
    Log(Level::TRACE) << "NetworkDevice::ConfigureNetwork -- start " << name;
    fallbackEnabled = false;
    inFallback = false;
    ipAnnounced = false;
    duplicateWatch.Restart();
    try {
        if (!currentConfig)
            currentConfig = getCurrentConfig();
        if (!currentConfig) {
            LogOnce(reports->config) << "NetworkDevice::ConfigureNetwork -- Could not find configuration";
            EndDhcpClient();
            ClaimResolver(false); // A client that an administrator starts sets name servers, too.
            SendEvent(ZebNetEvent::ADDRESS, ZebNetEvent::FAILED);
            return;
        }
        ApplyConfig(renew);
        reports->config.Over();
    } catch (...) {
        LogOnce(reports->config, QStringLiteral("failed")) << "NetworkDevice::ConfigureNetwork -- Failed";
    }
}

void NetworkDevice::ApplyConfig(bool renew)
{
    const JournalSubject subject(name, currentConfig->GetName());
    // The label says DNS and the value is the static address's flag: kept as it is.
    Log(Level::TRACE) << "NetworkDevice::ConfigureNetwork  Name=" << currentConfig->GetName()
                      << "Use Static DNS=" << currentConfig->staticIp;
    if (!isWireless)
        ApplyWiredFlags();

    ClaimResolver(currentConfig->staticDns);
    if (currentConfig->staticIp)
        ApplyStaticAddress();
    else if (renew)
        ObtainAddress();
    if (currentConfig->staticIp || renew)
        UpdateIpInformation();

    ApplyResolver();
    SetHosts(currentConfig->hosts);
    ApplyLinkSettings();
    Log(Level::TRACE) << "NetworkDevice::ConfigureNetwork -- end";
}

void NetworkDevice::ApplyWiredFlags()
{
    if (!IsUnsecuredMode(currentConfig->securityMode))
        usesSupplicant = true;
    fallbackEnabled = currentConfig->dot1xFallback == QLatin1String("fallback");
    Log(Level::TRACE) << "NetworkDevice::ConfigureNetwork 8021x Fallback enabled=" << fallbackEnabled
                      << "inFallback =" << inFallback;
}

/// A store library may fill each number up to three digits, and `ifconfig` and `route` take what begins with
/// a zero for octal. The kernel's text, with which these are compared later, has none.
void NetworkDevice::DropLeadingZeros()
{
    static const QRegularExpression zeros(QStringLiteral("\\b0+(?=[0-9])"));
    for (QString *address : {&currentConfig->ipAddress, &currentConfig->netmask, &currentConfig->gateway}) {
        const QString plain = QString(*address).remove(zeros);
        if (Ipv4Number(plain)) // No host name.
            *address = plain;
    }
}

void NetworkDevice::ApplyStaticAddress()
{
    Log(Level::TRACE) << "NetworkDevice::ConfigureNetwork - using static IP";
    DropLeadingZeros();
    Up(currentConfig->ipAddress, currentConfig->netmask);
    Log(Level::TRACE) << "NetworkDevice::ConfigureNetwork - set gateway";
    SetGateway(currentConfig->gateway);
    RefreshStatus();
    KeepLeasedAsStatic();
    NoteStaticAttempt();
    TellOfOwnGateway(currentConfig->gateway, currentConfig->ipAddress);
}

/// The kernel takes such a route, and all seems well, but whatever is to leave finds nobody to take it.
void NetworkDevice::TellOfOwnGateway(const QString &gateway, const QString &address)
{
    if (gateway.isEmpty() || gateway != address) {
        reports->ownGateway.Over();
        return;
    }
    LogOnce(reports->ownGateway, gateway)
        << "NetworkDevice::TellOfOwnGateway - the default route leads to no other host on"
        << name + QStringLiteral(": the gateway %1 is its own address").arg(gateway);
}

void NetworkDevice::ObtainAddress()
{
    Log(Level::TRACE) << "NetworkDevice::ConfigureNetwork - renew ip address";
    Log(Level::TRACE) << "NetworkDevice::ConfigureNetwork  Interface" << name;
    dhcpSince = RetryPause::Time::clock::now();
    const auto ended = qScopeGuard([this] { dhcpSince.reset(); });
    SendEvent(ZebNetEvent::ADDRESS, ZebNetEvent::STARTED);
    Log(Level::TRACE) << "NetworkDevice::ConfigureNetwork - start event (dhcp) sent ";

    MakeRoomForDhcp(dhcpFailures > 0);
    const QByteArray mtu = LinkAttribute(name, "mtu");
    leasedGateway.clear(); // The next lease may come without one.
    const bool isBound = Dhclient(name);
    ExpectLossForMtu(mtu);
    if (!isBound) {
        ++dhcpFailures;
        TellOfFailedDhcp();
        // The attempt flushed the interface: the fields must not announce the address it had.
        ipAddress.clear();
        broadcast.clear();
        netmask.clear();
        return;
    }
    Log(Level::TRACE) << "NetworkDevice::ConfigureNetwork - renewing ip address";
    RefreshStatus();
    Log(Level::TRACE) << "NetworkDevice::ConfigureNetwork - status refreshed";
    if (ipAddress.isEmpty()) {
        NoteUnsetLease();
        return;
    }
    reports->dhcp.Over();
    dhcpFailures = 0;
    // Before anybody is told of the address.
    LearnLeasedRoute();
    dhcpClientWatch.Begin(name, ipAddress, DhcpClientWatch::Time::clock::now());
    TellOfOwnGateway(leasedGateway, ipAddress);
    Log(Level::TRACE) << "NetworkDevice::ConfigureNetwork - dhcp status succeeded, IP is set";
}

/// An MTU that the configuration before has set may be too small for what client and server send, which many
/// a card goes by for what it receives, too. It would keep an address away for ever, also once the definition
/// has none any more. The definition's is set again after the attempt.
void NetworkDevice::MakeRoomForDhcp(bool isForLargeAnswer)
{
    const QByteArray mtu = LinkAttribute(name, "mtu");
    // Not for nothing, as many a card restarts its link for another MTU.
    const int needed = isForLargeAnswer ? LARGEST_DHCP_ANSWER : DHCP_REQUEST_SIZE;
    if (mtu.isEmpty() || mtu.toInt() >= needed)
        return;
    SetMtu(name, ETHERNET_MTU);
    ExpectLossForMtu(mtu);
}

/// Attempts go on for as long as there is no server. One whose link went meanwhile could not succeed, and of
/// the link the log has told, or will.
void NetworkDevice::TellOfFailedDhcp()
{
    const QString line = QStringLiteral("NetworkDevice::ConfigureNetwork -dhclient(%1) failed").arg(name);
    if (WasCutShort())
        Log(Level::TRACE) << line;
    else
        LogOnce(reports->dhcp) << line;
}

void NetworkDevice::ApplyResolver()
{
    isResolverDue = false;
    if (currentConfig->staticDns)
        SetDNS(currentConfig->dns1, currentConfig->dns2, currentConfig->domain);
}

void NetworkDevice::ApplyLinkSettings()
{
    if (!isWireless)
        ApplySpeed();
    if (!currentConfig->mtu.isEmpty())
        ApplyMtu();
    else if (currentConfig->staticIp)
        TakeBackDhcpMtu();
}

void NetworkDevice::ApplyMtu()
{
    const QByteArray earlier = LinkAttribute(name, "mtu");
    SetMtu(name, currentConfig->mtu);
    ExpectLossForMtu(earlier);
}

/// Many a card restarts its link for another MTU, as for another speed; for the one in force none does.
void NetworkDevice::ExpectLossForMtu(const QByteArray &earlierMtu)
{
    if (LinkAttribute(name, "mtu") != earlierMtu)
        carrierLosses.ExpectOne(CarrierLosses::Time::clock::now());
}

void NetworkDevice::ApplySpeed()
{
    const QString &speed = currentConfig->speed;
    if (speed.isEmpty() || speed == QLatin1String("Auto"))
        return;
    const QStringList words = speed.split(QLatin1Char(' '));
    if (words.size() != 3) {
        // Attempts to get an address apply the speed again and again. The line names no class: kept as it is.
        LogOnce(reports->speed, speed) << "ConfigureNetwork - Wrong format " << speed;
        return;
    }
    const int mbits = words.at(0).toInt();
    const bool isFull = words.at(2) == QLatin1String("Full");
    // Many a card restarts its link whenever it is set, also to what it has; as a link that comes up is
    // configured anew, it would never come to rest.
    if (speed == appliedSpeed && IsSpeedInForce(mbits, isFull))
        return;
    SetSpeed(name, mbits, isFull ? 1 : 0);
    appliedSpeed = speed;
    carrierLosses.ExpectOne(CarrierLosses::Time::clock::now());
}

/// What the link says of itself (Documentation/ABI/testing/sysfs-class-net); nothing while it has no carrier.
bool NetworkDevice::IsSpeedInForce(int mbits, bool isFull) const
{
    const QByteArray duplex = isFull ? "full" : "half";
    return LinkAttribute(name, "speed") == QByteArray::number(mbits) &&
           LinkAttribute(name, "duplex") == duplex;
}

bool NetworkDevice::getNamedNetworksForDevice()
{
    QStringList storedNames = ZebNetConfig::GetNetworkNames();
    Log(Level::TRACE) << "NetworkDevice::getNamedNetworksForDevice()  " << storedNames;
    // The writer's switches are shared by all networks: the last one that is built decides them.
    storedNames.sort();
    storedNames.removeDuplicates();
    const auto isNothingNew = [this](const QString &networkName) {
        return !IsStored(networkName) || !IsForInterface(networkName, name, isWireless) ||
               namedNetworks.contains(networkName);
    };
    // Asked before a definition is loaded, which may run programs to build its block.
    storedNames.erase(std::remove_if(storedNames.begin(), storedNames.end(), isNothingNew),
                      storedNames.end());
    if (isWireless)
        NamedNetwork::DeriveKeys(storedNames);
    for (const QString &networkName : qAsConst(storedNames)) {
        auto *network = new NamedNetwork(networkName, false, nullptr);
        // Never switched off here: the device may have its own reason for the new driver.
        if (isWireless && network->CheckWirelessDriver()) {
            Log(Level::TRACE) << "nn UseNewDriver";
            UseNewDriver(true);
        }
        namedNetworks.insert(networkName, network);
        networkNames << networkName;
    }
    SortForInterface(networkNames, name, isWireless);
    Log(Level::TRACE) << "NetworkDevice::getNamedNetworksForDevice() -- Done " << networkNames;
    return !namedNetworks.isEmpty();
}

QStringList NetworkDevice::GetNamedNetworks() const
{
    return networkNames;
}

QStringList NetworkDevice::GetNamedNetworkWpasInformation() const
{
    QStringList lines;
    for (const QString &networkName : networkNames)
        lines += namedNetworks.value(networkName)->Block();
    return lines;
}

QStringList NetworkDevice::getWpaConfig() const
{
    return GetNamedNetworkWpasInformation();
}
