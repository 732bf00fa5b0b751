// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "instancelock.h"

#include <QFile>
#include <QThread>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <ctime>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

/// The first that can be had. Not in the unit's own folder in /run, which goes with the unit, while a daemon
/// that was started by hand goes on.
const std::array<QString, 2> PATHS = {QStringLiteral("/run/corvi.lock"), QStringLiteral("/tmp/corvi.lock")};

constexpr std::chrono::milliseconds PAUSE{50};
/// An orderly end waits up to 1 s for the supervisor's thread, and on a busy machine takes longer.
constexpr int TRIES = 60;
/// What a program is told for hours shows in its log each time, however often the log is cut or begun anew.
constexpr std::time_t NEWS_S = std::time_t{60} * 60;

/// A file of our own with this one name. Asked of the open file: the name may lead elsewhere by now.
bool IsOurs(int fd)
{
    struct stat info = {};
    return ::fstat(fd, &info) == 0 && S_ISREG(info.st_mode) && info.st_uid == ::geteuid() &&
           info.st_nlink == 1;
}

/// -1 where the path is no file of our own: another user could keep the lock of his own.
int OpenAt(const QString &path)
{
    const int fd = ::open(QFile::encodeName(path).constData(),
                          O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0600);
    if (fd == -1 || IsOurs(fd))
        return fd;
    ::close(fd);
    return -1;
}

int Open()
{
    for (const QString &path : PATHS)
        if (const int fd = OpenAt(path); fd != -1)
            return fd;
    return -1;
}

/// Nothing when the lock is free, otherwise who has it.
std::optional<pid_t> HolderOf(int fd)
{
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    if (::fcntl(fd, F_GETLK, &lock) != 0 || lock.l_type == F_UNLCK)
        return std::nullopt;
    return lock.l_pid;
}

/// False while another process has it. A file system that knows no locks gives it to everybody.
bool Lock(int fd)
{
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    return ::fcntl(fd, F_SETLK, &lock) == 0 || (errno != EACCES && errno != EAGAIN);
}

/// That a refusal was told, and not too long ago.
bool HasFreshMark(int fd)
{
    struct stat info = {};
    return ::fstat(fd, &info) == 0 && info.st_size > 0 && std::abs(::time(nullptr) - info.st_mtime) < NEWS_S;
}

/// A refusal that is news leaves a mark in the file, which the next holder wipes.
bool MarkRefusal(int fd)
{
    if (HasFreshMark(fd))
        return false;
    // On a full disk there is no mark, and the next refusal is told too.
    [[maybe_unused]] const ssize_t written = ::pwrite(fd, "1", 1, 0);
    return true;
}

} // namespace

std::optional<InstanceLock::Refusal> InstanceLock::Take()
{
    const int fd = Open();
    if (fd == -1)
        return std::nullopt;
    for (int attempt = 0; !Lock(fd); ++attempt) {
        if (attempt >= TRIES) {
            const Refusal refusal{HolderOf(fd).value_or(0), MarkRefusal(fd)};
            ::close(fd);
            return refusal;
        }
        QThread::msleep(static_cast<unsigned long>(PAUSE.count()));
    }
    // Stays open: closing it would let go of the lock. A mark that cannot be wiped costs one line of the log.
    [[maybe_unused]] const int ignored = ::ftruncate(fd, 0);
    return std::nullopt;
}

bool InstanceLock::IsHeldBy(pid_t process)
{
    const int fd = Open();
    if (fd == -1)
        return false;
    const auto holder = HolderOf(fd);
    ::close(fd);
    return holder == process;
}
