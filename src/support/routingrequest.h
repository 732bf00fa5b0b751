// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <cstddef>

/// Sends one request to the kernel's routing (rtnetlink(7)). No answer is awaited: what was done shows where
/// the caller looks anyway. False where it was not sent.
bool SendToRouting(const void *request, size_t length);
