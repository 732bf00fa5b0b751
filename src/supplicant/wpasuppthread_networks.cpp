// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "wpasuppthread.h"

#include "journal.h"
#include "logging.h"
#include "utils.h"

#include <QRegularExpression>

#include <algorithm>

namespace {

/// Ticks without an association after which the networks that were left are tried again: a scan of all bands
/// and an authentication have had the time.
constexpr int AWAY_TICKS = 30;
/// While no other network lets us in, only every second request to leave is followed, then every fourth, and
/// at the last every sixteenth, so that what listens to our events is not told of a new end each minute.
constexpr int MOST_DOUBLINGS = 4;

const QString ENABLE_ALL = QStringLiteral("ENABLE_NETWORK all");

/// A line of the answer to LIST_NETWORKS.
struct ListedNetwork
{
    QString id;
    QString ssid; ///< escaped
    QString flags;
};

/// As many as the answer has room for.
QList<ListedNetwork> NetworksIn(const QString &answer)
{
    static const QRegularExpression row(QStringLiteral("^(\\d+)\t([^\t\n]*)\t[^\t\n]*\t(.*)$"),
                                        QRegularExpression::MultilineOption);
    QList<ListedNetwork> networks;
    for (auto match = row.globalMatch(answer); match.hasNext();) {
        const QRegularExpressionMatch found = match.next();
        networks.append({found.captured(1), found.captured(2), found.captured(3)});
    }
    return networks;
}

} // namespace

bool WpaSuppThread::LeaveNetwork()
{
    if (wired || !associated || ++requestsToLeave < (1 << vainDepartures))
        return false;
    const QList<ListedNetwork> networks = NetworksIn(SendCommand(QStringLiteral("LIST_NETWORKS")));
    const auto current = std::find_if(networks.cbegin(), networks.cend(), [](const ListedNetwork &network) {
        return network.flags.contains(QLatin1String("[CURRENT]"));
    });
    if (networks.size() < 2 || current == networks.cend())
        return false;

    const JournalSubject subject(interface, definition);
    LogOnce(reports.departure, current->ssid)
        << "WpaSuppThread -- No address is to be had from the network" << Utils::SsidToString(current->ssid)
        << "on" << interface << "- trying another one";
    const auto left = std::count_if(networks.cbegin(), networks.cend(), [](const ListedNetwork &network) {
        return network.flags.contains(QLatin1String("[DISABLED]"));
    });
    if (left == networks.size() - 1)
        SendCommand(ENABLE_ALL); // The next round.
    SendCommand(QStringLiteral("DISABLE_NETWORK ") + current->id);
    hasLeftNetworks = true;
    return true;
}

/// No other network lets us in: one without an address may have one by now.
void WpaSuppThread::TakeNetworksBack()
{
    // An attempt to get an address holds the ticks up; then they follow each other at once, and are no time
    // in which somebody could have let us in.
    if (!hasLeftNetworks || waitingTicks > 1)
        return;
    awayTicks = associated ? 0 : awayTicks + 1;
    if (awayTicks < AWAY_TICKS || !IsControlOpen())
        return;
    SendCommand(ENABLE_ALL);
    ForgetDepartures(vainDepartures + 1);
}

void WpaSuppThread::ForgetDepartures(int vain)
{
    hasLeftNetworks = false;
    awayTicks = 0;
    requestsToLeave = 0;
    vainDepartures = std::min(vain, MOST_DOUBLINGS);
}
