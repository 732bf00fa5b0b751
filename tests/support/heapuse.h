// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <cstddef>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)

extern "C" std::size_t __sanitizer_get_current_allocated_bytes();

/// How many bytes of the heap this program holds at present.
inline std::size_t HeapUse()
{
    return __sanitizer_get_current_allocated_bytes();
}

#else

#include <malloc.h>

/// How many bytes of the heap this program holds at present.
inline std::size_t HeapUse()
{
    return ::mallinfo2().uordblks;
}

#endif
