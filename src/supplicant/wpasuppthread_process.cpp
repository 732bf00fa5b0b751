// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "wpasuppthread.h"

#include "logging.h"

#include <chrono>
#include <csignal>

namespace {

using namespace std::chrono_literals;

/// A supplicant in peace has nothing to say for an hour. One that has said nothing for this many ticks is
/// asked whether it is there, and again after each further minute; that costs the main thread 10 s when it is
/// not, so it is not asked more often.
constexpr int ASK_AFTER_TICKS = 240;
constexpr int ASK_AGAIN_TICKS = 60;
/// A supplicant that has answered nobody for this long is replaced. Its port or its cell may close at any
/// time, and then it would be missed. Long enough for somebody who stops it to look at something.
constexpr int SILENCE_LIMIT_TICKS = 300;

/// When nobody has started a supplicant in this many ticks of the process, nobody needs one.
constexpr int LEFT_OVER_TICKS = 60;
/// What a supplicant is given to end by itself, and to go away when it is killed.
constexpr auto END_TIME_LIMIT = 1s;

} // namespace

/// A supplicant that was killed says nothing: its end counts as the event that it did not send. Looked for
/// before all else, as the event would have come between two ticks: the stop that follows it is of this one.
void WpaSuppThread::NoticeDeath()
{
    if (!running || stopRunning || stoppingSupplicant || reconfigureRequested || startingSupplicant)
        return;
    NoticeLostControl();
    if (!process || !process->HasEnded())
        return;
    process.reset();
    if (!stopRunning) // Its last words may have said so.
        OnTerminating();
}

/// For a connection that is open.
void WpaSuppThread::WatchForSilence()
{
    const bool isStopped = process && process->IsStopped().value_or(wasStopped);
    TellOfStoppedProcess(isStopped);
    ++silentTicks;
    if (silentTicks < ASK_AFTER_TICKS || silentTicks % ASK_AGAIN_TICKS != 0)
        return;
    const bool isOverdue = silentTicks >= SILENCE_LIMIT_TICKS;
    // One that is stopped cannot answer, and is not waited for.
    if (!isStopped)
        (void)SendCommand(QStringLiteral("PING")); // Any reply ends the silence.
    if (isOverdue && silentTicks > 0)
        EndSilentSupplicant();
}

/// Anybody's process may answer at the socket's name.
bool WpaSuppThread::IsProcessOurs() const
{
    return process && process->IsLaunchedWith(configurationPath);
}

/// At first nothing is done about it: whoever stopped the process has a reason.
void WpaSuppThread::TellOfStoppedProcess(bool isStopped)
{
    if (isStopped == wasStopped)
        return;
    wasStopped = isStopped;
    LogOnce line(reports.stopped, QString::number(isStopped));
    if (!isStopped) {
        line << "WpaSuppThread -- The supplicant goes on, on" << interface;
        return;
    }
    line << "WpaSuppThread -- The supplicant is stopped and answers nobody on" << interface;
    if (IsProcessOurs())
        line << "- after" << SILENCE_LIMIT_TICKS << "s it is replaced";
    else
        line << "- it is not ours and is left alone";
}

void WpaSuppThread::EndSilentSupplicant()
{
    if (!IsProcessOurs())
        return;
    LogOnce(reports.silence) << "WpaSuppThread -- The supplicant has answered nobody for" << silentTicks
                             << "s and is killed, to be started anew on" << interface;
    process->SendSignal(SIGKILL);
    killedForSilence = true;
}

/// A supplicant that an earlier daemon left goes on for as long as nobody takes its place, so that the
/// network lives through a restart of the daemon. When nobody does, it works by a file that is not in force
/// any more.
void WpaSuppThread::WatchForLeftOvers()
{
    if (idleTicks < LEFT_OVER_TICKS && ++idleTicks == LEFT_OVER_TICKS)
        EndLeftOvers();
}

/// Ends every supplicant that has our file: those of an earlier daemon, and one that was told to end and did
/// not. It would hold the control socket that the next one needs. None is taken over instead of a launch,
/// which is a fixed step of every start: the file has been written anew since, and what the running one read
/// is unknown.
void WpaSuppThread::EndLeftOvers()
{
    idleTicks = LEFT_OVER_TICKS;
    for (const SupplicantProcess &found : SupplicantProcess::FindWith(configurationPath)) {
        LogOnce(reports.leftOver) << "WpaSuppThread -- Ending a supplicant that was left over, process"
                                  << found.Id();
        found.SendSignal(SIGTERM);
        if (found.HasEndedWithin(END_TIME_LIMIT))
            continue;
        found.SendSignal(SIGKILL);
        (void)found.HasEndedWithin(END_TIME_LIMIT); // Where even that fails, the launch tells.
    }
}
