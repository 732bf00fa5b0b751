// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "statustext.h"

#include "zebnetevent.h"

#include <optional>

namespace {

QString Line(const char *label, const QString &value)
{
    return QStringLiteral("%1%2\n")
        .arg(QLatin1String(label), -14)
        .arg(value.isEmpty() ? QStringLiteral("none") : value);
}

struct EventText
{
    int code;
    std::optional<int> status; ///< None: any that is not named above.
    const char *meaning;
};

// An association is sent for wired links too.
constexpr EventText EVENT_TEXTS[] = {
    {ZebNetEvent::CONNECTIONS, ZebNetEvent::SUCCEEDED, "connected"},
    {ZebNetEvent::CONNECTIONS, ZebNetEvent::FAILED, "not connected"},
    {ZebNetEvent::CONNECTIONS, {}, "connection status"},
    {ZebNetEvent::ADDRESS, ZebNetEvent::SUCCEEDED, "address present"},
    {ZebNetEvent::ADDRESS, ZebNetEvent::STARTED, "DHCP started"},
    {ZebNetEvent::ADDRESS, ZebNetEvent::FAILED, "no configuration found"},
    {ZebNetEvent::ADDRESS, {}, "address status"},
    {ZebNetEvent::ASSOCIATION, ZebNetEvent::SUCCEEDED, "link established"},
    {ZebNetEvent::ASSOCIATION, ZebNetEvent::FAILED, "link lost"},
    {ZebNetEvent::ASSOCIATION, {}, "link status"},
    {ZebNetEvent::CONFIGURATION, {}, "configuration applied"},
};

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
    for (const EventText &text : EVENT_TEXTS)
        if (text.code == code && text.status.value_or(status) == status)
            return QLatin1String(text.meaning);
    return QStringLiteral("unknown event");
}
