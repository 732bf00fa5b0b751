// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <QString>

/// Larger than the bundled one, and with a table of virtual functions.
class Q_DECL_EXPORT ZebXmlConfig
{
public:
    ZebXmlConfig();
    virtual ~ZebXmlConfig();
    virtual void Flush();
    QString GetConfig(const QString &path, const QString &key, bool expand, const QString &defaultValue,
                      bool create);

private:
    QString folder;
    char buffer[200];
};
