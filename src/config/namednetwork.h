// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include "networkblock.h"
#include "securitymodes.h"
#include "wpasupplicantcfg.h"
#include "zebnetconfig.h"
#include "zebxmlconfig.h"

#include <QObject>
#include <QString>
#include <QStringList>

#include <memory>

class Logging;

/// One stored network definition as the daemon uses it: the loaded record, a fingerprint by which a later
/// change is noticed, and the supplicant's block built from it. Owned by the device it applies to.
class NamedNetwork : public QObject
{
    Q_OBJECT
public:
    /// Loads the definition of this name. `wired` counts only where the name does not already say so.
    NamedNetwork(const QString &networkName, bool wired, QObject *parent);
    ~NamedNetwork() override;

    /// A name that begins with "lan" or "wiredeth" is wired; any other is wireless unless `wired` is set.
    static bool IsWirelessName(const QString &networkName, bool wired);

    /// Has the keys of these stored definitions derived before they are loaded, several at a time: one after
    /// the other they would keep the main thread for seconds where there are a hundred.
    static void DeriveKeys(const QStringList &networkNames);

    /// Replaces the record, the fingerprint and the supplicant's block by those of the stored definition.
    /// Pointers got from Config() before are no longer valid. Always true.
    bool Load(const QString &networkName, bool isWireless);

    QString Properties() const;
    /// Whether the stored definition differs from the loaded one, which stays as it is.
    bool ReloadRequired() const;
    /// Replaces the record's security mode by its mode key, where it is a display name.
    void TranslateSecurityMode();
    /// Whether the store or the flag file asks for the nl80211 driver first.
    bool CheckWirelessDriver();
    void BuildNetworkOptions();

    QString Name() const { return name; }
    bool IsWireless() const { return wireless; }
    bool IsSecured() const { return secured; }
    /// Hexadecimal MD5 of the properties at the last load.
    QString PropsHash() const { return propsHash; }
    /// The loaded record; owned here and replaced by the next Load().
    ZebNetConfig *Config() const { return netConfig.get(); }
    /// The lines of the supplicant's block; empty when the definition needs none.
    QStringList Block() const { return wpaCfg.Block(); }

private:
    WirelessSettings ReadWirelessSettings();
    /// Has the certificates just chosen renewed.
    void RestartScepDaemon();
    /// Tells the problems of this version of the definition, which are news the first time that they come up.
    void ReportProblems(const QStringList &problems) const;

    bool wireless = false;
    QString name;
    QString propsHash;
    [[maybe_unused]] QStringList buildLines; ///< kept empty: a block is built in `wpaCfg`
    [[maybe_unused]] QString buildText;      ///< kept empty, likewise
    bool secured = true;
    WpaSupplicantCfg wpaCfg;
    [[maybe_unused]] QStringList blockLines; ///< kept empty: Block() gives those of `wpaCfg`
    std::unique_ptr<ZebNetConfig> netConfig;
    Logging *log;
    std::unique_ptr<ZebXmlConfig> xmlConfig;
    [[maybe_unused]] bool enabled = true; ///< read by nobody: kept as it is
    bool useNewDriver = true;
};
