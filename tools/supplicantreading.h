// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <QByteArray>
#include <QStringList>

#include <optional>

/// What the installed wpa_supplicant says against a configuration file, line by line; nothing when there is
/// none installed. It repeats values that it does not take: the file must hold no secret. It is run on an
/// interface that does not exist, so that it reads the file and ends.
std::optional<QStringList> SupplicantComplaints(const QByteArray &configuration);
