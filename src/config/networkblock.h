// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <QStringList>

class WpaSupplicantCfg;
class ZebNetConfig;

/// The settings of the store that wireless blocks are built by.
struct WirelessSettings
{
    bool useApScan = false;
    bool filterSsids = false;
    bool addWpsSaeCred = false;
    bool useNewDriver = false;
};

/// Builds the supplicant's block of one definition, whose security mode is a mode key. Changes nothing but
/// the writer and what of the definition comes from SCEP; runs nothing but what a key or an identity is asked
/// of. For one use, on the main thread.
class NetworkBlock
{
public:
    /// Neither the writer nor the definition is owned.
    NetworkBlock(WpaSupplicantCfg &blockWriter, ZebNetConfig &fromDefinition, bool isForRadio,
                 const WirelessSettings &wirelessSettings);

    /// Gives what an operator should know. The block stays empty where the definition needs none, and where
    /// it would make the supplicant refuse the whole file.
    QStringList Build();
    /// Whether the block is of a mode with certificates and these come from SCEP.
    bool UsesScep() const;

private:
    void ApplyScepDefaults();
    void BuildWireless();
    void ConfigureWriter();
    void BuildEapTls();
    void BuildWired();
    QStringList ModeProblems() const;

    WpaSupplicantCfg &writer;
    ZebNetConfig &definition;
    const bool isWireless;
    const WirelessSettings settings;
};
