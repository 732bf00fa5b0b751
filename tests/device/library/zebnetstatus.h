// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <QByteArray>
#include <QString>

/// One text instead of four, and a record of its own.
class Q_DECL_EXPORT ZebNetStatus
{
public:
    virtual ~ZebNetStatus();
    void SetIfaceInfo(const QString &mac, const QString &ip, const QString &broadcast, const QString &mask);
    void SetWireless(bool isWireless);
    void SetConnected(bool isConnected);
    QString GetBroadcast() const;
    QByteArray GetData() const;

private:
    QString text;
    char flags[2] = {'-', '-'};
};
