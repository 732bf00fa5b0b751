// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "dhcpclientwatch.h"

#include "dhcpclients.h"
#include "securefile.h"

#include <chrono>
#include <optional>

#include <poll.h>
#include <unistd.h>

// glibc 2.36 declares these without saying that they are C.
extern "C" {
#include <sys/pidfd.h>
}

namespace {

constexpr std::chrono::seconds LOOK_INTERVAL{10};
/// A client that has lived for so long ends for a reason of its own, and is started again without delay.
constexpr std::chrono::seconds STEADY_AFTER{60};

/// Where the client's hook keeps the last lease, one file an interface; the address comes first.
const QString LAST_LEASE = QStringLiteral("/run/corvi-last-lease.");

/// A client may be killed before it was seen, and its script goes on and sets the address.
bool IsLeased(const QString &interfaceName, const QString &address)
{
    return SecureFile::ReadRegular(LAST_LEASE + interfaceName)
        .value_or(QByteArray())
        .startsWith(QByteArray(address.toLatin1() + '|'));
}

/// Also while nobody has waited for it yet.
bool HasEnded(int processDescriptor)
{
    pollfd entry{processDescriptor, POLLIN, 0};
    return ::poll(&entry, 1, 0) > 0;
}

} // namespace

DhcpClientWatch::~DhcpClientWatch()
{
    Close();
}

void DhcpClientWatch::Begin(const QString &interfaceName, const QString &address, Time now)
{
    served = address;
    servedSince = now;
    nextLook = now + LOOK_INTERVAL;
    isSteady = false;
    wasServed = IsServed(interfaceName) || wasServed || IsLeased(interfaceName, address);
}

bool DhcpClientWatch::NoticeEnd(const QString &interfaceName, const QString &address, Time now)
{
    if (address != served) {
        wasServed = false; // Whoever has set another address may need none.
        Begin(interfaceName, address, now);
    }
    if (!wasServed || now < nextLook)
        return false;
    nextLook = now + LOOK_INTERVAL;
    if (IsServed(interfaceName)) {
        isSteady = now >= servedSince + STEADY_AFTER;
        if (isSteady)
            pause.Reset();
        return false;
    }
    // Whoever replaces a client ends the earlier one first: the first look only starts the pause.
    if (!pause.IsDue(now))
        return false;
    pause.NoteAttempt(now);
    return true;
}

bool DhcpClientWatch::IsServed(const QString &interfaceName)
{
    if (descriptor != -1 && !HasEnded(descriptor))
        return true;
    Close();
    const std::optional<pid_t> client = DhcpClients::Find(interfaceName);
    if (client)
        descriptor = pidfd_open(*client, 0); // Where that fails, it is looked for again.
    return client.has_value();
}

void DhcpClientWatch::Close()
{
    if (descriptor != -1)
        ::close(descriptor);
    descriptor = -1;
}
