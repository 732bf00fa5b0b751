// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "securefile.h"

#include <QFile>
#include <QProcess>
#include <QScopeGuard>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr int MIB = 1024 * 1024;
/// Many times what any file read here needs. Some are where every user can put one of any size.
constexpr int SIZE_LIMIT_MIB = 1;

QString LastError()
{
    return QString::fromLocal8Bit(std::strerror(errno));
}

bool WriteAll(int fd, const QByteArray &contents)
{
    QFile file;
    return file.open(fd, QIODevice::WriteOnly, QFileDevice::DontCloseHandle) &&
           file.write(contents) == contents.size() && file.flush();
}

/// Where the file system knows of no disk to wait for, there is none.
bool ReachDisk(int fd)
{
    return ::fdatasync(fd) == 0 || errno == EINVAL;
}

/// Ends a folder that was moved out of the way. By a program of its own, as another user may have made it
/// deep or full enough to keep us busy for minutes; rm(1) follows no link, not even one that is put there
/// meanwhile.
void Discard(const QByteArray &folder)
{
    // Where it cannot be started, a name in /tmp that nobody uses is all that is left.
    static_cast<void>(QProcess::startDetached(QStringLiteral("rm"),
                                              {QStringLiteral("-rf"), QStringLiteral("--one-file-system"),
                                               QStringLiteral("--"), QFile::decodeName(folder)}));
}

/// rename(2) that displaces a folder, too: it changes places with the file, which takes one step as well.
bool PutInPlace(const QByteArray &temporary, const QByteArray &path)
{
    if (::rename(temporary.constData(), path.constData()) == 0)
        return true;
    if (errno != EISDIR ||
        ::renameat2(AT_FDCWD, temporary.constData(), AT_FDCWD, path.constData(), RENAME_EXCHANGE) != 0)
        return false;
    Discard(temporary);
    return true;
}

/// Leaves errno as it is. A file system that is read-only gives that as the reason also for a name that it
/// does not have.
bool IsNothingAt(const QByteArray &name)
{
    const int reason = errno;
    struct stat info = {};
    const bool isNothing = ::lstat(name.constData(), &info) != 0 && errno == ENOENT;
    errno = reason;
    return isNothing;
}

bool ReplaceFile(const QString &path, const QByteArray &contents, mode_t mode, bool isLasting)
{
    QByteArray temporary = QFile::encodeName(path) + ".XXXXXX";
    const int fd = ::mkostemp(temporary.data(), O_CLOEXEC);
    if (fd == -1)
        return false;
    const auto closer = qScopeGuard([fd] { ::close(fd); });
    if (::fchmod(fd, mode) == 0 && WriteAll(fd, contents) && (!isLasting || ReachDisk(fd)) &&
        PutInPlace(temporary, QFile::encodeName(path)))
        return true;
    const int reason = errno;
    ::unlink(temporary.constData());
    errno = reason;
    return false;
}

} // namespace

bool SecureFile::Replace(const QString &path, const QByteArray &contents, mode_t mode)
{
    return ReplaceFile(path, contents, mode, false);
}

bool SecureFile::ReplaceLasting(const QString &path, const QByteArray &contents, mode_t mode)
{
    return ReplaceFile(path, contents, mode, true);
}

bool SecureFile::Remove(const QString &path)
{
    const QByteArray name = QFile::encodeName(path);
    if (::unlink(name.constData()) == 0 || IsNothingAt(name))
        return true;
    if (errno != EISDIR)
        return false;
    if (::rmdir(name.constData()) == 0)
        return true;
    QByteArray aside = name + ".XXXXXX";
    if (!::mkdtemp(aside.data()))
        return false;
    if (::rename(name.constData(), aside.constData()) != 0) {
        ::rmdir(aside.constData());
        return false;
    }
    Discard(aside);
    return true;
}

bool SecureFile::IsOurs(const QString &path)
{
    struct stat info = {};
    return ::lstat(QFile::encodeName(path).constData(), &info) == 0 && S_ISREG(info.st_mode) &&
           info.st_uid == ::geteuid() && info.st_nlink == 1;
}

SecureFile::Reading SecureFile::Read(const QString &path, int limitMib, int flags)
{
    Reading reading;
    // Without O_NONBLOCK a named pipe at the path would stop the program here.
    const int fd =
        ::open(QFile::encodeName(path).constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY | flags);
    if (fd == -1) {
        reading.problem = LastError();
        return reading;
    }
    const auto closer = qScopeGuard([fd] { ::close(fd); });
    if (::fstat(fd, &reading.info) != 0 || !S_ISREG(reading.info.st_mode)) {
        reading.problem = QStringLiteral("is not a regular file");
        return reading;
    }
    QFile file;
    if (file.open(fd, QIODevice::ReadOnly, QFileDevice::DontCloseHandle))
        reading.contents = file.read(limitMib * MIB + 1);
    if (file.error() != QFileDevice::NoError)
        reading.problem = file.errorString();
    else if (reading.contents.size() > limitMib * MIB)
        reading.problem = QStringLiteral("is larger than %1 MiB").arg(limitMib);
    return reading;
}

std::optional<QByteArray> SecureFile::ReadRegular(const QString &path, int flags)
{
    const Reading reading = Read(path, SIZE_LIMIT_MIB, flags);
    return reading.problem.isEmpty() ? std::make_optional(reading.contents) : std::nullopt;
}
