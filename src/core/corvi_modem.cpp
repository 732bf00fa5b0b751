// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "corvi.h"

#include "logging.h"
#include "modem.h"

#include <QFile>

#include <algorithm>
#include <chrono>

namespace {

/// Ticks of bringing up without a running link after which a modem is given up: fixed, as is that only a
/// discovery takes it up again. SeekDroppedModem() asks for one.
constexpr int MODEM_ATTEMPTS = 10;
/// How long a modem that was given up is left alone, as it is meant to be.
constexpr std::chrono::seconds MODEM_REST{60};
/// The same where a radio looks for a network meanwhile, which a discovery begins anew.
constexpr std::chrono::seconds MODEM_REST_BESIDE_A_RADIO{300};

/// Many a network gives no other one. In a line of the kernel's list the scope is the fourth word, the
/// interface the last.
bool HasGlobalIp6Address(const QString &interfaceName)
{
    QFile list(QStringLiteral("/proc/net/if_inet6"));
    if (!list.open(QIODevice::ReadOnly))
        return false;
    const QList<QByteArray> lines = list.readAll().split('\n');
    return std::any_of(lines.cbegin(), lines.cend(), [&interfaceName](const QByteArray &line) {
        const QList<QByteArray> words = line.simplified().split(' ');
        return words.size() == 6 && words.at(3) == "00" && words.last() == interfaceName.toLocal8Bit();
    });
}

QString NameWithFault(const Modem &modem)
{
    return modem.connectionFault.isEmpty() ? modem.name
                                           : modem.name + QStringLiteral(" -- ") + modem.connectionFault;
}

} // namespace

int Corvi::ModemNetworkSetup(bool takeDown, bool bringUp)
{
    Log(Level::TRACE) << "Corvi::ModemNetworkSetup";
    if (bringUp)
        BringModemUp();
    else if (takeDown)
        TakeModemDown();
    return static_cast<int>(modemDevice && modemDevice->isRunning);
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
        isModemDown = false;
        modemConnectPause.Reset();
    }
    const bool wasConnected = modem->modemConnected;
    modem->UpdateConnectionStatus();
    if (modem->modemConnected != wasConnected) {
        // Said and sent on every change, also when the connection was lost.
        LogOnce(modemReport, QString::number(modem->modemConnected)) << "modem connected";
        ConfigureModem(modem);
    }
    if (!modem->isUp)
        modem->StartDevice();
    if (modem->isRunning) {
        PublishAddress(modem);
        modem->KeepLeasedRoute();
    } else {
        PublishLoss(modem);
        if (++conn_counter > MODEM_ATTEMPTS) {
            GiveModemUp(modem);
            return;
        }
    }
    KeepModemConnected(modem);
    KeepModemConfigured(modem);
}

/// No supplicant tells that a modem's link has ended, and nobody publishes one without a link.
void Corvi::PublishLoss(Modem *modem)
{
    if (modem->publishedCarrier)
        ShareStatus(modem);
}

void Corvi::GiveModemUp(Modem *modem)
{
    LogOnce(modemReport, QStringLiteral("no link"))
        << "Corvi::ModemNetworkSetup - no link, unused until the next rescan:" << NameWithFault(*modem);
    modem->Down();
    modemDevice = nullptr;
    modemDropped = RetryPause::Time::clock::now();
}

/// The modem's manager may still be looking for the modem when we connect first, or be started anew later,
/// and the network may end the connection: nobody else makes it again.
void Corvi::KeepModemConnected(Modem *modem)
{
    const auto now = RetryPause::Time::clock::now();
    if (modem->modemConnected) {
        modemConnectPause.NoteSuccess(now);
        modemConnectReport.Over();
        return;
    }
    if (!modemConnectPause.IsDue(now))
        return;
    LogOnce(modemConnectReport, modem->connectionFault)
        << "Corvi::ModemNetworkSetup - not connected, connecting again:" << NameWithFault(*modem);
    modem->Connect();
    modemConnectPause.NoteAttempt(RetryPause::Time::clock::now());
}

/// It is configured when the connection is made or lost, and by nobody else: where that gave it no address,
/// as the network's server was slow, or the address is gone, it would stay connected and of no use.
void Corvi::KeepModemConfigured(Modem *modem)
{
    const auto now = RetryPause::Time::clock::now();
    if (!modem->modemConnected || !modem->isRunning) {
        modemAddressPause.Reset();
        return;
    }
    if (!modem->ipAddress.isEmpty() || HasGlobalIp6Address(modem->name)) {
        modemAddressPause.NoteSuccess(now);
        modemAddressReport.Over();
        return;
    }
    if (!modemAddressPause.IsDue(now))
        return;
    LogOnce(modemAddressReport, modem->name)
        << "Corvi::ModemNetworkSetup - connected without an address, configuring again:" << modem->name;
    modem->ConfigureIFace();
    modem->RefreshStatus();
    modemAddressPause.NoteAttempt(RetryPause::Time::clock::now());
}

/// Only a discovery takes up a modem that was given up, and where no adapter comes or goes nobody else asks
/// for one. Where there is a radio, it has its turn first: the pause begins once it is in use and has no
/// link.
void Corvi::SeekDroppedModem()
{
    if (!modemDropped)
        return;
    const auto now = RetryPause::Time::clock::now();
    const bool hasRadio = !wirelessInterfaces.isEmpty();
    if (hasRadio && (!wirelessDevice || wirelessDevice->isRunning))
        modemDropped = now;
    if (now - *modemDropped >= (hasRadio ? MODEM_REST_BESIDE_A_RADIO : MODEM_REST))
        forceRescan = true;
}

void Corvi::TakeModemDown()
{
    Modem *const modem = ModemInUse();
    if (!modem)
        return;
    modem->RefreshStatus();
    // Once for each time that it was up; again where it comes up behind our back, but not on every tick.
    const auto now = RetryPause::Time::clock::now();
    if (isModemDown && (!modem->isRunning || !modemDownPause.IsDue(now)))
        return;
    modem->Disconnect();
    modem->Down();
    modemStarted = false;
    isModemDown = true;
    modemDownPause.NoteAttempt(now);
    modem->RefreshStatus();
    TakeAddressAway(modem);
    // Whoever reads on this event finds the modem's record; the next tick publishes the carrier's again.
    SendAssociationMessage(modem, false);
}

/// A modem that a discovery adopts has all its attempts before it.
void Corvi::AdoptModem()
{
    modemStarted = false;
    isModemDown = false;
    conn_counter = 0;
    modemDropped.reset();
    modemDownPause.Reset();
    // The first by name, none where there is no modem.
    modemDevice = devices.value(modemInterfaces.value(0));
}
