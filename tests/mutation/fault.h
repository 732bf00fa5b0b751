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
#pragma GCC diagnostic ignored "-Wparentheses"

// Only a test has it; a program that a test starts has not.
namespace QTest {
__attribute__((weak)) const char *currentTestFunction();
}

/// The file CORVI_FAULTS_REACHED, -1 without one. It is open from the start, with a number that no test
/// counts on: a test may hide the folder that it is in, leave its program no descriptor, or go on as another
/// user.
inline const int notes = [] {
    const char *path = std::getenv("CORVI_FAULTS_REACHED");
    if (path == nullptr)
        return -1;
    const int file = open(path, O_WRONLY | O_APPEND | O_CLOEXEC);
    const int kept = fcntl(file, F_DUPFD_CLOEXEC, 500);
    // Otherwise a fault would look as if nothing reached it.
    if (kept < 0)
        std::abort();
    close(file);
    return kept;
}();

namespace {

/// A test may leave its program no room on the disk. While this exists it has some.
class UnlimitedDisk
{
public:
    UnlimitedDisk()
    {
        getrlimit(RLIMIT_FSIZE, &given);
        const rlimit raised = {given.rlim_max, given.rlim_max};
        setrlimit(RLIMIT_FSIZE, &raised);
    }
    ~UnlimitedDisk() { setrlimit(RLIMIT_FSIZE, &given); }
    UnlimitedDisk(const UnlimitedDisk &) = delete;
    UnlimitedDisk &operator=(const UnlimitedDisk &) = delete;

private:
    rlimit given = {};
};

/// Adds a line with the fault's number and the test function that runs to the notes, once.
[[maybe_unused]] void NoteReached(int number)
{
    if (notes < 0)
        return;
    const char *function = QTest::currentTestFunction != nullptr ? QTest::currentTestFunction() : nullptr;
    const std::string line = std::to_string(number) + " " + (function != nullptr ? function : "") + "\n";

    static std::mutex mutex;
    static std::set<std::string> noted;
    const std::lock_guard<std::mutex> guard(mutex);
    if (!noted.insert(line).second)
        return;
    const int error = errno;
    const UnlimitedDisk unlimited;
    if (write(notes, line.data(), line.size()) < 0)
        std::abort();
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
