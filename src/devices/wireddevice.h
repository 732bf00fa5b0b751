// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include "networkdevice.h"

/// An Ethernet interface, or any other that is neither wireless nor a modem.
class WiredDevice : public NetworkDevice
{
    Q_OBJECT
public:
    WiredDevice(const QString &interfaceName, QObject *parent);
    ~WiredDevice() override;
};
