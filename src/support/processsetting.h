// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

/// What the process takes for granted and whoever starts it may leave out: a boot script, a container, an
/// administrator in a hurry. For the start, before anything is opened or run.
namespace ProcessSetting {

/// Standard input, output and error lead nowhere where they are closed. Otherwise the next socket or file
/// that is opened takes their numbers, and whatever prints prints into it.
void OpenClosedStreams();

/// What is ignored or blocked where we were started (execve(2) hands both on) is neither here nor in what we
/// start: with SIGCHLD blocked no tool is seen to end, with SIGTERM none can be asked to.
void ResetSignals();

/// Without any PATH the C library looks in /bin and /usr/bin alone, where the tools are not. One that is set,
/// to whatever, stays.
void SetMissingPath();

/// A pipe or terminal that our output leads to may go away; that is no reason to end. Programs that
/// QProcess starts get the default back; what system(3) starts ignores the signal, too.
void OutliveReaders();

} // namespace ProcessSetting
