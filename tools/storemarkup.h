// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include "storefinding.h"

#include <QByteArray>

/// What stands in a well-formed store and is read by nobody: attributes of properties, and text between
/// elements. The daemon's reader passes over both without a word.
StoreFindings MarkupFindings(const QByteArray &contents);
