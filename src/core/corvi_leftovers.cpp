// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "corvi.h"

#include "journal.h"
#include "logging.h"
#include "networkdevice.h"

/// Only the wired device that carries may have an address: one that another port keeps, from before a cable
/// was moved or while nobody looked, still draws the traffic of its network, and its gateway with it.
void Corvi::ClearUpWired(const NetworkDevice *chosen)
{
    for (const QString &interfaceName : qAsConst(wiredInterfaces)) {
        NetworkDevice *const device = devices.value(interfaceName);
        if (!device || device == chosen)
            continue;
        if (!chosen && device == wiredDevice && wiredUp)
            continue; // Lost in this tick, which is reported and flushed in its place.
        if (!chosen && !wiredDevice && !device->ipAddress.isEmpty()) {
            // Nobody saw this link being lost, as at a rescan or a start of the daemon: it is lost now.
            wiredDevice = device;
            wiredUp = true;
            continue;
        }
        TakeAddressAway(device);
        // Where that failed while the link was lost, its record still has the address.
        if (!chosen && device->name == publishedName && device->ipAddress != device->publishedAddress)
            ShareStatus(device);
    }
}

/// With the address goes all that hangs on it: the routes, and the client that would set it again. Where that
/// fails it is tried again, but not by a program on every tick. Only a failure begins a pause: a cable that
/// is moved to and fro between two ports leaves an address behind each time.
void Corvi::TakeAddressAway(NetworkDevice *d)
{
    const JournalSubject subject(d->name, d->DefinitionName());
    if (d->ipAddress.isEmpty()) {
        leftoverPauses.erase(d->name);
        return;
    }
    const auto now = RetryPause::Time::clock::now();
    const auto pause = leftoverPauses.find(d->name);
    if (pause != leftoverPauses.end() && !pause->second.IsDue(now))
        return;
    LogOnce(leftoverReport, d->name + d->ipAddress)
        << "Corvi::TakeAddressAway - not in use, loses its address:" << d->name << d->ipAddress;
    d->FlushIpAddress();
    d->RefreshStatus();
    if (d->ipAddress.isEmpty())
        leftoverPauses.erase(d->name);
    else
        leftoverPauses[d->name].NoteAttempt(now);
}
