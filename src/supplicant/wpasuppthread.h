// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <QString>
#include <QThread>

class Logging;
class QTimer;
class WpaSupplicantControl;

/// The one supervisor of wpa_supplicant: starts, watches, restarts and stops it and interprets its events.
/// The object lives on the main thread, where all its slots run; its worker thread only owns the timer that
/// paces them. Created on first use and never deleted.
class WpaSuppThread : public QThread
{
    Q_OBJECT
public:
    static WpaSuppThread *GetInstance();

    /// Starts, or restarts, the supplicant; blocks for the 7.1 s that the old one is given to end, and the
    /// launch. `method` is the EAP method where it matters, else empty.
    void Start(const QString &interfaceName, const QString &driverName, const QString &methodName);
    /// Asks for a stop on the next tick. The reason code is only logged.
    void Stop(int reason);
    /// Asks for a RECONFIGURE on the next tick.
    void Reconfigure();
    /// Asks the worker's event loop to end on the next tick.
    void Quit();
    QString toString() const;

    bool IsRunning() const { return running; }
    bool IsRestarting() const { return restarting; }
    bool IsAssociated() const { return associated; }
    /// Never set: kept for the hold-off that asks for it.
    bool IsStopPending() const { return stopPending; }
    QString Ssid() const { return ssid; }
    QString StatusText() const { return statusText; }

    ~WpaSuppThread() override;

signals:
    void associatedChanged(bool state);
    void wifiConnected();
    void scanningFailed();
    void TriggerRestartSupplicant();
    void TriggerStopSupplicant();

public slots:
    void MyTimerTimeout();
    void MessageReceived(const QString &message);
    void RestartSupplicant();
    void OnStopSupplicant();

protected:
    WpaSuppThread();
    void run() override;
    // Further operations and data: see the implementation's sections (lifecycle, events and polling).
};
