// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "securefile.h"

#include <QFile>
#include <QScopeGuard>

#include <cstdlib>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

bool WriteAll(int fd, const QByteArray &contents)
{
    QFile file;
    return file.open(fd, QIODevice::WriteOnly, QFileDevice::DontCloseHandle) &&
           file.write(contents) == contents.size() && file.flush();
}

/// A file of another user, a second name of some other file and a named pipe may have been put at the path.
bool IsOursAlone(int fd)
{
    struct stat info = {};
    return ::fstat(fd, &info) == 0 && S_ISREG(info.st_mode) && info.st_uid == ::geteuid() &&
           info.st_nlink == 1;
}

} // namespace

bool SecureFile::Write(const QString &path, const QByteArray &contents, mode_t mode)
{
    // Opening a named pipe without O_NONBLOCK would wait for a reader.
    const int fd = ::open(QFile::encodeName(path).constData(),
                          O_WRONLY | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, mode);
    if (fd == -1)
        return false;
    const auto closer = qScopeGuard([fd] { ::close(fd); });
    // An existing file keeps its mode through open(), a new one loses bits to the umask.
    return IsOursAlone(fd) && ::fchmod(fd, mode) == 0 && ::ftruncate(fd, 0) == 0 && WriteAll(fd, contents);
}

bool SecureFile::Replace(const QString &path, const QByteArray &contents, mode_t mode)
{
    QByteArray temporary = QFile::encodeName(path) + ".XXXXXX";
    const int fd = ::mkostemp(temporary.data(), O_CLOEXEC);
    if (fd == -1)
        return false;
    const auto closer = qScopeGuard([fd] { ::close(fd); });
    if (::fchmod(fd, mode) == 0 && WriteAll(fd, contents) &&
        ::rename(temporary.constData(), QFile::encodeName(path).constData()) == 0)
        return true;
    ::unlink(temporary.constData());
    return false;
}

std::optional<QByteArray> SecureFile::ReadRegular(const QString &path, int flags)
{
    const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | flags);
    if (fd == -1)
        return std::nullopt;
    const auto closer = qScopeGuard([fd] { ::close(fd); });
    struct stat info = {};
    if (::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode))
        return std::nullopt;
    QFile file;
    if (!file.open(fd, QIODevice::ReadOnly, QFileDevice::DontCloseHandle))
        return std::nullopt;
    return file.readAll();
}
