// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <atomic>
#include <cstddef>

/// Counts the heap allocations of the whole program. To be included by one source file of a program: it
/// takes the place of malloc() there, or listens to the sanitizer that has already taken it.
namespace AllocationCounter {
inline std::atomic<long> allocations{0};
} // namespace AllocationCounter

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)

extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*onMalloc)(const volatile void *, std::size_t),
                                                         void (*onFree)(const volatile void *));
namespace AllocationCounter {
inline const int hooks = __sanitizer_install_malloc_and_free_hooks(
    [](const volatile void *, std::size_t) { ++allocations; }, [](const volatile void *) {});
} // namespace AllocationCounter

#else

extern "C" {
void *__libc_malloc(std::size_t size);
void *__libc_calloc(std::size_t count, std::size_t size);
void *__libc_realloc(void *block, std::size_t size);

void *malloc(std::size_t size) noexcept
{
    ++AllocationCounter::allocations;
    return __libc_malloc(size);
}

void *calloc(std::size_t count, std::size_t size) noexcept
{
    ++AllocationCounter::allocations;
    return __libc_calloc(count, size);
}

void *realloc(void *block, std::size_t size) noexcept
{
    ++AllocationCounter::allocations;
    return __libc_realloc(block, size);
}
}

#endif
