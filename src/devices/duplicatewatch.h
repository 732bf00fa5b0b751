// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <QByteArray>
#include <QString>

#include <chrono>

#include <netinet/in.h>

/// Whether another host in the network has an address of ours: it is asked for by ARP in the name of nobody
/// (RFC 5227, section 2.1.1), so that no table changes by it, and nobody waits for the answer. For a tick
/// that looks again and again. Works on the clock it is given.
class DuplicateWatch
{
public:
    using Time = std::chrono::steady_clock::time_point;

    DuplicateWatch() = default;
    ~DuplicateWatch();
    Q_DISABLE_COPY(DuplicateWatch)

    /// The hardware address of the other host, empty while none is known. `address` is IPv4, dotted; asked
    /// for at once when it is another one, then every minute.
    const QString &Look(const QByteArray &interfaceName, const QString &address, Time now);

private:
    void Ask(const QByteArray &interfaceName, Time now);
    bool Send(const QByteArray &interfaceName);
    QString Hear() const;
    void Close();

    QString asked;
    in_addr askedNumber = {};
    Time nextQuestion;
    Time lastWord;     ///< until then an answer is waited for
    int socketFd = -1; ///< while it is
    QString holder;
};
