// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <QString>
#include <QStringList>

class ZebXmlConfig;

/// One stored network definition. Every member holds a valid value: what the store refused has its default.
/// docs/configuration.md documents each one under the name of its member.
class Q_DECL_EXPORT ZebNetConfig
{
public:
    /// An empty definition. The store handle may be null: all handles share one store.
    explicit ZebNetConfig(ZebXmlConfig *store);

    /// Fills the definition from the store; false, and everything at its default but the name, when the store
    /// holds no network of this name. The flag is reserved: pass false.
    bool Load(const QString &networkName, bool reserved);

    /// All properties as stable plain ASCII text that changes when any property changes. Secrets appear only
    /// as a digest under a key that is random per process.
    QString toString() const;

    QString GetName() const { return name; }

    /// The names of all stored networks, in the order in which they are stored.
    static QStringList GetNetworkNames();

    QString name;
    QString securityMode = QStringLiteral("Unsecured");

    // Wireless
    QString ssid;
    bool scanSsid = false;
    int priority = 0;
    QString band;
    bool useBgScan = false;
    int bgScanShortInterval = 30; ///< seconds
    int bgScanSignal = -70;       ///< dBm
    int bgScanLongInterval = 600; ///< seconds

    // Credentials
    QString wepKey;
    QString passphrase;
    QString identity;
    QString password;
    QString caCert = QStringLiteral("none");
    QString clientCert = QStringLiteral("none");
    QString privateKey = QStringLiteral("none");
    QString privateKeyPassword;
    /// Pairwise and group ciphers of the TLS and LEAP modes; the provisioning word of EAP-FAST.
    QString cipher = QStringLiteral("CCMP TKIP");
    QString pacFile = QStringLiteral("eap-fast.pac");
    bool scep = false;
    bool allowWeakCerts = false;
    QString dot1xFallback; ///< "fallback" or empty

    // Addresses
    bool staticIp = false;
    QString ipAddress;
    QString netmask;
    QString gateway;
    bool staticDns = false;
    QString dns1;
    QString dns2;
    QString domain;
    QStringList hosts;

    // Link
    QString speed; ///< "Auto", empty, or for example "100 Mbps Full"
    QString mtu;   ///< decimal, or empty to leave the MTU alone
};
