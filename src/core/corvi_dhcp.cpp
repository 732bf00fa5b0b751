// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "corvi.h"

#include "journal.h"
#include "logging.h"
#include "networkdevice.h"
#include "processsignals.h"
#include "securefile.h"
#include "wpasuppthread.h"
#include "zebnetconfig.h"

#include <QFile>

#include <algorithm>

#include <fcntl.h>

namespace {

const QString DHCP_EVENT_FILE = QStringLiteral("/tmp/dhcp_event");
/// Attempts to get an address from a wireless network before another one is tried: 30 s where the DHCP client
/// is told to give up after 10 s, else 70 s. Doubled with each round of all definitions that was in vain, so
/// that who listens to our events is not told of another network each minute.
constexpr int ATTEMPTS_IN_A_NETWORK = 2;
constexpr int MOST_DOUBLINGS = 3;

/// Whoever finds no server may take an address of this link alone (RFC 3927), or another program gives the
/// interface one: it leads nowhere.
bool IsOfLinkAlone(const QString &address)
{
    return address.startsWith(QLatin1String("169.254."));
}

/// No reason to ask for none.
bool IsMakeshift(const NetworkDevice &d)
{
    return d.dhcpFailures > 0 && IsOfLinkAlone(d.ipAddress);
}

} // namespace

void Corvi::RetryDhcp(NetworkDevice *d, RetryPause &pause)
{
    // A device that was never configured missed its event: the supplicant says only once that it connected.
    const bool isStatic = d->currentConfig && d->currentConfig->staticIp;
    const bool hasAddress = !d->ipAddress.isEmpty() && !IsMakeshift(*d);
    if (d->isWireless && d->isRunning && hasAddress && !IsOfLinkAlone(d->ipAddress))
        departures = 0;
    if (!d->isRunning || hasAddress || IsAwaitingAuthentication(d) || d->namedNetworks.isEmpty() ||
        isStatic) {
        pause.Reset();
        d->dhcpFailures = 0;
        retryReport.Over();
        return;
    }
    if (!pause.IsDue(RetryPause::Time::clock::now()))
        return;
    LogOnce(retryReport, d->name) << "Corvi::RetryDhcp - no address, trying again on" << d->name
                                  << "- then after 20 s, 40 s and every 60 s";
    Configure(d);
    pause.NoteAttempt(RetryPause::Time::clock::now());
    if (d->isWireless)
        LeaveVainNetwork(d, pause);
}

/// A radio stays where it is let in, also where no address is to be had.
void Corvi::LeaveVainNetwork(NetworkDevice *d, RetryPause &pause)
{
    const int rounds = departures / std::max(1, static_cast<int>(d->namedNetworks.size()));
    const bool isVain = d->dhcpFailures >= ATTEMPTS_IN_A_NETWORK << std::min(rounds, MOST_DOUBLINGS);
    // An attempt that is cut short for our end says nothing of the network.
    if (!isVain || ProcessSignals::IsEndAsked() || !supThread->LeaveNetwork())
        return;
    ++departures;
    pause.Reset();
    d->dhcpFailures = 0;
}

void Corvi::FollowAddress(NetworkDevice *d, RetryPause &dhcpPause)
{
    const JournalSubject subject(d->name, d->DefinitionName());
    if (d->isRunning) {
        PublishAddress(d);
        d->KeepNames();
    }
    if (d->isRunning && !IsAwaitingAuthentication(d)) {
        d->KeepStaticAddress();
        d->KeepLeasedRoute();
        d->WatchForDuplicate();
        if (d->name == lastConfigured)
            d->KeepDhcpClient();
    }
    RetryDhcp(d, dhcpPause);
}

/// An address comes and goes without our doing: the DHCP client works on after the time it is waited for, a
/// renewal gets another address, a lease runs out, somebody flushes the interface.
void Corvi::PublishAddress(NetworkDevice *d)
{
    if (d->ipAddress == d->publishedAddress) {
        // Another device's record: of a cable that went, or a modem or a radio that gave way. Or what hangs
        // on the address changed beneath it, as the netmask at a renewal.
        if (!publishedName.isEmpty() && (d->name != publishedName || !d->IsPublished()))
            ShareStatus(d);
        return;
    }
    if (!d->ipAddress.isEmpty()) {
        d->UpdateIpInformation();
        return;
    }
    LogOnce(addressReport, d->name) << "Corvi::PublishAddress - the address is gone:" << d->name;
    d->NoteAddressGone();
    ShareStatus(d);
}

void Corvi::CheckDhcpEvent()
{
    if (!QFile::exists(DHCP_EVENT_FILE))
        return;
    const QByteArray text = SecureFile::ReadRegular(DHCP_EVENT_FILE, O_NOFOLLOW).value_or(QByteArray());
    RemoveFlag(DHCP_EVENT_FILE);

    if (wiredDevice && text.contains("eth"))
        wiredDevice->UpdateIpInformation();
    if (wirelessDevice && (text.contains("wlan") || text.contains("mlan")))
        wirelessDevice->UpdateIpInformation();
    if (modemDevice && text.contains("wwan"))
        modemDevice->UpdateIpInformation();
}
