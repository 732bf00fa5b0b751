// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

/// Flag files and other files that the platform puts below /tmp/config for the daemon. One that another user
/// could have put there counts as absent, and that is told. Main thread only.
namespace PlatformFile {

[[nodiscard]] bool Exists(const QString &path);

/// The contents of a plain file of at most 1 MiB.
[[nodiscard]] std::optional<QByteArray> Read(const QString &path);

} // namespace PlatformFile
