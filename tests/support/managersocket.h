// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <QByteArray>

#include <cstddef>
#include <cstring>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

/// The other end of src/support/servicemanager.h, or of src/support/journal.h. A name that begins with '@' is
/// in the abstract namespace.
class ManagerSocket
{
public:
    explicit ManagerSocket(const QByteArray &name)
        : fd(::socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0))
    {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        std::memcpy(address.sun_path, name.constData(), static_cast<size_t>(name.size()));
        if (name.startsWith('@'))
            address.sun_path[0] = '\0';
        const auto length = offsetof(sockaddr_un, sun_path) + static_cast<size_t>(name.size());
        bound = ::bind(fd, reinterpret_cast<const sockaddr *>(&address), static_cast<socklen_t>(length)) == 0;
    }
    ~ManagerSocket() { ::close(fd); }
    Q_DISABLE_COPY(ManagerSocket)

    /// The next state that it was told, empty when there is none.
    QByteArray Heard()
    {
        char state[4096];
        const ssize_t size = ::recv(fd, state, sizeof state, 0);
        return size < 0 ? QByteArray() : QByteArray(state, static_cast<int>(size));
    }

    bool bound = false;

private:
    int fd;
};
