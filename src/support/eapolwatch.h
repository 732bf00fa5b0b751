// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <QByteArray>

/// Whether an authenticator at the other end of a cable asks who we are (IEEE 802.1X, an EAP request). For a
/// port that is used without a supplicant, which would hear it. Nobody waits, and nothing is sent.
class EapolWatch
{
public:
    EapolWatch() = default;
    ~EapolWatch() { End(); }
    Q_DISABLE_COPY(EapolWatch)

    /// Whether one has asked since the last look. The first look begins to listen.
    bool HasAsked(const QByteArray &interfaceName);
    /// Listens no more, and forgets what was heard.
    void End();

private:
    bool Listen(const QByteArray &interfaceName);

    int socketFd = -1;
};
