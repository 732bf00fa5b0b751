// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "statustext.h"

#include "zebnetevent.h"

namespace {

QString Line(const char *label, const QString &value)
{
    return QStringLiteral("%1%2\n")
        .arg(QLatin1String(label), -14)
        .arg(value.isEmpty() ? QStringLiteral("none") : value);
}

QString ConnectionsMeaning(int status)
{
    switch (status) {
    case ZebNetEvent::SUCCEEDED:
        return QStringLiteral("connected");
    case ZebNetEvent::FAILED:
        return QStringLiteral("not connected");
    default:
        return QStringLiteral("connection status");
    }
}

QString AddressMeaning(int status)
{
    switch (status) {
    case ZebNetEvent::SUCCEEDED:
        return QStringLiteral("address present");
    case ZebNetEvent::STARTED:
        return QStringLiteral("DHCP started");
    case ZebNetEvent::FAILED:
        return QStringLiteral("no configuration found");
    default:
        return QStringLiteral("address status");
    }
}

// Sent for wired links too.
QString LinkMeaning(int status)
{
    switch (status) {
    case ZebNetEvent::SUCCEEDED:
        return QStringLiteral("link established");
    case ZebNetEvent::FAILED:
        return QStringLiteral("link lost");
    default:
        return QStringLiteral("link status");
    }
}

} // namespace

QString StatusText::ForPerson(const StatusReading &reading)
{
    switch (reading.outcome) {
    case StatusReading::Outcome::NoDaemon:
        return QStringLiteral("No daemon is running.\n");
    case StatusReading::Outcome::NotYet:
        return QStringLiteral("The daemon has not published a status yet.\n");
    case StatusReading::Outcome::Unreadable:
        return QStringLiteral("The status cannot be read: %1.\n").arg(reading.error);
    case StatusReading::Outcome::Published:
        break;
    }
    const ZebNetStatus &status = reading.status;
    return Line("Connected:", status.IsConnected() ? QStringLiteral("yes") : QStringLiteral("no")) +
           Line("Interface:", status.IsWireless() ? QStringLiteral("wireless") : QStringLiteral("wired")) +
           Line("MAC address:", status.GetMac()) + Line("IP address:", status.GetIp()) +
           Line("Netmask:", status.GetNetmask()) + Line("Broadcast:", status.GetBroadcast());
}

QJsonObject StatusText::ForProgram(const StatusReading &reading)
{
    if (reading.outcome != StatusReading::Outcome::Published)
        return {{QStringLiteral("published"), false}};
    const ZebNetStatus &status = reading.status;
    return {{QStringLiteral("published"), true},
            {QStringLiteral("connected"), status.IsConnected()},
            {QStringLiteral("wireless"), status.IsWireless()},
            {QStringLiteral("macAddress"), status.GetMac()},
            {QStringLiteral("ipAddress"), status.GetIp()},
            {QStringLiteral("netmask"), status.GetNetmask()},
            {QStringLiteral("broadcast"), status.GetBroadcast()}};
}

QString StatusText::EventMeaning(int code, int status)
{
    switch (code) {
    case ZebNetEvent::CONNECTIONS:
        return ConnectionsMeaning(status);
    case ZebNetEvent::ADDRESS:
        return AddressMeaning(status);
    case ZebNetEvent::ASSOCIATION:
        return LinkMeaning(status);
    case ZebNetEvent::CONFIGURATION:
        return QStringLiteral("configuration applied");
    default:
        return QStringLiteral("unknown event");
    }
}
