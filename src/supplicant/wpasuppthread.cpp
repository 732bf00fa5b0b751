// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "wpasuppthread.h"

#include "logging.h"
#include "paths.h"
#include "securefile.h"
#include "timing.h"
#include "utils.h"
#include "wpasupplicantcontrol.h"

#include <QFile>
#include <QTimer>

namespace {

const QString CONTROL_ERROR = QStringLiteral("WPA_CTRL_ERROR");
const QString WIRED_DRIVER = QStringLiteral("wired");
const QString SUPPLICANT_LOG = QStringLiteral("/var/log/wpa_supplicant.log");
/// A build of the supplicant for the one method that the system's own may lack.
const QString EAP_FAST_PROGRAM = QStringLiteral("/usr/network/wpa_supplicant.eapfast");

/// What a supplicant is given to end before the next one is launched: 7 passes of 1 s and a last pause.
constexpr int END_PASSES = 7;
constexpr unsigned long END_PASS_MS = 1000;
constexpr unsigned long END_PAUSE_MS = 100;
constexpr unsigned long LAUNCH_PAUSE_MS = 10;

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
    delete control;
    quit();
    wait();
}

void WpaSuppThread::run()
{
    Log(Level::TRACE) << "WpaSuppThread::run() Start";
    QTimer timer;
    connect(&timer, &QTimer::timeout, &timer, [this] { QueueTick(); });
    timer.start(TICK_INTERVAL);
    Log(Level::TRACE) << "WpaSuppThread::run() Start Exec";
    exec();
    timer.stop();
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
    ssid.clear();
}

const char *WpaSuppThread::TrueFalse(bool value)
{
    return value ? "true" : "false";
}

void WpaSuppThread::Start(const QString &interfaceName, const QString &driverName, const QString &methodName)
{
    log = Logging::GetInstance(Logging::KEEP_LEVEL, false);
    requestedInterface = interfaceName;
    requestedDriver = driverName;
    requestedMethod = methodName;
    wired = driverName == WIRED_DRIVER;
    badPassword = false;
    Log(Level::NOTICE) << "WpaSuppThread::Start" << interfaceName << driverName << methodName;
    emit TriggerRestartSupplicant();
}

void WpaSuppThread::Stop(int reason)
{
    Log(Level::TRACE) << "WpaSuppThread::Stop" << reason << TrueFalse(running) << (restarting || running);
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

void WpaSuppThread::LetGo()
{
    if (control)
        control->Disconnect();
}

void WpaSuppThread::RestartSupplicant()
{
    restarting = true;
    Log(Level::TRACE) << "WpaSuppThread::RestartSupplicant" << requestedInterface << requestedDriver
                      << TrueFalse(running || restarting);

    statusText = QStringLiteral("Stopping");
    Log(Level::TRACE) << "WpaSupplicant::Start"
                      << "supplicant is still running need to make sure it stops before continuing";
    if (startPending)
        ReachLaunchedSupplicant();
    StopSupplicant();
    WaitForSupplicantToEnd();

    emit associatedChanged(false);
    TakeOverRequest();
    Utils::Execute(QStringLiteral("mkdir"), {QStringLiteral("-p"), WPA_CONTROL_FOLDER}, false);
    LaunchSupplicant();
}

/// In a restart the whole time: it has set one of the flags, and nobody clears them while this blocks.
void WpaSuppThread::WaitForSupplicantToEnd()
{
    for (int pass = 0; pass < END_PASSES; ++pass) {
        if (!restarting && !running) {
            msleep(END_PAUSE_MS);
            return;
        }
        msleep(END_PASS_MS);
    }
    Log(Level::TRACE) << "WpaSupplicant::Start"
                      << "we should have stopped by now";
    msleep(END_PAUSE_MS);
}

void WpaSuppThread::TakeOverRequest()
{
    stopRunning = false;
    stopPending = false;
    interface = requestedInterface;
    driver = requestedDriver;
    method = requestedMethod;
    associated = false;
    ssid.clear();
    openFailures = 0;
    unassociatedTicks = 0;
}

void WpaSuppThread::LaunchSupplicant()
{
    stopRunning = false;
    if (debugLevel < 2)
        QFile::remove(SUPPLICANT_LOG);
    msleep(LAUNCH_PAUSE_MS);
    // Another user's file does not count: root would run the supplicant by it.
    if (!SecureFile::IsOurs(configurationPath)) {
        Log(Level::NOTICE) << "WpaSupplicant::Start"
                           << "No configuration file -- Stopping";
        startingSupplicant = false;
        return;
    }

    Log(Level::TRACE) << "WpaSuppThread::Start -- Start wpa_supplicant";
    QString program = QStringLiteral("wpa_supplicant");
    QStringList arguments{QStringLiteral("-B"), DebugOption(), QStringLiteral("-i") + interface,
                          QStringLiteral("-D") + driver, QStringLiteral("-c") + configurationPath};
    if (WantsEapFastProgram())
        program = EAP_FAST_PROGRAM;
    else
        arguments += QStringLiteral("-f") + SUPPLICANT_LOG;

    statusText = QStringLiteral("Starting");
    wired = driver == WIRED_DRIVER;
    Log(Level::TRACE) << " WpaSuppThread::Start execute" << program << arguments;
    Log(Level::TRACE) << " WpaSuppThread::Start Driver=" << driver << wired;
    const QStringList response = Utils::Execute(program, arguments, false);
    // A supplicant that starts has nothing to say; a port that nobody authenticates starts one every minute.
    const bool isSilent = response.join(QString()).trimmed().isEmpty();
    Log(isSilent ? Level::TRACE : Level::NOTICE) << " WpaSuppThread::Start response=" << response;
    terminateAcknowledged = false;
    startingSupplicant = true;
    startPending = true;
}

QString WpaSuppThread::DebugOption() const
{
    // One argument with its leading blank, which the supplicant takes for no option at all.
    switch (debugLevel) {
    case 0:
        return QLatin1String("");
    case 1:
        return QStringLiteral(" -d");
    default:
        return QStringLiteral(" -dd");
    }
}

bool WpaSuppThread::WantsEapFastProgram() const
{
    return method.trimmed() == QLatin1String("eap_fast") && QFile::exists(EAP_FAST_PROGRAM);
}

void WpaSuppThread::StopSupplicant()
{
    Log(Level::TRACE) << "WpaSupplicant::StopSupplicant"
                      << "STOP wpa";
    // Without a connection the supplicant is not signalled at all: the error counts as acknowledged.
    QString reply = CONTROL_ERROR;
    if (IsControlOpen() && !stoppingSupplicant) {
        reply = SendCommand(QStringLiteral("TERMINATE"));
        Log(Level::TRACE) << "WpaSupplicant::StopSupplicant" << reply;
    }
    if (reply.startsWith(CONTROL_ERROR) || reply.startsWith(QLatin1String("OK")))
        terminateAcknowledged = true;
    else
        Utils::SpawnExecute(QStringLiteral("wpa_cli"), {QStringLiteral("TERMINATE")});
    stoppingSupplicant = true;
}

/// Connects to a supplicant that was launched and not yet looked after, so that the stop that comes next
/// can reach it: otherwise it would stay behind, beside the next one.
void WpaSuppThread::ReachLaunchedSupplicant()
{
    startPending = false;
    stoppingSupplicant = false;
    RestartWpaCtl();
}

void WpaSuppThread::CreateWpaCtl()
{
    control = new WpaSupplicantControl(nullptr);
    connect(control, &WpaSupplicantControl::MessageReady, this, &WpaSuppThread::MessageReceived);
    interface.remove(WpaSupplicantControl::CtrlInterfaceDir);
    const bool opened = control->openControlInterface(interface);
    badPassword = false;
    Log(Level::TRACE) << "WpaSuppThread::CreateWpaCtl() Open wpactl" << interface << opened;
}

void WpaSuppThread::DeleteWpaCtl()
{
    if (!control)
        return;
    control->disconnect();
    // Later, as this may run inside a signal of the object itself.
    control->deleteLater();
    control = nullptr;
}

void WpaSuppThread::RestartWpaCtl()
{
    Log(Level::TRACE) << "WpaSuppThread::RestartWpaCtl";
    DeleteWpaCtl();
    CreateWpaCtl();
    Log(Level::TRACE) << "WpaSuppThread::RestartWpaCtl  Complete";
}

bool WpaSuppThread::IsControlOpen() const
{
    return control && control->isCtrlOpen();
}

QString WpaSuppThread::SendCommand(const QString &command)
{
    return control ? control->SendCommand(command) : CONTROL_ERROR;
}

void WpaSuppThread::SendReconfigure()
{
    SendCommand(QStringLiteral("RECONFIGURE"));
}

void WpaSuppThread::MyTimerTimeout()
{
    if (quitRequested)
        exit(0);
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
    }
}

void WpaSuppThread::TickStopRunning()
{
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
    DeleteWpaCtl();
    Reinit();
    if (!startPending)
        return;
    // The stop was that of the supplicant before: the one launched since then is still to be connected to.
    // Restarting until then, so that nobody starts a second one in between.
    startingSupplicant = true;
    restarting = true;
    wired = driver == WIRED_DRIVER;
}

void WpaSuppThread::TickStarting()
{
    Log(Level::TRACE) << "WpaSuppThread::run  startingSupplicant set";
    CreateWpaCtl();
    startingSupplicant = false;
    startPending = false;
    running = true;
    restarting = false;
    // It may be connected already, and says so only once: a supplicant that an earlier daemon left is.
    checkStatusRequested = true;
}
