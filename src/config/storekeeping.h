// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

/// Has the last good version of the store outlive the daemon: it is in force where the next one finds no
/// store, or none that it can read. To be called before anything is read of the store. The device's own
/// library keeps its store itself; with it this does nothing.
void KeepStoreOverRestarts();
