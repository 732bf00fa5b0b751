// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <cstring>

#include <arpa/inet.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <netinet/if_ether.h>
#include <netpacket/packet.h>
#include <sys/socket.h>
#include <unistd.h>

/// Speaks ARP at the other end of our cable, far0, as whatever host is wanted there.
class ArpPeer
{
public:
    ArpPeer() : socketFd(::socket(AF_PACKET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, htons(ETH_P_ARP)))
    {
        place.sll_family = AF_PACKET;
        place.sll_protocol = htons(ETH_P_ARP);
        place.sll_ifindex = static_cast<int>(::if_nametoindex("far0"));
        place.sll_halen = ETH_ALEN;
        ::bind(socketFd, reinterpret_cast<const sockaddr *>(&place), sizeof place);
    }
    ~ArpPeer() { ::close(socketFd); }
    Q_DISABLE_COPY(ArpPeer)

    void Say(const char *address, const QByteArray &hardware = QByteArray::fromHex("02000000aa01")) const
    {
        SayTo(QByteArray(ETH_ALEN, '\xff'), address, hardware);
    }

    void SayTo(const QByteArray &receiver, const char *address, const QByteArray &hardware) const
    {
        sockaddr_ll to = place;
        std::memcpy(to.sll_addr, receiver.constData(), ETH_ALEN);
        ether_arp answer = {};
        answer.ea_hdr = {htons(ARPHRD_ETHER), htons(ETH_P_IP), ETH_ALEN, 4, htons(ARPOP_REPLY)};
        std::memcpy(answer.arp_sha, hardware.constData(), ETH_ALEN);
        ::inet_pton(AF_INET, address, answer.arp_spa);
        ::sendto(socketFd, &answer, sizeof answer, 0, reinterpret_cast<const sockaddr *>(&to), sizeof to);
    }

    /// What it was asked so far: who asks, for what.
    QStringList Questions()
    {
        ether_arp question = {};
        while (::recv(socketFd, &question, sizeof question, 0) == sizeof question) {
            char sender[INET_ADDRSTRLEN] = {};
            char target[INET_ADDRSTRLEN] = {};
            ::inet_ntop(AF_INET, question.arp_spa, sender, sizeof sender);
            ::inet_ntop(AF_INET, question.arp_tpa, target, sizeof target);
            questions << QString("%1 asks for %2").arg(sender, target);
        }
        return questions;
    }

private:
    sockaddr_ll place = {};
    int socketFd;
    QStringList questions;
};
