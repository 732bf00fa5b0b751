// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "resourcelimit.h"

#include <QtGlobal>

#include <csignal>

ResourceLimit::ResourceLimit(Resource limited, rlim_t value) : resource(limited)
{
    // The write is to fail; without this it would end the program.
    std::signal(SIGXFSZ, SIG_IGN);
    if (::getrlimit(resource, &previous) != 0)
        qFatal("cannot read the limit of resource %d", static_cast<int>(resource));
    rlimit limit = previous;
    limit.rlim_cur = value;
    if (::setrlimit(resource, &limit) != 0)
        qFatal("cannot limit resource %d", static_cast<int>(resource));
}

ResourceLimit::~ResourceLimit()
{
    ::setrlimit(resource, &previous);
}
