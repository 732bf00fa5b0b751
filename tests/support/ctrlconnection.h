// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include "wpactrl.h"

#include <QByteArray>
#include <QDir>
#include <QStringList>

#include <cstring>
#include <memory>

#include <sys/socket.h>
#include <sys/un.h>

/// What the tests of the control client share: a connection that closes itself.

struct CtrlDeleter
{
    void operator()(wpa_ctrl *ctrl) const { wpa_ctrl_close(ctrl); }
};
using Ctrl = std::unique_ptr<wpa_ctrl, CtrlDeleter>;

inline const QByteArray WLAN0 = "/var/run/wpa_supplicant/wlan0";

inline Ctrl Open(const QByteArray &path = WLAN0)
{
    return Ctrl(wpa_ctrl_open(path.constData()));
}

inline sockaddr_un Address(const QByteArray &path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    memcpy(address.sun_path, path.constData(), static_cast<size_t>(path.size()));
    return address;
}

/// Our own ends of the connections.
inline QStringList LocalNames()
{
    return QDir(QStringLiteral("/tmp")).entryList({"wpa_ctrl_*"}, QDir::System | QDir::Files);
}
