// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers
#pragma once

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <mutex>
#include <set>
#include <string>
#include <sys/resource.h>
#include <unistd.h>

// A fault may leave something unused or convert it; that is not what it is tried for.
#pragma GCC diagnostic ignored "-Wunused-variable"
#pragma GCC diagnostic ignored "-Wunused-but-set-variable"
#pragma GCC diagnostic ignored "-Wunused-parameter"
#pragma GCC diagnostic ignored "-Wunused-function"
#pragma GCC diagnostic ignored "-Wconversion"
#pragma GCC diagnostic ignored "-Wsign-conversion"
#pragma GCC diagnostic ignored "-Wreturn-type"

// Only a test has it; a program that a test starts has not.
namespace QTest {
__attribute__((weak)) const char *currentTestFunction();
}

namespace {

/// A test may leave its program no descriptor, or no room on the disk. While this exists it has both.
class Unlimited
{
public:
    Unlimited()
    {
        for (Limit &limit : limits) {
            getrlimit(limit.resource, &limit.given);
            const rlimit raised = {limit.given.rlim_max, limit.given.rlim_max};
            setrlimit(limit.resource, &raised);
        }
    }
    ~Unlimited()
    {
        for (const Limit &limit : limits)
            setrlimit(limit.resource, &limit.given);
    }
    Unlimited(const Unlimited &) = delete;
    Unlimited &operator=(const Unlimited &) = delete;

private:
    struct Limit
    {
        __rlimit_resource_t resource;
        rlimit given;
    };
    Limit limits[2] = {{RLIMIT_NOFILE, {}}, {RLIMIT_FSIZE, {}}};
};

/// Adds a line with the fault's number and the test function that runs to the file CORVI_FAULTS_REACHED,
/// once.
[[maybe_unused]] void NoteReached(int number)
{
    const char *path = std::getenv("CORVI_FAULTS_REACHED");
    if (path == nullptr)
        return;
    const char *function = QTest::currentTestFunction != nullptr ? QTest::currentTestFunction() : nullptr;
    const std::string line = std::to_string(number) + " " + (function != nullptr ? function : "") + "\n";

    static std::mutex mutex;
    static std::set<std::string> noted;
    const std::lock_guard<std::mutex> guard(mutex);
    if (!noted.insert(line).second)
        return;
    const int error = errno;
    const Unlimited unlimited;
    const int file = open(path, O_WRONLY | O_APPEND | O_CLOEXEC);
    // Otherwise a fault would look as if nothing reached it.
    if (file < 0 || write(file, line.data(), line.size()) < 0)
        std::abort();
    close(file);
    errno = error;
}

/// Whether the fault of this number is in force: the one that CORVI_FAULT names.
[[maybe_unused]] bool isFaulty(int number)
{
    static const char *const text = std::getenv("CORVI_FAULT");
    static const int chosen = text != nullptr ? std::atoi(text) : 0;
    NoteReached(number);
    return number == chosen;
}

} // namespace
