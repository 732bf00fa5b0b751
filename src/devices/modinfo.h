// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <QString>

/// What sysfs tells of an interface's adapter and driver.
class ModInfo
{
public:
    /// Contents of a file in the interface's device folder, empty when it cannot be read.
    static QString GetDeviceSysInfo(const QString &interfaceName, const QString &file);
    static QString GetUEVENTDriver(const QString &interfaceName);
    /// The last driver that a uevent file's text names.
    static QString DriverIn(const QString &uevent);
    static QString GetDeviceType(const QString &interfaceName);
    static QString GetDeviceDesc(const QString &driver);
};
