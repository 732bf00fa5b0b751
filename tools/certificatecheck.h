// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include "securitymodes.h"
#include "storecheck.h"
#include "zebnetwork.h"

/// What is wrong with the certificates and the key that a network in this mode authenticates with, as far as
/// the store names them: what comes from SCEP may not be there yet.
StoreFindings CertificateFindings(const ZebNetwork &network, const SecurityMode &mode);
