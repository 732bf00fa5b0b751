// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "corvi.h"

#include "logging.h"
#include "networkdevice.h"
#include "supplicantdecisions.h"
#include "utils.h"
#include "wpasupplicantcfg.h"
#include "wpasuppthread.h"

#include <QFileInfo>
#include <QRegularExpression>

#include <algorithm>
#include <iterator>

using namespace SupplicantDecisions;

namespace {

/// The certificates and keys that the supplicant is told to read.
QStringList FilesNamedIn(const QStringList &lines)
{
    static const QRegularExpression option(
        QStringLiteral("^\\s*(ca_cert|client_cert|private_key)=\"(/.*)\"$"));
    QStringList files;
    for (const QString &line : lines) {
        if (const QRegularExpressionMatch match = option.match(line); match.hasMatch())
            files << match.captured(2);
    }
    files.removeDuplicates();
    return files;
}

} // namespace

void Corvi::ReinitSupThread()
{
    if (supThread) {
        supThread->Stop(WpaSuppThread::STOP_BEFORE_START);
        return;
    }
    supThread = WpaSuppThread::GetInstance();
    connect(supThread, &WpaSuppThread::associatedChanged, this, &Corvi::onAssociatedChanged);
    connect(supThread, &WpaSuppThread::wifiConnected, this, &Corvi::onWifiConnected);
    connect(this, &Corvi::wiredStateChange, this, &Corvi::onWiredStateChange);
    supThread->Stop(WpaSuppThread::STOP_FIRST);
}

void Corvi::ReconfigureWpa(NetworkDevice *d)
{
    Log(Level::TRACE) << "Corvi::ReconfigureWpa" << wpaHoldoffTicks;
    const bool isActive = IsSupplicantActive();
    switch (ForHoldOff({wpaHoldoffTicks, d->usesSupplicant, supThread->IsStopPending(), isActive})) {
    case HoldOffAction::CONFIGURE:
        ConfigureSupplicant(d);
        break;
    case HoldOffAction::END:
        reconfigureWpa = false;
        wpaHoldoffTicks = 0;
        Log(Level::TRACE) << "Corvi::ReconfigureWpa wpa not required";
        if (isActive)
            supThread->Stop(WpaSuppThread::STOP_NOT_REQUIRED);
        break;
    case HoldOffAction::AWAIT_STOP:
        Log(Level::TRACE) << "Corvi::ReconfigureWpa in Holdoff, wst stopping";
        break;
    case HoldOffAction::COUNT_DOWN:
        Log(Level::TRACE) << "Corvi::ReconfigureWpa in Holdoff";
        --wpaHoldoffTicks;
        break;
    case HoldOffAction::STOP_SUPPLICANT:
        supThread->Stop(WpaSuppThread::STOP_FOR_NEXT_START);
        break;
    }
}

void Corvi::ConfigureSupplicant(NetworkDevice *d)
{
    d->authWaitTicks = 0;
    d->inFallback = false;
    UpdateWpaConfFile(d->name);
    if (d->usesSupplicant) {
        Log(Level::TRACE) << "Corvi::ReconfigureWpa"
                          << "Start wst" << d->name << d->driver;
        WarnOfOtherManagers(); // Another supplicant in its place would let ours end.
        ReinitSupThread();
        supThread->NameDefinition(d->OnlyDefinitionName());
        supThread->Start(d->name, d->driver, QString()); // Never with a method: kept as it is.
    }
    Log(Level::TRACE) << "Corvi::ReconfigureWpa Set reconfigureWpa to false";
    reconfigureWpa = false;
}

bool Corvi::IsSupplicantActive() const
{
    return supThread->IsRestarting() || supThread->IsRunning();
}

void Corvi::StopUnneededSupplicant()
{
    if (IsSupplicantActive())
        supThread->Stop(WpaSuppThread::STOP_UNNEEDED);
    wpaHoldoffTicks = WPA_HOLDOFF_TICKS;
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
    if (WpaSupplicantCfg::WriteCfg(lines))
        confFileReport.Over();
    else
        LogOnce(confFileReport) << "UpdateWpaConfFile -- the supplicant's file cannot be written";
    wpaConfUpdated = true;
    TellOfMissingFiles(lines);
}

/// Of a certificate that it cannot read the supplicant says no more than that the authentication failed.
void Corvi::TellOfMissingFiles(const QStringList &lines)
{
    const QStringList files = FilesNamedIn(lines);
    QStringList missing;
    std::copy_if(files.cbegin(), files.cend(), std::back_inserter(missing),
                 [](const QString &file) { return !QFileInfo(file).isFile(); });
    if (!missing.isEmpty())
        LogOnce(missingFileReport, missing.join(QLatin1Char(' ')))
            << "UpdateWpaConfFile -- a certificate or key for the authentication is missing:" << missing;
    else if (!files.isEmpty()) // A text without networks, as between two links, tells nothing of them.
        missingFileReport.Over();
}

/// A wired port without a carrier has nobody to authenticate with.
bool Corvi::Contributes(const NetworkDevice *d) const
{
    return d->usesSupplicant && (d->isWireless || d->isRunning);
}

void Corvi::onAssociatedChanged(bool state)
{
    Log(Level::TRACE) << "Corvi::onAssociatedChanged(bool state)" << state;
    if (wirelessDevice) {
        wirelessDevice->RefreshStatus();
        SendAssociationMessage(wirelessDevice, state);
        if (!state || IsAssociationOver())
            return;
        Configure(wirelessDevice);
        Utils::Execute(QStringLiteral("killall"), {QStringLiteral("-9"), QStringLiteral("on_wifi_assoc")},
                       false);
        Utils::Execute(QStringLiteral("killall"), {QStringLiteral("-9"), QStringLiteral("qwebauth")}, false);
        Log(Level::TRACE) << "Corvi::onAssociatedChanged"
                          << "start on_wifi_assoc";
        Utils::SpawnExecute(QStringLiteral("on_wifi_assoc"), {});
    } else if (wiredDevice) {
        Log(Level::TRACE) << "Wireless device not defined";
        SendAssociationMessage(wiredDevice, state);
        if (state && !IsAssociationOver())
            Configure(wiredDevice);
    } else {
        Log(Level::TRACE) << "Wireless and Wired devices not defined";
    }
}

/// The configuration before this one may have kept us for many seconds, while an access point let us in and
/// threw us out again and again: each of these would take the address away that the last one has.
bool Corvi::IsAssociationOver() const
{
    if (!supThread->IsEndUnread())
        return false;
    Log(Level::TRACE) << "Corvi::onAssociatedChanged"
                      << "over again";
    return true;
}

void Corvi::onWifiConnected()
{
    Log(Level::TRACE) << "Corvi::onWifiConnected()";
}

void Corvi::onScanningFailed()
{
    Log(Level::TRACE) << "Corvi::onScanningFailed()";
}
