// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include "reportonce.h"
#include "retrypause.h"
#include "servicemanager.h"

#include <QHash>
#include <QObject>
#include <QSharedMemory>
#include <QString>
#include <QStringList>

#include <memory>

class BondedDevice;
class Logging;
class Modem;
class NetworkDevice;
class QLocalSocket;
class QTimer;
class WpaSuppThread;

/// The service object. Once a second it looks after every interface; between the ticks it answers what the
/// devices and the supplicant's supervisor signal. One instance, on the main thread, created by main().
///
/// corvi.cpp             life, the supervision tick, the flag files
/// corvi_discovery.cpp   finding the interfaces
/// corvi_wired.cpp       the wired network, 802.1X fallback
/// corvi_wireless.cpp    the wireless network
/// corvi_modem.cpp       the modem's network
/// corvi_supplicant.cpp  the supplicant: its file, (re)starting it, what it signals
/// corvi_dhcp.cpp        further attempts to get an address, what the DHCP client's hook reports
/// corvi_status.cpp      publishing status and events
class Corvi : public QObject
{
    Q_OBJECT
public:
    // Life, the supervision tick (corvi.cpp)

    explicit Corvi(QObject *parent);
    ~Corvi() override;
    void Start();
    /// The full rescan: forgets every device and discovers them again.
    void Init();
    /// The orderly shutdown; ends the process with `status` and does not return.
    [[noreturn]] void Stop(int status);
    void CheckReload();
    bool CheckIfWirelessCarrierExists() const;

    // Discovery (corvi_discovery.cpp)

    void FindAllInterfaces();

    // Wired network (corvi_wired.cpp)

    /// Whether a wired interface carries.
    bool WiredNetworkSetup();

    // Wireless network (corvi_wireless.cpp)

    /// With `wiredFirst` the wireless interface is taken down. Returns 1 when wireless is configured, else 0.
    int WirelessNetworkSetup(bool wiredFirst);

    // Modem network (corvi_modem.cpp)

    /// Returns 1 when the modem's link is running, else 0.
    int ModemNetworkSetup(bool takeDown, bool bringUp);

    // The supplicant (corvi_supplicant.cpp)

    void ReinitSupThread();
    /// The one place that (re)starts the supplicant; a start happens on a call made after the hold-off has
    /// been counted down.
    void ReconfigureWpa(NetworkDevice *d);
    /// Rewrites the supplicant's file from this interface, or from every one when the name is empty.
    void UpdateWpaConfFile(const QString &interfaceName);

    // DHCP (corvi_dhcp.cpp)

    /// Takes up address changes that the DHCP client's hook reports in /tmp/dhcp_event.
    void CheckDhcpEvent();

    // Status and events (corvi_status.cpp)

    void InitSharedMemory();
    void ShareStatus(NetworkDevice *nd);
    /// Publishes the device's status and notifies the listener. Waits for the segment's lock without limit
    /// and for the listener at most 1 s.
    void SendEvent(NetworkDevice *nd, int event, int status);
    void SendConfigMessage(NetworkDevice *nd);
    void SendConnectionsMessage(NetworkDevice *nd, bool ok);
    void SendDhcpMessage(NetworkDevice *nd, bool ok);
    void SendAssociationMessage(NetworkDevice *nd, bool ok);

    /// Attempts to set up the modem while its link was not running.
    static int conn_counter;

signals:
    void statusUpdate(QStringList status);
    void postMessage(QStringList info);
    void EventReady(int event, int status);
    void wiredStateChange(bool state);

public slots:
    void onSendEventMessage(int event, int status, NetworkDevice *nd);
    void onNetDeviceChange(NetworkDevice *nd);
    void LoopTimerTimeout();
    void onAssociatedChanged(bool state);
    void onWifiConnected();
    void onScanningFailed();
    void onWiredStateChange(bool state);

private:
    /// The tests' one way in (tests/support).
    friend class CorviPeer;

    /// Ticks without a wired link before wireless gets its turn.
    static constexpr int WIRELESS_DELAY_TICKS = 2;
    /// Calls of ReconfigureWpa() that only count down before one that starts the supplicant.
    static constexpr int WPA_HOLDOFF_TICKS = 2;

    // Data
    QSharedMemory shm;
    std::unique_ptr<QLocalSocket> eventSocket;
    std::unique_ptr<QTimer> loopTimer;
    int wirelessDelayTicks = WIRELESS_DELAY_TICKS;
    int wpaHoldoffTicks = WPA_HOLDOFF_TICKS;
    bool loopStarted = false;
    Logging *log;
    QStringList allInterfaces;
    QStringList wiredInterfaces;
    QStringList wirelessInterfaces;
    QStringList modemInterfaces;
    QStringList operstateFiles;              ///< grows with every rescan and is read by nobody: kept as it is
    QHash<QString, NetworkDevice *> devices; ///< owned
    bool wirelessFound = false;
    bool forceRescan = true;
    WpaSuppThread *supThread = nullptr;
    NetworkDevice *wiredDevice = nullptr;
    NetworkDevice *wirelessDevice = nullptr;
    NetworkDevice *modemDevice = nullptr;
    bool wpaConfUpdated = false;
    bool wirelessConfigured = false;
    bool reconfigureWpa = false;
    bool wiredUp = false;
    bool wiredPending = false;
    QString wpaConfContents; ///< holds secrets: never logged
    bool wirelessCarrierSeen = false;
    bool bondingEnabled = false;
    std::unique_ptr<BondedDevice> bondedDevice;
    bool modemStarted = false; ///< the modem in use was started and told to connect
    RetryPause wiredRetry;
    RetryPause wirelessRetry;
    const ServiceManager serviceManager;

    // What is told of over and over while it lasts.
    ReportOnce rescanReport;
    ReportOnce changeReport; ///< another wired device carries
    ReportOnce linkReport;
    ReportOnce fallbackReport;
    ReportOnce wirelessReport;
    ReportOnce restartReport;
    ReportOnce modemReport;
    ReportOnce confFileReport;
    ReportOnce retryReport;
    ReportOnce segmentReport;

    // Life, the supervision tick
    void ApplyDebugFlag();
    void Rescan();
    void SetUpNetworks();
    void SetUpBelowWired();
    void SetUpWithoutWired();

    // Discovery
    void DeleteDevices();
    void UpdateBonding();
    void AddInterface(const QString &interfaceName);
    void AddDevice(const QString &interfaceName);
    void AdoptModem();
    void LogDiscovery() const;

    // Wired network
    NetworkDevice *ChooseWiredDevice();
    void SuperviseWired(NetworkDevice *d);
    void BeginWiredLink(NetworkDevice *d);
    void WaitForAuthentication(NetworkDevice *d);
    void CheckRefreshFile(bool isConnected);

    // Wireless network
    void TakeWirelessDown();
    void StartWireless();
    void StartWirelessSupplicant(NetworkDevice *d);
    void SuperviseWireless();

    // Modem network
    Modem *ModemInUse() const;
    void BringModemUp();
    void TakeModemDown();

    // The supplicant
    void ConfigureSupplicant(NetworkDevice *d);
    bool IsSupplicantActive() const;
    void StopUnneededSupplicant();
    bool Contributes(const NetworkDevice *d) const;

    // DHCP
    /// Configures a device again that carries, is set to DHCP and has no address, after growing pauses.
    void RetryDhcp(NetworkDevice *d, RetryPause &pause);
};
