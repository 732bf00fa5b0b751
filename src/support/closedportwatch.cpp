// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "closedportwatch.h"

#include "routingrequest.h"

#include <QFile>
#include <QList>

#include <algorithm>

#include <arpa/inet.h>
#include <linux/neighbour.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <netinet/in.h>

namespace {

constexpr std::chrono::seconds LONGEST{600};
/// After which an authenticator is listened to again where the gateway answered.
constexpr std::chrono::seconds REST{60};
/// In these the kernel asks nine times, at most.
constexpr int SILENT_LOOKS = 10;
/// A neighbour that is known is taken for there for some 8 s before it is asked anew.
constexpr int MOST_LOOKS = SILENT_LOOKS + 20;

/// Has the kernel ask for its hardware address by this interface, in our name, and again while there is no
/// answer, as where something is sent to it (rtnetlink(7)). By which one it would be sent is another
/// question.
bool Solicit(const in_addr &neighbour, unsigned int interfaceIndex)
{
    struct
    {
        nlmsghdr header;
        ndmsg entry;
        rtattr destination;
        in_addr address;
    } request = {};
    request.header.nlmsg_len = sizeof request;
    request.header.nlmsg_type = RTM_NEWNEIGH;
    request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_CREATE;
    request.entry.ndm_family = AF_INET;
    request.entry.ndm_ifindex = static_cast<int>(interfaceIndex);
    request.entry.ndm_flags = NTF_USE;
    request.destination.rta_len = RTA_LENGTH(sizeof neighbour);
    request.destination.rta_type = NDA_DST;
    request.address = neighbour;
    return SendToRouting(&request, sizeof request);
}

/// What the kernel knows of a neighbour (proc(5)): flag 2 where its hardware address is, 0 where it did not
/// answer.
std::optional<bool> IsResolved(const QByteArray &neighbour, const QByteArray &interfaceName)
{
    QFile table(QStringLiteral("/proc/net/arp"));
    if (!table.open(QIODevice::ReadOnly))
        return std::nullopt;
    const QList<QByteArray> lines = table.readAll().split('\n');
    for (const QByteArray &line : lines) {
        const QList<QByteArray> words = line.simplified().split(' ');
        if (words.size() == 6 && words.first() == neighbour && words.last() == interfaceName)
            return (words.at(2).toInt(nullptr, 16) & 2) != 0;
    }
    return std::nullopt;
}

} // namespace

bool ClosedPortWatch::Look(const QByteArray &interfaceName, const QString &gateway, Time now)
{
    if (!listensFrom)
        listensFrom = now + SHORTEST;
    if (now < std::max(*listensFrom, notBefore) || (looks == 0 && !authenticator.HasAsked(interfaceName)))
        return false;
    const std::optional<bool> answers = Answers(interfaceName, gateway);
    silent = answers == false ? silent + 1 : 0;
    if (silent >= SILENT_LOOKS) {
        pause = std::min(pause * 2, LONGEST);
        notBefore = now + pause;
        End();
        return true;
    }
    if (!answers || ++looks >= MOST_LOOKS) {
        End();
        listensFrom = now + REST;
    }
    return false;
}

void ClosedPortWatch::End()
{
    authenticator.End();
    listensFrom.reset();
    looks = 0;
    silent = 0;
}

void ClosedPortWatch::Reset()
{
    End();
    notBefore = Time();
    pause = SHORTEST;
}

std::optional<bool> ClosedPortWatch::Answers(const QByteArray &interfaceName, const QString &gateway)
{
    in_addr address = {};
    const QByteArray text = gateway.toLatin1();
    if (::inet_pton(AF_INET, text.constData(), &address) != 1 ||
        !Solicit(address, ::if_nametoindex(interfaceName.constData())))
        return std::nullopt;
    return IsResolved(text, interfaceName);
}
