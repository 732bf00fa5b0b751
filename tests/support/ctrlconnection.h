// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include "wpactrl.h"

#include <QByteArray>
#include <QDir>
#include <QStringList>

#include <memory>

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

/// Our own ends of the connections.
inline QStringList LocalNames()
{
    return QDir(QStringLiteral("/tmp")).entryList({"wpa_ctrl_*"}, QDir::System | QDir::Files);
}
