// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <QtGlobal>

#include <csignal>

#include <sys/resource.h>

/// While it exists no file of this program grows beyond `bytes`: a write is cut there, and the next one
/// fails, as on a full disk.
class FileSizeLimit
{
public:
    explicit FileSizeLimit(rlim_t bytes)
    {
        std::signal(SIGXFSZ, SIG_IGN);
        if (::getrlimit(RLIMIT_FSIZE, &previous) != 0)
            qFatal("cannot read the limit of a file's size");
        rlimit limit = previous;
        limit.rlim_cur = bytes;
        if (::setrlimit(RLIMIT_FSIZE, &limit) != 0)
            qFatal("cannot limit a file's size");
    }
    ~FileSizeLimit() { ::setrlimit(RLIMIT_FSIZE, &previous); }
    FileSizeLimit(const FileSizeLimit &) = delete;
    FileSizeLimit &operator=(const FileSizeLimit &) = delete;

private:
    rlimit previous = {};
};
