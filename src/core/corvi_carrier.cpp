// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "corvi.h"

#include "journal.h"
#include "logging.h"
#include "modem.h"
#include "networkdevice.h"

// The device that was configured last has the default route, the name servers and the only DHCP client, as
// each configuration takes them from the others. So when the better carrier goes, the next one that has been
// there all along must be configured anew: a modem with a single name, or a radio that is kept up, which
// nothing else would remind. And a radio that is configured behind a better carrier must give back what it
// took.

void Corvi::Configure(NetworkDevice *d)
{
    d->ConfigureNetwork(true);
    lastConfigured = d->name;
}

void Corvi::ConfigureModem(Modem *modem)
{
    const JournalSubject subject(modem->name);
    modem->ConfigureIFace();
    lastConfigured = modem->name;
    modem->RefreshStatus();
    SendAssociationMessage(modem, true);
}

void Corvi::KeepCarrierConfigured(bool isWiredConnected)
{
    NetworkDevice *const carrier = Carrier(isWiredConnected);
    if (!carrier || lastConfigured.isEmpty() || carrier->name == lastConfigured)
        return;
    LogOnce(carrierReport, carrier->name)
        << "Corvi::KeepCarrierConfigured -" << carrier->name << "takes over from" << lastConfigured;
    if (carrier == modemDevice)
        ConfigureModem(ModemInUse());
    else
        Configure(carrier);
}
