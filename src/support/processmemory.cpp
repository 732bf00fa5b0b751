// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "processmemory.h"

#include <malloc.h>
#include <sys/prctl.h>
#include <sys/resource.h>

namespace {

/// The C library's own first value; setting it keeps it.
constexpr int LARGE_BLOCK = 128 * 1024;

} // namespace

void ProcessMemory::KeepToOurselves()
{
    const rlimit none = {0, 0};
    ::setrlimit(RLIMIT_CORE, &none);
    ::prctl(PR_SET_DUMPABLE, 0);
}

void ProcessMemory::GiveBackNow()
{
    ::malloc_trim(0);
}

void ProcessMemory::GiveBackWhatIsFreed()
{
    ::mallopt(M_MMAP_THRESHOLD, LARGE_BLOCK);
}
