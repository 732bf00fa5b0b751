// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include "interfacereport.h"

/// How an interface fares, and what it waits for.
struct Verdict
{
    enum class Mood { Good, Waiting, Fault };

    Mood mood;
    QString code;     ///< for programs: one word, parts joined by "-"
    QString sentence; ///< for people
};

/// Follows from what was read alone.
Verdict Judge(const InterfaceReport &interface, const SystemReport &system);

/// Why the definition in force is that one; empty when none is.
QString DefinitionReason(const InterfaceState &state);
