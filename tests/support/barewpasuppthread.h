// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include "wpasuppthread.h"

#include <atomic>

/// The supervisor with its state and its steps open to a test. Its worker thread is not started, so that only
/// the ticks that the test calls happen.
class BareWpaSuppThread : public WpaSuppThread
{
public:
    using WpaSuppThread::associated;
    using WpaSuppThread::badPassword;
    using WpaSuppThread::checkStatusRequested;
    using WpaSuppThread::configurationPath;
    using WpaSuppThread::control;
    using WpaSuppThread::debugLevel;
    using WpaSuppThread::driver;
    using WpaSuppThread::interface;
    using WpaSuppThread::method;
    using WpaSuppThread::openFailures;
    using WpaSuppThread::quitRequested;
    using WpaSuppThread::reconfigureRequested;
    using WpaSuppThread::requestedDriver;
    using WpaSuppThread::requestedInterface;
    using WpaSuppThread::requestedMethod;
    using WpaSuppThread::restarting;
    using WpaSuppThread::running;
    using WpaSuppThread::ssid;
    using WpaSuppThread::startingSupplicant;
    using WpaSuppThread::startPending;
    using WpaSuppThread::statusText;
    using WpaSuppThread::stopPending;
    using WpaSuppThread::stoppingSupplicant;
    using WpaSuppThread::stopRunning;
    using WpaSuppThread::terminateAcknowledged;
    using WpaSuppThread::unassociatedTicks;
    using WpaSuppThread::wired;

    using WpaSuppThread::CheckStatus;
    using WpaSuppThread::CreateWpaCtl;
    using WpaSuppThread::DeleteWpaCtl;
    using WpaSuppThread::ExtractSsid;
    using WpaSuppThread::IsControlOpen;
    using WpaSuppThread::LaunchSupplicant;
    using WpaSuppThread::Reinit;
    using WpaSuppThread::RestartWpaCtl;
    using WpaSuppThread::SendReconfigure;
    using WpaSuppThread::SplitLine;
    using WpaSuppThread::StopSupplicant;
    using WpaSuppThread::WaitForSupplicantToEnd;

    ~BareWpaSuppThread() override
    {
        quit();
        wait();
        // The thread sanitizer cannot see that wait() orders the two threads; this it can.
        (void)hasEnded.load();
    }

    /// The state after a start whose control connection is open and whose first status was read.
    void Supervise(const QString &interfaceName = QStringLiteral("wlan0"),
                   const QString &driverName = QStringLiteral("nl80211,wext"))
    {
        interface = interfaceName;
        driver = driverName;
        wired = driverName == QLatin1String("wired");
        startingSupplicant = true;
        MyTimerTimeout();
        checkStatusRequested = false;
    }

    void Tick(int times = 1)
    {
        for (int i = 0; i < times; ++i)
            MyTimerTimeout();
    }

protected:
    void run() override
    {
        WpaSuppThread::run();
        hasEnded = true;
    }

private:
    std::atomic<bool> hasEnded{false};
};
