// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "corvi.h"

#include "bondeddevice.h"
#include "logging.h"
#include "modem.h"
#include "othermanagers.h"
#include "paths.h"
#include "platformfile.h"
#include "timing.h"
#include "utils.h"
#include "wpasuppthread.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QLocalSocket>
#include <QTimer>

#include <chrono>
#include <cstdlib>

#include <unistd.h>

namespace {

const QString RELOAD_FLAG = QStringLiteral("/tmp/config/files/network/reload");

/// The thread only has to leave its event loop; a process that is asked to end must not hang in the attempt.
constexpr std::chrono::milliseconds THREAD_END_LIMIT{1000};

QString LoggingLevelText()
{
    return QStringLiteral("Logginglevel = %1").arg(Logging::CurrentLevel());
}

} // namespace

int Corvi::conn_counter = 0;

Corvi::Corvi(QObject *parent) : QObject(parent), log(Logging::GetInstance(Logging::KEEP_LEVEL, false))
{
    LogPlatformWarnings();
    ApplyDebugFlag();
    log->LogMessage(QStringLiteral("Corvi::Corvi"), true);
    log->LogMessage(
        QStringLiteral("BUILD TIME %1T%2").arg(QStringLiteral(__DATE__), QStringLiteral(__TIME__)), true);
    log->LogMessage(LoggingLevelText(), true);

    loopTimer = std::make_unique<QTimer>();
    loopTimer->setTimerType(Qt::PreciseTimer); // A coarse one of 1 s is up to 50 ms early or late.
    bondedDevice = std::make_unique<BondedDevice>(nullptr);
    bondedDevice->setRenaming(true);
    bondedDevice->setUsePrimary(true);
    bondedDevice->setBringupInterface(false);
    connect(loopTimer.get(), &QTimer::timeout, this, &Corvi::LoopTimerTimeout);

    RemoveFlag(KILL_FLAG);
    if (!QFile::exists(DHCLIENT_CONF))
        Utils::Execute(QStringLiteral("init_hostname"), {}, false);
    InitSharedMemory();
    ReinitSupThread();
    log->LogMessage(QStringLiteral("Corvi::Corvi  Created"), true); // Two blanks: kept as they are.
}

Corvi::~Corvi()
{
    shm.detach();
    eventSocket.reset();
    loopTimer.reset();
    DeleteDevices();
}

void Corvi::Start()
{
    log->LogMessage(QStringLiteral("Corvi::Start()"), false);
    loopTimer->start(TICK_INTERVAL);
    TellState();
    serviceManager.TellReady();
}

void Corvi::Init()
{
    Log(Level::TRACE) << "Corvi::Init()";
    wirelessCarrierSeen = CheckIfWirelessCarrierExists();
    wirelessFound = false;
    wpaConfUpdated = false;
    wirelessConfigured = false;
    for (NetworkDevice **device : {&wiredDevice, &wirelessDevice, &modemDevice}) {
        if (*device)
            (*device)->deleteLater(); // Discovery is quicker: its delete takes this request along.
        *device = nullptr;
    }
    wiredUp = false;
    wiredPending = false;
    for (ReportOnce *report : {&changeReport, &linkReport, &wirelessReport, &modemReport})
        report->Over(); // What is found anew is told anew.
    SetUpResolved();
    FindAllInterfaces();
    TakeOverRecord();
    Log(Level::TRACE) << "Corvi::Init() Complete";
}

/// The command is the platform's, and one that hangs must not keep the network from being set up.
void Corvi::SetUpResolved()
{
    if (resolvedSetup.Run(std::chrono::milliseconds(PROGRAM_TIME_LIMIT_MS)))
        resolvedReport.Over();
    else
        LogOnce(resolvedReport) << "Corvi::Init() - setup_resolved has not ended and is not waited for";
}

void Corvi::Stop(int status)
{
    loopTimer->stop();
    bool hasWorkerEnded = true;
    if (supThread) {
        supThread->Stop(WpaSuppThread::STOP_GIVEN_UP);
        supThread->exit(0);
        hasWorkerEnded = supThread->wait(QDeadlineTimer(THREAD_END_LIMIT));
        supThread->LetGo();
    }
    // The destructors of static objects would take from under a worker that still runs what it uses.
    if (!hasWorkerEnded)
        ::_exit(status);
    std::exit(status);
}

bool Corvi::CheckIfWirelessCarrierExists() const
{
    return QFile::exists(WirelessCarrierFile);
}

void Corvi::CheckReload()
{
    if (PlatformFile::Exists(RELOAD_FLAG)) {
        Log(Level::TRACE) << "Reload forced";
        forceRescan = true;
        RemoveFlag(RELOAD_FLAG);
        return;
    }
    if (!wiredUp && !wirelessCarrierSeen && CheckIfWirelessCarrierExists()) {
        wirelessCarrierSeen = true;
        forceRescan = true;
    }
}

void Corvi::RequestReload()
{
    Log(Level::TRACE) << "Corvi::RequestReload()";
    forceRescan = true;
}

void Corvi::LoopTimerTimeout()
{
    serviceManager.TellAlive();
    if (!loopStarted) {
        log->LogMessage(QStringLiteral("Corvi::LoopTimer started"), false);
        loopStarted = true;
    }
    CheckReload();
    KeepSegmentFound();
    if (!forceRescan)
        CheckAdapters();
    if (forceRescan)
        Rescan();
    else
        SetUpNetworks();
    TellState();
    if (QFile::exists(KILL_FLAG)) {
        log->LogMessage(QStringLiteral("Corvi::LoopTimer exit"), false);
        // At once: the supervisor's thread still runs, so nothing it may use is torn down first.
        ::_exit(EXIT_SUCCESS);
    }
}

void Corvi::Rescan()
{
    ApplyDebugFlag();
    rescanReport.Over(); // Each is news, as somebody asked for each, until there are too many.
    const auto telling = rescanReport.Tell(QString(), ReportOnce::Time::clock::now());
    const bool isSum = telling.times > 1;
    log->LogMessage(isSum ? Level::TRACE : telling.level, LoggingLevelText(), true);
    log->LogMessage(telling.level, QStringLiteral("Corvi::Loop Force Rescan ") + telling.Summary(), false);
    forceRescan = false;
    reconfigureWpa = true;
    Init();
    WarnOfOtherManagers();
}

void Corvi::WarnOfOtherManagers()
{
    const QString managers = OtherManagers(allInterfaces).join(QStringLiteral(", "));
    if (managers.isEmpty()) {
        managerReport.Over();
        return;
    }
    LogOnce(managerReport, managers) << "Corvi::Init() - managed by others, too:" << managers
                                     << "-- switch these off, or each undoes what the other does";
}

void Corvi::SetUpNetworks()
{
    // The supplicant says only once that it is connected, or no more: while a command waits, which drops it,
    // or before its new control connection listens.
    if (supThread->TakeMissedEnd())
        onAssociatedChanged(false);
    if (supThread->TakeMissedSuccess())
        onAssociatedChanged(true);
    const bool isWiredConnected = WiredNetworkSetup();
    if (isWiredConnected) {
        SetUpBelowWired();
    } else {
        Log(Level::VERBOSE) << "Wired not connected";
        SetUpWithoutWired();
    }
    KeepCarrierConfigured(isWiredConnected);
    ReplaceStaleRecord();
}

// The tests for the number of modem names differ below (two, one, two); they are meant to.

void Corvi::SetUpBelowWired()
{
    if (modemDropped && !wirelessInterfaces.isEmpty())
        modemDropped = RetryPause::Time::clock::now(); // The radio's turn comes after the cable's.
    if (!wirelessDevice)
        PickStrayWireless();
    if (wirelessDevice) {
        Log(Level::VERBOSE) << "Calling WirelessNetworkSetup 2";
        WirelessNetworkSetup(true);
        Log(Level::VERBOSE) << "Called WirelessNetworkSetup 2";
    }
    if (modemInterfaces.size() >= 2 && modemDevice) {
        Log(Level::VERBOSE) << "Calling ModemNetworkSetup 3";
        ModemNetworkSetup(true, false);
        Log(Level::VERBOSE) << "Called ModemNetworkSetup 3";
    }
}

void Corvi::SetUpWithoutWired()
{
    if (!modemInterfaces.isEmpty() && modemDevice) {
        Log(Level::VERBOSE) << "Calling ModemNetworkSetup" << modemInterfaces;
        ModemNetworkSetup(false, true);
        Log(Level::VERBOSE) << "Called ModemNetworkSetup ";
        return;
    }
    if (wirelessDelayTicks < 1) {
        Log(Level::VERBOSE) << "Calling WirelessNetworkSetup" << 0;
        WirelessNetworkSetup(false);
        Log(Level::VERBOSE) << "Called WirelessNetworkSetup" << 0;
    } else {
        --wirelessDelayTicks;
    }
    if (!wirelessDevice && modemInterfaces.size() >= 2 && !modemDevice && Modem::IsModemReady()) {
        Log(Level::VERBOSE) << "Calling ModemNetworkSetup 2";
        ModemNetworkSetup(false, false);
        Log(Level::VERBOSE) << "Called ModemNetworkSetup 2";
    }
    SeekDroppedModem();
}
