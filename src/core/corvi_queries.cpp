// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "corvi.h"

#include "modem.h"
#include "networkdevice.h"
#include "wpasuppthread.h"

/// The device that the traffic is to go through: wired before modem before wireless. Null where it is not
/// ready to be configured.
NetworkDevice *Corvi::Carrier(bool isWiredConnected) const
{
    if (isWiredConnected)
        return IsAwaitingAuthentication(wiredDevice) ? nullptr : wiredDevice;
    const Modem *const modem = ModemInUse();
    if (modem && modem->modemConnected && modem->isRunning)
        return modemDevice;
    const bool hasWireless =
        wirelessDevice && wirelessDevice->isRunning && !IsAwaitingAuthentication(wirelessDevice);
    return hasWireless ? wirelessDevice : nullptr;
}

Modem *Corvi::ModemInUse() const
{
    // Discovery adopts nothing but a Modem.
    return qobject_cast<Modem *>(modemDevice);
}

bool Corvi::IsAwaitingAuthentication(const NetworkDevice *d) const
{
    return d->usesSupplicant && !d->inFallback && !supThread->IsAssociated();
}
