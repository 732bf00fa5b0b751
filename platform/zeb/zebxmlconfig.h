// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <QString>

/// A handle on the device's XML configuration store: one file per section path under
/// /tmp/config/xmlconfig/. Handles are cheap; the parsed documents are shared by all of them, read once per
/// change of the file and kept when a later version cannot be read. Main thread only.
class Q_DECL_EXPORT ZebXmlConfig
{
public:
    /// The text stored under `key` in the section `path`, or `defaultValue`. A path that continues a section
    /// with "/" and a network's name addresses that network's properties. Both flags are reserved: pass
    /// false.
    QString GetConfig(const QString &path, const QString &key, bool reserved1, const QString &defaultValue,
                      bool reserved2);
};
