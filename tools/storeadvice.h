// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include "storefinding.h"
#include "zebdocument.h"

/// What the daemon's reader takes and what nevertheless is wrong, as the store alone shows.
namespace StoreAdvice {

StoreFindings OnSettings(const ZebDocument &document);

StoreFindings OnNetworks(const ZebDocument &document);

} // namespace StoreAdvice
