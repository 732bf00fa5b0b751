// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include "wpasuppthread.h"

#include <atomic>

/// The one peer of the supervisor outside the product, which names it as its friend: tests, fuzz targets and
/// benchmarks put a supervisor into a state, take single steps and look at it through this class alone.
///
/// An object of it is a supervisor whose worker thread is not started, so that only the ticks that a test
/// calls happen. The static operations are for the instance that the service object uses.
class WpaSuppThreadPeer : public WpaSuppThread
{
public:
    struct State
    {
        bool running = false;
        bool restarting = false;
        bool associated = false;
    };

    ~WpaSuppThreadPeer() override
    {
        quit();
        wait();
        // The thread sanitizer cannot see that wait() orders the two threads; this it can.
        (void)hasEnded.load();
    }

    // States

    /// The state after a start whose control connection is open and whose first status was read.
    void Supervise(const QString &interfaceName = QStringLiteral("wlan0"),
                   const QString &driverName = QStringLiteral("nl80211,wext"))
    {
        AimAt(interfaceName, driverName);
        wired = IsWiredDriver(driverName);
        startingSupplicant = true;
        MyTimerTimeout();
        ticksToLateStatus = 0;
    }
    void Tick(int times = 1)
    {
        for (int i = 0; i < times; ++i)
            MyTimerTimeout();
    }

    /// What the next launch is for.
    void AimAt(const QString &interfaceName, const QString &driverName = QStringLiteral("nl80211,wext"))
    {
        interface = interfaceName;
        driver = driverName;
    }
    /// As the first half of a Start().
    void Request(const QString &interfaceName) { requestedInterface = interfaceName; }
    void Pause(int ticks) { pauseTicks = ticks; }
    void UseMethod(const QString &name) { method = name; }
    void UseConfiguration(const QString &path) { configurationPath = path; }
    void UseDebugLevel(int level) { debugLevel = level; }

    void Become(const State &state) { SetState(*this, state); }
    void TakeForAssociated() { associated = true; }
    void TakeForWired() { wired = true; }
    void TakeForHavingLeft() { hasLeftNetworks = true; }
    void SuspectPassword() { badPassword = true; }
    void NoteSsid(const QString &name) { ssid = name; }
    void NoteStatus(const QString &text) { statusText = text; }
    void NoteCounts(int failures, int ticks)
    {
        openFailures = failures;
        unassociatedTicks = ticks;
    }
    /// So many ticks wait for the main thread, the one that it carries out included.
    void LagBehind(int ticks) { waitingTicks = ticks; }
    void NoteSilence(int ticks) { silentTicks = ticks; }
    void NoteAcknowledged(bool is) { terminateAcknowledged = is; }
    /// As a launch leaves it to the next tick.
    void ExpectSupplicant() { startingSupplicant = true; }
    /// As a stop leaves it to the next tick.
    void ExpectEnd() { stoppingSupplicant = true; }
    void AskForStatus() { checkStatusRequested = true; }
    void RaiseEveryFlag()
    {
        for (bool *flag :
             {&associated, &wired, &running, &stopRunning, &stopPending, &stopFinished, &reconfigureRequested,
              &stoppingSupplicant, &startingSupplicant, &checkStatusRequested, &quitRequested,
              &terminateAcknowledged, &badPassword, &restarting})
            *flag = true;
    }

    // Steps

    using WpaSuppThread::CheckStatus;
    using WpaSuppThread::CreateWpaCtl;
    using WpaSuppThread::DeleteWpaCtl;
    using WpaSuppThread::LaunchSupplicant;
    using WpaSuppThread::MakeControlFolder;
    using WpaSuppThread::QueueTick;
    using WpaSuppThread::Reinit;
    using WpaSuppThread::RestartWpaCtl;
    using WpaSuppThread::SplitLine;
    using WpaSuppThread::StopSupplicant;
    using WpaSuppThread::TakeOverRequest;
    using WpaSuppThread::WaitForSupplicantToEnd;

    // Questions

    using WpaSuppThread::IsControlOpen;
    WpaSupplicantControl *Control() const { return control.get(); }
    QString Interface() const { return interface; }
    QString Driver() const { return driver; }
    QString Method() const { return method; }
    QString Ssid() const { return ssid; }
    QString StatusText() const { return statusText; }
    QString ConfigurationPath() const { return configurationPath; }
    QStringList Requested() const { return {requestedInterface, requestedDriver, requestedMethod}; }
    int DebugLevel() const { return debugLevel; }
    int OpenFailures() const { return openFailures; }
    int UnassociatedTicks() const { return unassociatedTicks; }
    bool IsWired() const { return wired; }
    bool IsStopRequested() const { return stopRunning; }
    bool IsEnding() const { return stoppingSupplicant; }
    bool IsStarting() const { return startingSupplicant; }
    bool IsReconfigureRequested() const { return reconfigureRequested; }
    bool IsStatusRequested() const { return checkStatusRequested; }
    bool IsQuitRequested() const { return quitRequested; }
    bool IsAcknowledged() const { return terminateAcknowledged; }
    bool SuspectsPassword() const { return badPassword; }
    /// The names of the flags that are set.
    QStringList Flags() const;

    // The instance that the service object uses

    /// Its own way there takes 7 s for every start.
    static void SetState(WpaSuppThread &thread, const State &state)
    {
        thread.Reinit();
        thread.stopWaitsForNews = false;
        thread.startPending = false;
        thread.running = state.running;
        thread.restarting = state.restarting;
        thread.associated = state.associated;
        thread.connectionTold = state.associated;
        thread.takenUpTicks = 0;
    }
    static void Request(WpaSuppThread &thread, const QString &interfaceName)
    {
        thread.requestedInterface = interfaceName;
    }
    static void Forget(WpaSuppThread &thread)
    {
        thread.requestedInterface.clear();
        thread.lastFailure = {};
        thread.pauseTicks = 0;
    }
    static void Pause(WpaSuppThread &thread, int ticks) { thread.pauseTicks = ticks; }
    static void Disconnect(WpaSuppThread &thread) { thread.DeleteWpaCtl(); }
    static void SetStopPending(WpaSuppThread &thread, bool pending) { thread.stopPending = pending; }
    static bool IsStopRequested(const WpaSuppThread &thread) { return thread.stopRunning; }
    static void AskForStatus(WpaSuppThread &thread) { thread.checkStatusRequested = true; }
    /// Opens the control connection, as the tick after a launch does.
    static void Connect(WpaSuppThread &thread, const QString &interfaceName)
    {
        thread.interface = interfaceName;
        thread.CreateWpaCtl();
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

inline QStringList WpaSuppThreadPeer::Flags() const
{
    const struct
    {
        const char *name;
        bool isSet;
    } all[] = {
        {"associated", associated},
        {"wired", wired},
        {"running", running},
        {"stopRunning", stopRunning},
        {"stopPending", stopPending},
        {"stopFinished", stopFinished},
        {"reconfigureRequested", reconfigureRequested},
        {"stoppingSupplicant", stoppingSupplicant},
        {"startingSupplicant", startingSupplicant},
        {"checkStatusRequested", checkStatusRequested},
        {"quitRequested", quitRequested},
        {"terminateAcknowledged", terminateAcknowledged},
        {"badPassword", badPassword},
        {"restarting", restarting},
        {"startPending", startPending},
    };
    QStringList set;
    for (const auto &flag : all) {
        if (flag.isSet)
            set << QLatin1String(flag.name);
    }
    return set;
}
