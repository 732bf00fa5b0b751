// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <chrono>
#include <optional>
#include <vector>

#include <sys/types.h>

/// A process that is, or may be, a supplicant. Held by a descriptor (pidfd_open(2)), so that a later process
/// with the same number is never taken for it.
class SupplicantProcess
{
public:
    /// The process with this id. One that is there and cannot be held counts as alive for ever.
    explicit SupplicantProcess(pid_t processId);
    ~SupplicantProcess();
    SupplicantProcess(SupplicantProcess &&other) noexcept;
    SupplicantProcess &operator=(SupplicantProcess &&other) noexcept;

    /// Those in our network that were launched with this file by our own user, by this daemon or an earlier
    /// one.
    static std::vector<SupplicantProcess> FindWith(const QString &configurationPath);

    /// The interfaces that somebody else's supplicants work on: those that were not launched with this file.
    static QStringList ForeignInterfaces(const QString &configurationPath);

    pid_t Id() const { return id; }
    /// Also while nobody has waited for it yet.
    bool HasEnded() const { return HasEndedWithin(std::chrono::milliseconds(0)); }
    /// Waits for its end.
    bool HasEndedWithin(std::chrono::milliseconds limit) const;
    /// Whether it is stopped, by SIGSTOP for one, or held by a debugger: it is alive and answers nobody.
    /// Nothing when that cannot be told.
    std::optional<bool> IsStopped() const;
    /// Whether its command line, its user and its network are those of a supplicant that we launch with this
    /// file.
    bool IsLaunchedWith(const QString &configurationPath) const;
    void SendSignal(int number) const;

private:
    pid_t id;
    int descriptor;
    bool wasGone; ///< it had ended before it could be held
};
