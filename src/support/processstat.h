// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <QByteArray>

#include <optional>

/// What the kernel says of a process in /proc/PID (proc(5)).
namespace ProcessStat {

/// Whether the process with this number is in our network namespace: a container's processes show in /proc,
/// too, and their interfaces are other ones under the same names. A process that may do more than we keeps
/// its "ns" closed to us (ptrace(2)), but not the list of its links, of which each namespace has one.
bool IsInOurNetwork(const QByteArray &process);

/// Whether this text of /proc/PID/stat is that of a process that is stopped, by SIGSTOP for one, or held by a
/// debugger: it is alive and does nothing. Nothing when the text is none.
std::optional<bool> IsStopped(const QByteArray &stat);

} // namespace ProcessStat
