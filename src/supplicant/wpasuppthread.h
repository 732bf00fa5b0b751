// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <QString>
#include <QStringList>
#include <QThread>

#include <atomic>

class Logging;
class WpaSupplicantControl;

/// The one supervisor of wpa_supplicant: starts, watches, restarts and stops it and interprets its events.
/// The object lives on the main thread, where all its slots run; its worker thread only owns the timer that
/// paces them. Created on first use and never deleted.
///
///   wpasuppthread.cpp          life, requests, the tick
///   wpasuppthread_start.cpp    stopping and launching the supplicant
///   wpasuppthread_control.cpp  the control connection
///   wpasuppthread_events.cpp   events, the status, the report of a wrong password
class WpaSuppThread : public QThread
{
    Q_OBJECT
public:
    static WpaSuppThread *GetInstance();
    ~WpaSuppThread() override;

    /// Starts, or restarts, the supplicant; blocks for the 7.1 s that the old one is given to end, and the
    /// launch. `methodName` is the EAP method where it matters, else empty.
    void Start(const QString &interfaceName, const QString &driverName, const QString &methodName);
    /// Asks for a stop on the next tick. The reason code is only logged.
    void Stop(int reason);
    /// Asks for a RECONFIGURE on the next tick.
    void Reconfigure();
    /// Asks the worker's event loop to end on the next tick.
    void Quit();
    /// Lets go of the supplicant, which runs on: closes our end of the control connection.
    void LetGo();
    /// Four lines for a person: running, status, associated, SSID.
    QString toString() const;

    bool IsRunning() const { return running; }
    bool IsRestarting() const { return restarting; }
    bool IsAssociated() const { return associated; }
    /// Never set: kept for the hold-off that asks for it.
    bool IsStopPending() const { return stopPending; }

signals:
    void associatedChanged(bool state);
    void wifiConnected();
    void scanningFailed();
    void TriggerRestartSupplicant();
    void TriggerStopSupplicant();

public slots:
    void MyTimerTimeout();
    void MessageReceived(const QString &message);
    void RestartSupplicant();
    void OnStopSupplicant();

private slots:
    void OnTickPosted();
    void OnWorkerEnded();

private:
    /// The tests' one way in (tests/support).
    friend class WpaSuppThreadPeer;

    /// Does not start the thread yet: run() must find the object complete.
    WpaSuppThread();
    void run() override;
    void Reinit();
    void QueueTick();
    void PostTick();

    static bool IsWiredDriver(const QString &driverName) { return driverName == QLatin1String("wired"); }
    static const char *TrueFalse(bool value) { return value ? "true" : "false"; }

    // Start and stop
    void StopSupplicant();
    void WaitForSupplicantToEnd();
    void TakeOverRequest();
    void LaunchSupplicant();
    QString DebugOption() const;
    bool WantsEapFastProgram() const;
    void ReachLaunchedSupplicant();

    // The control connection
    void CreateWpaCtl();
    void DeleteWpaCtl();
    void RestartWpaCtl();
    bool IsControlOpen() const;
    QString SendCommand(const QString &command);
    void SendReconfigure();

    // Steps of the tick
    void TickStopRunning();
    void TickStopping();
    void TickStarting();
    void TickRunning();

    // Events and the status
    void CheckStatus();
    void CheckStatusIfRequested();
    static QString SplitLine(const QString &line);
    static QString ExtractSsid(const QString &message);
    void OnSsidTemporarilyDisabled(const QString &message);
    void OnConnected();
    void OnDisconnected();
    void OnEapFailure();
    void OnTerminating();
    void NoticeDeadSupplicant();
    bool ReopenControl();
    bool GivesUpWithoutControl();
    void CountUnassociatedTicks();
    void ReportBadPassword();

    Logging *log;
    QString requestedInterface;
    QString requestedDriver;
    QString requestedMethod;
    QString interface = QStringLiteral("wlan0");
    QString driver = QStringLiteral("nl80211,wext");
    bool associated = false;
    bool wired = false;
    QString ssid;
    QString statusText = QStringLiteral("Thread Created");
    QString configurationPath;
    QString method;
    bool running = false;
    bool stopRunning = false;
    bool stopPending = false;
    int debugLevel = 0;
    bool reconfigureRequested = false;
    bool stoppingSupplicant = false;
    bool startingSupplicant = false;
    bool checkStatusRequested = false;
    bool quitRequested = false;
    int openFailures = 0;
    int unassociatedTicks = 0;
    bool terminateAcknowledged = false;
    bool badPassword = false;
    bool restarting = false;
    WpaSupplicantControl *control = nullptr; ///< owned

    /// A supplicant was launched and has no control connection yet. Unlike the requests above it survives
    /// the stop that the launch itself asked for.
    bool startPending = false;

    static WpaSuppThread *_me;
    std::atomic<int> waitingTicks{0}; ///< for the main thread, the one that it carries out included
};
