// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "wpasuppthread.h"

#include "journal.h"
#include "logging.h"
#include "paths.h"
#include "timing.h"

#include <QDebug>
#include <QTimer>

#include <algorithm>

namespace {

/// Failures to open the control interface after which the control object is made anew.
constexpr int OPEN_FAILURE_LIMIT = 6;
/// Ticks without an association after which a supplicant that cannot be reached is stopped; a tick without a
/// control connection counts twice, so that takes about 30 s.
constexpr int UNASSOCIATED_LIMIT = 61;
/// Ticks with a control connection after which a start was a good one, though nobody has let us in.
constexpr int PROOF_TICKS = 60;
/// Connected for so long, a supplicant is over what its predecessors died of: what ends the next one is news.
constexpr int PEACE_TICKS = 600;

const char *YesNo(bool value)
{
    return value ? "yes" : "no";
}

} // namespace

WpaSuppThread *WpaSuppThread::_me = nullptr;

WpaSuppThread *WpaSuppThread::GetInstance()
{
    if (!_me) {
        _me = new WpaSuppThread;
        _me->start();
    }
    return _me;
}

WpaSuppThread::WpaSuppThread()
    : log(Logging::GetInstance(Logging::KEEP_LEVEL, false)), configurationPath(WPA_SUPPLICANT_CONF)
{
    // Here rather than in run(): the worker must touch nothing that the main thread reads.
    Reinit();
    connect(this, &WpaSuppThread::TriggerRestartSupplicant, this, &WpaSuppThread::RestartSupplicant);
    connect(this, &WpaSuppThread::TriggerStopSupplicant, this, &WpaSuppThread::OnStopSupplicant);
}

WpaSuppThread::~WpaSuppThread()
{
    // At once: nobody may be left to carry out what is deferred.
    delete control.release();
    quit();
    wait();
}

void WpaSuppThread::run()
{
    Log(Level::TRACE) << "WpaSuppThread::run() Start";
    timer = std::make_unique<QTimer>();
    connect(timer.get(), &QTimer::timeout, timer.get(), [this] { QueueTick(); });
    timer->start(TICK_INTERVAL);
    Log(Level::TRACE) << "WpaSuppThread::run() Start Exec";
    exec();
    timer.reset(); // Stopped and deleted on the thread that it belongs to.
    Log(Level::TRACE) << "WpaSuppThread::run() End Exec";
    QMetaObject::invokeMethod(this, "OnWorkerEnded", Qt::QueuedConnection);
}

/// On the worker thread. The object lives on the main thread, so each tick is queued to it; one at a time:
/// where each waits 10 s for a supplicant that does not answer, a queue of them would keep the main thread
/// from all else for minutes.
void WpaSuppThread::QueueTick()
{
    if (waitingTicks++ == 0)
        PostTick();
}

void WpaSuppThread::PostTick()
{
    QMetaObject::invokeMethod(this, "OnTickPosted", Qt::QueuedConnection);
}

void WpaSuppThread::OnTickPosted()
{
    MyTimerTimeout();
    if (--waitingTicks > 0)
        PostTick();
}

/// On the main thread, which the status text belongs to.
void WpaSuppThread::OnWorkerEnded()
{
    statusText = QStringLiteral("Stopped");
}

void WpaSuppThread::Reinit()
{
    associated = false;
    wired = false;
    running = false;
    stopRunning = false;
    stopPending = false;
    stopFinished = false;
    reconfigureRequested = false;
    stoppingSupplicant = false;
    startingSupplicant = false;
    checkStatusRequested = false;
    quitRequested = false;
    openFailures = 0;
    unassociatedTicks = 0;
    terminateAcknowledged = false;
    badPassword = false;
    restarting = false;
    missed = Missed::NOTHING;
    ticksToLateStatus = 0;
    ssid.clear();
}

void WpaSuppThread::Start(const QString &interfaceName, const QString &driverName, const QString &methodName)
{
    log = Logging::GetInstance(Logging::KEEP_LEVEL, false);
    requestedInterface = interfaceName;
    requestedDriver = driverName;
    requestedMethod = methodName;
    wired = IsWiredDriver(driverName);
    badPassword = false;
    pauseTicks = 0;
    LogOnce(reports.start, interfaceName + driverName + methodName)
        << "WpaSuppThread::Start" << interfaceName << driverName << methodName;
    emit TriggerRestartSupplicant();
}

void WpaSuppThread::Stop(int reason)
{
    Log(Level::TRACE) << "WpaSuppThread::Stop" << reason << TrueFalse(running) << (restarting || running);
    const bool isForWantOfSuccess = reason == STOP_GIVEN_UP || reason == STOP_FALLBACK;
    stopWaitsForNews = isForWantOfSuccess && (stopWaitsForNews || !stopRunning);
    emit TriggerStopSupplicant();
}

void WpaSuppThread::OnStopSupplicant()
{
    stopRunning = true;
}

void WpaSuppThread::Reconfigure()
{
    reconfigureRequested = true;
}

void WpaSuppThread::Quit()
{
    Log(Level::NOTICE) << "WpaSuppThread::Quit";
    quitRequested = true;
}

QString WpaSuppThread::toString() const
{
    return QStringLiteral("Running = %1\nStatus = %2\nAssociated = %3\nSSID = %4")
        .arg(QLatin1String(YesNo(running)), statusText, QLatin1String(YesNo(associated)), ssid);
}

void WpaSuppThread::MyTimerTimeout()
{
    const JournalSubject subject(interface, definition);
    if (quitRequested)
        exit(0);
    // Ticks that were held up follow each other at once: no time in which the event could be heard.
    if (waitingTicks <= 1)
        takenUpTicks = std::max(takenUpTicks - 1, 0);
    NoticeDeath();
    if (stopRunning)
        TickStopRunning();
    if (stoppingSupplicant) {
        TickStopping();
    } else if (reconfigureRequested) {
        SendReconfigure();
        reconfigureRequested = false;
    } else if (startingSupplicant) {
        TickStarting();
    } else if (running) {
        TickRunning();
    } else {
        openFailures = 0;
        unassociatedTicks = 0;
        if (pauseTicks > 0)
            --pauseTicks;
        WatchForLeftOvers();
    }
}

// The lines of the next steps name run(), which only paces the tick: kept as they are.

void WpaSuppThread::TickStopRunning()
{
    // The success may have come while the service was busy with its fallback. Seen in 8 of 53 attempts.
    if (stopWaitsForNews)
        HearUnread();
    if (!stopRunning)
        return;
    Log(Level::TRACE) << "WpaSuppThread::run  stopRunning set";
    if (startPending)
        ReachLaunchedSupplicant();
    StopSupplicant();
    stopRunning = false;
}

void WpaSuppThread::TickStopping()
{
    Log(Level::TRACE) << "WpaSuppThread::run  stoppingSupplicant set";
    stoppingSupplicant = false;
    startingSupplicant = false;
    DeleteWpaCtl();
    running = false;
    restarting = false;
    associated = false;
    DeleteWpaCtl(); // Finds nothing any more: kept as it is.
    Reinit();
    process.reset();
    if (!startPending)
        return;
    // The stop was that of the supplicant before: the one launched since then is still to be connected to.
    // Restarting until then, so that nobody starts a second one in between.
    startingSupplicant = true;
    restarting = true;
    wired = IsWiredDriver(driver);
}

void WpaSuppThread::TickStarting()
{
    Log(Level::TRACE) << "WpaSuppThread::run  startingSupplicant set";
    CreateWpaCtl();
    startingSupplicant = false;
    startPending = false;
    running = true;
    restarting = false;
    AskForStatusLater();
    hasLeftNetworks = false;
}

void WpaSuppThread::TickRunning()
{
    const bool wasOpen = IsControlOpen();
    if (wasOpen) {
        CheckStatusLate();
        AskAgainForStatus();
        CheckStatusIfRequested();
        WatchForSilence();
    }
    const bool isOpen = wasOpen || ReopenControl();
    if (isOpen || !GivesUpWithoutControl())
        CountUnassociatedTicks(isOpen);
    TakeNetworksBack();
    if (isOpen) {
        openFailures = 0;
        if (associated || ++servedTicks >= PROOF_TICKS)
            NoteGoodStart();
    }
    CountPeace();
    ReportBadPassword();
}

void WpaSuppThread::CountPeace()
{
    peaceTicks = associated ? peaceTicks + 1 : 0;
    if (peaceTicks != PEACE_TICKS)
        return;
    for (ReportOnce *report :
         {&reports.start, &reports.launch, &reports.giveUp, &reports.death, &reports.terminating,
          &reports.silence, &reports.leftOver, &reports.inTheWay, &reports.departure})
        report->Over();
}

bool WpaSuppThread::ReopenControl()
{
    if (OpenControl()) {
        checkStatusRequested = false;
        CheckStatus();
        return true;
    }
    if (++openFailures == OPEN_FAILURE_LIMIT) {
        openFailures = 0;
        RestartWpaCtl();
    }
    return false;
}

/// Counts a tick without a control connection; asks for a stop when there were too many.
bool WpaSuppThread::GivesUpWithoutControl()
{
    if (++unassociatedTicks < UNASSOCIATED_LIMIT)
        return false;
    LogOnce(reports.giveUp) << " failed to connect, Stopping wpa_supplicant";
    NoteFailedStart();
    qDebug() << "Stopping wpa_supplicant";
    stopRunning = true;
    stopWaitsForNews = false;
    return true;
}

void WpaSuppThread::CountUnassociatedTicks(bool isOpen)
{
    if (associated) {
        unassociatedTicks = 0;
        return;
    }
    if (++unassociatedTicks < UNASSOCIATED_LIMIT)
        return;
    qDebug() << "wpa_supplicant can't connect to specified AP";
    // Without a connection the count is on its way to the stop, which an odd one would miss here.
    if (isOpen)
        unassociatedTicks = 0;
}
