// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include "reportonce.h"
#include "retrypause.h"
#include "supplicantprocess.h"
#include "wpasupplicantcontrol.h"

#include <QDateTime>
#include <QElapsedTimer>
#include <QString>
#include <QStringList>
#include <QThread>

#include <atomic>
#include <memory>
#include <optional>

class Logging;
class QTimer;

/// The one supervisor of wpa_supplicant: starts, watches, restarts and stops it and interprets its events.
/// The object lives on the main thread, where all its slots run; its worker thread only owns the timer that
/// paces them. Created on first use and never deleted.
///
///   wpasuppthread.cpp          life, requests, the tick
///   wpasuppthread_start.cpp    stopping and launching the supplicant
///   wpasuppthread_control.cpp  the control connection
///   wpasuppthread_events.cpp   events, the status, the report of a wrong password
///   wpasuppthread_networks.cpp which of the networks in its file a radio's supplicant uses
///   wpasuppthread_process.cpp  the supplicant's process: its end, its silence, one that was left over
class WpaSuppThread : public QThread
{
    Q_OBJECT
public:
    /// Why a stop is asked for; the numbers appear in the log.
    enum StopReason : int {
        STOP_GIVEN_UP = 0,       ///< the port has an address without authentication; or the daemon ends
        STOP_BEFORE_START = 1,   ///< a start follows at once
        STOP_FIRST = 2,          ///< the service has just taken the supervisor into use
        STOP_NOT_REQUIRED = 3,   ///< the device to be configured uses no supplicant
        STOP_FOR_NEXT_START = 4, ///< the hold-off of the next start waits for the end of this one
        STOP_FALLBACK = 5,       ///< nobody let us in for a minute: an attempt without authentication
        STOP_UNNEEDED = 6,       ///< the wired device that carries uses no supplicant
    };

    static WpaSuppThread *GetInstance();
    ~WpaSuppThread() override;

    /// Starts, or restarts, the supplicant; blocks for the 7.1 s that the old one is given to end, and the
    /// launch. `methodName` is the EAP method where it matters, else empty.
    void Start(const QString &interfaceName, const QString &driverName, const QString &methodName);
    /// The definition that the next Start() is for, as the journal names it; empty where it may be one of
    /// several.
    void NameDefinition(const QString &name) { requestedDefinition = name; }
    /// Asks for a stop on the next tick, for one of the reasons above. A stop for want of an authentication
    /// is dropped when the supplicant says before that tick that it has been let in after all.
    void Stop(int reason);
    /// Asks for a RECONFIGURE on the next tick.
    void Reconfigure();
    /// Asks the worker's event loop to end on the next tick.
    void Quit();
    /// Reads what the supplicant has said and nobody has heard yet; associatedChanged() may come before this
    /// returns. For a decision that a success in it would change.
    void HearUnread();
    /// Whether the end of the connection of which associatedChanged() tells waits behind that event.
    bool IsEndUnread();
    /// Whether the supplicant is connected and associatedChanged() has not said so, as the event was missed:
    /// it came while the reply to a command was awaited, before we listened, or while the control connection
    /// was lost. A success that is taken counts as told; its event, should it come after all, is no second
    /// one.
    bool TakeMissedSuccess();
    /// Whether the connection has ended and associatedChanged() has not said so, for the same reasons. An end
    /// that is taken counts as told.
    bool TakeMissedEnd();
    /// Has a radio's supplicant leave the network that it is connected to, as no address is to be had there,
    /// for another one of its file. The left ones are tried again when all have been left, when nobody else
    /// lets us in for 30 s, and at the next start. False where there is no other one. Blocks for 10 s for
    /// each of some commands that the supplicant does not answer.
    bool LeaveNetwork();
    /// Lets go of the supplicant, which runs on: closes our end of the control connection.
    void LetGo();
    /// Why nobody let us in, in a few words, since such failures come; no reason after a success.
    struct Failure
    {
        QString reason;
        QDateTime since;
    };
    const Failure &LastFailure() const { return lastFailure; }
    /// Four lines for a person: running, status, associated, SSID.
    QString toString() const;

    bool IsRunning() const { return running; }
    bool IsRestarting() const { return restarting; }
    bool IsAssociated() const { return associated; }
    /// Several starts in a row have failed, and a further one makes no sense yet. Start() does it all the
    /// same, for one who has something new to start it with.
    bool IsPausing() const { return pauseTicks > 0; }
    int PauseSeconds() const { return pauseTicks; }
    /// The interface of the last Start().
    const QString &RequestedInterface() const { return requestedInterface; }
    /// Never set: kept for the hold-off that asks for it.
    bool IsStopPending() const { return stopPending; }

signals:
    // All are emitted on the main thread. Whatever a slot does about devices is its own affair; the
    // supervisor must outlive the signal, and the supplicant may be stopped or started from within.

    /// The supplicant says that it is connected or disconnected, also when that is what it said last; or it
    /// is about to be started anew, which counts as disconnected. No other change of the association is
    /// told.
    void associatedChanged(bool state);
    void wifiConnected();  ///< never emitted: kept for those who connect to it
    void scanningFailed(); ///< never emitted: kept for those who connect to it
    /// To ourselves: runs RestartSupplicant() before it returns.
    void TriggerRestartSupplicant();
    /// To ourselves: runs OnStopSupplicant() before it returns.
    void TriggerStopSupplicant();

public slots:
    /// The tick: carries out what was asked for, or looks after the supplicant that runs.
    void MyTimerTimeout();
    /// One event of the supplicant, with its priority prefix.
    void MessageReceived(const QString &message);
    /// The start, without the request for it: see Start().
    void RestartSupplicant();
    void OnStopSupplicant();

private slots:
    void OnTickPosted();
    void OnWorkerEnded();

private:
    /// The tests' one way in (tests/support).
    friend class WpaSuppThreadPeer;

    /// Whether the event of a success, or of its end, was missed.
    enum class Missed {
        NOTHING,
        UNKNOWN, ///< it may have been, and no status was answered since
        SUCCESS, ///< the status says so
        END,     ///< the status says so
    };
    /// Lets an object outlive the signal of its own in which it is dropped.
    struct DeleteLater
    {
        void operator()(WpaSupplicantControl *object) const;
    };

    /// Does not start the thread yet: run() must find the object complete.
    WpaSuppThread();
    void run() override;
    void Reinit();
    void QueueTick();
    void PostTick();

    // Start and stop
    static bool IsWiredDriver(const QString &driverName);
    void StopSupplicant();
    void WaitForSupplicantToEnd();
    void TakeOverRequest();
    void MakeControlFolder();
    void ClearName(const QString &path);
    void LaunchSupplicant();
    void BringUpWiredLink();
    bool HasConfiguration();
    QString DebugOption() const;
    bool WantsEapFastProgram() const;
    void ReachLaunchedSupplicant();
    void NoteFailedStart();
    void NoteGoodStart();

    // The control connection
    void CreateWpaCtl();
    void DeleteWpaCtl();
    void RestartWpaCtl();
    /// Opens the connection of the control object that there is, and takes note of who answers.
    bool OpenControl();
    bool IsStoppedUnheard();
    void NotePeer();
    bool IsControlOpen() const;
    void NoticeLostControl();
    QString SendCommand(const QString &command);
    void MayHaveMissed();
    void SendReconfigure();

    // Steps of the tick
    void TickStopRunning();
    void TickStopping();
    void TickStarting();
    void TickRunning();
    void CountPeace();
    bool ReopenControl();
    bool GivesUpWithoutControl();
    void CountUnassociatedTicks(bool isOpen);

    // Events and the status
    void CheckStatus();
    void CheckStatusIfRequested();
    void AskForStatusLater();
    void CheckStatusLate();
    void AskAgainForStatus();
    Missed WhatWasMissed() const;
    static QString SplitLine(const QString &line);
    static QString ExtractSsid(const QString &message);
    void OnSsidTemporarilyDisabled(const QString &message);
    void TellAssociation(bool state);
    void OnConnected();
    void NoteConnected();
    void OnDisconnected();
    void NoteDisconnected();
    void OnEapFailure();
    void TakeUpReauthentication();
    void NoteUselessKey(const QString &message);
    void NoteEapStatus(const QString &message);
    static QString EapProblemIn(const QString &message);
    void TellRefusal();
    void OnTerminating();
    void ReportBadPassword();
    void NoteFailure(const QString &reason);

    // The networks of its file
    struct ListedNetwork;
    static QList<ListedNetwork> NetworksIn(const QString &answer);
    bool Leave(const QList<ListedNetwork> &networks, const ListedNetwork &current);
    bool EnableAllNetworks();
    void TakeNetworksBack();

    // The process
    void NoticeDeath();
    void WatchForSilence();
    void TellOfStoppedProcess(bool isStopped);
    void EndSilentSupplicant();
    bool IsProcessOurs() const;
    void WatchForLeftOvers();
    void EndLeftOvers();

    Logging *log;                                          ///< kept: the lines go through Log
    QString requestedInterface;                            ///< of the last Start()
    QString requestedDriver;                               ///< of the last Start()
    QString requestedMethod;                               ///< of the last Start()
    QString requestedDefinition;                           ///< for the next Start()
    QString interface = QStringLiteral("wlan0");           ///< the supplicant was launched on
    QString driver = QStringLiteral("nl80211,wext");       ///< the supplicant was launched with
    bool associated = false;                               ///< the supplicant says so
    bool wired = false;                                    ///< the driver is "wired"
    QString ssid;                                          ///< last seen in a status or an event
    QString statusText = QStringLiteral("Thread Created"); ///< for people; "BadPassword" is also a state
    QString configurationPath;                             ///< the supplicant's file
    QString method;                             ///< EAP method that the supplicant was launched for
    QString definition;                         ///< the supplicant was launched for, where that is certain
    bool running = false;                       ///< launched, and looked after by the tick
    bool stopRunning = false;                   ///< request: stop it
    bool stopPending = false;                   ///< set by nobody: kept for the hold-off
    [[maybe_unused]] bool stopFinished = false; ///< cleared with stopPending, read by nobody: kept
    int debugLevel = 0;                         ///< 0 none, 1 " -d", 2 and more " -dd"; nobody sets it
    bool reconfigureRequested = false;          ///< request: send "RECONFIGURE"
    bool stoppingSupplicant = false;            ///< told to end; the tick does the rest
    bool startingSupplicant = false;            ///< launched; the tick connects to it
    bool checkStatusRequested = false;          ///< request: ask for the status
    bool quitRequested = false;                 ///< request: end the worker's event loop
    int openFailures = 0;                       ///< to open the control connection, in a row
    int unassociatedTicks = 0;                  ///< while running; two a tick without connection
    [[maybe_unused]] bool terminateAcknowledged = false; ///< written and never read: kept as it is
    bool badPassword = false;                            ///< suspected, and not yet told to the user
    bool restarting = false;                             ///< between a start and the tick that connects
    Failure lastFailure;                                 ///< outlives a restart, which a failure may lead to
    std::unique_ptr<WpaSupplicantControl, DeleteLater> control;
    std::unique_ptr<QTimer> timer; ///< made and deleted by run(), on the worker thread

    /// A supplicant was launched and has no control connection yet. Unlike the requests above it survives
    /// the stop that the launch itself asked for.
    bool startPending = false;

    bool connectionTold = false; ///< whoever listens takes us for connected
    bool endUntold = false;      ///< and it has ended since then
    Missed missed = Missed::NOTHING;
    RetryPause statusPause{RetryPause::First::AT_ONCE}; ///< while nobody answers what was missed
    int takenUpTicks = 0;      ///< for which the event of a success told without it is none of its own
    bool endWasUnread = false; ///< seen to wait, and the status not asked for yet: later words may be lost
    int ticksToLateStatus = 0; ///< until the status is asked for; 0 where it need not be
    bool stopWaitsForNews = false; ///< a success makes the stop pointless; counts with stopRunning alone
    std::optional<SupplicantProcess> process; ///< the one that answered us, as the kernel names it
    int silentTicks = 0;                      ///< since it was last heard
    bool wasStopped = false;                  ///< by a signal, at the last look at it
    bool killedForSilence = false;            ///< that process, by us
    bool startProved = false; ///< the supplicant was let in, or was there for a while, since its launch
    int peaceTicks = 0;       ///< connected without a break
    int servedTicks = 0;      ///< with a control connection since the launch
    QString eapProblem;       ///< of the authentication that is going on, in words
    QElapsedTimer eapQuiet;   ///< since the last event of EAP, or the launch
    int failedStarts = 0;     ///< in a row
    int pauseTicks = 0;       ///< until a further start makes sense
    int idleTicks = 0;        ///< since the process began, until the first start

    bool hasLeftNetworks = false; ///< and the supplicant does not try them
    int awayTicks = 0;            ///< since then, without being let in for long

    /// What an operator is told, and counted when it lasts or comes again and again.
    struct
    {
        ReportOnce launch, pause, giveUp, death, silence, stopped, leftOver, inTheWay;
        ReportOnce start{ReportOnce::Of::STEP};
        ReportOnce terminating{ReportOnce::Of::STEP};
        ReportOnce link{ReportOnce::Of::CHANGE};
        ReportOnce eapProblem, refusal, eap, eapPassword, network, warning, departure;
        WpaSupplicantControl::Reports control;
    } reports;

    static WpaSuppThread *_me;
    std::atomic<int> waitingTicks{0}; ///< for the main thread, the one that it carries out included
};
