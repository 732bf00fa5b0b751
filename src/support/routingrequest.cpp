// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "routingrequest.h"

#include <linux/netlink.h>
#include <sys/socket.h>
#include <unistd.h>

bool SendToRouting(const void *request, size_t length)
{
    const int socketFd = ::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE);
    if (socketFd == -1)
        return false;
    const bool isSent = ::send(socketFd, request, length, 0) == static_cast<ssize_t>(length);
    ::close(socketFd);
    return isSent;
}
