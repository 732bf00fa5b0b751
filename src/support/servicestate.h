// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QVector>

#include <optional>

#include <sys/types.h>

/// What the daemon has decided about one interface and what it waits for there: nothing that the kernel, the
/// supplicant or a file says already, and no secret. Times are milliseconds of CLOCK_MONOTONIC
/// (clock_gettime(2)), unless a name says otherwise.
struct InterfaceState
{
    QString name;
    QString kind;             ///< "wired", "wireless" or "modem"
    QString definition;       ///< the one in force, or that will be; empty when none applies
    int definitionCount = 0;  ///< that apply
    bool isStatic = false;    ///< the definition sets the address
    bool isInUse = false;     ///< its turn has come
    bool isHeldDown = false;  ///< taken down, as a better one carries
    bool isConnected = false; ///< of a modem: its tool says so
    QString connectionFault;  ///< of a modem: why it is not, as far as its tool says

    bool usesSupplicant = false;
    bool isInFallback = false;                 ///< goes on without authentication
    std::optional<qint64> authenticationSince; ///< it has been waited for
    /// After how many seconds of it the wired setup goes on without authentication; 0 when it never does.
    int fallbackSeconds = 0;
    QString lastFailure;                       ///< why authentication failed last; empty since it succeeded
    qint64 failureSince = 0;                   ///< the first of these failures: seconds since 1970-01-01 UTC
    std::optional<qint64> nextSupplicantStart; ///< none has stayed, and the next try has time

    QString gateway;                     ///< that its default route is to lead to; empty where none is known
    QString addressHolder;               ///< another host with its address; empty where none is known
    int dhcpFailures = 0;                ///< attempts in a row that got no address
    QString dhcpRefuser;                 ///< the server that refused the last of them; empty where none did
    QString dhcpOfferer;                 ///< the one that only offered an address in the last of them
    std::optional<qint64> dhcpSince;     ///< an attempt is under way
    std::optional<qint64> nextDhcpStart; ///< the next attempt after a failed one

    bool operator==(const InterfaceState &other) const;
};

/// What the daemon tells other programs about itself in a file.
struct ServiceState
{
    static const QString FOLDER; ///< made by whoever starts the daemon
    static const QString PATH;

    QStringList toolFaults;             ///< of outside programs that do not run, each with its name
    QString carrier;                    ///< the interface that the traffic goes through; empty when none does
    QVector<InterfaceState> interfaces; ///< by name

    bool operator==(const ServiceState &other) const;

    /// For the file, in the name of this process.
    QByteArray ToJson() const;
    /// Says that this process is alive, and what the file holds is as of now: the file's time of modification
    /// is that of CLOCK_MONOTONIC. False where there is no file.
    [[nodiscard]] static bool Freshen();
};

/// What the file holds at one moment.
struct ServiceStateReading
{
    enum class Outcome {
        Read,       ///< `state` is that of the process `pid`, which runs.
        Stale,      ///< The process `pid` that wrote the file has ended.
        Absent,     ///< There is no file.
        Unreadable, ///< `error` says why.
    };

    Outcome outcome = Outcome::Absent;
    pid_t pid = 0;
    bool isStopped = false;   ///< the process is, by SIGSTOP or a debugger
    qint64 silentSeconds = 0; ///< since its last tick, which freshens the file
    ServiceState state;
    QString error;
};

ServiceStateReading ReadServiceState();
