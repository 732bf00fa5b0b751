// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <QByteArray>
#include <QString>

#include <chrono>

#include <netinet/in.h>

/// Whether another host in the network has an address of ours. An ARP probe (RFC 5227, section 2.1.1), which
/// asks in the name of nobody, so that no table changes by it, is sent when the address or the link is new
/// and while another host is known; otherwise nothing is sent, and who says unasked that the address is his
/// is heard (section 2.4). For a tick that looks again and again; nobody waits. Works on the clock it is
/// given.
class DuplicateWatch
{
public:
    using Time = std::chrono::steady_clock::time_point;

    DuplicateWatch() = default;
    ~DuplicateWatch();
    Q_DISABLE_COPY(DuplicateWatch)

    /// The hardware address of the other host, empty while none is known. `address` is IPv4, dotted. To be
    /// called every second while there is a link: after more than 5 s without, it is asked anew.
    const QString &Look(const QByteArray &interfaceName, const QString &address, Time now);
    /// What the last look found, where it was one for this address and not longer ago than these 5 s.
    QString Known(const QString &address, Time now) const;
    /// The link is a new one.
    void Restart();

private:
    void Ask(const QByteArray &interfaceName, Time now);
    bool Send(const QByteArray &interfaceName);
    void Listen(Time now);
    QString Hear();
    void Close();

    QString asked;
    in_addr askedNumber = {};
    Time lastLook;
    Time nextQuestion; ///< while another host is known, or the last one could not be asked
    Time lastWord;     ///< until then the other host must have said something
    int socketFd = -1;
    QString holder;
};
