// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <QFile>
#include <QString>

#include <sys/mount.h>

/// While it lives, the folder cannot be removed or renamed by anybody, root included. It is empty, and can be
/// filled.
class MountPoint
{
public:
    explicit MountPoint(const QString &folder) : path(QFile::encodeName(folder))
    {
        if (::mount("taken", path.constData(), "tmpfs", 0, "mode=755") != 0)
            qFatal("cannot mount at %s", path.constData());
    }
    ~MountPoint() { ::umount2(path.constData(), MNT_DETACH); }
    MountPoint(const MountPoint &) = delete;
    MountPoint &operator=(const MountPoint &) = delete;

private:
    const QByteArray path;
};
