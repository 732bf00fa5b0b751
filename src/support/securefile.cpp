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

} // namespace

bool SecureFile::Write(const QString &path, const QByteArray &contents, mode_t mode)
{
    const int fd =
        ::open(QFile::encodeName(path).constData(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, mode);
    if (fd == -1)
        return false;
    const auto closer = qScopeGuard([fd] { ::close(fd); });
    // An existing file keeps its mode through open(), a new one loses bits to the umask.
    return ::fchmod(fd, mode) == 0 && WriteAll(fd, contents);
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
