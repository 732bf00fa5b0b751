// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "duplicatewatch.h"

#include "interfacekind.h"
#include "paths.h"

#include <QDir>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <iterator>

#include <arpa/inet.h>
#include <linux/filter.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <netinet/if_ether.h>
#include <netpacket/packet.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

/// Between two questions while another host is known, and after one that could not be asked.
constexpr std::chrono::seconds INTERVAL{60};
/// A host that is there answers within milliseconds.
constexpr std::chrono::seconds ANSWER_TIME{3};
/// Nobody looks where there is no link. Then the next one may lead into another network.
constexpr std::chrono::seconds LONGEST_PAUSE{5};
/// What comes faster than it is read is left to the next look.
constexpr int PACKET_LIMIT = 20;

/// In the form of "/sys/class/net/*/address".
QString TextOf(const uint8_t (&hardware)[ETH_ALEN])
{
    const auto *bytes = reinterpret_cast<const char *>(hardware);
    return QString::fromLatin1(QByteArray::fromRawData(bytes, ETH_ALEN).toHex(':'));
}

/// The hardware addresses of our interfaces.
QStringList OwnAddresses()
{
    QStringList addresses;
    const QStringList names = QDir(SYS_NET).entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Unsorted);
    for (const QString &name : names)
        if (const QByteArray address = LinkAttribute(name, "address"); !address.isEmpty())
            addresses << QString::fromLatin1(address);
    return addresses;
}

/// Lets in only ARP packets whose sender says that the address is his (packet(7), socket(7)).
bool HearOnly(int socketFd, in_addr address)
{
    sock_filter filter[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(ether_arp, arp_spa)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, ntohl(address.s_addr), 0, 1),
        BPF_STMT(BPF_RET | BPF_K, sizeof(ether_arp)),
        BPF_STMT(BPF_RET | BPF_K, 0),
    };
    const sock_fprog program = {static_cast<unsigned short>(std::size(filter)), filter};
    return ::setsockopt(socketFd, SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof program) == 0;
}

} // namespace

DuplicateWatch::~DuplicateWatch()
{
    Close();
}

const QString &DuplicateWatch::Look(const QByteArray &interfaceName, const QString &address, Time now)
{
    const bool isNew = address != asked || now >= lastLook + LONGEST_PAUSE;
    const bool wantsAnswer = socketFd == -1 || !holder.isEmpty();
    if (address != asked)
        holder.clear();
    asked = address;
    lastLook = now;
    if (isNew || (wantsAnswer && now >= nextQuestion))
        Ask(interfaceName, now);
    else if (socketFd != -1)
        Listen(now);
    return holder;
}

QString DuplicateWatch::Known(const QString &address, Time now) const
{
    return address == asked && now < lastLook + LONGEST_PAUSE ? holder : QString();
}

void DuplicateWatch::Restart()
{
    asked.clear();
    holder.clear();
}

void DuplicateWatch::Ask(const QByteArray &interfaceName, Time now)
{
    Close(); // With what was heard, which may be of another network.
    nextQuestion = now + INTERVAL;
    lastWord = now + ANSWER_TIME;
    if (::inet_pton(AF_INET, asked.toLatin1().constData(), &askedNumber) == 1 && Send(interfaceName))
        return;
    // What cannot be asked is not known.
    holder.clear();
    Close();
}

void DuplicateWatch::Listen(Time now)
{
    const QString other = Hear();
    if (!other.isEmpty()) {
        holder = other;
        nextQuestion = now + INTERVAL;
        lastWord = nextQuestion + ANSWER_TIME;
    } else if (now >= lastWord) {
        holder.clear();
    }
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
    if (socketFd == -1 || place.sll_ifindex == 0 || !HearOnly(socketFd, askedNumber) ||
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

/// The other host that says that the address is his, in an answer or unasked. Any interface of ours answers
/// for all our addresses, where two of them are in one network.
QString DuplicateWatch::Hear()
{
    QStringList ours; // Most looks hear nothing.
    ether_arp packet = {};
    sockaddr_ll from = {};
    for (int i = 0; i < PACKET_LIMIT; ++i) {
        socklen_t size = sizeof from;
        const ssize_t length =
            ::recvfrom(socketFd, &packet, sizeof packet, 0, reinterpret_cast<sockaddr *>(&from), &size);
        if (length < 0) {
            if (errno != EAGAIN)
                Close(); // The interface went down.
            break;
        }
        // What is for others came by chance, as out of a VLAN that is not ours.
        if (length < static_cast<ssize_t>(sizeof packet) || from.sll_pkttype == PACKET_OTHERHOST)
            continue;
        if (ours.isEmpty())
            ours = OwnAddresses();
        const QString other = TextOf(packet.arp_sha);
        // Where none of ours can be listed, nobody is accused.
        if (!ours.isEmpty() && !ours.contains(other))
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
