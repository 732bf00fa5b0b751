// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "supplicantdecisions.h"

namespace {

/// Ticks without authentication after which a port that already has an address gives up.
constexpr int ANNOUNCED_FALLBACK_TICKS = 10;
/// Ticks without authentication after which the unsecured configuration is tried.
constexpr int FORCED_FALLBACK_TICKS = 60;

} // namespace

namespace SupplicantDecisions {

WiredAction ForWiredTick(const WiredState &state)
{
    if (!state.usesSupplicant)
        return WiredAction::RELEASE_SUPPLICANT;
    // A link that came up ends the fallback.
    if (state.inFallback && !state.linkCameUp)
        return WiredAction::LEAVE_ALONE;
    const bool hasNews = state.linkCameUp || state.reconfigureWanted;
    if (!state.supplicantActive)
        return state.startsPause && !hasNews ? WiredAction::LEAVE_ALONE : WiredAction::START_SUPPLICANT;
    if (hasNews)
        return WiredAction::RECONFIGURE_SUPPLICANT;
    return WiredAction::AWAIT_AUTHENTICATION;
}

HoldOffAction ForHoldOff(const HoldOffState &state)
{
    if (state.ticks <= 0)
        return HoldOffAction::CONFIGURE;
    if (!state.usesSupplicant)
        return HoldOffAction::END;
    if (state.stopPending)
        return HoldOffAction::AWAIT_STOP;
    return state.supplicantActive ? HoldOffAction::STOP_SUPPLICANT : HoldOffAction::COUNT_DOWN;
}

Wait ForWait(const WaitState &state)
{
    // The count toggles between 0 and 1 while the port is authenticated; it is meant to.
    if (state.associated)
        return {WaitAction::GO_ON, state.ticks == 0 ? 1 : 0};
    if (state.ipAnnounced && state.fallbackEnabled && state.ticks > ANNOUNCED_FALLBACK_TICKS)
        return {WaitAction::KEEP_ADDRESS, state.ticks};
    const int ticks = state.ticks + 1;
    return {ticks > FORCED_FALLBACK_TICKS ? WaitAction::TRY_UNSECURED : WaitAction::GO_ON, ticks};
}

int WaitLimit(bool ipAnnounced, bool fallbackEnabled)
{
    // The one looks before it counts its tick, the other after.
    return ipAnnounced && fallbackEnabled ? ANNOUNCED_FALLBACK_TICKS + 1 : FORCED_FALLBACK_TICKS;
}

} // namespace SupplicantDecisions
