// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "wpasuppthread.h"

#include <iterator>

namespace {

/// Ticks between the end of a start that failed and the next one, by how many failed in a row before it.
constexpr int START_PAUSES[] = {0, 10, 20, 40, 60};

} // namespace

/// A supplicant has ended, or was given up, that was neither let in nor there for a while. Whatever keeps it
/// from starting is not gone in a moment, and each attempt blocks the service for 7 s.
void WpaSuppThread::NoteFailedStart()
{
    if (startProved)
        return;
    const int last = static_cast<int>(std::size(START_PAUSES)) - 1;
    pauseTicks = START_PAUSES[qMin(failedStarts++, last)];
    if (pauseTicks > 0)
        LogOnce(reports.pause) << "WpaSuppThread -- No supplicant stays on" << requestedInterface
                               << "- next try in" << pauseTicks << "s, see /var/log/wpa_supplicant.log";
}

void WpaSuppThread::NoteGoodStart()
{
    startProved = true;
    failedStarts = 0;
    reports.pause.Over();
}
