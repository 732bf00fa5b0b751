// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <QByteArray>
#include <QString>

/// The status record of one interface and its serialised form, which docs/status-interface.md describes.
class Q_DECL_EXPORT ZebNetStatus
{
public:
    /// Size of the serialised record, in bytes; that of the shared segment (zebnetsegment.h), too.
    static constexpr int RECORD_SIZE = 512;

    void SetConnected(bool isConnected) { connected = isConnected; }
    void SetWireless(bool isWireless) { wireless = isWireless; }
    void SetIfaceInfo(const QString &mac, const QString &ip, const QString &broadcastAddress,
                      const QString &mask);

    bool IsConnected() const { return connected; }
    bool IsWireless() const { return wireless; }
    QString GetMac() const { return macAddress; }
    QString GetIp() const { return ipAddress; }
    QString GetBroadcast() const { return broadcast; }
    QString GetNetmask() const { return netmask; }

    /// The record, padded to RECORD_SIZE bytes.
    QByteArray GetData() const;

    /// Reads a record back. False, with the object unchanged, when the bytes are not a whole record of a
    /// version that this library knows. Any bytes are safe to give.
    [[nodiscard]] bool SetData(const QByteArray &data);

private:
    bool connected = false;
    bool wireless = false;
    QString macAddress;
    QString ipAddress;
    QString broadcast;
    QString netmask;
};
