// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "duplicatewatch.h"

#include "paths.h"

#include <QDir>
#include <QFile>

#include <algorithm>
#include <cstring>

#include <arpa/inet.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <netinet/if_ether.h>
#include <netpacket/packet.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr std::chrono::seconds INTERVAL{60};
/// A host that is there answers within milliseconds.
constexpr std::chrono::seconds ANSWER_TIME{3};
/// An end where packets come as fast as they are read.
constexpr int PACKET_LIMIT = 1000;

/// In the form of "/sys/class/net/*/address".
QString TextOf(const uint8_t (&hardware)[ETH_ALEN])
{
    const auto *bytes = reinterpret_cast<const char *>(hardware);
    return QString::fromLatin1(QByteArray::fromRawData(bytes, ETH_ALEN).toHex(':'));
}

/// Any interface of ours answers for all our addresses, where two of them are in one network.
bool IsOurs(const QString &hardware)
{
    const QStringList names = QDir(SYS_NET).entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Unsorted);
    return std::any_of(names.begin(), names.end(), [&hardware](const QString &name) {
        QFile file(SYS_NET + name + QStringLiteral("/address"));
        return file.open(QIODevice::ReadOnly) && file.readAll().trimmed() == hardware.toLatin1();
    });
}

} // namespace

DuplicateWatch::~DuplicateWatch()
{
    Close();
}

const QString &DuplicateWatch::Look(const QByteArray &interfaceName, const QString &address, Time now)
{
    if (address != asked) {
        Close();
        holder.clear();
        asked = address;
        nextQuestion = now;
    }
    if (socketFd != -1 && now >= lastWord + ANSWER_TIME) {
        // Nobody looked meanwhile, as there was no link: what was heard may be of another network.
        Close();
        nextQuestion = now;
    }
    if (socketFd != -1) {
        const QString other = Hear();
        if (!other.isEmpty() || now >= lastWord) {
            holder = other;
            Close();
        }
    }
    if (!asked.isEmpty() && now >= nextQuestion)
        Ask(interfaceName, now);
    return holder;
}

void DuplicateWatch::Ask(const QByteArray &interfaceName, Time now)
{
    Close();
    nextQuestion = now + INTERVAL;
    lastWord = now + ANSWER_TIME;
    if (::inet_pton(AF_INET, asked.toLatin1().constData(), &askedNumber) == 1 && Send(interfaceName))
        return;
    // What cannot be asked is not known.
    holder.clear();
    Close();
}

bool DuplicateWatch::Send(const QByteArray &interfaceName)
{
    socketFd = ::socket(AF_PACKET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    sockaddr_ll place = {};
    place.sll_family = AF_PACKET;
    place.sll_protocol = htons(ETH_P_ARP);
    place.sll_ifindex = static_cast<int>(::if_nametoindex(interfaceName.constData()));
    sockaddr_ll ours = {};
    socklen_t size = sizeof ours;
    if (socketFd == -1 || place.sll_ifindex == 0 ||
        ::bind(socketFd, reinterpret_cast<const sockaddr *>(&place), sizeof place) != 0 ||
        ::getsockname(socketFd, reinterpret_cast<sockaddr *>(&ours), &size) != 0 ||
        ours.sll_hatype != ARPHRD_ETHER)
        return false;

    ether_arp question = {};
    question.ea_hdr = {htons(ARPHRD_ETHER), htons(ETH_P_IP), ETH_ALEN, sizeof askedNumber,
                       htons(ARPOP_REQUEST)};
    std::memcpy(question.arp_sha, ours.sll_addr, ETH_ALEN);
    std::memcpy(question.arp_tpa, &askedNumber, sizeof askedNumber);
    place.sll_halen = ETH_ALEN;
    std::fill_n(place.sll_addr, ETH_ALEN, 0xff); // To all.
    return ::sendto(socketFd, &question, sizeof question, 0, reinterpret_cast<const sockaddr *>(&place),
                    sizeof place) == sizeof question;
}

/// Who says that the address is his, in an answer or unasked.
QString DuplicateWatch::Hear() const
{
    ether_arp packet = {};
    for (int i = 0; i < PACKET_LIMIT; ++i) {
        const ssize_t length = ::recv(socketFd, &packet, sizeof packet, 0);
        if (length < 0)
            break;
        if (length < static_cast<ssize_t>(sizeof packet) ||
            std::memcmp(packet.arp_spa, &askedNumber, sizeof askedNumber) != 0)
            continue;
        const QString other = TextOf(packet.arp_sha);
        if (!IsOurs(other))
            return other.toUpper();
    }
    return QString();
}

void DuplicateWatch::Close()
{
    if (socketFd != -1)
        ::close(socketFd);
    socketFd = -1;
}
