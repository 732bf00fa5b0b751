// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <cstddef>

#include <sys/types.h>
#include <sys/un.h>

/// A client of the supplicant's control interface: one Unix datagram socket, bound to a name of its own and
/// connected to the supplicant's. Functions rather than a class, as the protocol is one datagram each way.

/// Events that tell of the connection and come only once.
struct WpaCtrlEvents
{
    bool connected, disconnected;
};

/// One open connection. Owned by whoever opened it; ended by wpa_ctrl_close().
struct wpa_ctrl
{
    int s;                 ///< the socket
    sockaddr_un local;     ///< our bound name
    sockaddr_un dest;      ///< the supplicant's socket
    int destFile;          ///< holds the inode of the supplicant's socket (O_PATH); -1 when it has none
    pid_t peer;            ///< the process that sent the last reply; 0 before the first one
    WpaCtrlEvents dropped; ///< by requests; never reset here
    int timeLimitMs; ///< for a reply, and for sending; 0, as it is made, for the limits of wpa_ctrl_request()
};

/// Called with the text of an event that arrives while a reply is awaited.
using WpaCtrlMessageCallback = void (*)(char *message, size_t length);

/// Null when the socket cannot be made, bound or connected; errno then tells why. A path that begins with
/// "@abstract:" names an abstract socket (unix(7)).
wpa_ctrl *wpa_ctrl_open(const char *path);
void wpa_ctrl_close(wpa_ctrl *ctrl);

/// Sends one command and waits for its reply. 0 on success, -2 when no reply came within 10 s, -1 or a
/// negative system result on error; a supplicant that ends before it answers is an error. Events that arrive
/// meanwhile go to the callback or are dropped, and each gives the reply another 10 s.
/// A supplicant that takes no more datagrams is tried again for 5 s.
int wpa_ctrl_request(wpa_ctrl *ctrl, const char *cmd, size_t cmdLength, char *reply, size_t *replyLength,
                     WpaCtrlMessageCallback callback);

/// Registers for events: 0 on "OK", -1 on any other answer, or the request's negative result.
int wpa_ctrl_attach(wpa_ctrl *ctrl);
int wpa_ctrl_detach(wpa_ctrl *ctrl);

/// One receive that does not wait: 0 and the length, or the receive's negative result.
int wpa_ctrl_recv(wpa_ctrl *ctrl, char *buffer, size_t *length);
int wpa_ctrl_get_fd(const wpa_ctrl *ctrl);

/// False when somebody removed the name of our own socket: commands still go out, but neither replies nor
/// events find the way back.
bool wpa_ctrl_has_name(const wpa_ctrl *ctrl);

/// False when the socket that we are connected to is gone. Sends nothing. What happens to its name does not
/// matter: it may be removed, or taken by a new supplicant that does not know us.
bool wpa_ctrl_peer_alive(const wpa_ctrl *ctrl);
