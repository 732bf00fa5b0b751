// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include "zebnetwork.h"
#include "zebproblem.h"

#include <QString>

/// What the store accepts. A text that gets past these checks can stand in a line of wpa_supplicant's
/// configuration or of a system file and stays within that line, and wpa_supplicant takes it for what it is:
/// one bad value there would make it refuse the whole file, with all other networks.
namespace ZebCheck {

/// Why `text` cannot be stored at all, or nothing: it is longer than 1024 bytes of UTF-8 or holds a control
/// character or a line or paragraph separator.
QString TextProblem(const QString &text);

/// Takes the properties that are not valid out of the network, so that they have their defaults. The problems
/// have neither their place nor the network's name, which the caller knows. With one that leaves the network
/// out it cannot be used: it does not work without what is missing, or the default of what was refused would
/// join another network or with less security.
ZebProblems CheckNetwork(ZebNetwork &network);

} // namespace ZebCheck
