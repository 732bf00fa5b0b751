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

/// Many times what any file read here needs. Some are where every user can put one of any size.
constexpr int SIZE_LIMIT = 1024 * 1024;

bool WriteAll(int fd, const QByteArray &contents)
{
    QFile file;
    return file.open(fd, QIODevice::WriteOnly, QFileDevice::DontCloseHandle) &&
           file.write(contents) == contents.size() && file.flush();
}

} // namespace

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

bool SecureFile::IsOurs(const QString &path)
{
    struct stat info = {};
    return ::lstat(QFile::encodeName(path).constData(), &info) == 0 && S_ISREG(info.st_mode) &&
           info.st_uid == ::geteuid() && info.st_nlink == 1;
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
    const QByteArray contents = file.read(SIZE_LIMIT + 1);
    if (file.error() != QFileDevice::NoError || contents.size() > SIZE_LIMIT)
        return std::nullopt;
    return contents;
}
