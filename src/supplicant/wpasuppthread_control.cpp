// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "wpasuppthread.h"

#include "journal.h"
#include "logging.h"
#include "wpactrl.h"

#include <QFile>

#include <algorithm>
#include <utility>

namespace {

/// Ticks within which the event of a success that was told without it may still come. Later it is another
/// one, as of a radio that roams.
constexpr int TAKEN_UP_TICKS = 3;

} // namespace

/// Later, as this may run inside a signal of the object itself.
void WpaSuppThread::DeleteLater::operator()(WpaSupplicantControl *object) const
{
    object->deleteLater();
}

void WpaSuppThread::CreateWpaCtl()
{
    control.reset(new WpaSupplicantControl(nullptr, &reports.control));
    connect(control.get(), &WpaSupplicantControl::MessageReady, this, &WpaSuppThread::MessageReceived);
    interface.remove(WpaSupplicantControl::CtrlInterfaceDir);
    const bool opened = OpenControl();
    badPassword = false;
    Log(Level::TRACE) << "WpaSuppThread::CreateWpaCtl() Open wpactl" << interface << opened;
}

void WpaSuppThread::DeleteWpaCtl()
{
    if (!control)
        return;
    control->disconnect();
    control.reset();
}

void WpaSuppThread::RestartWpaCtl()
{
    Log(Level::TRACE) << "WpaSuppThread::RestartWpaCtl";
    DeleteWpaCtl();
    CreateWpaCtl();
    Log(Level::TRACE) << "WpaSuppThread::RestartWpaCtl  Complete";
}

bool WpaSuppThread::OpenControl()
{
    if (!control || IsStoppedUnheard() || !control->openControlInterface(interface))
        return false;
    NotePeer();
    return true;
}

/// One that is stopped, as by SIGSTOP, before it has answered us once. Waiting for it would keep the service
/// for 10 s each time.
bool WpaSuppThread::IsStoppedUnheard()
{
    if (!QFile::exists(WpaSupplicantControl::CtrlInterfaceDir + interface))
        return false; // Nobody to connect to.
    const auto launched = SupplicantProcess::FindWith(configurationPath);
    const bool isStopped =
        std::any_of(launched.cbegin(), launched.cend(),
                    [](const SupplicantProcess &found) { return found.IsStopped().value_or(false); });
    if (isStopped)
        LogOnce(reports.stopped, QStringLiteral("not open"))
            << "WpaSuppThread -- The supplicant is stopped and lets nobody connect on" << interface;
    return isStopped;
}

/// What is known of the one before says nothing of who answers now.
void WpaSuppThread::NotePeer()
{
    if (const pid_t id = control->PeerId(); id > 0)
        process.emplace(id);
    silentTicks = 0;
    wasStopped = false;
    killedForSilence = false;
}

bool WpaSuppThread::IsControlOpen() const
{
    return control && control->isCtrlOpen();
}

QString WpaSuppThread::SendCommand(const QString &command)
{
    QString reply = control ? control->SendCommand(command) : WpaSupplicantControl::ERROR_PREFIX;
    if (!reply.startsWith(WpaSupplicantControl::ERROR_PREFIX))
        silentTicks = 0;
    const auto dropped = control ? control->TakeDropped() : WpaCtrlEvents();
    endUntold |= dropped.disconnected;
    if (dropped.connected || dropped.disconnected)
        MayHaveMissed();
    return reply;
}

/// The status tells what came of it. What is known of before tells nothing.
void WpaSuppThread::MayHaveMissed()
{
    missed = Missed::UNKNOWN;
    checkStatusRequested = true;
    statusPause.Reset();
}

void WpaSuppThread::SendReconfigure()
{
    SendCommand(QStringLiteral("RECONFIGURE"));
}

void WpaSuppThread::HearUnread()
{
    if (control)
        control->ReadWaiting();
}

bool WpaSuppThread::IsEndUnread()
{
    endWasUnread = control && control->IsWaiting(QStringLiteral("<3>CTRL-EVENT-DISCONNECTED"));
    return endWasUnread;
}

bool WpaSuppThread::TakeMissedSuccess()
{
    const auto isMissed = [this] {
        return missed == Missed::SUCCESS && associated;
    };
    if (isMissed())
        HearUnread(); // The event itself, where it came after all.
    if (!isMissed())
        return false;
    const JournalSubject subject(interface, definition);
    missed = Missed::NOTHING;
    NoteConnected();
    // After an end of which nobody was told either, it is a new one.
    if (!std::exchange(endUntold, false) && connectionTold)
        return false;
    connectionTold = true;
    takenUpTicks = TAKEN_UP_TICKS;
    return true;
}

bool WpaSuppThread::TakeMissedEnd()
{
    const auto isMissed = [this] {
        return missed == Missed::END && !associated;
    };
    if (isMissed())
        HearUnread(); // The event itself, or that of the next success.
    if (!isMissed())
        return false;
    const JournalSubject subject(interface, definition);
    missed = Missed::NOTHING;
    connectionTold = false;
    endUntold = false;
    NoteDisconnected();
    return true;
}

void WpaSuppThread::LetGo()
{
    if (control)
        control->Disconnect();
}

void WpaSuppThread::NoticeLostControl()
{
    if (!IsControlOpen())
        return;
    const bool isNew = control->CheckPeer();
    if (isNew)
        NotePeer();
    else if (IsControlOpen())
        return;
    else
        associated = false;
    // What is said until we listen again is lost.
    MayHaveMissed();
}
