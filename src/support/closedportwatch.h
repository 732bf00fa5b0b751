// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include "eapolwatch.h"

#include <QByteArray>
#include <QString>

#include <chrono>
#include <optional>

/// Whether a port that is used without authentication is closed: an authenticator asks who we are, and the
/// gateway does not answer the kernel for 10 s. A switch may also ask for ever at a port that it has opened
/// for guests; there the gateway answers. For a tick that looks every second; nobody waits. Works on the
/// clock it is given.
class ClosedPortWatch
{
public:
    using Time = std::chrono::steady_clock::time_point;

    /// True once the port is closed. The gateway is one that can be reached by the interface. The next such
    /// answer is at least 20 s away, and each time twice as long, up to 10 minutes, until Reset().
    bool Look(const QByteArray &interfaceName, const QString &gateway, Time now);
    /// The port is not used without authentication, or not any more: listens no more.
    void End();
    /// It was opened by an authentication, or is another one.
    void Reset();

private:
    /// Nothing where that is not known.
    static std::optional<bool> Answers(const QByteArray &interfaceName, const QString &gateway);

    static constexpr std::chrono::seconds SHORTEST{10};

    EapolWatch authenticator;
    std::optional<Time> listensFrom; ///< nothing before the first look
    Time notBefore;                  ///< the next time that the port may be found closed
    std::chrono::seconds pause{SHORTEST};
    int looks = 0;  ///< at the gateway, since an authenticator asked
    int silent = 0; ///< of these, the last ones in which it did not answer
};
