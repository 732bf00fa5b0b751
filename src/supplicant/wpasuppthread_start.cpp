// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "wpasuppthread.h"

#include "interfacekind.h"
#include "logging.h"
#include "paths.h"
#include "securefile.h"
#include "utils.h"

#include <QFile>
#include <QFileInfo>

#include <net/if.h>
#include <sys/stat.h>

namespace {

const QString SUPPLICANT_LOG = QStringLiteral("/var/log/wpa_supplicant.log");
/// A build of the supplicant for the one method that the system's own may lack.
const QString EAP_FAST_PROGRAM = QStringLiteral("/usr/network/wpa_supplicant.eapfast");

/// What a supplicant is given to end before the next one is launched: 7 passes of 1 s and a last pause.
constexpr int END_PASSES = 7;
constexpr unsigned long END_PASS_MS = 1000;
constexpr unsigned long END_PAUSE_MS = 100;
constexpr unsigned long LAUNCH_PAUSE_MS = 10;

// The lines below that say "WpaSupplicant::" name a class that there is not, those with "Start" also another
// operation, and some begin with a blank: kept as they are.

QString WithoutLineFeed(const QString &reply)
{
    return reply.endsWith(QLatin1Char('\n')) ? reply.chopped(1) : reply;
}

/// What is at the name itself, as stat(2) has it; 0 where there is nothing.
mode_t TypeOf(const QString &path)
{
    struct stat info = {};
    return ::lstat(QFile::encodeName(path).constData(), &info) == 0 ? info.st_mode & S_IFMT : 0;
}

} // namespace

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

    TellAssociation(false);
    TakeOverRequest();
    MakeControlFolder();
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
    stopFinished = false;
    interface = requestedInterface;
    driver = requestedDriver;
    method = requestedMethod;
    definition = requestedDefinition;
    associated = false;
    peaceTicks = 0;
    ssid.clear();
    process.reset();
    startProved = false;
    servedTicks = 0;
    openFailures = 0;
    unassociatedTicks = 0;
}

/// The supplicant replaces an old socket by itself. At anything else it may end, again and again.
void WpaSuppThread::MakeControlFolder()
{
    if (TypeOf(WPA_CONTROL_FOLDER) != 0 && !QFileInfo(WPA_CONTROL_FOLDER).isDir())
        ClearName(WPA_CONTROL_FOLDER);
    Utils::Execute(QStringLiteral("mkdir"), {QStringLiteral("-p"), WPA_CONTROL_FOLDER}, false);
    const QString socketPath = WpaSupplicantControl::CtrlInterfaceDir + interface;
    const mode_t type = interface.isEmpty() ? 0 : TypeOf(socketPath);
    if (type != 0 && type != S_IFSOCK)
        ClearName(socketPath);
}

void WpaSuppThread::ClearName(const QString &path)
{
    const bool isGone = SecureFile::Remove(path);
    LogOnce(reports.inTheWay, path + QString::number(isGone))
        << "WpaSuppThread -- What is in the way of the supplicant's control socket"
        << (isGone ? "is removed:" : "cannot be removed:") << path;
}

bool WpaSuppThread::IsWiredDriver(const QString &driverName)
{
    return driverName == QLatin1String("wired");
}

void WpaSuppThread::LaunchSupplicant()
{
    stopRunning = false;
    if (debugLevel < 2)
        QFile::remove(SUPPLICANT_LOG);
    msleep(LAUNCH_PAUSE_MS);
    if (!HasConfiguration())
        return;

    Log(Level::TRACE) << "WpaSuppThread::Start -- Start wpa_supplicant";
    QString program = QStringLiteral("wpa_supplicant");
    QStringList arguments{QStringLiteral("-B"), DebugOption(), QStringLiteral("-i") + interface,
                          QStringLiteral("-D") + driver, QStringLiteral("-c") + configurationPath};
    if (WantsEapFastProgram())
        program = EAP_FAST_PROGRAM;
    else
        arguments += QStringLiteral("-f") + SUPPLICANT_LOG;

    statusText = QStringLiteral("Starting");
    wired = IsWiredDriver(driver);
    Log(Level::TRACE) << " WpaSuppThread::Start execute" << program << arguments;
    Log(Level::TRACE) << " WpaSuppThread::Start Driver=" << driver << wired;
    EndLeftOvers();
    BringUpWiredLink();
    eapQuiet.start();
    const QStringList response = Utils::Execute(program, arguments, false);
    // A supplicant that starts has nothing to say.
    if (response.join(QString()).trimmed().isEmpty())
        Log(Level::TRACE) << " WpaSuppThread::Start response=" << response;
    else
        LogOnce(reports.launch) << " WpaSuppThread::Start response=" << response;
    terminateAcknowledged = false;
    startingSupplicant = true;
    startPending = true;
}

/// A supplicant that finds the link down takes it down again when it ends. The next one would find it so, and
/// as each end loses the carrier, which asks for another start, none would stay.
void WpaSuppThread::BringUpWiredLink()
{
    const QByteArray flags = LinkAttribute(interface, "flags");
    if (wired && !flags.isEmpty() && (flags.toUInt(nullptr, 16) & IFF_UP) == 0)
        Utils::Execute(QStringLiteral("ifconfig"), {interface, QStringLiteral("up")}, false);
}

/// Another user's file does not count: root would run the supplicant by it. Without one the start has failed.
bool WpaSuppThread::HasConfiguration()
{
    if (SecureFile::IsOurs(configurationPath))
        return true;
    LogOnce(reports.launch) << "WpaSupplicant::Start"
                            << "No configuration file -- Stopping";
    startingSupplicant = false;
    NoteFailedStart();
    return false;
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
    QString reply = WpaSupplicantControl::ERROR_PREFIX;
    if (IsControlOpen() && !stoppingSupplicant) {
        reply = SendCommand(QStringLiteral("TERMINATE"));
        Log(Level::TRACE) << "WpaSupplicant::StopSupplicant" << WithoutLineFeed(reply);
    }
    if (reply.startsWith(WpaSupplicantControl::ERROR_PREFIX) || reply.startsWith(QLatin1String("OK")))
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
