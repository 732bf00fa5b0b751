// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include "securefile.h"

#include <QString>

/// The file of one section of the store.
namespace ZebSectionFile {

inline constexpr int SIZE_LIMIT_MIB = 4; // 200 networks take a twentieth of it

/// As SecureFile::Read(), with the size that a section may have.
[[nodiscard]] SecureFile::Reading Read(const QString &path);

/// As Read(), of a file that the store obeys: nobody but its owner could have put or changed it.
[[nodiscard]] SecureFile::Reading ReadTrusted(const QString &path);

} // namespace ZebSectionFile
