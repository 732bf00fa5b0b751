// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "wpasuppthread.h"

#include "logging.h"
#include "utils.h"
#include "wpasupplicantcontrol.h"

#include <QDebug>

namespace {

/// Failures to open the control interface after which the control object is made anew.
constexpr int OPEN_FAILURE_LIMIT = 6;
/// Ticks without an association after which a supplicant that cannot be reached is stopped; a tick without a
/// control connection counts twice, so that takes about 30 s.
constexpr int UNASSOCIATED_LIMIT = 61;

const QString BAD_PASSWORD = QStringLiteral("BadPassword");

const char *YesNo(bool value)
{
    return value ? "yes" : "no";
}

} // namespace

void WpaSuppThread::MessageReceived(const QString &message)
{
    if (message.startsWith(QLatin1String("<3>CTRL-EVENT-SSID-TEMP-DISABLED")))
        OnSsidTemporarilyDisabled(message);
    else if (message.startsWith(QLatin1String("<3>CTRL-EVENT-CONNECTED")))
        OnConnected();
    else if (message.startsWith(QLatin1String("<3>CTRL-EVENT-DISCONNECTED")))
        OnDisconnected();
    else if (message.startsWith(QLatin1String("<3>CTRL-EVENT-EAP-FAILURE")))
        OnEapFailure();
    else if (message.startsWith(QLatin1String("<3>CTRL-EVENT-TERMINATING")))
        OnTerminating();
    else if (message.startsWith(QLatin1String("<3>CTRL-EVENT-SIGNAL-CHANGE")))
        checkStatusRequested = true;
    else
        Log(Level::TRACE) << "WpaSuppThread::MessageReceived --" << message;
}

void WpaSuppThread::OnSsidTemporarilyDisabled(const QString &message)
{
    ssid = ExtractSsid(message);
    if (wired) {
        Log(Level::NOTICE) << "FILED TO CONNECT TO WIRED SERVER" << ssid;
    } else {
        badPassword = true;
        Log(Level::NOTICE) << "INVALID PASSWORD FOR NETWORK" << ssid;
    }
}

void WpaSuppThread::OnConnected()
{
    badPassword = false;
    associated = true;
    statusText = QStringLiteral("Associated");
    Log(Level::NOTICE) << "WpaSuppThread::MessageReceived -- connected";
    emit associatedChanged(true);
}

void WpaSuppThread::OnDisconnected()
{
    associated = false;
    badPassword = false;
    statusText = QStringLiteral("Disconnected");
    Log(Level::NOTICE) << "WpaSuppThread::MessageReceived -- disconnected";
    emit associatedChanged(false);
}

void WpaSuppThread::OnEapFailure()
{
    associated = false;
    Log(Level::NOTICE) << "WpaSuppThread::MessageReceived --EAP Authentication Error" << interface;
    Log(Level::NOTICE) << "INVALID PASSWORD FOR NETWORK" << interface;
    if (!wired)
        badPassword = true;
}

void WpaSuppThread::OnTerminating()
{
    Log(Level::NOTICE) << "WpaSuppThread::MessageReceived -- Terminating";
    associated = false;
    stopRunning = true;
    terminateAcknowledged = true;
    badPassword = false;
}

QString WpaSuppThread::ExtractSsid(const QString &message)
{
    QString escaped = QStringLiteral("network");
    const QStringList quoted = message.split(QLatin1Char('"'));
    if (quoted.size() > 2) {
        escaped = quoted.at(1);
    } else {
        const QStringList tokens = message.split(QLatin1Char(' '));
        for (const QString &token : tokens) {
            if (token.startsWith(QLatin1String("ssid=")))
                escaped = token.mid(5);
        }
    }
    return Utils::SsidToString(escaped);
}

void WpaSuppThread::CheckStatus()
{
    Log(Level::DEBUG) << "WpaSuppThread::CheckStatus start" << statusText << TrueFalse(associated);
    const QStringList lines = SendCommand(QStringLiteral("STATUS")).split(QLatin1Char('\n'));
    for (const QString &line : lines) {
        Log(Level::DEBUG) << "WpaSuppThread::CheckStatus" << line;
        if (line.startsWith(QLatin1String("ssid"))) {
            ssid = SplitLine(line);
        } else if (line.startsWith(QLatin1String("wpa_state"))) {
            statusText = SplitLine(line);
            associated = statusText == QLatin1String("COMPLETED");
            Log(Level::TRACE)
                << "WpaSuppThread::CheckStatus"
                << QStringLiteral("%1,%2,%3").arg(line, statusText, QString::number(associated));
        }
    }
    Log(Level::DEBUG) << "WpaSuppThread::CheckStatus done" << TrueFalse(associated);
}

void WpaSuppThread::CheckStatusIfRequested()
{
    if (!checkStatusRequested)
        return;
    checkStatusRequested = false;
    // The status makes us associated without a signal, so the event that tells of it must not be lost.
    control->ReadWaiting();
    CheckStatus();
}

QString WpaSuppThread::SplitLine(const QString &line)
{
    const QStringList parts = line.split(QLatin1Char('='));
    return parts.size() < 2 ? QString() : parts.at(1);
}

void WpaSuppThread::TickRunning()
{
    NoticeDeadSupplicant();
    const bool wasOpen = IsControlOpen();
    if (wasOpen)
        CheckStatusIfRequested();
    const bool isOpen = wasOpen || ReopenControl();
    if (isOpen || !GivesUpWithoutControl())
        CountUnassociatedTicks();
    if (isOpen)
        openFailures = 0;
    ReportBadPassword();
}

/// A supplicant that was killed says nothing, and nothing is sent to one that has nothing to do.
void WpaSuppThread::NoticeDeadSupplicant()
{
    if (!IsControlOpen())
        return;
    control->CheckPeer();
    if (!IsControlOpen())
        associated = false;
}

bool WpaSuppThread::ReopenControl()
{
    if (control && control->openControlInterface(interface)) {
        checkStatusRequested = false;
        CheckStatus();
        return true;
    }
    if (++openFailures == OPEN_FAILURE_LIMIT) {
        openFailures = 0;
        RestartWpaCtl();
    }
    return false;
}

/// Counts a tick without a control connection; asks for a stop when there were too many.
bool WpaSuppThread::GivesUpWithoutControl()
{
    if (++unassociatedTicks < UNASSOCIATED_LIMIT)
        return false;
    Log(Level::NOTICE) << " failed to connect, Stopping wpa_supplicant";
    qDebug() << "Stopping wpa_supplicant";
    stopRunning = true;
    return true;
}

void WpaSuppThread::CountUnassociatedTicks()
{
    if (associated) {
        unassociatedTicks = 0;
    } else if (++unassociatedTicks >= UNASSOCIATED_LIMIT) {
        qDebug() << "wpa_supplicant can't connect to specified AP";
        unassociatedTicks = 0;
    }
}

void WpaSuppThread::ReportBadPassword()
{
    // While the status says so, the user has been told; the flag waits for the next change of the status.
    if (!badPassword || statusText == BAD_PASSWORD)
        return;
    statusText = BAD_PASSWORD;
    const QString name = ssid.isEmpty() ? QStringLiteral("network") : ssid;
    const QStringList arguments{QStringLiteral("2"), QStringLiteral("Invalid password for '%1'").arg(name),
                                QStringLiteral("Please use the network applet to correct this issue")};
    Log(Level::NOTICE) << "BAD PASSWORD -- warning" << arguments << ssid << interface;
    const bool started = Utils::SpawnExecute(QStringLiteral("warning"), arguments);
    Log(Level::TRACE) << "Spawned preccess returned " << started;
    badPassword = false;
}

QString WpaSuppThread::toString() const
{
    return QStringLiteral("Running = %1\nStatus = %2\nAssociated = %3\nSSID = %4")
        .arg(QLatin1String(YesNo(running)), statusText, QLatin1String(YesNo(associated)), ssid);
}
