// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "shellline.h"

#include <cstdlib>
#include <system_error>
#include <thread>

namespace {

void RunWithoutLimit(const char *line)
{
    [[maybe_unused]] const int ignored = std::system(line);
}

} // namespace

bool ShellLine::Run(std::chrono::milliseconds limit)
{
    if (running.valid() && running.wait_for(std::chrono::seconds(0)) != std::future_status::ready)
        return false;
    // On a thread of its own, as system(3) knows no limit and does not say which process it waits for.
    std::packaged_task<void()> task([text = line] { RunWithoutLimit(text); });
    running = task.get_future();
    try {
        std::thread(std::move(task)).detach();
    } catch (const std::system_error &) { // No thread can be had: without the limit then.
        running = {};
        RunWithoutLimit(line);
        return true;
    }
    return running.wait_for(limit) == std::future_status::ready;
}
