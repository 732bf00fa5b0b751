// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "addresswait.h"

#include "systemfacts.h"
#include "verdict.h"

#include <QDeadlineTimer>
#include <QStringList>
#include <QThread>

#include <algorithm>

namespace {

/// Short against what a network needs to come up, long against the cost of a look.
constexpr unsigned long PAUSE_MS = 200;

bool Matches(const LinkFacts &link, const QString &interfaceName)
{
    return interfaceName.isEmpty() || link.name == interfaceName;
}

bool IsOnline(const LinkFacts &link)
{
    return link.hasCarrier &&
           std::any_of(link.addresses.begin(), link.addresses.end(),
                       [](const QString &address) { return !address.startsWith(QLatin1String("169.254.")); });
}

} // namespace

bool AddressWait::IsOver(const QVector<LinkFacts> &links, const QString &interfaceName)
{
    return std::any_of(links.begin(), links.end(), [&interfaceName](const LinkFacts &link) {
        return Matches(link, interfaceName) && IsOnline(link);
    });
}

bool AddressWait::Wait(const QString &interfaceName, std::optional<std::chrono::seconds> limit)
{
    const QDeadlineTimer deadline = limit ? QDeadlineTimer(*limit) : QDeadlineTimer(QDeadlineTimer::Forever);
    while (!IsOver(SystemFacts::ReadLinks(), interfaceName)) {
        if (deadline.hasExpired())
            return false;
        QThread::msleep(PAUSE_MS);
    }
    return true;
}

QString AddressWait::Reasons(const SystemReport &report, const QString &interfaceName)
{
    QStringList reasons;
    for (const InterfaceReport &interface : report.interfaces)
        if (Matches(interface.link, interfaceName))
            reasons.append(interface.link.name + QStringLiteral(": ") + Judge(interface, report).sentence);
    if (reasons.isEmpty())
        return QStringLiteral("there is no such interface");
    return reasons.join(QStringLiteral("; "));
}
