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

    /// From now on what is in force of the networks' section is kept in this file, an absolute path, for its
    /// owner alone. It begins with what an earlier process kept there, and stays with it as long as the
    /// section cannot be read. To be called before anything is read, by one program for each file.
    static void KeepLastGood(const QString &filePath);
};
