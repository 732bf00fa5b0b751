// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <chrono>
#include <future>

/// A line for the C library's system(3), which by itself waits for as long as the line takes.
class ShellLine
{
public:
    /// `text` has to outlive the object, and whatever it runs.
    explicit ShellLine(const char *text) : line(text) {}

    /// Runs the line; true when it has ended within `limit`, whatever its result. One that takes longer goes
    /// on, and as long as it does it is neither started again nor waited for; SIGINT and SIGQUIT are ignored
    /// until then (system(3)).
    bool Run(std::chrono::milliseconds limit);

private:
    const char *const line;
    std::future<void> running;
};
