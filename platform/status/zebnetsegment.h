// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <QString>

/// The shared segment that always holds the status record of the interface that last reported.
namespace ZebNetSegment {

/// As QSharedMemory takes it.
inline const QString KEY = QStringLiteral("com.qarbo.zebnetstatus");
/// In bytes.
inline constexpr int SIZE = 512;

} // namespace ZebNetSegment
