// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "corvi.h"

#include "journal.h"
#include "logging.h"
#include "networkdevice.h"
#include "paths.h"
#include "sleeptime.h"
#include "supplicantdecisions.h"
#include "wpasuppthread.h"

#include <QFile>
#include <QFileInfo>

#include <chrono>

using namespace SupplicantDecisions;

namespace {

const QString REFRESH_FLAG = QStringLiteral("/tmp/refresh_network");

/// The clocks that tell of a sleep differ by microseconds without one.
constexpr std::chrono::seconds SHORTEST_SLEEP{1};

/// Whether the one works through the other, as a VLAN or somebody's bond through an adapter
/// (Documentation/ABI/testing/sysfs-class-net: the kernel links each to the other).
bool IsBelow(const QString &lower, const QString &upper)
{
    return QFileInfo(SYS_NET + lower + QStringLiteral("/upper_") + upper).isSymLink();
}

} // namespace

bool Corvi::WiredNetworkSetup()
{
    NetworkDevice *const chosen = ChooseWiredDevice();
    ClearUpWired(chosen);
    const bool isConnected = chosen != nullptr;
    Log(Level::VERBOSE) << "Corvi::WiredNetworkSetup:: status" << isConnected;
    if (chosen) {
        if (chosen != wiredDevice) {
            LogOnce(changeReport, chosen->name) << "Corvi::WiredNetworkSetup:: Device Change";
            wiredUp = false;
            wiredRetry.Reset();
        }
        wiredDevice = chosen;
        wirelessDelayTicks = WIRELESS_DELAY_TICKS;
        SuperviseWired(chosen);
        if (chosen->ipAddress.isEmpty())
            chosen->RefreshStatus();
    }
    CheckRefreshFile(isConnected);
    if (isConnected && wiredUp)
        CheckBounce(chosen);
    if (isConnected != wiredUp)
        ReportWiredLink(chosen);
    else if (linkReport.IsOwed(ReportOnce::Time::clock::now()))
        TellOfQuietLink();
    if (chosen)
        FollowAddress(chosen, wiredRetry);
    return isConnected;
}

void Corvi::ReportWiredLink(NetworkDevice *chosen)
{
    const bool isConnected = chosen != nullptr;
    LogOnce(linkReport, QString::number(isConnected)) << "Wired Device Connected" << isConnected;
    wiredUp = isConnected;
    wiredRetry.Reset();
    if (wiredDevice)
        wiredDevice->dhcpFailures = 0;
    // Before the configuration, which takes up to half a minute: a loss meanwhile counts.
    if (chosen) {
        chosen->carrierLosses.Begin();
        asleepAtLink = TimeAsleep();
    }
    emit wiredStateChange(isConnected);
}

/// So that the log of a link that flapped does not end with another state than the one that lasts.
void Corvi::TellOfQuietLink()
{
    LogOnce(linkReport, QString::number(wiredUp))
        << "Corvi::WiredNetworkSetup:: the link has come to rest, connected" << wiredUp
        << (wiredDevice ? wiredDevice->name : QString());
}

/// The first wired device whose link carries. A second one that carries too is stopped, and stays stopped
/// for as long as the first one carries; with none that carries, every device is brought up. A port of
/// somebody's bridge is neither: stopped, it would take the carrier from the bridge, and with the address
/// instead of the bridge it would be deaf. Nor is one that the first one works through: with the carrier of
/// the first one it would be chosen, and stopped, again and again.
NetworkDevice *Corvi::ChooseWiredDevice()
{
    NetworkDevice *chosen = nullptr;
    for (const QString &interfaceName : qAsConst(wiredInterfaces)) {
        NetworkDevice *const device = devices.value(interfaceName);
        if (!device) {
            Log(Level::TRACE) << "1: Could not find device for " << interfaceName;
            continue;
        }
        // One that nobody has made a wired device of is no link of ours to look at.
        if (!device->configurable)
            device->RefreshStatus();
        const bool carries = device->isRunning && !device->isBridgePort;
        if (!chosen && carries) {
            chosen = device;
            Log(Level::VERBOSE) << "Corvi::WiredNetworkSetup:: " << device->name << "active";
        } else if (chosen && !device->isBridgePort && !IsBelow(device->name, chosen->name) &&
                   (device->isRunning || device->stopped)) {
            if (device->isRunning)
                LogOnce(alsoUpReport, device->name) << "Corvi::WiredNetworkSetup:: " << chosen->name
                                                    << " is up but " << device->name << "is also up.";
            device->StopDevice();
        } else if (!device->isUp) {
            Log(Level::TRACE) << device->name << " is not up so start it";
            device->StartDevice();
        }
    }
    return chosen;
}

void Corvi::SuperviseWired(NetworkDevice *d)
{
    const bool linkCameUp = !wiredUp;
    const WiredAction action = ForWiredTick({linkCameUp, d->usesSupplicant, d->inFallback,
                                             IsSupplicantActive(), reconfigureWpa, supThread->IsPausing()});
    if (linkCameUp || action == WiredAction::RECONFIGURE_SUPPLICANT)
        Log(Level::TRACE) << "Corvi::WiredNetworkSetup:: starting wired connected" << d->usesSupplicant;
    if (linkCameUp)
        BeginWiredLink(d);
    FollowFallback(d);
    switch (action) {
    case WiredAction::LEAVE_ALONE:
        break;
    case WiredAction::RELEASE_SUPPLICANT:
        StopUnneededSupplicant();
        break;
    case WiredAction::START_SUPPLICANT:
        Log(Level::TRACE) << "Corvi::WiredNetworkSetup:: Start Wpa supplicant";
        ReconfigureWpa(d);
        break;
    case WiredAction::RECONFIGURE_SUPPLICANT:
        Log(Level::TRACE) << "Corvi::WiredNetworkSetup:: Wired 802.1x Reconfigure";
        ReconfigureWpa(d);
        break;
    case WiredAction::AWAIT_AUTHENTICATION:
        WaitForAuthentication(d);
        break;
    }
}

void Corvi::BeginWiredLink(NetworkDevice *d)
{
    wpaHoldoffTicks = WPA_HOLDOFF_TICKS;
    closedPortWatch.Reset();
    if (!d->usesSupplicant)
        return;
    reconfigureWpa = true;
    d->inFallback = false;
}

void Corvi::WaitForAuthentication(NetworkDevice *d)
{
    const JournalSubject subject(d->name, d->DefinitionName());
    const auto decide = [&] {
        return ForWait({supThread->IsAssociated(), d->ipAnnounced, d->fallbackEnabled, d->authWaitTicks});
    };
    Wait wait = decide();
    if (wait.action != WaitAction::GO_ON) {
        // A success that is already in the socket counts.
        supThread->HearUnread();
        wait = decide();
    }
    d->authWaitTicks = wait.ticks;
    if (supThread->IsAssociated()) {
        fallbackReport.Over();
        askedReport.Over();
        closedPortWatch.Reset();
    }
    switch (wait.action) {
    case WaitAction::GO_ON:
        break;
    case WaitAction::KEEP_ADDRESS:
        LogOnce(fallbackReport, QStringLiteral("given up"))
            << "Corvi::WiredNetworkSetup:: Set in fallback mode";
        d->inFallback = true;
        supThread->Stop(WpaSuppThread::STOP_GIVEN_UP);
        break;
    case WaitAction::TRY_UNSECURED:
        LogOnce(fallbackReport, QStringLiteral("unsecured"))
            << "Corvi::WiredNetworkSetup:: Wired 802.1x Fallback";
        d->inFallback = true;
        supThread->Stop(WpaSuppThread::STOP_FALLBACK);
        // This clears the flag just set: an unsecured attempt now, authentication again afterwards.
        Configure(d);
        break;
    }
}

/// Where the switch asks who we are and the gateway is silent, the port is closed, as when a
/// re-authentication has failed while the server was down: the address that was kept is of no use, and
/// without a supplicant nobody would answer until the cable is put in anew. A switch may also ask for ever at
/// a port that it has opened for guests; there an attempt would only disturb.
void Corvi::FollowFallback(NetworkDevice *d)
{
    if (!d->inFallback) {
        closedPortWatch.End();
        return;
    }
    if (!closedPortWatch.Look(d->name.toLocal8Bit(), d->ReachableGateway(),
                              ClosedPortWatch::Time::clock::now()))
        return;
    LogOnce(askedReport, d->name)
        << "Corvi::WiredNetworkSetup:: asked to authenticate, and the gateway is silent: the fallback ends on"
        << d->name;
    d->inFallback = false;
}

void Corvi::CheckRefreshFile(bool isConnected)
{
    if (!QFile::exists(REFRESH_FLAG))
        return;
    if (wiredDevice)
        wiredDevice->RefreshStatus();
    RemoveFlag(REFRESH_FLAG);
    // The state is reported afresh. A link lost in this very tick is still to be reported as lost.
    if (isConnected)
        wiredUp = false;
}

/// A cable that is moved to another socket is out for less than the time between two looks. What was got from
/// the network before is of no use in the new one, so the state is reported afresh, as by the refresh file.
/// While the machine sleeps nobody looks, and the time of a lease goes by that its client does not count.
void Corvi::CheckBounce(NetworkDevice *d)
{
    const JournalSubject subject(d->name, d->DefinitionName());
    const bool hasSlept = TimeAsleep() - asleepAtLink > SHORTEST_SLEEP;
    if (d->configurable || !(hasSlept || d->carrierLosses.Happened(CarrierLosses::Time::clock::now())))
        return;
    d->RefreshStatus();
    if (!d->isRunning)
        return; // Lost, and not back: for the next tick.
    if (hasSlept)
        LogOnce(sleepReport, d->name)
            << "Corvi::CheckBounce - the machine has slept, configuring anew:" << d->name;
    else
        LogOnce(bounceReport, d->name)
            << "Corvi::CheckBounce - the carrier was away for a moment, configuring anew:" << d->name;
    wiredUp = false;
}

void Corvi::onWiredStateChange(bool state)
{
    Log(Level::TRACE) << "Corvi::onWiredStateChange(bool state)" << state;
    if (!wiredDevice) {
        Log(Level::NOTICE) << "WIRED DEVICE UNDEFINED";
    } else {
        SendAssociationMessage(wiredDevice, state);
        if (state) {
            Log(Level::TRACE) << "Configure Wired Network";
            Configure(wiredDevice);
            Log(Level::TRACE) << "Configure Wired Network Complete";
        } else {
            wiredDevice->FlushIpAddress();
            // Nor is the address left behind in the record.
            wiredDevice->RefreshStatus();
            ShareStatus(wiredDevice);
            // One that stayed all the same is taken away again, but not on the very next tick.
            if (!wiredDevice->ipAddress.isEmpty())
                leftoverPauses[wiredDevice->name].NoteAttempt(RetryPause::Time::clock::now());
        }
        if (wiredDevice->usesSupplicant) {
            UpdateWpaConfFile(QString());
            reconfigureWpa = true;
        }
    }
    Log(Level::TRACE) << "Corvi::onWiredStateChange(bool state)  complete";
}
