// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "storekeeping.h"

void KeepStoreOverRestarts() {}
