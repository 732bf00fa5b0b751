// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

#include <sys/types.h>

/// Files at fixed names in folders that others may write to. No writing operation follows a symbolic link in
/// the last part of the path, and no descriptor is inherited by a child.
namespace SecureFile {

/// Replaces the file by a new one of our own in a single step, so that a reader sees the old or the new
/// contents and never a part. It has exactly `mode` before the first byte is written. Whatever others put at
/// `path` is displaced, a link as such; a folder stays, and this fails. False leaves everything as it was.
[[nodiscard]] bool Replace(const QString &path, const QByteArray &contents, mode_t mode);

/// Whether `path` is a plain file of our own with this one name. Where only owners may remove files, as in
/// /tmp, it stays so. Another user's file, a link to one and a second name of some other file are not.
[[nodiscard]] bool IsOurs(const QString &path);

/// The contents of a plain file; nothing for one that cannot be read or is larger than 1 MiB, and for
/// anything else at `path`, such as a named pipe, on which reading would wait. `flags` are further ones for
/// open(2): a symbolic link is followed unless they hold O_NOFOLLOW.
[[nodiscard]] std::optional<QByteArray> ReadRegular(const QString &path, int flags = 0);

} // namespace SecureFile
