// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "servicemanager.h"

#include <QByteArray>

#include <cstddef>
#include <cstring>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

ServiceManager::ServiceManager()
{
    const char *const variable = "NOTIFY_SOCKET";
    const QByteArray name = qgetenv(variable);
    qunsetenv(variable);
    sockaddr_un address = {};
    if (name.isEmpty() || static_cast<size_t>(name.size()) >= sizeof address.sun_path)
        return;
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, name.constData(), static_cast<size_t>(name.size()));
    if (name.startsWith('@'))
        address.sun_path[0] = '\0'; // the abstract namespace, unix(7)
    const auto length =
        static_cast<socklen_t>(offsetof(sockaddr_un, sun_path)) + static_cast<socklen_t>(name.size());
    fd = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd != -1 && ::connect(fd, reinterpret_cast<const sockaddr *>(&address), length) != 0) {
        ::close(fd);
        fd = -1;
    }
}

ServiceManager::~ServiceManager()
{
    if (fd != -1)
        ::close(fd);
}

void ServiceManager::Send(const char *state) const
{
    if (fd == -1)
        return;
    // A manager that is busy or gone hears the next one; nothing here depends on it.
    [[maybe_unused]] const ssize_t sent = ::send(fd, state, std::strlen(state), 0);
}
