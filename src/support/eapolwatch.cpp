// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "eapolwatch.h"

#include <cerrno>
#include <cstring>
#include <iterator>

#include <arpa/inet.h>
#include <linux/filter.h>
#include <net/if.h>
#include <netinet/if_ether.h>
#include <netpacket/packet.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

/// Whom authenticators ask (IEEE 802.1X, 11.1.1), so that the adapter lets it in.
constexpr unsigned char PAE_GROUP[ETH_ALEN] = {0x01, 0x80, 0xc2, 0x00, 0x00, 0x03};
/// What comes faster than it is read is left to the next look.
constexpr int PACKET_LIMIT = 20;

/// Lets in only EAP packets (type 0 at place 1), and of these requests (code 1 at place 4).
bool HearOnlyRequests(int socketFd)
{
    sock_filter filter[] = {
        BPF_STMT(BPF_LD | BPF_B | BPF_ABS, 1), BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 0, 0, 3),
        BPF_STMT(BPF_LD | BPF_B | BPF_ABS, 4), BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 1, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, 1),          BPF_STMT(BPF_RET | BPF_K, 0),
    };
    const sock_fprog program = {static_cast<unsigned short>(std::size(filter)), filter};
    return ::setsockopt(socketFd, SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof program) == 0;
}

bool JoinGroup(int socketFd, int interfaceIndex)
{
    packet_mreq group = {};
    group.mr_ifindex = interfaceIndex;
    group.mr_type = PACKET_MR_MULTICAST;
    group.mr_alen = ETH_ALEN;
    std::memcpy(group.mr_address, PAE_GROUP, ETH_ALEN);
    return ::setsockopt(socketFd, SOL_PACKET, PACKET_ADD_MEMBERSHIP, &group, sizeof group) == 0;
}

} // namespace

bool EapolWatch::HasAsked(const QByteArray &interfaceName)
{
    if (socketFd == -1 && !Listen(interfaceName)) {
        End();
        return false;
    }
    bool hasAsked = false;
    char byte = 0;
    for (int i = 0; i < PACKET_LIMIT; ++i) {
        if (::recv(socketFd, &byte, sizeof byte, 0) >= 0) {
            hasAsked = true;
            continue;
        }
        if (errno != EAGAIN)
            End(); // The interface went down.
        break;
    }
    return hasAsked;
}

bool EapolWatch::Listen(const QByteArray &interfaceName)
{
    socketFd = ::socket(AF_PACKET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    sockaddr_ll place = {};
    place.sll_family = AF_PACKET;
    place.sll_protocol = htons(ETH_P_PAE);
    place.sll_ifindex = static_cast<int>(::if_nametoindex(interfaceName.constData()));
    return socketFd != -1 && place.sll_ifindex != 0 && HearOnlyRequests(socketFd) &&
           JoinGroup(socketFd, place.sll_ifindex) &&
           ::bind(socketFd, reinterpret_cast<const sockaddr *>(&place), sizeof place) == 0;
}

void EapolWatch::End()
{
    if (socketFd != -1)
        ::close(socketFd);
    socketFd = -1;
}
