// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "wireddevice.h"

#include "logging.h"

WiredDevice::WiredDevice(const QString &interfaceName, QObject *parent) : NetworkDevice(interfaceName, parent)
{
    static int madeSoFar = 0;

    configurable = false;
    driver = QStringLiteral("wired");
    Log(Level::TRACE) << "WiredDevice::WiredDevice Initialized" << ++madeSoFar;
    InitDevice();
}

WiredDevice::~WiredDevice() = default;
