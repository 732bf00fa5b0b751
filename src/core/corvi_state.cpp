// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "corvi.h"

#include "logging.h"
#include "modem.h"
#include "networkdevice.h"
#include "program.h"
#include "securefile.h"
#include "supplicantdecisions.h"
#include "wpasuppthread.h"
#include "zebnetconfig.h"

#include <cerrno>
#include <chrono>
#include <cstdlib>

namespace {

using Clock = std::chrono::steady_clock;

/// Ticks are counted, not timed: as long as the count is less than this off, the time told stays.
constexpr qint64 TOLERANCE_MS = 3000;

qint64 Milliseconds(Clock::time_point time)
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count();
}

/// The time that lies so many ticks after now, or before. The file is not to be written anew for a tick that
/// came late.
qint64 TimeOfTick(int ticks, const std::optional<qint64> &earlier)
{
    const qint64 time = Milliseconds(Clock::now() + std::chrono::seconds(ticks));
    return earlier && std::abs(*earlier - time) < TOLERANCE_MS ? *earlier : time;
}

QString KindOf(const NetworkDevice *d)
{
    if (qobject_cast<const Modem *>(d))
        return QStringLiteral("modem");
    return d->isWireless ? QStringLiteral("wireless") : QStringLiteral("wired");
}

} // namespace

/// Writes the file where it would differ, or somebody removed it. Where its folder is missing, nobody has
/// asked for it.
void Corvi::TellState()
{
    const ServiceState state = CurrentState();
    const auto now = Clock::now();
    if ((toldState == state && ServiceState::Freshen()) || !statePause.IsDue(now))
        return;
    if (SecureFile::Replace(ServiceState::PATH, state.ToJson(), 0644) && ServiceState::Freshen()) {
        toldState = state;
        statePause.Reset();
        stateReport.Over();
        return;
    }
    const int reason = errno;
    // What stands there is of another time, or of another daemon: nothing is better.
    static_cast<void>(SecureFile::Remove(ServiceState::PATH));
    if (reason != ENOENT)
        LogOnce(stateReport) << "Corvi::TellState - the state for other programs cannot be written:"
                             << ServiceState::PATH << qt_error_string(reason);
    statePause.NoteAttempt(now);
}

ServiceState Corvi::CurrentState() const
{
    static const InterfaceState NONE;
    ServiceState state;
    const NetworkDevice *const carrier = Carrier(wiredUp && wiredDevice);
    if (carrier)
        state.carrier = carrier->name;
    state.toolFaults = Program::Faults();
    state.interfaces.reserve(allInterfaces.size());
    for (const QString &interfaceName : allInterfaces) {
        const NetworkDevice *const device = devices.value(interfaceName);
        if (!device)
            continue;
        const auto index = state.interfaces.size();
        const bool wasTold = toldState && index < toldState->interfaces.size() &&
                             toldState->interfaces.at(index).name == interfaceName;
        state.interfaces.append(StateOf(device, wasTold ? toldState->interfaces.at(index) : NONE));
    }
    return state;
}

InterfaceState Corvi::StateOf(const NetworkDevice *d, const InterfaceState &earlier) const
{
    InterfaceState state;
    state.name = d->name;
    state.kind = KindOf(d);
    const auto *const modem = qobject_cast<const Modem *>(d);
    // A modem is its tool's, whatever definitions there are for cables.
    if (!modem) {
        state.definitionCount = static_cast<int>(d->networkNames.size());
        state.definition = d->currentConfig ? d->currentConfig->GetName() : d->networkNames.value(0);
    }
    state.isStatic = d->currentConfig && d->currentConfig->staticIp;
    state.isInUse = d == wiredDevice || d == wirelessDevice || d == modemDevice;
    state.isHeldDown = d->stopped;
    state.isConnected = modem && modem->modemConnected;
    // While a cable carries nobody asks it, and what it said may be over.
    state.connectionFault = modem && !wiredUp ? modem->connectionFault : QString();
    state.usesSupplicant = d->usesSupplicant;
    state.isInFallback = d->inFallback;
    if (d->usesSupplicant && state.isInUse)
        AddAuthentication(d, state, earlier);
    state.gateway = d->ExpectedGateway();
    if (d->isRunning && !d->ipAddress.isEmpty())
        state.addressHolder = d->AddressHolder();
    if (state.isInUse)
        AddDhcp(d, state);
    return state;
}

void Corvi::AddAuthentication(const NetworkDevice *d, InterfaceState &state,
                              const InterfaceState &earlier) const
{
    if (d->isRunning && IsAwaitingAuthentication(d)) {
        // Only the wired setup counts, and only once there is a supplicant to wait for.
        if (d->authWaitTicks > 0)
            state.authenticationSince = TimeOfTick(1 - d->authWaitTicks, earlier.authenticationSince);
        if (!d->isWireless)
            state.fallbackSeconds = SupplicantDecisions::WaitLimit(d->ipAnnounced, d->fallbackEnabled);
    }
    if (supThread->RequestedInterface() != d->name)
        return;
    state.lastFailure = supThread->LastFailure().reason;
    if (!state.lastFailure.isEmpty())
        state.failureSince = supThread->LastFailure().since.toSecsSinceEpoch();
    if (supThread->IsPausing())
        state.nextSupplicantStart = TimeOfTick(supThread->PauseSeconds(), earlier.nextSupplicantStart);
}

void Corvi::AddDhcp(const NetworkDevice *d, InterfaceState &state) const
{
    state.dhcpFailures = d->dhcpFailures;
    if (d->dhcpFailures > 0) {
        state.dhcpRefuser = d->dhcpRefuser;
        state.dhcpOfferer = d->dhcpOfferer;
    }
    if (d->dhcpSince)
        state.dhcpSince = Milliseconds(*d->dhcpSince);
    if (d->dhcpFailures == 0 || d->dhcpSince)
        return;
    const RetryPause &pause = d == wirelessDevice ? wirelessRetry : wiredRetry;
    if (const auto due = pause.Due())
        state.nextDhcpStart = Milliseconds(*due);
}
