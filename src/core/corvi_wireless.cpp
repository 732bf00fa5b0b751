// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "corvi.h"

#include "interfacekind.h"
#include "logging.h"
#include "networkdevice.h"
#include "wpasuppthread.h"

#include <QFile>

namespace {

const QString KEEP_WIRELESS_UP_FLAG = QStringLiteral("/tmp/keepwirelessup");

} // namespace

int Corvi::WirelessNetworkSetup(bool wiredFirst)
{
    if (wiredFirst)
        TakeWirelessDown();
    else if (!wirelessDevice)
        StartWireless();
    else
        SuperviseWireless();
    return static_cast<int>(wirelessConfigured);
}

void Corvi::TakeWirelessDown()
{
    if (QFile::exists(KEEP_WIRELESS_UP_FLAG) || !wirelessDevice)
        return;
    LogOnce(wirelessReport, QStringLiteral("stopping")) << "Corvi::Loop:: Stopping wireless device";
    wirelessDevice->StopDevice();
    TakeAddressAway(wirelessDevice);
    wirelessConfigured = false;
    Log(Level::TRACE) << "Set wireless device to 0";
    wirelessDevice = nullptr;
}

void Corvi::StartWireless()
{
    Log(Level::TRACE) << "Corvi::WirelessNetworkSetup -- Wireless Device not defined";
    for (const QString &interfaceName : qAsConst(wirelessInterfaces)) {
        wirelessDevice = devices.value(interfaceName);
        if (wirelessDevice)
            break;
        Log(Level::TRACE) << "2: Could not find device for " << interfaceName;
    }
    if (!wirelessDevice)
        return;

    wirelessRetry.Reset();
    departures = 0;
    Log(Level::TRACE) << "Check for wireless already connected";
    wirelessDevice->RefreshStatus();
    if (!wirelessDevice->isRunning) {
        StartWirelessSupplicant(wirelessDevice);
        return;
    }
    conn_counter = 0;
    LogOnce(wirelessReport, QStringLiteral("connected")) << "!wiredConnected, wireless connected";
    if (!wirelessDevice->isUp)
        wirelessDevice->Up();
    // Whoever brought it up, from here on it is ours: followed, and taken down when a cable comes.
    wirelessDevice->linkUp = true;
    wirelessDevice->StartDevice();
    wirelessConfigured = IsSupplicantActive();
    // A supplicant of before a rescan is stopped first, and gets the time to end.
    wpaHoldoffTicks = WPA_HOLDOFF_TICKS;
}

/// While a cable carries: picks a wireless device that has an address, though nobody has started it since the
/// last rescan or the daemon's start. Its turn comes later, so it has to be taken down. One without an
/// address draws no traffic, and is left to whoever brought it up.
void Corvi::PickStrayWireless()
{
    if (QFile::exists(KEEP_WIRELESS_UP_FLAG))
        return;
    const auto now = RetryPause::Time::clock::now();
    for (const QString &interfaceName : qAsConst(wirelessInterfaces)) {
        NetworkDevice *const device = devices.value(interfaceName);
        if (!device)
            continue;
        device->RefreshStatus();
        if (device->ipAddress.isEmpty()) {
            strayPauses.erase(interfaceName);
            continue;
        }
        // Not by a program on every tick where it does not go down.
        const auto pause = strayPauses.find(interfaceName);
        if (pause != strayPauses.end() && !pause->second.IsDue(now))
            continue;
        strayPauses[interfaceName].NoteAttempt(now);
        wirelessDevice = device;
        wirelessDevice->linkUp = true;
        return;
    }
}

void Corvi::StartWirelessSupplicant(NetworkDevice *d)
{
    Log(Level::TRACE) << "Wireless not Connected ";
    Log(Level::TRACE) << "Wireless Start up wpa supplicant";
    if (!wpaConfUpdated) {
        Log(Level::TRACE) << "Setup wpa config file";
        UpdateWpaConfFile(d->name);
    }
    LogOnce(wirelessReport, QStringLiteral("starting")) << "Start Wireless interface";
    Log(Level::TRACE) << "wirelessInterfaces: named networks: " << d->GetNamedNetworks();
    d->StartDevice();
    d->Up();
    Log(Level::TRACE) << "Corvi::Loop:: Start wpa_supplicant, Driver=" << d->driver;
    wpaHoldoffTicks = WPA_HOLDOFF_TICKS;
    reconfigureWpa = true;
    ReconfigureWpa(d);
    wirelessConfigured = true;
}

/// At a radio that is switched off it may end at once: nobody tries in vain, so that no pause is left to wait
/// for when it is switched on.
bool Corvi::MayStartAnotherSupplicant() const
{
    return !IsSupplicantActive() && !supThread->IsPausing() && RadioBlock(wirelessDevice->name).isEmpty();
}

void Corvi::SuperviseWireless()
{
    Log(Level::TRACE) << "Corvi::WirelessNetworkSetup -- Wireless Device defined";
    if (!wirelessConfigured) {
        wpaHoldoffTicks = WPA_HOLDOFF_TICKS;
        reconfigureWpa = true;
        wirelessConfigured = true;
        ReconfigureWpa(wirelessDevice);
    } else if (!reconfigureWpa && MayStartAnotherSupplicant()) {
        LogOnce(restartReport) << "Restart Wireless interface";
        wpaHoldoffTicks = WPA_HOLDOFF_TICKS;
        reconfigureWpa = true;
    }
    wirelessDevice->RefreshStatus();
    if (!wirelessDevice->isUp)
        wirelessDevice->StartDevice();
    if (reconfigureWpa) {
        Log(Level::TRACE) << "Corvi::WirelessNetworkSetup wirelessConnected " << wirelessDevice->isRunning
                          << " reconfigureWpa ";
        Log(Level::TRACE) << "Corvi::Loop:: reconfigureWpa -- Update conf File";
        ReconfigureWpa(wirelessDevice);
    }
    FollowAddress(wirelessDevice, wirelessRetry);
}
