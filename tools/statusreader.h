// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include "zebnetstatus.h"

#include <QString>

/// What the shared segment holds at one moment.
struct StatusReading
{
    enum class Outcome {
        Published,  ///< `status` is the record of the device that last reported.
        NotYet,     ///< A daemon is there and has published nothing so far.
        NoDaemon,   ///< Nobody keeps the segment: what it may hold is old.
        Unreadable, ///< `error` says why.
    };

    Outcome outcome = Outcome::NoDaemon;
    ZebNetStatus status;
    QString error;
};

/// Reads the segment once and lets go of it again, as the last one to hold it would keep a dead daemon's
/// record alive. Waits as long as another program holds the segment's lock.
StatusReading ReadStatus();
