// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <QByteArray>

#include <optional>

/// What the kernel says of a process in /proc/PID/stat (proc(5)).
namespace ProcessStat {

/// Whether this text of it is that of a process that is stopped, by SIGSTOP for one, or held by a debugger:
/// it is alive and does nothing. Nothing when the text is none.
std::optional<bool> IsStopped(const QByteArray &stat);

} // namespace ProcessStat
