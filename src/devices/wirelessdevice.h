// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include "networkdevice.h"

/// A Wi-Fi interface, always driven through the supplicant.
class WirelessDevice : public NetworkDevice
{
    Q_OBJECT
public:
    WirelessDevice(const QString &interfaceName, QObject *parent);
    ~WirelessDevice() override;

    /// Reads ESSID, access point, encryption key and link quality from `iwconfig`.
    void RefreshWirelessStatus() override;
    /// Takes these details from what the tool printed; what it does not hold stays as it was.
    void TakeDetails(const QStringList &lines);
    /// nl80211 first when on, the wireless extensions first when off.
    void UseNewDriver(bool on) override;
    ZebNetConfig *getCurrentConfig() override;
};
