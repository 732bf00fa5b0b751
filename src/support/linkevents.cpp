// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "linkevents.h"

#include <array>
#include <cerrno>

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

/// An end where messages come as fast as they are read.
constexpr int MESSAGE_LIMIT = 1000;

int OpenSocket()
{
    const int fd = ::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE);
    if (fd == -1)
        return -1;
    sockaddr_nl address = {};
    address.nl_family = AF_NETLINK;
    address.nl_groups = RTMGRP_LINK;
    if (::bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0)
        return fd;
    ::close(fd);
    return -1;
}

} // namespace

LinkEvents::LinkEvents() : socketFd(OpenSocket()) {}

LinkEvents::~LinkEvents()
{
    if (socketFd != -1)
        ::close(socketFd);
}

bool LinkEvents::Happened()
{
    bool happened = isFirstQuestion || socketFd == -1;
    isFirstQuestion = false;
    std::array<char, 64> buffer; // The rest of a message is dropped: that there was one is enough.
    for (int i = 0; i < MESSAGE_LIMIT; ++i) {
        if (::recv(socketFd, buffer.data(), buffer.size(), MSG_TRUNC) >= 0) {
            happened = true;
            continue;
        }
        // More came than the socket holds: something did happen, and the next read goes on.
        if (errno != ENOBUFS)
            break;
        happened = true;
    }
    return happened;
}
