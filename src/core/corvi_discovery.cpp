// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "corvi.h"

#include "bondeddevice.h"
#include "interfacekind.h"
#include "logging.h"
#include "modem.h"
#include "paths.h"
#include "wireddevice.h"
#include "wirelessdevice.h"
#include "wpasupplicantcfg.h"

#include <QDir>
#include <QFile>

#include <iterator>

#include <net/if.h>

namespace {

/// More than one device has docks and sticks that are put in again and again.
constexpr size_t REMEMBERED_ADAPTERS = 16;

} // namespace

void Corvi::FindAllInterfaces()
{
    Log(Level::TRACE) << "Corvi::FindAllInterfaces()";
    for (QStringList *names : {&allInterfaces, &wiredInterfaces, &wirelessInterfaces, &modemInterfaces})
        names->clear();
    takenInterfaces.clear();
    differingInterfaces.reset();
    wirelessFound = false;
    if (!devices.isEmpty()) {
        Log(Level::TRACE) << "Corvi::FindAllInterfaces  Cleanup network Devices";
        DeleteDevices();
    }

    const QStringList entries = QDir(SYS_NET).entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Unsorted);
    Log(Level::TRACE) << "Corvi::FindAllInterfaces()" << entries;
    UpdateBonding();
    for (const QString &entry : entries)
        AddInterface(entry);

    SortInterfaces();
    WarnOfVirtualInterfaces();
    NoteBridgePorts();
    AdoptModem();
    ForgetGoneInterfaces();
    LogDiscovery();
}

/// What was told of an adapter outlives it, for the next time that it is put in; but there are adapters that
/// come under another name each time, and the daemon runs for years.
void Corvi::ForgetGoneInterfaces()
{
    const auto forget = [this](auto &kept) {
        for (auto entry = kept.begin(); entry != kept.end();)
            entry = devices.contains(entry->first) ? std::next(entry) : kept.erase(entry);
    };
    forget(leftoverPauses);
    forget(strayPauses);
    if (deviceReports.size() > static_cast<size_t>(devices.size()) + REMEMBERED_ADAPTERS)
        forget(deviceReports);
}

void Corvi::SortInterfaces()
{
    for (QStringList *names : {&allInterfaces, &wirelessInterfaces, &wiredInterfaces, &modemInterfaces})
        names->sort();
}

/// Every Ethernet interface counts as a cable, in the order of names: a bridge that containers made can be
/// the first one, and then the real cables are kept down. Whoever looks for the reason must find it.
void Corvi::WarnOfVirtualInterfaces()
{
    QStringList found;
    for (const QString &interfaceName : qAsConst(wiredInterfaces)) {
        const QString kind = VirtualKind(interfaceName);
        if (!kind.isEmpty())
            found.append(QStringLiteral("%1 (%2)").arg(interfaceName, kind));
    }
    if (found.isEmpty()) {
        virtualReport.Over();
        return;
    }
    LogOnce(virtualReport, found.join(QLatin1Char(' ')))
        << "Corvi::FindAllInterfaces() - managed like a cable, but none:" << found
        << "-- of all wired interfaces only the first by name that carries is kept up";
}

/// Looked at when the kernel tells of a change, which it does of this one, too.
void Corvi::NoteBridgePorts()
{
    for (const QString &interfaceName : qAsConst(wiredInterfaces)) {
        if (NetworkDevice *const device = devices.value(interfaceName))
            device->isBridgePort = IsBridgePort(interfaceName);
    }
}

void Corvi::DeleteDevices()
{
    for (NetworkDevice *device : qAsConst(devices))
        DeleteDevice(device);
    devices.clear();
    // Before the next ones ask for the same keys.
    WpaSupplicantCfg::ForgetUnheldKeys();
}

void Corvi::DeleteDevice(NetworkDevice *device)
{
    device->disconnect(this);
    disconnect(device);
    delete device;
}

void Corvi::UpdateBonding()
{
    bondingEnabled = bondedDevice->isBondingEnabled();
    if (!bondingEnabled && bondedDevice->isBondingActive())
        bondedDevice->DisableBonding();
    else if (bondingEnabled && (!bondedDevice->isBondingActive() || BondedDevice::IsBondMissing()))
        bondedDevice->EnableBonding();
    Log(Level::TRACE) << "Corvi::FindAllInterfaces() "
                      << "bonding" << bondingEnabled;
}

void Corvi::AddInterface(const QString &interfaceName)
{
    const int type = ReadLinkType(interfaceName);
    Log(Level::TRACE) << interfaceName << type;
    if (!HasHardware(type))
        return;
    if (IsEnslaved(interfaceName)) {
        Log(Level::TRACE) << "interface is bonded -- skip";
        return;
    }
    Log(Level::TRACE) << "found"
                      << "interface" << interfaceName;
    allInterfaces.append(interfaceName);
    operstateFiles.append(SYS_NET + interfaceName + QStringLiteral("/operstate"));
    takenInterfaces.insert(interfaceName, InterfaceIndex(interfaceName));
    AddDevice(interfaceName);
}

bool Corvi::IsForDiscovery(const QString &interfaceName) const
{
    return HasHardware(ReadLinkType(interfaceName)) && !IsEnslaved(interfaceName);
}

bool Corvi::IsEnslaved(const QString &interfaceName) const
{
    // A daemon that finds a bond which has no adapter's name takes all Ethernet interfaces for its ports.
    return bondedDevice->isBondingActive() && bondedDevice->getSlaves().contains(interfaceName) &&
           !BondedDevice::BondNames().contains(interfaceName);
}

unsigned int Corvi::InterfaceIndex(const QString &interfaceName)
{
    return ::if_nametoindex(QFile::encodeName(interfaceName).constData());
}

void Corvi::AddDevice(const QString &interfaceName)
{
    NetworkDevice *device = nullptr;
    const InterfaceKind kind = KindOfInterface(interfaceName);
    switch (kind) {
    case InterfaceKind::Wireless:
        device = new WirelessDevice(interfaceName, nullptr);
        wirelessFound = true;
        wirelessInterfaces.append(interfaceName);
        break;
    case InterfaceKind::Modem:
        device = new Modem(interfaceName, nullptr);
        modemInterfaces.append(interfaceName);
        break;
    case InterfaceKind::Wired:
        device = new WiredDevice(interfaceName, nullptr);
        wiredInterfaces.append(interfaceName);
        break;
    }
    devices.insert(interfaceName, device);
    device->ShareReports(deviceReports[interfaceName]);
    connect(device, &NetworkDevice::SendEventMessage, this, &Corvi::onSendEventMessage);
    // Wireless and modem devices are brought up by their setup, when their turn comes.
    if (kind == InterfaceKind::Wired)
        device->StartDevice();
}

void Corvi::LogDiscovery() const
{
    Log(Level::TRACE) << "Corvi::FindAllInterfaces() -- interfaces" << allInterfaces;
    Log(Level::TRACE) << "Corvi::FindAllInterfaces() -- wireless" << wirelessInterfaces;
    Log(Level::TRACE) << "Corvi::FindAllInterfaces() -- wired" << wiredInterfaces;
    Log(Level::TRACE) << "Corvi::FindAllInterfaces() -- modems" << modemInterfaces;
    if (Logging::CurrentLevel() < Level::TRACE)
        return;
    QStringList names = devices.keys();
    names.sort();
    Log(Level::TRACE) << "Corvi::FindAllInterfaces() -- networkdevices" << names;
    for (const QString &interfaceName : qAsConst(names))
        Log(Level::TRACE) << "Corvi::FindAllInterfaces() --named"
                          << devices.value(interfaceName)->GetNamedNetworks();
}

void Corvi::onNetDeviceChange(NetworkDevice *nd)
{
    Log(Level::TRACE) << "Corvi::onNetDeviceChange" << nd->name;
}
