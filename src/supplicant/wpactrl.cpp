// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "wpactrl.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

namespace {

using namespace std::chrono_literals;
using Duration = std::chrono::microseconds;

constexpr char ABSTRACT_PREFIX[] = "@abstract:";
constexpr size_t ABSTRACT_PREFIX_LENGTH = sizeof(ABSTRACT_PREFIX) - 1;

constexpr auto REPLY_TIME_LIMIT = 10s;
/// A peer that ends before it answers makes no datagram socket readable, so the wait looks for it between
/// steps; short against the 10 s, long against the cost of one look.
constexpr auto REPLY_WAIT_STEP = 100ms;
constexpr auto SEND_TIME_LIMIT = 5s;
constexpr unsigned SEND_RETRY_SECONDS = 1;

/// Tells the names of several connections of one process apart.
uint32_t openCounter = 0;

void *os_zalloc(size_t size)
{
    return calloc(1, size);
}

/// Copies as much of the text as fits and always terminates it. @return the length of the whole text.
size_t os_strlcpy(char *destination, const char *source, size_t size)
{
    const size_t length = strlen(source);
    const size_t copied = std::min(length, size - 1);
    memcpy(destination, source, copied);
    destination[copied] = '\0';
    return length;
}

Duration TimeLimit(const wpa_ctrl *ctrl, Duration usual)
{
    return ctrl->timeLimitMs > 0 ? std::chrono::milliseconds(ctrl->timeLimitMs) : usual;
}

void os_sleep(unsigned seconds)
{
    timespec rest{static_cast<time_t>(seconds), 0};
    while (nanosleep(&rest, &rest) == -1 && errno == EINTR)
        continue;
}

/// Time on a clock that only goes forward.
Duration os_get_reltime()
{
    return std::chrono::duration_cast<Duration>(std::chrono::steady_clock::now().time_since_epoch());
}

/// Takes back whatever of a connection has been made, and leaves errno to the caller's caller.
struct Unwind
{
    void operator()(wpa_ctrl *ctrl) const
    {
        const int reason = errno;
        wpa_ctrl_close(ctrl);
        errno = reason;
    }
};

const sockaddr *Generic(const sockaddr_un &address)
{
    return reinterpret_cast<const sockaddr *>(&address);
}

bool BindToOwnName(wpa_ctrl *ctrl)
{
    ctrl->local.sun_family = AF_UNIX;
    for (bool retried = false;; retried = true) {
        const int length = snprintf(ctrl->local.sun_path, sizeof(ctrl->local.sun_path), "/tmp/wpa_ctrl_%d-%d",
                                    getpid(), static_cast<int>(openCounter));
        if (length < 0 || static_cast<size_t>(length) >= sizeof(ctrl->local.sun_path))
            return false;
        if (bind(ctrl->s, Generic(ctrl->local), sizeof(ctrl->local)) == 0)
            return true;
        // A process with our id that died left its name behind.
        if (errno != EADDRINUSE || retried)
            return false;
        unlink(ctrl->local.sun_path);
    }
}

bool SetDestination(wpa_ctrl *ctrl, const char *path)
{
    ctrl->dest.sun_family = AF_UNIX;
    if (strncmp(path, ABSTRACT_PREFIX, ABSTRACT_PREFIX_LENGTH) == 0) {
        // No terminator: an abstract name ends with the address (unix(7)).
        const char *const name = path + ABSTRACT_PREFIX_LENGTH;
        memcpy(ctrl->dest.sun_path + 1, name, strnlen(name, sizeof(ctrl->dest.sun_path) - 1));
        return true;
    }
    if (os_strlcpy(ctrl->dest.sun_path, path, sizeof(ctrl->dest.sun_path)) < sizeof(ctrl->dest.sun_path))
        return true;
    errno = ENAMETOOLONG;
    return false;
}

bool ConnectToSupplicant(wpa_ctrl *ctrl)
{
    // Before the connection: a socket that takes the name in between then counts as gone, never as alive. An
    // abstract one is no file: -1.
    ctrl->destFile = open(ctrl->dest.sun_path, O_PATH | O_CLOEXEC);
    return connect(ctrl->s, Generic(ctrl->dest), sizeof(ctrl->dest)) == 0;
}

void SetNonBlocking(const wpa_ctrl *ctrl)
{
    const int flags = fcntl(ctrl->s, F_GETFL);
    if (flags < 0 || fcntl(ctrl->s, F_SETFL, flags | O_NONBLOCK) < 0)
        perror("fcntl(ctrl->s, O_NONBLOCK)");
}

bool SendWithRetries(const wpa_ctrl *ctrl, const char *cmd, size_t length)
{
    Duration firstFailure{};
    while (send(ctrl->s, cmd, length, MSG_NOSIGNAL) < 0) {
        if (errno != EAGAIN && errno != EBUSY)
            return false;
        if (firstFailure == Duration::zero())
            firstFailure = os_get_reltime();
        else if (os_get_reltime() - firstFailure > TimeLimit(ctrl, SEND_TIME_LIMIT))
            return false;
        os_sleep(SEND_RETRY_SECONDS);
    }
    return true;
}

/// Asks the kernel to name the sender of each datagram (SO_PASSCRED, unix(7)). Without it we only know less.
void AskForSender(const wpa_ctrl *ctrl)
{
    const int on = 1;
    (void)setsockopt(ctrl->s, SOL_SOCKET, SO_PASSCRED, &on, sizeof(on));
}

/// One receive that does not wait, and takes note of the sender.
ssize_t ReceiveReply(wpa_ctrl *ctrl, char *buffer, size_t size)
{
    iovec text{buffer, size};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(ucred))];
    msghdr message{};
    message.msg_iov = &text;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof(control);

    const ssize_t received = recvmsg(ctrl->s, &message, MSG_DONTWAIT);
    const cmsghdr *const header = received < 0 ? nullptr : CMSG_FIRSTHDR(&message);
    if (header && header->cmsg_level == SOL_SOCKET && header->cmsg_type == SCM_CREDENTIALS) {
        ucred sender{};
        memcpy(&sender, CMSG_DATA(header), sizeof(sender));
        ctrl->peer = sender.pid;
    }
    return received;
}

/// 1 when there is something to read, 0 when the time is up, negative on an error or when nobody is left
/// who could answer.
int WaitForDatagram(const wpa_ctrl *ctrl)
{
    Duration start = os_get_reltime();
    while (os_get_reltime() - start < TimeLimit(ctrl, REPLY_TIME_LIMIT)) {
        pollfd entry{ctrl->s, POLLIN, 0};
        const int result =
            poll(&entry, 1, static_cast<int>(std::chrono::milliseconds(REPLY_WAIT_STEP).count()));
        if (result > 0)
            return result;
        if (result < 0 && errno != EINTR)
            return result;
        if (result < 0)
            start = os_get_reltime();
        else if (!wpa_ctrl_peer_alive(ctrl))
            return -1;
    }
    return 0;
}

template <size_t Size> bool BeginsWith(const char *datagram, size_t length, const char (&prefix)[Size])
{
    return length >= Size - 1 && memcmp(datagram, prefix, Size - 1) == 0;
}

bool IsEvent(const char *datagram, size_t length)
{
    return BeginsWith(datagram, length, "<") || BeginsWith(datagram, length, "IFNAME=");
}

void NoteDropped(wpa_ctrl *ctrl, const char *event, size_t length)
{
    ctrl->dropped.connected |= BeginsWith(event, length, "<3>CTRL-EVENT-CONNECTED");
    ctrl->dropped.disconnected |= BeginsWith(event, length, "<3>CTRL-EVENT-DISCONNECTED");
}

int RequestOk(wpa_ctrl *ctrl, const char *cmd)
{
    char reply[10];
    size_t length = sizeof(reply);
    const int result = wpa_ctrl_request(ctrl, cmd, strlen(cmd), reply, &length, nullptr);
    if (result < 0)
        return result;
    return length == 3 && memcmp(reply, "OK\n", 3) == 0 ? 0 : -1;
}

} // namespace

wpa_ctrl *wpa_ctrl_open(const char *path)
{
    if (!path)
        return nullptr;
    std::unique_ptr<wpa_ctrl, Unwind> ctrl(static_cast<wpa_ctrl *>(os_zalloc(sizeof(wpa_ctrl))));
    if (!ctrl)
        return nullptr;
    ctrl->destFile = -1;
    ctrl->s = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (ctrl->s < 0)
        return nullptr;
    ++openCounter;
    if (!BindToOwnName(ctrl.get())) {
        ctrl->local.sun_path[0] = '\0'; // The name is not ours to remove.
        return nullptr;
    }
    if (!SetDestination(ctrl.get(), path) || !ConnectToSupplicant(ctrl.get()))
        return nullptr;
    SetNonBlocking(ctrl.get());
    AskForSender(ctrl.get());
    return ctrl.release();
}

void wpa_ctrl_close(wpa_ctrl *ctrl)
{
    if (!ctrl)
        return;
    unlink(ctrl->local.sun_path);
    if (ctrl->s >= 0)
        close(ctrl->s);
    if (ctrl->destFile >= 0)
        close(ctrl->destFile);
    free(ctrl);
}

int wpa_ctrl_request(wpa_ctrl *ctrl, const char *cmd, size_t cmdLength, char *reply, size_t *replyLength,
                     WpaCtrlMessageCallback callback)
{
    if (!SendWithRetries(ctrl, cmd, cmdLength))
        return -1;
    for (;;) {
        const int ready = WaitForDatagram(ctrl);
        if (ready < 0)
            return ready;
        if (ready == 0)
            return -2;
        const ssize_t received = ReceiveReply(ctrl, reply, *replyLength);
        if (received < 0)
            return static_cast<int>(received);
        const auto length = static_cast<size_t>(received);
        if (!IsEvent(reply, length)) {
            *replyLength = length;
            return 0;
        }
        if (callback) {
            const size_t end = std::min(length, *replyLength - 1);
            reply[end] = '\0';
            callback(reply, end);
        } else {
            NoteDropped(ctrl, reply, length);
        }
    }
}

int wpa_ctrl_attach(wpa_ctrl *ctrl)
{
    return RequestOk(ctrl, "ATTACH");
}

int wpa_ctrl_detach(wpa_ctrl *ctrl)
{
    return RequestOk(ctrl, "DETACH");
}

int wpa_ctrl_recv(wpa_ctrl *ctrl, char *buffer, size_t *length)
{
    const ssize_t received = recv(ctrl->s, buffer, *length, MSG_DONTWAIT);
    if (received < 0)
        return static_cast<int>(received);
    *length = static_cast<size_t>(received);
    return 0;
}

int wpa_ctrl_get_fd(const wpa_ctrl *ctrl)
{
    return ctrl->s;
}

bool wpa_ctrl_has_name(const wpa_ctrl *ctrl)
{
    return access(ctrl->local.sun_path, F_OK) == 0 || errno != ENOENT;
}

bool wpa_ctrl_peer_alive(const wpa_ctrl *ctrl)
{
    // Connecting once more to the same socket changes nothing and is refused when it was closed. Reached
    // through the inode held since the connection was made, it cannot be mistaken for another one.
    sockaddr_un address = ctrl->dest;
    if (ctrl->destFile >= 0)
        snprintf(address.sun_path, sizeof(address.sun_path), "/proc/self/fd/%d", ctrl->destFile);
    return connect(ctrl->s, Generic(address), sizeof(address)) == 0 || errno != ECONNREFUSED;
}
