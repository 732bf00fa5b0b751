// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include "wpasuppthreadpeer.h"

#include <QCoreApplication>

/// The supervisor that the service object uses.
class Supervisor
{
public:
    using State = WpaSuppThreadPeer::State;

    static void Set(const State &state)
    {
        WpaSuppThreadPeer::Disconnect(Instance());
        WpaSuppThreadPeer::SetState(Instance(), state);
    }
    /// As if the last start had been for this interface.
    static void Request(const QString &interfaceName)
    {
        WpaSuppThreadPeer::Request(Instance(), interfaceName);
    }
    /// What outlives a start.
    static void Forget() { WpaSuppThreadPeer::Forget(Instance()); }
    /// So many seconds are left until a further start makes sense.
    static void Pause(int seconds) { WpaSuppThreadPeer::Pause(Instance(), seconds); }
    static void Hear(const QString &event) { Instance().MessageReceived(event); }
    static void SetStopPending(bool pending) { WpaSuppThreadPeer::SetStopPending(Instance(), pending); }
    static bool IsStopRequested() { return WpaSuppThreadPeer::IsStopRequested(Instance()); }
    static void Connect(const QString &interfaceName = QStringLiteral("wlan0"))
    {
        WpaSuppThreadPeer::Connect(Instance(), interfaceName);
    }
    static void AskForStatus() { WpaSuppThreadPeer::AskForStatus(Instance()); }
    static void Tick() { Instance().MyTimerTimeout(); }
    /// Ends the worker thread, so that the supervisor ticks only when a test tells it to.
    static void StopTicking()
    {
        Instance().exit(0);
        Instance().wait();
        QCoreApplication::sendPostedEvents(&Instance());
    }

private:
    static WpaSuppThread &Instance() { return *WpaSuppThread::GetInstance(); }
};

/// What may have become of the supplicant.
inline constexpr Supervisor::State GONE{};
inline constexpr Supervisor::State RUNNING{true, false, false};
inline constexpr Supervisor::State RESTARTING{false, true, false};
inline constexpr Supervisor::State ASSOCIATED{true, false, true};
