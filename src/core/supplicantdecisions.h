// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

/// What the service object decides about the supplicant, from what it has read. No I/O, no clock, no memory:
/// Corvi reads the world, asks here, and acts.
namespace SupplicantDecisions {

// What a tick does for the wired device that carries

struct WiredState
{
    bool linkCameUp;        ///< no link at the last tick
    bool usesSupplicant;    ///< the device's definition asks for 802.1X
    bool inFallback;        ///< the device has given up on authentication
    bool supplicantActive;  ///< it runs, or is on its way
    bool reconfigureWanted; ///< its file is to be read anew
    bool startsPause;       ///< several starts have failed: the next one has time
};

enum class WiredAction {
    LEAVE_ALONE,
    RELEASE_SUPPLICANT, ///< nobody needs one here
    START_SUPPLICANT,
    RECONFIGURE_SUPPLICANT,
    AWAIT_AUTHENTICATION,
};

WiredAction ForWiredTick(const WiredState &state);

// One call of the (re)start with its hold-off

struct HoldOffState
{
    int ticks; ///< calls that are still to count down
    bool usesSupplicant;
    bool stopPending;
    bool supplicantActive;
};

enum class HoldOffAction {
    CONFIGURE, ///< the hold-off is over
    END,       ///< there is nothing to hold off for
    AWAIT_STOP,
    COUNT_DOWN,
    STOP_SUPPLICANT, ///< the count begins when it has ended
};

HoldOffAction ForHoldOff(const HoldOffState &state);

// The wait for authentication, counted in supervision ticks of 1 s

struct WaitState
{
    bool associated;
    bool ipAnnounced;
    bool fallbackEnabled;
    int ticks; ///< waited so far
};

enum class WaitAction {
    GO_ON,
    KEEP_ADDRESS,  ///< give up on authentication: the port has an address that works without
    TRY_UNSECURED, ///< an attempt without authentication
};

struct Wait
{
    WaitAction action;
    int ticks; ///< the new count
};

Wait ForWait(const WaitState &state);

/// Seconds from the first tick that waits to the one that ends the wait where nobody lets us in, the address
/// and the fallback being as they are.
int WaitLimit(bool ipAnnounced, bool fallbackEnabled);

} // namespace SupplicantDecisions
