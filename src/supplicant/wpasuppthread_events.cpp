// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "wpasuppthread.h"

#include "journal.h"
#include "logging.h"
#include "utils.h"

#include <QHash>
#include <QRegularExpression>

#include <utility>

namespace {

const QString BAD_PASSWORD = QStringLiteral("BadPassword");

/// Without a word of an authenticator for so long there is none: the supplicant itself waits 30 s for one.
/// What it said before we were connected to it was missed, but a refusal follows soon.
constexpr int ALONE_MS = 20000;

/// Ticks with a control connection after which the supplicant is asked whether it is connected, where it has
/// not said so. It is not asked at once: mostly it is not yet, and its word is on its way.
constexpr int LATE_STATUS_TICKS = 5;

/// In seconds, from the end of a supplicant to the launch of the next one that need not wait: the hold-off,
/// and the 7 s that a start takes.
constexpr int START_LIMIT_S = 15;

} // namespace

void WpaSuppThread::MessageReceived(const QString &message)
{
    const JournalSubject subject(interface, definition);
    silentTicks = 0;
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
    if (message.startsWith(QLatin1String("<3>CTRL-EVENT-EAP-"))) {
        eapQuiet.start();
        // Of many words at once the success may have found no room, though these came before it.
        ticksToLateStatus = endWasUnread ? LATE_STATUS_TICKS : 0;
    }
    if (message.startsWith(QLatin1String("<3>CTRL-EVENT-EAP-SUCCESS")))
        TakeUpReauthentication();
    else if (message.startsWith(QLatin1String("<3>CTRL-EVENT-EAP-STARTED")))
        eapProblem.clear();
    else if (message.startsWith(QLatin1String("<3>CTRL-EVENT-EAP-STATUS")))
        NoteEapStatus(message);
    else if (message.startsWith(QLatin1String("<3>EAP: Failed to initialize EAP method")))
        NoteUselessKey(message);
}

/// Before the server has said a word of it: a file is damaged, or a password does not open it. The reason is
/// in the supplicant's own log.
void WpaSuppThread::NoteUselessKey(const QString &message)
{
    eapProblem = QStringLiteral("a certificate or key of the definition cannot be used: ") +
                 message.section(QLatin1Char('('), 1).section(QLatin1Char(')'), 0, 0);
}

void WpaSuppThread::NoteEapStatus(const QString &message)
{
    // The server had another method to offer.
    if (message.contains(QLatin1String("status='accept proposed method'")))
        eapProblem.clear();
    else if (eapProblem.isEmpty())
        eapProblem = EapProblemIn(message); // What follows the first one follows from it.
}

/// Of the steps of an authentication those that end it, in words; nothing of the others.
QString WpaSuppThread::EapProblemIn(const QString &message)
{
    static const QRegularExpression step(QStringLiteral("status='([^']*)' parameter='([^']*)'"));
    static const QHash<QString, QString> problems = {
        {QStringLiteral("remote certificate verification"),
         QStringLiteral("the server's certificate is refused")},
        {QStringLiteral("local TLS alert"), QStringLiteral("the server's TLS is refused")},
        {QStringLiteral("remote TLS alert"), QStringLiteral("the server refuses our certificate or TLS")},
        {QStringLiteral("refuse proposed method"), QStringLiteral("the server wants another EAP method")},
    };
    const QRegularExpressionMatch match = step.match(message);
    const QString problem = problems.value(match.captured(1));
    static const QStringList harmless = {QStringLiteral("success"), QStringLiteral("close notify")};
    if (problem.isEmpty() || harmless.contains(match.captured(2)))
        return QString();
    return problem + QStringLiteral(": ") + match.captured(2);
}

/// To a wired supplicant the connection outlives a re-authentication that fails, as while the server is down,
/// so that it does not say that it is connected when one succeeds afterwards. The port was closed in between,
/// and may now lead into another network: a new success, which the service is to take up.
void WpaSuppThread::TakeUpReauthentication()
{
    if (!wired || associated || !connectionTold)
        return;
    NoteConnected();
    endUntold = true;
    missed = Missed::SUCCESS;
}

void WpaSuppThread::OnSsidTemporarilyDisabled(const QString &message)
{
    ssid = ExtractSsid(message);
    if (message.contains(QLatin1String("reason=WRONG_KEY")))
        NoteFailure(QStringLiteral("the network refused the key"));
    else if (lastFailure.reason.isEmpty())
        NoteFailure(QStringLiteral("the network refused the attempts"));
    if (wired) {
        // The spelling is part of the text.
        LogOnce(reports.network, ssid) << "FILED TO CONNECT TO WIRED SERVER" << ssid;
    } else {
        badPassword = true;
        LogOnce(reports.network, ssid) << "INVALID PASSWORD FOR NETWORK" << ssid;
    }
}

void WpaSuppThread::TellAssociation(bool state)
{
    connectionTold = state;
    endUntold = false;
    missed = Missed::NOTHING;
    takenUpTicks = 0;
    ticksToLateStatus = 0;
    emit associatedChanged(state);
}

void WpaSuppThread::OnConnected()
{
    // The event of a success that was just told without it, where nothing has come in between.
    const bool isTold = std::exchange(takenUpTicks, 0) > 0 && associated;
    NoteConnected();
    if (!isTold)
        TellAssociation(true);
}

/// A success, by its event or where that was missed.
void WpaSuppThread::NoteConnected()
{
    badPassword = false;
    associated = true;
    lastFailure = {};
    statusText = QStringLiteral("Associated");
    LogOnce(reports.link, statusText) << "WpaSuppThread::MessageReceived -- connected";
    for (ReportOnce *report : {&reports.eapProblem, &reports.refusal, &reports.eap, &reports.eapPassword,
                               &reports.network, &reports.warning})
        report->Over();
    NoteGoodStart();
    if (stopRunning && stopWaitsForNews) {
        Log(Level::TRACE) << "WpaSuppThread -- In time: it is not stopped";
        stopRunning = false;
    }
}

void WpaSuppThread::OnDisconnected()
{
    associated = false;
    badPassword = false;
    statusText = QStringLiteral("Disconnected");
    NoteDisconnected();
    TellAssociation(false);
    // Of many words at once the last ones may have found no room in the queue.
    if (endWasUnread)
        AskForStatusLater();
}

void WpaSuppThread::NoteDisconnected()
{
    LogOnce(reports.link, QStringLiteral("Disconnected")) << "WpaSuppThread::MessageReceived -- disconnected";
}

void WpaSuppThread::OnEapFailure()
{
    associated = false;
    NoteFailure(eapProblem.isEmpty() ? QStringLiteral("EAP authentication failed") : eapProblem);
    if (!eapProblem.isEmpty())
        LogOnce(reports.eapProblem, eapProblem)
            << "WpaSuppThread -- The authentication fails on" << interface << "-" << eapProblem;
    eapProblem.clear();
    TellRefusal();
    LogOnce(reports.eap, interface) << "WpaSuppThread::MessageReceived --EAP Authentication Error"
                                    << interface;
    LogOnce(reports.eapPassword, interface) << "INVALID PASSWORD FOR NETWORK" << interface;
    if (!wired)
        badPassword = true;
}

/// The supplicant calls it an EAP failure, too, when nobody answers its starts for 30 s. The line that tells
/// of the password comes all the same.
void WpaSuppThread::TellRefusal()
{
    if (!wired)
        return;
    const bool isAlone = eapQuiet.isValid() && eapQuiet.hasExpired(ALONE_MS);
    LogOnce(reports.refusal, QString::number(isAlone))
        << (isAlone ? "WpaSuppThread -- Nobody answers on the port, so no password was refused on"
                    : "WpaSuppThread -- The authentication was refused on")
        << interface << "- the supplicant goes on trying";
}

void WpaSuppThread::OnTerminating()
{
    NoteFailedStart();
    // Of one that was killed for its silence the log has told.
    if (!stopRunning && !stoppingSupplicant && !restarting && !killedForSilence)
        LogOnce(reports.death) << "WpaSuppThread -- The supplicant has ended on"
                               << interface << "- another one follows within" << START_LIMIT_S + pauseTicks
                               << "s where it is needed";
    LogOnce(reports.terminating) << "WpaSuppThread::MessageReceived -- Terminating";
    reports.link.Over(); // What the next supplicant says is news.
    associated = false;
    stopRunning = true;
    stopWaitsForNews = false;
    terminateAcknowledged = true;
    badPassword = false;
}

/// The first of several equal ones says since when.
void WpaSuppThread::NoteFailure(const QString &reason)
{
    if (lastFailure.reason != reason)
        lastFailure = {reason, QDateTime::currentDateTimeUtc()};
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
            checkStatusRequested = false; // Also for an event that was dropped while this was asked.
            if (missed != Missed::NOTHING)
                missed = WhatWasMissed();
            Log(Level::TRACE)
                << "WpaSuppThread::CheckStatus"
                << QStringLiteral("%1,%2,%3").arg(line, statusText, QString::number(associated));
        }
    }
    if (missed == Missed::UNKNOWN)
        statusPause.NoteAttempt(RetryPause::Time::clock::now());
    Log(Level::DEBUG) << "WpaSuppThread::CheckStatus done" << TrueFalse(associated);
}

/// What an event has told unheard, where the status is this now.
WpaSuppThread::Missed WpaSuppThread::WhatWasMissed() const
{
    if (associated)
        return Missed::SUCCESS;
    // A radio goes through others also when it roams, or gets new keys, and the connection goes on.
    static const QStringList WITHOUT_CONNECTION{QStringLiteral("DISCONNECTED"), QStringLiteral("INACTIVE"),
                                                QStringLiteral("SCANNING"),
                                                QStringLiteral("INTERFACE_DISABLED")};
    if (!wired && !WITHOUT_CONNECTION.contains(statusText))
        return Missed::UNKNOWN;
    return connectionTold ? Missed::END : Missed::NOTHING;
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

void WpaSuppThread::AskForStatusLater()
{
    ticksToLateStatus = LATE_STATUS_TICKS;
}

/// The ticks that a start, which blocks the main thread, has held up follow each other at once: they are no
/// time in which the supplicant could have said something.
void WpaSuppThread::CheckStatusLate()
{
    if (ticksToLateStatus == 0 || waitingTicks > 1)
        return;
    if (ticksToLateStatus == 1)
        HearUnread(); // Its word may be there: then nothing is left to count.
    if (ticksToLateStatus == 0 || --ticksToLateStatus > 0)
        return;
    endWasUnread = false;
    if (!connectionTold)
        MayHaveMissed();
}

/// Where the status was not answered, what was missed is still unknown. Pauses, as each question keeps the
/// service for 10 s where nobody answers.
void WpaSuppThread::AskAgainForStatus()
{
    const bool isStopped = process && process->IsStopped().value_or(false);
    if (missed == Missed::UNKNOWN && !isStopped && statusPause.IsDue(RetryPause::Time::clock::now()))
        checkStatusRequested = true;
}

QString WpaSuppThread::SplitLine(const QString &line)
{
    const QStringList parts = line.split(QLatin1Char('='));
    return parts.size() < 2 ? QString() : parts.at(1);
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
    LogOnce(reports.warning, ssid) << "BAD PASSWORD -- warning" << arguments << ssid << interface;
    const bool started = Utils::SpawnExecute(QStringLiteral("warning"), arguments);
    // The spelling is part of the text.
    Log(Level::TRACE) << "Spawned preccess returned " << started;
    badPassword = false;
}
