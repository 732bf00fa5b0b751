// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include "testsupport.h"

#include <QDir>
#include <QString>

#include <sys/mount.h>

/// A folder of the test's own in the place of /sys/class/net while the object lives, for what the kernel of
/// the machine that runs the tests does not show: adapters, drivers, bonds.
class FakeSysNet
{
public:
    FakeSysNet()
    {
        if (::mount("fake-sysnet", "/sys/class/net", "tmpfs", 0, "mode=755") != 0)
            qFatal("FakeSysNet: cannot mount");
    }
    ~FakeSysNet() { ::umount2("/sys/class/net", MNT_DETACH); }
    FakeSysNet(const FakeSysNet &) = delete;
    FakeSysNet &operator=(const FakeSysNet &) = delete;

    static QString Path(const QString &entry) { return QStringLiteral("/sys/class/net/") + entry; }
    void Add(const QString &interfaceName) { QDir().mkpath(Path(interfaceName)); }
    void Write(const QString &entry, const QByteArray &bytes) { TestSupport::WriteFile(Path(entry), bytes); }
    void Remove(const QString &entry) { TestSupport::Remove(Path(entry)); }
};
