// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "corvi.h"

#include "logging.h"
#include "modem.h"
#include "networkdevice.h"
#include "utils.h"
#include "wpasupplicantcfg.h"
#include "wpasuppthread.h"

#include <QFile>

namespace {

const QString KEEP_WIRELESS_UP_FLAG = QStringLiteral("/tmp/keepwirelessup");
/// Bring-ups without a running link after which a modem is given up until the next discovery.
constexpr int MODEM_ATTEMPTS = 10;

} // namespace

void Corvi::onAssociatedChanged(bool state)
{
    Log(Level::TRACE) << "Corvi::onAssociatedChanged(bool state)" << state;
    if (wirelessDevice) {
        wirelessDevice->RefreshStatus();
        SendAssociationMessage(wirelessDevice, state);
        if (!state)
            return;
        wirelessDevice->ConfigureNetwork(true);
        Utils::Execute(QStringLiteral("killall"), {QStringLiteral("-9"), QStringLiteral("on_wifi_assoc")},
                       false);
        Utils::Execute(QStringLiteral("killall"), {QStringLiteral("-9"), QStringLiteral("qwebauth")}, false);
        Log(Level::TRACE) << "Corvi::onAssociatedChanged"
                          << "start on_wifi_assoc";
        Utils::SpawnExecute(QStringLiteral("on_wifi_assoc"), {});
    } else if (wiredDevice) {
        Log(Level::TRACE) << "Wireless device not defined";
        SendAssociationMessage(wiredDevice, state);
        if (state)
            wiredDevice->ConfigureNetwork(true);
    } else {
        Log(Level::TRACE) << "Wireless and Wired devices not defined";
    }
}

void Corvi::onWifiConnected()
{
    Log(Level::TRACE) << "Corvi::onWifiConnected()";
}

void Corvi::onScanningFailed()
{
    Log(Level::TRACE) << "Corvi::onScanningFailed()";
}

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
    Log(Level::NOTICE) << "Corvi::Loop:: Stopping wireless device";
    wirelessDevice->StopDevice();
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
    Log(Level::TRACE) << "Check for wireless already connected";
    wirelessDevice->RefreshStatus();
    if (!wirelessDevice->isRunning) {
        StartWirelessSupplicant(wirelessDevice);
        return;
    }
    conn_counter = 0;
    Log(Level::NOTICE) << "!wiredConnected, wireless connected";
    if (!wirelessDevice->isUp)
        wirelessDevice->Up();
}

void Corvi::StartWirelessSupplicant(NetworkDevice *d)
{
    Log(Level::TRACE) << "Wireless not Connected ";
    Log(Level::TRACE) << "Wireless Start up wpa supplicant";
    if (!wpaConfUpdated) {
        Log(Level::TRACE) << "Setup wpa config file";
        UpdateWpaConfFile(d->name);
    }
    Log(Level::NOTICE) << "Start Wireless interface";
    Log(Level::TRACE) << "wirelessInterfaces: named networks: " << d->GetNamedNetworks();
    d->StartDevice();
    d->Up();
    Log(Level::TRACE) << "Corvi::Loop:: Start wpa_supplicant, Driver=" << d->driver;
    wpaHoldoffTicks = WPA_HOLDOFF_TICKS;
    reconfigureWpa = true;
    ReconfigureWpa(d);
    wirelessConfigured = true;
}

void Corvi::SuperviseWireless()
{
    Log(Level::TRACE) << "Corvi::WirelessNetworkSetup -- Wireless Device defined";
    if (!wirelessConfigured) {
        wpaHoldoffTicks = WPA_HOLDOFF_TICKS;
        reconfigureWpa = true;
        wirelessConfigured = true;
        ReconfigureWpa(wirelessDevice);
    } else if (!reconfigureWpa && !IsSupplicantActive()) {
        Log(Level::NOTICE) << "Restart Wireless interface";
        wpaHoldoffTicks = WPA_HOLDOFF_TICKS;
        reconfigureWpa = true;
    }
    wirelessDevice->RefreshStatus();
    if (reconfigureWpa) {
        Log(Level::TRACE) << "Corvi::WirelessNetworkSetup wirelessConnected " << wirelessDevice->isRunning
                          << " reconfigureWpa ";
        Log(Level::TRACE) << "Corvi::Loop:: reconfigureWpa -- Update conf File";
        ReconfigureWpa(wirelessDevice);
    }
    RetryDhcp(wirelessDevice, wirelessRetry);
}

int Corvi::ModemNetworkSetup(bool takeDown, bool bringUp)
{
    Log(Level::TRACE) << "Corvi::ModemNetworkSetup";
    if (bringUp)
        BringModemUp();
    else if (takeDown)
        TakeModemDown();
    return static_cast<int>(modemDevice && modemDevice->isRunning);
}

Modem *Corvi::ModemInUse() const
{
    // Discovery adopts nothing but a Modem.
    return static_cast<Modem *>(modemDevice);
}

void Corvi::BringModemUp()
{
    Modem *const modem = ModemInUse();
    if (!modem)
        return;
    if (!modemStarted) {
        modem->StartDevice();
        modem->Connect();
        modemStarted = true;
    }
    const bool wasConnected = modem->modemConnected;
    modem->UpdateConnectionStatus();
    if (modem->modemConnected != wasConnected) {
        // Said and sent on every change, also when the connection was lost.
        Log(Level::NOTICE) << "modem connected";
        modem->ConfigureIFace();
        modem->RefreshStatus();
        SendAssociationMessage(modem, true);
    }
    if (modem->isRunning)
        return;
    ++conn_counter;
    if (conn_counter > MODEM_ATTEMPTS) {
        Log(Level::NOTICE) << "Corvi::ModemNetworkSetup - no link, unused until the next rescan:"
                           << modem->name;
        modem->Down();
        modemDevice = nullptr;
    }
}

void Corvi::TakeModemDown()
{
    Modem *const modem = ModemInUse();
    if (!modem)
        return;
    modem->Disconnect();
    modem->Down();
    modemStarted = false;
    SendAssociationMessage(modem, false);
}

void Corvi::UpdateWpaConfFile(const QString &interfaceName)
{
    QStringList names = allInterfaces;
    names.sort();
    QStringList lines;
    for (const QString &candidate : qAsConst(names)) {
        if (!interfaceName.isEmpty() && interfaceName != candidate)
            continue;
        Log(Level::TRACE) << "UpdateWpaConfFile -- Get NetworkDevice";
        const NetworkDevice *const device = devices.value(candidate);
        if (!device)
            continue;
        Log(Level::TRACE) << "UpdateWpaConfFile -- isActive" << device->isRunning;
        if (Contributes(device))
            lines += device->GetNamedNetworkWpasInformation();
    }
    if (!WpaSupplicantCfg::WriteCfg(lines))
        Log(Level::NOTICE) << "UpdateWpaConfFile -- the supplicant's file cannot be written";
    wpaConfContents = lines.join(QLatin1Char('\n'));
    wpaConfUpdated = true;
}

/// A wired port without a carrier has nobody to authenticate with.
bool Corvi::Contributes(const NetworkDevice *d) const
{
    return d->usesSupplicant && (d->isWireless || d->isRunning);
}
