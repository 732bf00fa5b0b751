// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "wpasuppthread.h"

#include "logging.h"
#include "wpasupplicantcontrol.h"

void WpaSuppThread::CreateWpaCtl()
{
    control = new WpaSupplicantControl(nullptr);
    connect(control, &WpaSupplicantControl::MessageReady, this, &WpaSuppThread::MessageReceived);
    interface.remove(WpaSupplicantControl::CtrlInterfaceDir);
    const bool opened = control->openControlInterface(interface);
    badPassword = false;
    Log(Level::TRACE) << "WpaSuppThread::CreateWpaCtl() Open wpactl" << interface << opened;
}

void WpaSuppThread::DeleteWpaCtl()
{
    if (!control)
        return;
    control->disconnect();
    // Later, as this may run inside a signal of the object itself.
    control->deleteLater();
    control = nullptr;
}

void WpaSuppThread::RestartWpaCtl()
{
    Log(Level::TRACE) << "WpaSuppThread::RestartWpaCtl";
    DeleteWpaCtl();
    CreateWpaCtl();
    Log(Level::TRACE) << "WpaSuppThread::RestartWpaCtl  Complete";
}

bool WpaSuppThread::IsControlOpen() const
{
    return control && control->isCtrlOpen();
}

QString WpaSuppThread::SendCommand(const QString &command)
{
    return control ? control->SendCommand(command) : WpaSupplicantControl::ERROR_PREFIX;
}

void WpaSuppThread::SendReconfigure()
{
    SendCommand(QStringLiteral("RECONFIGURE"));
}

void WpaSuppThread::LetGo()
{
    if (control)
        control->Disconnect();
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
