// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QString>
#include <QStringList>

#include <atomic>
#include <chrono>
#include <mutex>
#include <thread>

#include <sys/socket.h>
#include <sys/un.h>

/// The supplicant's end of the control interface, as a test wants it to be: answers, delays, stays silent,
/// sends events between a request and its reply, dies. Answers from a thread of its own, since the daemon
/// blocks while it waits. Unless told otherwise it answers every command with "OK".
class FakeSupplicant
{
public:
    /// How one command is dealt with, in the order of the members.
    struct Answer
    {
        QList<QByteArray> eventsFirst;
        int delayMs = 0;
        bool dies = false; ///< the socket is closed as a killed process leaves it
        bool silent = false;
        QByteArray reply = "OK\n";
    };

    /// Binds the interface's socket in the control folder, in place of what has the name.
    explicit FakeSupplicant(const QString &interfaceName = QStringLiteral("wlan0"));
    /// An abstract socket, for instance; nothing is removed first.
    explicit FakeSupplicant(const sockaddr_un &address);
    ~FakeSupplicant();
    FakeSupplicant(const FakeSupplicant &) = delete;
    FakeSupplicant &operator=(const FakeSupplicant &) = delete;

    void SetAnswer(const QByteArray &command, const Answer &answer);
    void SetReply(const QByteArray &command, const QByteArray &reply);
    void SetSilent(const QByteArray &command);

    /// Every command so far, in order.
    QStringList Commands() const;
    void ClearCommands();

    /// Sends a datagram to the client that attached last. False when it does not take it.
    bool SendEvent(const QByteArray &event);
    /// Closes the socket and leaves its name, as SIGKILL would.
    void Die();
    /// Stops reading, as SIGSTOP would; what arrives waits in the socket.
    void Freeze();
    void Thaw();

    static QString SocketPath(const QString &interfaceName);

private:
    void Listen(const sockaddr_un &address);
    void Serve();
    bool ServeOne();
    void Deliver(const QByteArray &datagram, const sockaddr_un &client, socklen_t length);

    int socket = -1;
    QString path;
    sockaddr_un attached{};
    socklen_t attachedLength = 0;
    QHash<QByteArray, Answer> answers;
    QStringList commands;
    mutable std::mutex mutex; ///< guards all above
    std::atomic<bool> ending{false};
    std::atomic<bool> frozen{false};
    std::thread thread;
};

/// A FakeSupplicant on wlan0 in a process of its own, for what is done to processes. Its command line is that
/// of a supplicant that the daemon launched, and the given options (fakesupplicantmain.cpp).
class FakeSupplicantProcess
{
public:
    explicit FakeSupplicantProcess(const QStringList &options = {});
    ~FakeSupplicantProcess();
    FakeSupplicantProcess(const FakeSupplicantProcess &) = delete;
    FakeSupplicantProcess &operator=(const FakeSupplicantProcess &) = delete;

    pid_t Id() const { return pid; }
    bool HasEnded(std::chrono::milliseconds limit = std::chrono::milliseconds(0)) const;

    // These return when it has happened.
    void Stop();
    void Continue();
    /// Nobody has waited for the process afterwards: it is a zombie.
    void Kill();
    /// The process lives on.
    void CloseSocket();

private:
    pid_t pid;
};
