// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include "retrypause.h"

#include <QString>
#include <QtGlobal>

/// Whether the DHCP client that renews an interface's lease still runs. It may be killed, or crash, and
/// nobody would know before the lease ends and the kernel takes the address away. The client is held by a
/// descriptor (pidfd_open(2)), so that a look costs one call, and a later process with its number is never
/// taken for it; /proc is looked through only where the address is new or the client has ended. One that
/// somebody starts in its place is as good. For a tick that looks again and again. Works on the clock it is
/// given.
class DhcpClientWatch
{
public:
    using Time = RetryPause::Time;

    DhcpClientWatch() = default;
    ~DhcpClientWatch();
    Q_DISABLE_COPY(DhcpClientWatch)

    /// The interface has just got this address.
    void Begin(const QString &interfaceName, const QString &address, Time now);
    /// It has none any more.
    void Forget() { served.clear(); }
    /// Notices that the client that served the address has ended, and no other one has come: true when it is
    /// time to start one, which counts as an attempt. Looks every 10 s; the first time, the next look must
    /// find none either. Clients that end again and again within a minute are to be started after growing
    /// pauses. False where no client was ever seen, as then it may be one under another name, unless the hook
    /// says that the address is leased.
    bool NoticeEnd(const QString &interfaceName, const QString &address, Time now);
    /// The interface has been served for a minute.
    bool IsSteady() const { return isSteady; }

private:
    bool IsServed(const QString &interfaceName);
    void Close();

    QString served; ///< the address of the last look
    Time servedSince;
    Time nextLook;
    int descriptor = -1;    ///< the client's, while one could be held
    bool wasServed = false; ///< a client was seen, or must have been there
    bool isSteady = false;
    RetryPause pause;
};
