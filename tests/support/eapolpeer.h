// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <QByteArray>

#include <QTest>

#include <cstring>
#include <thread>

#include <arpa/inet.h>
#include <fcntl.h>
#include <net/if.h>
#include <netinet/if_ether.h>
#include <netpacket/packet.h>
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

/// What an authenticator asks: EAPOL version 2, an EAP packet, of it a request (1) with number 7 for the
/// identity (1).
inline const QByteArray EAP_REQUEST = QByteArray::fromHex("02000005"
                                                          "0107000501");

/// Sends an EAPOL packet at the other end of our cable, to the group of those who authenticate.
inline bool SendEapol(const char *interfaceName, const QByteArray &packet)
{
    const int socketFd = ::socket(AF_PACKET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_ll to = {};
    to.sll_family = AF_PACKET;
    to.sll_protocol = htons(ETH_P_PAE);
    to.sll_ifindex = static_cast<int>(::if_nametoindex(interfaceName));
    to.sll_halen = ETH_ALEN;
    std::memcpy(to.sll_addr, QByteArray::fromHex("0180c2000003").constData(), ETH_ALEN);
    const auto size = static_cast<size_t>(packet.size());
    const ssize_t sent =
        ::sendto(socketFd, packet.constData(), size, 0, reinterpret_cast<const sockaddr *>(&to), sizeof to);
    ::close(socketFd);
    return sent == static_cast<ssize_t>(size);
}

/// As the authenticator of the switch at the far end of eth0 does (corviworld.h).
inline void AskAtTheFarEnd()
{
    bool isSent = false;
    // The far end has a network of its own, which a thread can be in.
    std::thread([&isSent] {
        const int network = ::open("/run/netns/far", O_RDONLY | O_CLOEXEC);
        isSent = ::setns(network, CLONE_NEWNET) == 0 && SendEapol("far-eth0", EAP_REQUEST);
        ::close(network);
    }).join();
    QVERIFY(isSent);
}
