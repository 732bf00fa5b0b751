// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "logging.h"
#include "wpasupplicantcontrol.h"
#include "wpasuppthreadpeer.h"

#include <QCoreApplication>
#include <QDir>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <thread>

#include <sys/socket.h>
#include <sys/un.h>

namespace {

constexpr char DATAGRAM_END = '\xff';
/// Fewer than a Unix datagram socket queues.
constexpr int MOST_DATAGRAMS = 8;

sockaddr_un client{};
int peer = -1;
/// Never deleted: the goodbye would wait for a peer that does not listen.
WpaSuppThreadPeer *supervisor = nullptr;

void Require(bool isTrue)
{
    if (!isTrue)
        std::abort();
}

void BindPeer()
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const QByteArray path = WpaSupplicantControl::CtrlInterfaceDir.toLatin1() + "wlan0";
    std::copy(path.begin(), path.end(), address.sun_path);
    QDir().mkpath(WpaSupplicantControl::CtrlInterfaceDir);
    peer = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    Require(bind(peer, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) == 0);
}

void Send(const QByteArray &datagram)
{
    Require(sendto(peer, datagram.constData(), static_cast<size_t>(datagram.size()), 0,
                   reinterpret_cast<const sockaddr *>(&client), sizeof(client)) == datagram.size());
}

void AnswerAttach()
{
    char command[16];
    socklen_t length = sizeof(client);
    Require(recvfrom(peer, command, sizeof(command), 0, reinterpret_cast<sockaddr *>(&client), &length) == 6);
    Send("OK\n");
}

void DropCommand()
{
    char command[16];
    Require(recv(peer, command, sizeof(command), 0) == 6);
}

void ReadEvent()
{
    Require(QMetaObject::invokeMethod(supervisor->Control(), "ReadMessage"));
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv)
{
    static QCoreApplication application(*argc, *argv);
    Logging::GetInstance(1, false);
    BindPeer();
    supervisor = new WpaSuppThreadPeer;
    std::thread answering(AnswerAttach);
    supervisor->Supervise();
    answering.join();
    Require(supervisor->IsControlOpen());
    return 0;
}

/// Any datagrams on the control socket: the first one as an event, the others between a request for the
/// status and its reply. The inputs are texts with 0xff between the datagrams.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QList<QByteArray> datagrams =
        QByteArray(reinterpret_cast<const char *>(data), static_cast<int>(size)).split(DATAGRAM_END);
    supervisor->Reinit();

    Send(datagrams.first());
    ReadEvent();
    Require(!supervisor->IsAssociated() || datagrams.first().startsWith("<3>CTRL-EVENT-CONNECTED"));
    Require(!supervisor->IsStopRequested() || datagrams.first().startsWith("<3>CTRL-EVENT-TERMINATING"));

    for (const QByteArray &datagram : datagrams.mid(1, MOST_DATAGRAMS - 1))
        Send(datagram);
    // The reply is sent before the request, so that nobody need answer it.
    Send("end");
    supervisor->NoteStatus(QString());
    supervisor->CheckStatus();
    DropCommand();
    Require(supervisor->StatusText().isEmpty() ||
            supervisor->IsAssociated() == (supervisor->StatusText() == QLatin1String("COMPLETED")));
    Require(!supervisor->StatusText().contains(QLatin1Char('\n')));

    // What came after the reply counts as events.
    for (int i = 0; i < MOST_DATAGRAMS; ++i)
        ReadEvent();
    Require(supervisor->toString().startsWith(QLatin1String("Running = ")));
    return 0;
}
