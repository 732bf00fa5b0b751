// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include "wpasuppthread.h"

#include <QCoreApplication>

/// The supervisor's state, set at once: its own way there takes 7 s for every start.
class Supervisor : public WpaSuppThread
{
public:
    struct State
    {
        bool running = false;
        bool restarting = false;
        bool associated = false;
    };

    static void Set(const State &state)
    {
        WpaSuppThread *const self = GetInstance();
        (self->*&Supervisor::Reinit)();
        self->*&Supervisor::startPending = false;
        self->*&Supervisor::running = state.running;
        self->*&Supervisor::restarting = state.restarting;
        self->*&Supervisor::associated = state.associated;
    }
    static void SetStopPending(bool pending) { GetInstance()->*&Supervisor::stopPending = pending; }
    static bool IsStopRequested() { return GetInstance()->*&Supervisor::stopRunning; }
    /// Opens the control connection, as the tick after a launch does.
    static void Connect() { (GetInstance()->*&Supervisor::CreateWpaCtl)(); }
    /// Ends the worker thread, so that the supervisor ticks only when a test tells it to.
    static void StopTicking()
    {
        GetInstance()->exit(0);
        GetInstance()->wait();
        QCoreApplication::sendPostedEvents(GetInstance());
    }
};

/// What may have become of the supplicant.
inline constexpr Supervisor::State GONE{};
inline constexpr Supervisor::State RUNNING{true, false, false};
inline constexpr Supervisor::State RESTARTING{false, true, false};
inline constexpr Supervisor::State ASSOCIATED{true, false, true};
