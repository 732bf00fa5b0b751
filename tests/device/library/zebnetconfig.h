// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <QString>
#include <QStringList>

class ZebXmlConfig;

/// The members that the daemon reads, in the reverse order of the bundled one's and among others.
class Q_DECL_EXPORT ZebNetConfig
{
public:
    explicit ZebNetConfig(ZebXmlConfig *store);
    virtual ~ZebNetConfig();
    bool Load(const QString &networkName, bool defaults);
    QString toString() const;
    QString GetName() const;
    static QStringList GetNetworkNames();

    int revision;
    QString mtu;
    QString speed;
    QStringList hosts;
    QString domain;
    QString dns2;
    QString dns1;
    bool staticDns;
    QString gateway;
    QString netmask;
    QString ipAddress;
    bool staticIp;
    QString proxy;
    QString dot1xFallback;
    bool allowWeakCerts;
    bool scep;
    QString pacFile;
    QString cipher;
    QString privateKeyPassword;
    QString privateKey;
    QString clientCert;
    QString caCert;
    QString password;
    QString identity;
    QString passphrase;
    QString wepKey;
    int bgScanLongInterval;
    int bgScanSignal;
    int bgScanShortInterval;
    bool useBgScan;
    QString band;
    int priority;
    bool scanSsid;
    QString ssid;
    QString securityMode;
    QString name;
};
