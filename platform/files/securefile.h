// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

#include <sys/stat.h>

/// Files at fixed names in folders that others may write to. No writing operation follows a symbolic link in
/// the last part of the path, and no descriptor is inherited by a child.
namespace SecureFile {

/// Replaces the file by a new one of our own in a single step, so that a reader sees the old or the new
/// contents and never a part. It has exactly `mode` before the first byte is written. Whatever others put at
/// `path` is displaced, a link as such, a folder with all that is in it. False leaves everything as it was,
/// with the reason in errno.
[[nodiscard]] bool Replace(const QString &path, const QByteArray &contents, mode_t mode);

/// As Replace(), for what is to outlive a power cut: the contents are on the disk before they are put in
/// place, where the file system may otherwise keep the new name of an empty file. Waits for the disk.
[[nodiscard]] bool ReplaceLasting(const QString &path, const QByteArray &contents, mode_t mode);

/// Removes whatever is at `path`, a link as such, a folder with all that is in it. The name is free at once;
/// what was in the folder goes in the background. True when there is nothing (any more).
[[nodiscard]] bool Remove(const QString &path);

/// Whether `path` is a plain file of our own with this one name. Where only owners may remove files, as in
/// /tmp, it stays so. Another user's file, a link to one and a second name of some other file are not.
[[nodiscard]] bool IsOurs(const QString &path);

/// What reading a plain file gave.
struct Reading
{
    QByteArray contents; ///< whole when there is no problem
    QString problem;     ///< why it could not be read, or empty
    struct stat info = {};
};

/// Reads a plain file of at most `limitMib` MiB. Anything else at `path` is a problem, such as a named pipe,
/// on which reading would wait. `flags` are further ones for open(2): a symbolic link is followed unless they
/// hold O_NOFOLLOW.
[[nodiscard]] Reading Read(const QString &path, int limitMib, int flags = 0);

/// As Read() with 1 MiB, for one who does not ask why there is nothing.
[[nodiscard]] std::optional<QByteArray> ReadRegular(const QString &path, int flags = 0);

} // namespace SecureFile
