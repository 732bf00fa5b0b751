// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <QHash>
#include <QLoggingCategory>
#include <QString>
#include <QStringList>
#include <QVector>

/// Warnings about the store; a program that has a log of its own picks them out by this category.
Q_DECLARE_LOGGING_CATEGORY(zebLog)

/// The parsed sections of the store, shared by all handles. Main thread only.
namespace ZebStore {

/// One network as stored: what was refused is not in it.
struct Network
{
    QHash<QString, QString> properties;
    QStringList hosts;
};

/// One section: the settings, and the networks in the order of the file.
struct Document
{
    QHash<QString, QString> settings;
    QStringList networkNames;
    QHash<QString, Network> networks;
};

/// The section that holds the networks.
extern const QString NETWORK_SECTION;

/// The last good contents of a section, read again first if its file has changed.
const Document &Section(const QString &path);

} // namespace ZebStore
