// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "corvi.h"

#include "bondeddevice.h"
#include "dhcpclients.h"
#include "logging.h"
#include "networkdevice.h"
#include "paths.h"
#include "wpasupplicantcfg.h"
#include "wpasuppthread.h"

#include <QDir>

/// An adapter that is put in while the daemon runs must not wait for somebody who asks for a rescan, nor may
/// one that is pulled leave its network behind in the record. A rescan would take the network from all other
/// devices for a while, so only what changed is amended, once it has been so for one whole tick: a driver
/// that restarts, or udev that renames the interface, is not yet done when the first look sees it.
void Corvi::CheckAdapters()
{
    if (!linkEvents.Happened() && !differingInterfaces && !arePortsLoose && !isLookOwed)
        return;
    NoteBridgePorts();
    arePortsLoose = bondingEnabled && bondedDevice->AdoptPorts();
    const std::optional<InterfaceIndexes> look = LookForInterfaces();
    isLookOwed = !look;
    if (!look)
        return;
    const InterfaceIndexes &present = *look;
    if (present == takenInterfaces) {
        differingInterfaces.reset();
        return;
    }
    if (differingInterfaces != present) {
        differingInterfaces = present;
        return;
    }
    differingInterfaces.reset();
    TellOfAdapters(NamesOnlyIn(takenInterfaces, present), NamesOnlyIn(present, takenInterfaces));
    // Which interfaces are the bond's is for the bonding to settle anew.
    if (bondedDevice->isBondingActive())
        forceRescan = true;
    else
        AmendInterfaces(present);
}

/// What a discovery would take now. Bonds are made and renamed by the bonding itself: they are no change,
/// once they are taken. One that was made during the discovery, where no interface had its name, is not yet.
/// Nothing where it cannot be told, as without a descriptor left: what is not seen is not gone.
std::optional<Corvi::InterfaceIndexes> Corvi::LookForInterfaces() const
{
    InterfaceIndexes present;
    const QStringList bonds = bondedDevice->isBondingActive() ? BondedDevice::BondNames() : QStringList();
    const QStringList entries = QDir(SYS_NET).entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Unsorted);
    if (entries.isEmpty()) // There is always the loopback.
        return std::nullopt;
    for (const QString &entry : entries) {
        if (bonds.contains(entry) && takenInterfaces.contains(entry)) {
            present.insert(entry, takenInterfaces.value(entry));
        } else if ((!bonds.contains(entry) || entry == bondedDevice->Name()) && IsForDiscovery(entry)) {
            const unsigned int index = InterfaceIndex(entry);
            if (index == 0)
                return std::nullopt;
            present.insert(entry, index);
        }
    }
    return present;
}

/// The names, in ascending order, of the interfaces that are not in `others`; one that was made anew under an
/// old name is another one.
QStringList Corvi::NamesOnlyIn(const InterfaceIndexes &interfaces, const InterfaceIndexes &others)
{
    QStringList names;
    for (auto entry = interfaces.begin(); entry != interfaces.end(); ++entry) {
        if (!others.contains(entry.key()) || others.value(entry.key()) != entry.value())
            names.append(entry.key());
    }
    return names;
}

void Corvi::TellOfAdapters(const QStringList &gone, const QStringList &added)
{
    const QString change =
        QStringLiteral("gone: %1, new: %2").arg(gone.join(QLatin1Char(' ')), added.join(QLatin1Char(' ')));
    LogOnce(adapterReport, change) << "Corvi::CheckAdapters - the interfaces changed," << change;
}

void Corvi::AmendInterfaces(const InterfaceIndexes &present)
{
    const QStringList gone = NamesOnlyIn(takenInterfaces, present);
    const QStringList added = NamesOnlyIn(present, takenInterfaces);
    const QStringList modemsBefore = modemInterfaces;
    for (const QString &interfaceName : gone)
        LetGoOfInterface(interfaceName);
    WpaSupplicantCfg::ForgetUnheldKeys();
    for (const QString &interfaceName : added)
        AddInterface(interfaceName);
    SortInterfaces();
    WarnOfVirtualInterfaces();
    NoteBridgePorts();
    ForgetGoneInterfaces();
    // A modem that was given up stays so until there is another choice.
    if (!modemDevice && (modemInterfaces != modemsBefore || gone.contains(modemInterfaces.value(0))))
        AdoptModem();
}

void Corvi::LetGoOfInterface(const QString &interfaceName)
{
    if (NetworkDevice *const device = devices.take(interfaceName)) {
        LeaveDevice(device);
        DhcpClients::End(interfaceName);
        DeleteDevice(device);
    }
    takenInterfaces.remove(interfaceName);
    for (QStringList *names : {&allInterfaces, &wiredInterfaces, &wirelessInterfaces, &modemInterfaces})
        names->removeAll(interfaceName);
    wirelessFound = !wirelessInterfaces.isEmpty();
}

/// Nothing points to the device any more, and where it carried the traffic its end is published.
void Corvi::LeaveDevice(NetworkDevice *device)
{
    device->RefreshStatus();
    if (device == wiredDevice) {
        // The wired setup has told of a link that is gone; one made anew between two ticks it has not missed.
        if (wiredUp) {
            wiredUp = false;
            emit wiredStateChange(false);
        }
        wiredDevice = nullptr;
    }
    if (!wiredUp && (device == modemDevice || (device == wirelessDevice && !modemDevice))) {
        // The supplicant tells of an association that ends, but not always of an adapter that does.
        if (device == wirelessDevice && supThread->IsAssociated())
            SendAssociationMessage(device, false);
        else
            ShareStatus(device);
    }
    if (device == modemDevice)
        modemDevice = nullptr;
    if (device == wirelessDevice) {
        wirelessDevice = nullptr;
        wirelessConfigured = false;
    }
}
