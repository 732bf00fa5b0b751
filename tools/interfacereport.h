// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include "servicestate.h"
#include "statusreader.h"

#include <QDateTime>
#include <QString>
#include <QStringList>
#include <QVector>

#include <optional>

/// What the kernel says of one link.
struct LinkFacts
{
    QString name;
    QString macAddress;
    bool isUp = false;
    bool hasCarrier = false;
    bool isWireless = false;
    QString radioBlock;    ///< what keeps a radio from sending: "by software" or "by a switch"; mostly empty
    QString virtualKind;   ///< "bridge" ...; empty for an adapter
    int speedMbits = 0;    ///< 0 where the link does not say
    QString bond;          ///< whose port it is; empty for most
    QStringList addresses; ///< IPv4 with prefix length
    QStringList ipv6Addresses; ///< the same, without those that every link has for itself
    QString gateway;           ///< of its best default route
};

/// What the DHCP client has written down.
struct LeaseFacts
{
    QString address;
    QString server;
    QDateTime expires; ///< UTC; invalid for a lease without an end
};

/// What the supplicant of an interface answers.
struct SupplicantFacts
{
    QString problem; ///< why it did not; the rest is empty then
    QString state;   ///< "COMPLETED", "SCANNING" ...
    QString ssid;
    QString bssid;
    QString eapState;  ///< "SUCCESS", "IDLE" ...
    QString eapMethod; ///< "PEAP" ...
    std::optional<int> signalDbm;
};

/// All that is known of one interface.
struct InterfaceReport
{
    LinkFacts link;
    std::optional<InterfaceState> daemon; ///< what the daemon says, where it runs and manages the interface
    std::optional<LeaseFacts> lease;      ///< that the address is from
    std::optional<SupplicantFacts> supplicant;
    bool isCarrier = false;
};

/// All that is known at one moment.
struct SystemReport
{
    ServiceStateReading daemon;
    StatusReading segment; ///< only where the daemon told no state
    qint64 nowMs = 0;      ///< of the clock that the daemon's times are of
    QStringList resolver;  ///< name servers
    QVector<InterfaceReport> interfaces;

    bool IsDaemonKnown() const { return daemon.outcome == ServiceStateReading::Outcome::Read; }
};
