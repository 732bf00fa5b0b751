// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include "storecheck.h"
#include "zebdocument.h"

/// What is wrong with the networks on this machine: certificates and keys that are missing or do not fit,
/// what its supplicant cannot do. Looks only, and runs nothing but the supplicant, over a file of its own.
StoreFindings MachineFindings(const ZebDocument &document);
