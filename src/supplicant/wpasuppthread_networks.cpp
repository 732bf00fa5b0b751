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
/// and an authentication have had the time. One that lasts as long starts the count anew.
constexpr int AWAY_TICKS = 30;

const QString DISABLE = QStringLiteral("DISABLE_NETWORK ");

bool IsOk(const QString &reply)
{
    return reply.startsWith(QLatin1String("OK"));
}

} // namespace

/// A line of the answer to LIST_NETWORKS.
struct WpaSuppThread::ListedNetwork
{
    QString id;
    QString ssid; ///< escaped
    QString flags;
};

/// As many as the answer has room for.
QList<WpaSuppThread::ListedNetwork> WpaSuppThread::NetworksIn(const QString &answer)
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

bool WpaSuppThread::LeaveNetwork()
{
    if (wired || !associated)
        return false;
    const QList<ListedNetwork> networks = NetworksIn(SendCommand(QStringLiteral("LIST_NETWORKS")));
    const auto current = std::find_if(networks.cbegin(), networks.cend(), [](const ListedNetwork &network) {
        return network.flags.contains(QLatin1String("[CURRENT]"));
    });
    // What has been said unheard meanwhile may be that another network has let us in.
    if (current == networks.cend() || missed != Missed::NOTHING)
        return false;
    const auto isOther = [&current](const ListedNetwork &network) {
        return network.ssid != current->ssid;
    };
    const auto isNoChoice = [&isOther](const ListedNetwork &network) {
        return !isOther(network) || network.flags.contains(QLatin1String("[DISABLED]"));
    };
    if (std::none_of(networks.cbegin(), networks.cend(), isOther))
        return false;
    if (std::all_of(networks.cbegin(), networks.cend(), isNoChoice))
        EnableAllNetworks(); // The next round.
    return Leave(networks, *current);
}

/// Another definition may be of the same network; that in use comes last, as its end sets off the choice.
bool WpaSuppThread::Leave(const QList<ListedNetwork> &networks, const ListedNetwork &current)
{
    const JournalSubject subject(interface, definition);
    hasLeftNetworks = true;
    awayTicks = 0;
    for (const ListedNetwork &network : networks) {
        if (network.ssid == current.ssid && network.id != current.id)
            SendCommand(DISABLE + network.id);
    }
    if (!IsOk(SendCommand(DISABLE + current.id)))
        return false;
    LogOnce(reports.departure, current.ssid)
        << "WpaSuppThread -- No address is to be had from the network" << Utils::SsidToString(current.ssid)
        << "on" << interface << "- trying another one";
    return true;
}

bool WpaSuppThread::EnableAllNetworks()
{
    return IsOk(SendCommand(QStringLiteral("ENABLE_NETWORK all")));
}

/// No other network lets us in, or none for long: one without an address may have one by now.
void WpaSuppThread::TakeNetworksBack()
{
    // An attempt to get an address holds the ticks up; then they follow each other at once, and are no time
    // in which somebody could have let us in. One that is stopped answers nobody, for 10 s each time.
    if (!hasLeftNetworks || waitingTicks > 1 || wasStopped)
        return;
    if (associated) {
        if (peaceTicks >= AWAY_TICKS)
            awayTicks = 0;
        return;
    }
    if (++awayTicks < AWAY_TICKS || !IsControlOpen())
        return;
    awayTicks = 0;
    hasLeftNetworks = !EnableAllNetworks();
}
