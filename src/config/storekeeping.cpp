// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "storekeeping.h"

#include "paths.h"
#include "zebxmlconfig.h"

void KeepStoreOverRestarts()
{
    ZebXmlConfig::KeepLastGood(LAST_GOOD_STORE);
}
