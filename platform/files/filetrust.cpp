// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "filetrust.h"

#include <QByteArrayList>
#include <QFile>
#include <QtEndian>

#include <array>
#include <cstring>

#include <linux/limits.h>
#include <linux/posix_acl.h>
#include <linux/posix_acl_xattr.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace {

/// As the kernel's own limit (path_resolution(7)).
constexpr int LINK_LIMIT = 40;

/// Whoever owns the root folder can change every path. In a user namespace that is not user 0.
uid_t OwnerOfTheRootFolder()
{
    struct stat info = {};
    return ::stat("/", &info) == 0 ? info.st_uid : 0;
}

bool IsTrustedUser(uid_t user)
{
    return user == ::geteuid() || user == OwnerOfTheRootFolder();
}

/// Whoever is in root's own group has been made root's equal; a umask of 002 lets that group write.
bool IsTrustedGroup(gid_t group)
{
    return group == 0;
}

/// A link has no rights of its own, and /tmp is for all.
bool IsAskedWhoMayWrite(const QByteArray &path, const struct stat &info)
{
    const bool isTemporaryFolder = path == "/tmp" && (info.st_mode & S_ISVTX) != 0;
    return !S_ISLNK(info.st_mode) && !isTemporaryFolder;
}

bool MayOthersWrite(const struct stat &info)
{
    const bool mayGroupWrite = (info.st_mode & S_IWGRP) != 0 && !IsTrustedGroup(info.st_gid);
    return mayGroupWrite || (info.st_mode & S_IWOTH) != 0;
}

/// Whether the entry lets somebody write who may not by himself.
bool GivesAway(const posix_acl_xattr_entry &entry)
{
    const int tag = qFromLittleEndian(entry.e_tag);
    const auto id = qFromLittleEndian(entry.e_id);
    const bool isOthers =
        (tag == ACL_USER && !IsTrustedUser(id)) || (tag == ACL_GROUP && !IsTrustedGroup(id));
    return isOthers && (qFromLittleEndian(entry.e_perm) & ACL_WRITE) != 0;
}

/// With an access control list the bits of the group are the most that the users and groups in it may do
/// (acl(5)), whoever the group is.
bool MayNamedOnesWrite(const QByteArray &path, const struct stat &info)
{
    if ((info.st_mode & S_IWGRP) == 0)
        return false;
    std::array<char, XATTR_SIZE_MAX> list; // Only what was read is looked at.
    const ssize_t size = ::lgetxattr(path.constData(), "system.posix_acl_access", list.data(), list.size());
    posix_acl_xattr_entry entry = {};
    for (ssize_t at = sizeof(posix_acl_xattr_header); at + ssize_t(sizeof entry) <= size;
         at += ssize_t(sizeof entry)) {
        std::memcpy(&entry, list.data() + at, sizeof entry);
        if (GivesAway(entry))
            return true;
    }
    return false;
}

QString ProblemOf(const QByteArray &path, const struct stat &info)
{
    if (!IsTrustedUser(info.st_uid))
        return QFile::decodeName(path) + QStringLiteral(" belongs to user %1").arg(info.st_uid);
    if (!IsAskedWhoMayWrite(path, info))
        return QString();
    if (MayOthersWrite(info))
        return QFile::decodeName(path) + QStringLiteral(" may be written by others than its owner");
    if (MayNamedOnesWrite(path, info))
        return QFile::decodeName(path) +
               QStringLiteral(" may be written by those that its access control list names");
    return QString();
}

QByteArray LinkTarget(const QByteArray &path)
{
    QByteArray target(4096, '\0'); // PATH_MAX: no link is longer
    const ssize_t size = ::readlink(path.constData(), target.data(), size_t(target.size()));
    target.truncate(size < 0 ? 0 : int(size));
    return target;
}

} // namespace

QString TrustProblem(const QString &path)
{
    QByteArray trusted; // so far, without a slash at its end: empty is the root folder
    QByteArrayList rest = QFile::encodeName(path).split('/');
    for (int links = 0; !rest.isEmpty() && links <= LINK_LIMIT;) {
        const QByteArray name = rest.takeFirst();
        if (name.isEmpty() || name == ".")
            continue;
        if (name == "..") {
            trusted.truncate(qMax(0, int(trusted.lastIndexOf('/'))));
            continue;
        }
        const QByteArray next = trusted + '/' + name;
        struct stat info = {};
        if (::lstat(next.constData(), &info) != 0)
            return QString();
        QString problem = ProblemOf(next, info);
        if (!problem.isEmpty())
            return problem;
        if (!S_ISLNK(info.st_mode)) {
            trusted = next;
            continue;
        }
        const QByteArray target = LinkTarget(next);
        if (target.startsWith('/'))
            trusted.clear();
        rest = target.split('/') + rest;
        ++links;
    }
    return QString();
}
