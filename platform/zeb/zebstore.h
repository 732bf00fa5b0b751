// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include "zebdocument.h"

#include <QLoggingCategory>
#include <QString>

/// Warnings about the store; a program that has a log of its own picks them out by this category.
Q_DECLARE_LOGGING_CATEGORY(zebLog)

/// The parsed sections of the store, shared by all handles. Main thread only.
namespace ZebStore {

/// The section that holds the networks.
extern const QString NETWORK_SECTION;

/// The last good contents of a section, read again first if its file has changed. Valid until the next call.
const ZebDocument &Section(const QString &path);

/// See ZebXmlConfig::KeepLastGood().
void KeepLastGood(const QString &path);

} // namespace ZebStore
