// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

/// Hears from the kernel that an interface of this machine came, went or changed (rtnetlink(7), RTMGRP_LINK),
/// so that nobody has to list the interfaces to find that nothing happened. What happened is not kept:
/// whoever asks looks for himself. Costs one system call a question while nothing happens.
class LinkEvents
{
public:
    LinkEvents();
    ~LinkEvents();
    LinkEvents(const LinkEvents &) = delete;
    LinkEvents &operator=(const LinkEvents &) = delete;

    /// Whether anything may have happened since the last question. True at the first one, and always where
    /// the kernel does not tell.
    bool Happened();

private:
    int socketFd;
    bool isFirstQuestion = true;
};
