// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <sys/resource.h>

/// While it exists this program has no more than `value` of one of setrlimit(2)'s resources:
/// RLIMIT_FSIZE      no file grows beyond so many bytes: a write is cut there, and the next one fails, as on
///                   a full disk
/// RLIMIT_NOFILE     no descriptor is given out from this number on
class ResourceLimit
{
public:
    using Resource = __rlimit_resource_t;

    ResourceLimit(Resource limited, rlim_t value);
    ~ResourceLimit();
    ResourceLimit(const ResourceLimit &) = delete;
    ResourceLimit &operator=(const ResourceLimit &) = delete;

private:
    const Resource resource;
    rlimit previous = {};
};
