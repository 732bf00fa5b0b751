// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

/// The identifier of the System V segment that is mapped at `address`, as shmctl(2) takes it; -1 when there
/// is none. Qt keeps the one it has to itself.
[[nodiscard]] int SegmentIdAt(const void *address);
