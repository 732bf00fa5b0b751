// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include "testsupport.h"
#include "wpasupplicantcontrol.h"

#include <QString>

/// What the tests of the supplicant's control connection share.

inline const QString CONTROL_ERROR = QStringLiteral("WPA_CTRL_ERROR: Control not Open");

/// Our own ends of control connections.
inline int LocalNames()
{
    return TestSupport::EntryCount(QStringLiteral("/tmp"), {QStringLiteral("wpa_ctrl_*")});
}

/// Open on wlan0, where the test has put a supplicant.
class OpenControl : public WpaSupplicantControl
{
public:
    OpenControl() : WpaSupplicantControl(nullptr)
    {
        if (!openControlInterface(QStringLiteral("wlan0")))
            qFatal("no control connection");
    }
};
