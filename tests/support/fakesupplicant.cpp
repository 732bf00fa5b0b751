// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "fakesupplicant.h"

#include <QDir>
#include <QFile>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <vector>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

const QString CONTROL_FOLDER = QStringLiteral("/var/run/wpa_supplicant");
constexpr std::chrono::microseconds PAUSE{500};

} // namespace

QString FakeSupplicant::SocketPath(const QString &interfaceName)
{
    return CONTROL_FOLDER + QLatin1Char('/') + interfaceName;
}

FakeSupplicant::FakeSupplicant(const QString &interfaceName) : path(SocketPath(interfaceName))
{
    QDir().mkpath(CONTROL_FOLDER);
    QFile::remove(path);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const QByteArray name = path.toLocal8Bit();
    if (name.size() >= static_cast<int>(sizeof(address.sun_path)))
        qFatal("FakeSupplicant: %s is too long", name.constData());
    memcpy(address.sun_path, name.constData(), static_cast<size_t>(name.size()));
    Listen(address);
}

FakeSupplicant::FakeSupplicant(const sockaddr_un &address)
{
    Listen(address);
}

void FakeSupplicant::Listen(const sockaddr_un &address)
{
    socket = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (socket < 0 || bind(socket, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0)
        qFatal("FakeSupplicant: %s", strerror(errno));
    thread = std::thread([this] { Serve(); });
}

FakeSupplicant::~FakeSupplicant()
{
    ending = true;
    thread.join();
    Die();
    if (!path.isEmpty())
        QFile::remove(path);
}

void FakeSupplicant::SetAnswer(const QByteArray &command, const Answer &answer)
{
    const std::lock_guard lock(mutex);
    answers.insert(command, answer);
}

void FakeSupplicant::SetReply(const QByteArray &command, const QByteArray &reply)
{
    Answer answer;
    answer.reply = reply;
    SetAnswer(command, answer);
}

void FakeSupplicant::SetSilent(const QByteArray &command)
{
    Answer answer;
    answer.silent = true;
    SetAnswer(command, answer);
}

QStringList FakeSupplicant::Commands() const
{
    const std::lock_guard lock(mutex);
    return commands;
}

void FakeSupplicant::ClearCommands()
{
    const std::lock_guard lock(mutex);
    commands.clear();
}

bool FakeSupplicant::SendEvent(const QByteArray &event)
{
    const std::lock_guard lock(mutex);
    return socket >= 0 && sendto(socket, event.constData(), static_cast<size_t>(event.size()), MSG_NOSIGNAL,
                                 reinterpret_cast<const sockaddr *>(&attached), attachedLength) >= 0;
}

void FakeSupplicant::Die()
{
    const std::lock_guard lock(mutex);
    if (socket >= 0)
        close(socket);
    socket = -1;
}

void FakeSupplicant::Freeze()
{
    frozen = true;
    // What is being answered right now is answered before this returns.
    const std::lock_guard lock(mutex);
}

void FakeSupplicant::Thaw()
{
    frozen = false;
}

void FakeSupplicant::Serve()
{
    while (!ending) {
        if (!ServeOne())
            std::this_thread::sleep_for(PAUSE);
    }
}

/// False when there is nothing to answer. Never waits in the socket: one that a thread waits in is not gone
/// when it is closed.
bool FakeSupplicant::ServeOne()
{
    std::unique_lock lock(mutex);
    if (socket < 0 || frozen)
        return false;
    char buffer[8192];
    sockaddr_un client{};
    socklen_t length = sizeof(client);
    const ssize_t received =
        recvfrom(socket, buffer, sizeof(buffer), 0, reinterpret_cast<sockaddr *>(&client), &length);
    if (received < 0)
        return false;
    const QByteArray command(buffer, static_cast<int>(received));
    commands.append(QString::fromLocal8Bit(command));
    if (command == "ATTACH") {
        attached = client;
        attachedLength = length;
    }
    const Answer answer = answers.value(command);
    for (const QByteArray &event : answer.eventsFirst)
        Deliver(event, client, length);
    if (answer.delayMs > 0) {
        lock.unlock();
        std::this_thread::sleep_for(std::chrono::milliseconds(answer.delayMs));
        lock.lock();
    }
    if (answer.dies && socket >= 0) {
        close(socket);
        socket = -1;
    }
    if (!answer.silent)
        Deliver(answer.reply, client, length);
    return true;
}

/// A client whose queue is full is waited for, as events sent in numbers outrun it.
void FakeSupplicant::Deliver(const QByteArray &datagram, const sockaddr_un &client, socklen_t length)
{
    while (socket >= 0 && !ending &&
           sendto(socket, datagram.constData(), static_cast<size_t>(datagram.size()), MSG_NOSIGNAL,
                  reinterpret_cast<const sockaddr *>(&client), length) < 0 &&
           errno == EAGAIN)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

FakeSupplicantProcess::FakeSupplicantProcess(const QStringList &options)
{
    QList<QByteArray> arguments{"wpa_supplicant", "-B", "-iwlan0", "-c/tmp/wpa_supplicant.conf"};
    for (const QString &option : options)
        arguments << option.toLocal8Bit();
    std::vector<char *> pointers;
    for (QByteArray &argument : arguments)
        pointers.push_back(argument.data());
    pointers.push_back(nullptr);

    int ready[2];
    if (pipe2(ready, O_CLOEXEC) != 0)
        qFatal("FakeSupplicantProcess: %s", strerror(errno));
    pid = fork();
    if (pid < 0)
        qFatal("FakeSupplicantProcess: %s", strerror(errno));
    if (pid == 0) {
        dup2(ready[1], STDOUT_FILENO);
        execv(FAKE_SUPPLICANT_PROGRAM, pointers.data());
        _exit(127);
    }
    close(ready[1]);
    char byte;
    (void)!read(ready[0], &byte, 1); // Its end is closed once it listens.
    close(ready[0]);
}

FakeSupplicantProcess::~FakeSupplicantProcess()
{
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
}

bool FakeSupplicantProcess::HasEnded(std::chrono::milliseconds limit) const
{
    const auto deadline = std::chrono::steady_clock::now() + limit;
    siginfo_t info{};
    while (waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT | WNOHANG) == 0 &&
           info.si_pid != pid) {
        if (std::chrono::steady_clock::now() >= deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

void FakeSupplicantProcess::Kill()
{
    kill(pid, SIGKILL);
    siginfo_t info{};
    waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT);
}

void FakeSupplicantProcess::Stop()
{
    kill(pid, SIGSTOP);
    waitpid(pid, nullptr, WUNTRACED);
}

void FakeSupplicantProcess::Continue()
{
    kill(pid, SIGCONT);
    waitpid(pid, nullptr, WCONTINUED);
}

void FakeSupplicantProcess::CloseSocket()
{
    kill(pid, SIGUSR1);
    const QByteArray path = FakeSupplicant::SocketPath(QStringLiteral("wlan0")).toLocal8Bit();
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    memcpy(address.sun_path, path.constData(), static_cast<size_t>(path.size()));
    const int probe = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    while (connect(probe, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) == 0)
        std::this_thread::sleep_for(PAUSE);
    close(probe);
}
