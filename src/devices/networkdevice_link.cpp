// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "networkdevice.h"

#include "defaultroute.h"
#include "dhcpclients.h"
#include "ipaddress.h"
#include "logging.h"
#include "routingrequest.h"
#include "timing.h"
#include "utils.h"
#include "zebnetconfig.h"

#include <QTimer>
#include <QtAlgorithms>

#include <algorithm>
#include <chrono>

#include <arpa/inet.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <netinet/in.h>

namespace {

/// A cable that is pulled or put in shows this soon, well within one supervision tick.
constexpr std::chrono::milliseconds POLL_INTERVAL{250};

const QString IFCONFIG = QStringLiteral("ifconfig");
const QString ETHTOOL = QStringLiteral("ethtool");
const QString IP = QStringLiteral("ip");
const QString ROUTE = QStringLiteral("route");

/// Characters of what a tool says that a line of the log may quote.
constexpr int LONGEST_ANSWER = 200;

bool HasDefaultRoute(const QString &interfaceName, const QString &gateway)
{
    const QVector<DefaultRoute> routes = ReadDefaultRoutes();
    return std::any_of(routes.begin(), routes.end(), [&](const DefaultRoute &route) {
        return route.interfaceName == interfaceName && route.gateway == gateway;
    });
}

/// Takes the time limit from an address that the interface has (rtnetlink(7)). One that it does not have
/// would be set.
void TakeTimeLimit(const QByteArray &interfaceName, quint32 address, quint32 netmask)
{
    struct
    {
        nlmsghdr header;
        ifaddrmsg message;
        rtattr local;
        in_addr address;
    } request = {};
    request.header.nlmsg_len = sizeof request;
    request.header.nlmsg_type = RTM_NEWADDR;
    request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_REPLACE;
    request.message.ifa_family = AF_INET;
    request.message.ifa_prefixlen = static_cast<unsigned char>(qPopulationCount(netmask));
    request.message.ifa_index = ::if_nametoindex(interfaceName.constData());
    request.local.rta_len = RTA_LENGTH(sizeof request.address);
    request.local.rta_type = IFA_LOCAL;
    request.address.s_addr = htonl(address);
    // At worst the address is lost when the time is over, and set again.
    static_cast<void>(SendToRouting(&request, sizeof request));
}

/// What the tool says of itself, to be told and no more: an answer decides nothing. Empty where it does what
/// it is asked to.
QString AnswerOf(const QString &tool, const QStringList &arguments)
{
    return Utils::ExecuteMerged(tool, arguments, PROGRAM_TIME_LIMIT_MS)
        .join(QLatin1Char(' '))
        .trimmed()
        .left(LONGEST_ANSWER);
}

/// A setting that the hardware cannot do is asked for at each configuration.
void TellIfRefused(ReportOnce &report, const QString &line, const QString &answer)
{
    if (answer.isEmpty())
        report.Over();
    else
        LogOnce(report, line + answer) << line << "--" << answer;
}

} // namespace

void NetworkDevice::Up(const QString &interfaceName)
{
    Log(Level::TRACE) << "NetworkDevice::Up" << interfaceName;
    upAnswer = AnswerOf(IFCONFIG, {interfaceName, QStringLiteral("up")});
}

void NetworkDevice::Up()
{
    linkUp = true;
    Up(name);
    startPause.NoteAttempt(RetryPause::Time::clock::now());
}

void NetworkDevice::Up(const QString &interfaceName, const QString &ip, const QString &mask)
{
    Log(Level::TRACE) << "NetworkDevice::Up" << interfaceName << ip << mask;
    Utils::Execute(IFCONFIG, {interfaceName, ip, QStringLiteral("netmask"), mask, QStringLiteral("up")},
                   false);
}

void NetworkDevice::Up(const QString &ip, const QString &mask)
{
    linkUp = true;
    EndDhcpClient();
    Up(name, ip, mask);
    startPause.NoteAttempt(RetryPause::Time::clock::now());
}

void NetworkDevice::Down(const QString &interfaceName)
{
    Log(Level::TRACE) << "NetworkDevice::Down" << interfaceName;
    Utils::Execute(IFCONFIG, {interfaceName, QStringLiteral("down")}, false);
}

void NetworkDevice::Down()
{
    linkUp = false;
    Down(name);
    EndDhcpClient();
}

/// An interface that loses its addresses, is taken down, gets a fixed address or has no definition any more:
/// a client that went on would undo it at its next renewal, and write its name servers.
void NetworkDevice::EndDhcpClient()
{
    if (DhcpClients::End(name))
        Log(Level::TRACE) << "NetworkDevice::EndDhcpClient" << name << "was still served";
}

void NetworkDevice::AutoNegotiate(const QString &interfaceName)
{
    Utils::Execute(ETHTOOL,
                   {QStringLiteral("-s"), interfaceName, QStringLiteral("autoneg"), QStringLiteral("on")},
                   false);
}

void NetworkDevice::SetSpeed(const QString &interfaceName, int speed, int duplex)
{
    const QString word = duplex == 1 ? QStringLiteral("full") : QStringLiteral("half");
    Log(Level::TRACE) << "speed: " << speed << " duplex: " << word;
    const QString answer = AnswerOf(ETHTOOL, {QStringLiteral("-s"), interfaceName, QStringLiteral("autoneg"),
                                              QStringLiteral("off"), QStringLiteral("speed"),
                                              QString::number(speed), QStringLiteral("duplex"), word});
    TellIfRefused(reports->speed,
                  QStringLiteral("NetworkDevice::SetSpeed - %1 Mb/s, %2 duplex, is refused on %3")
                      .arg(QString::number(speed), word, interfaceName),
                  answer);
}

void NetworkDevice::SetMtu(const QString &interfaceName, const QString &mtu)
{
    // There is no operation of this name: kept as it is.
    Log(Level::TRACE) << "NetworkDevice::MTU - " << interfaceName << mtu;
    const QString answer = AnswerOf(
        IP, {QStringLiteral("link"), QStringLiteral("set"), interfaceName, QStringLiteral("mtu"), mtu});
    TellIfRefused(
        reports->mtu,
        QStringLiteral("NetworkDevice::SetMtu - the MTU %1 is refused on %2").arg(mtu, interfaceName),
        answer);
}

void NetworkDevice::FlushIpAddress()
{
    EndDhcpClient();
    Utils::Execute(IP, {QStringLiteral("addr"), QStringLiteral("flush"), name}, false);
}

void NetworkDevice::SetGateway(const QString &gw)
{
    Log(Level::TRACE) << "NetworkDevice::SetGateway -  " << gw;
    // The route is taken away also where there is none, and whoever's it is: kept as it is.
    Utils::Execute(ROUTE, {QStringLiteral("del"), QStringLiteral("default")}, false);
    Utils::Execute(ROUTE, {QStringLiteral("add"), QStringLiteral("default"), QStringLiteral("gw"), gw},
                   false);
    // Of two interfaces in one network, as a cable and a radio in one office, `route` takes the older one,
    // and its route goes with it when it is taken down.
    const QVector<DefaultRoute> routes = ReadDefaultRoutes();
    if (!routes.isEmpty() && routes.first().gateway == gw && routes.first().interfaceName != name)
        Utils::Execute(IP,
                       {QStringLiteral("route"), QStringLiteral("replace"), QStringLiteral("default"),
                        QStringLiteral("via"), gw, QStringLiteral("dev"), name},
                       false);
}

int NetworkDevice::StartDevice()
{
    if (!linkUp)
        Up();
    stopped = false;
    timer->start(POLL_INTERVAL);
    return 1;
}

int NetworkDevice::StopDevice()
{
    if (linkUp)
        Down();
    // The poll goes on until it has seen the link down, and then ends itself.
    stopped = true;
    return 1;
}

/// A definition may have the very address that was leased. `ifconfig` finds it there and leaves it alone, and
/// the kernel would take it away when the lease is over.
void NetworkDevice::KeepLeasedAsStatic()
{
    if (HasStaticAddress())
        TakeTimeLimit(kernelName, Ipv4Number(ipAddress).value_or(0), Ipv4Number(netmask).value_or(0));
}

bool NetworkDevice::HasStaticAddress() const
{
    return ipAddress == currentConfig->ipAddress && netmask == currentConfig->netmask;
}

bool NetworkDevice::HasStaticRoute() const
{
    return currentConfig->gateway.isEmpty() || HasDefaultRoute(name, currentConfig->gateway);
}

/// What the look after it has seen in force is no failure, even where somebody undoes it before a tick looks.
void NetworkDevice::NoteStaticAttempt()
{
    const auto now = RetryPause::Time::clock::now();
    staticPause.NoteAttempt(now);
    if (HasStaticAddress() && HasStaticRoute())
        staticPause.NoteSuccess(now);
}
