// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include "networkdevice.h"

/// A cellular modem's interface, driven by the platform's modem-tool.sh, which bounds its own waiting: the
/// daemon waits for it without limit.
class Modem : public NetworkDevice
{
    Q_OBJECT
public:
    Modem(const QString &interfaceName, QObject *parent);
    ~Modem() override;

    void Connect();
    void Disconnect();
    void ConfigureIFace();
    void UpdateConnectionStatus();
    static bool IsModemReady();

    // By what modem-tool.sh said of its status.
    static bool IsConnectedIn(const QByteArray &status) { return status.trimmed() == "connected"; }
    /// Why there is no connection, as far as the tool says more than that there is none.
    static QString FaultIn(const QByteArray &answer);
    static bool IsModemIn(const QByteArray &status) { return !status.contains("cannot find"); }

    bool modemConnected = false;
    QString connectionFault; ///< empty where none is known
};
