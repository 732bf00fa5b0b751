// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include "closedportwatch.h"
#include "linkevents.h"
#include "reportonce.h"
#include "retrypause.h"
#include "segmentplace.h"
#include "servicemanager.h"
#include "servicestate.h"
#include "shellline.h"

#include <QHash>
#include <QMap>
#include <QObject>
#include <QSharedMemory>
#include <QString>
#include <QStringList>

#include <chrono>
#include <map>
#include <memory>
#include <optional>

class BondedDevice;
class Logging;
class Modem;
class NetworkDevice;
struct DeviceReports;
class QLocalSocket;
class QTimer;
class WpaSuppThread;

/// The service object. Once a second it looks after every interface; between the ticks it answers what the
/// devices and the supplicant's supervisor signal. One instance, on the main thread, created by main().
///
/// corvi.cpp             life, the supervision tick
/// corvi_discovery.cpp   finding the interfaces
/// corvi_adapters.cpp    interfaces that come and go between two discoveries
/// corvi_wired.cpp       the wired network, 802.1X fallback
/// corvi_wireless.cpp    the wireless network
/// corvi_modem.cpp       the modem's network
/// corvi_supplicant.cpp  the supplicant: its file, (re)starting it, what it signals
/// corvi_carrier.cpp     the device that carries the traffic is the one that was configured last
/// corvi_dhcp.cpp        further attempts to get an address, what the DHCP client's hook reports
/// corvi_leftovers.cpp   addresses that a device must not keep
/// corvi_segment.cpp     the segment that others read the status from
/// corvi_status.cpp      publishing status and events
/// corvi_state.cpp       the file that says what is decided and waited for
/// corvi_queries.cpp     what the others ask: which device carries, which waits to be let in
/// corvi_flags.cpp       the flag files
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
    /// Sets off a rescan where the reload file asks for one, or wlan0 has come.
    void CheckReload();
    /// The next tick rescans, as after a reload file.
    void RequestReload();
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

    /// Takes the supervisor into use; later calls stop the supplicant before a start.
    void ReinitSupThread();
    /// The one place that (re)starts the supplicant; a start happens on a call made after the hold-off has
    /// been counted down.
    void ReconfigureWpa(NetworkDevice *d);
    /// Rewrites the supplicant's file from this interface, or from every one when the name is empty.
    void UpdateWpaConfFile(const QString &interfaceName);

    // DHCP (corvi_dhcp.cpp)

    /// Takes up address changes that the DHCP client's hook reports in /tmp/dhcp_event. Called by nobody
    /// here: kept as it is.
    void CheckDhcpEvent();

    // The segment (corvi_segment.cpp)

    /// Ends the process with status 0 where the segment cannot be had.
    void InitSharedMemory();

    // Status and events (corvi_status.cpp)

    void ShareStatus(NetworkDevice *nd);
    /// Publishes the device's status and notifies the listener. Waits for a reader that has the segment's
    /// lock at most 5 s, once for each reader, and for the listener at most 1 s.
    void SendEvent(NetworkDevice *nd, int event, int status);
    void SendConfigMessage(NetworkDevice *nd);
    void SendConnectionsMessage(NetworkDevice *nd, bool ok);
    void SendDhcpMessage(NetworkDevice *nd, bool ok);
    void SendAssociationMessage(NetworkDevice *nd, bool ok);

    /// Attempts to set up the modem while its link was not running.
    static int conn_counter;

signals:
    // All are emitted on the main thread. A slot must delete neither this object nor a device, so it must not
    // rescan: the tick that emits goes on with the device.

    void statusUpdate(QStringList status);  ///< never emitted: kept for those who connect to it
    void postMessage(QStringList info);     ///< never emitted: kept for those who connect to it
    void EventReady(int event, int status); ///< never emitted: kept for those who connect to it
    /// The wired link came or went, or "/tmp/refresh_network" asked for its state. To ourselves: runs
    /// onWiredStateChange() before it returns.
    void wiredStateChange(bool state);

public slots:
    /// An event of a device: published and sent before the device goes on.
    void onSendEventMessage(int event, int status, NetworkDevice *nd);
    void onNetDeviceChange(NetworkDevice *nd); ///< only logs; nothing is connected to it: kept as it is
    /// The tick. Blocks for as long as the programs take that it runs.
    void LoopTimerTimeout();
    /// Configures the device in use that the supplicant connected, wireless before wired.
    void onAssociatedChanged(bool state);
    void onWifiConnected();  ///< only logs, and its signal is never emitted: kept as it is
    void onScanningFailed(); ///< only logs; nothing is connected to it: kept as it is
    /// Configures the wired device in use, or takes its addresses away.
    void onWiredStateChange(bool state);

private:
    /// The tests' one way in (tests/support).
    friend class CorviPeer;

    /// Ticks without a wired link before wireless gets its turn.
    static constexpr int WIRELESS_DELAY_TICKS = 2;
    /// Calls of ReconfigureWpa() that only count down before one that starts the supplicant.
    static constexpr int WPA_HOLDOFF_TICKS = 2;

    // Data. All of it belongs to the main thread.

    QSharedMemory shm;                         ///< the status, for other programs to read
    std::unique_ptr<QLocalSocket> eventSocket; ///< to the listener, one connection an event
    std::unique_ptr<QTimer> loopTimer;         ///< paces the tick
    /// Ticks that wireless still has to wait for. Each tick with a wired link begins it anew.
    int wirelessDelayTicks = WIRELESS_DELAY_TICKS;
    /// Calls of ReconfigureWpa() that still only count. A wired link that comes up begins it anew, and a
    /// wireless device that needs a supplicant.
    int wpaHoldoffTicks = WPA_HOLDOFF_TICKS;
    bool loopStarted = false; ///< there was a tick
    Logging *log;
    QStringList allInterfaces;               ///< names that discovery took, sorted, like the next three
    QStringList wiredInterfaces;             ///< the first that carries is used
    QStringList wirelessInterfaces;          ///< the first is used
    QStringList modemInterfaces;             ///< the first is used
    QStringList operstateFiles;              ///< grows with every rescan and is read by nobody: kept as it is
    QHash<QString, NetworkDevice *> devices; ///< by name, owned; discovery makes them and deletes them
    bool wirelessFound = false;              ///< by discovery; read by nobody: kept as it is
    bool forceRescan = true;                 ///< the next tick rescans, whoever set it
    WpaSuppThread *supThread = nullptr;      ///< the supervisor, not owned; set once
    NetworkDevice *wiredDevice = nullptr;    ///< carries, or carried last; one of `devices`, as the next two
    NetworkDevice *wirelessDevice = nullptr; ///< has its turn
    NetworkDevice *modemDevice = nullptr;    ///< adopted by discovery, until it is given up
    bool wpaConfUpdated = false;      ///< the supplicant's file was written since the last rescan, or tried
    bool wirelessConfigured = false;  ///< the wireless device's supplicant was asked for
    bool reconfigureWpa = false;      ///< the supplicant is to read its file anew; ends when it was told to
    bool wiredUp = false;             ///< the wired link as last reported
    bool wiredPending = false;        ///< never set: kept as it is
    QString wpaConfContents;          ///< stays empty: nobody reads it, and the file has secrets
    bool wirelessCarrierSeen = false; ///< the carrier file of wlan0 was there
    /// TimeAsleep() when the wired link was reported.
    std::chrono::nanoseconds asleepAtLink{0};
    bool bondingEnabled = false; ///< wanted by the store at the last discovery
    std::unique_ptr<BondedDevice> bondedDevice;
    bool modemStarted = false;       ///< the modem in use was started and told to connect
    ClosedPortWatch closedPortWatch; ///< of the wired device, while it is in its fallback
    RetryPause wiredRetry;    ///< of the wired device's DHCP attempts; a new link or device begins it anew
    RetryPause wirelessRetry; ///< of the wireless device's DHCP attempts
    int departures = 0;       ///< from wireless networks that gave no address, since one gave one
    QString lastConfigured;   ///< the interface that has the default route; stays over a rescan
    const ServiceManager serviceManager; ///< is told of the start and each tick
    /// Addresses, by interface, that could not be taken away yet.
    std::map<QString, RetryPause> leftoverPauses;
    /// Wireless interfaces, by name, that do not go down while a cable carries.
    std::map<QString, RetryPause> strayPauses;
    bool isModemDown = false; ///< the modem in use was taken down for a cable, which is told once
    RetryPause modemDownPause;
    RetryPause modemConnectPause;
    RetryPause modemAddressPause;
    std::optional<RetryPause::Time> modemDropped; ///< when it was given up, or a radio last had its turn
    QString publishedName;                        ///< the interface whose record was published last
    ShellLine resolvedSetup{"setup_resolved"};
    SegmentPlace segmentPlace;
    bool hasEarlierRecord = false;   ///< the segment was there already, with what an earlier daemon published
    std::optional<pid_t> lockKeeper; ///< a reader that was waited for in vain
    QByteArray lostRecord; ///< of a segment that was lost or cannot be locked: to be put into it later
    std::optional<ServiceState> toldState; ///< what the state's file holds
    RetryPause statePause{RetryPause::First::AT_ONCE};

    // What is told of over and over while it lasts.
    ReportOnce adapterReport{ReportOnce::Of::CHANGE};
    ReportOnce rescanReport{ReportOnce::Of::CHANGE};
    ReportOnce managerReport;
    ReportOnce virtualReport;
    ReportOnce changeReport{ReportOnce::Of::STEP}; ///< another wired device carries, as its link report says
    ReportOnce alsoUpReport;                       ///< a second wired device carries
    ReportOnce linkReport{ReportOnce::Of::CHANGE};
    ReportOnce fallbackReport;
    ReportOnce askedReport;
    ReportOnce wirelessReport{ReportOnce::Of::CHANGE};
    ReportOnce restartReport;
    ReportOnce modemReport{ReportOnce::Of::CHANGE};
    ReportOnce modemConnectReport;
    ReportOnce modemAddressReport;
    ReportOnce confFileReport;
    ReportOnce missingFileReport;
    ReportOnce carrierReport;
    ReportOnce retryReport;
    ReportOnce addressReport;
    ReportOnce bounceReport;
    ReportOnce sleepReport;
    ReportOnce leftoverReport;
    ReportOnce segmentReport;
    ReportOnce resolvedReport;
    ReportOnce lockReport;
    ReportOnce lostSegmentReport;
    ReportOnce foreignSegmentReport;
    ReportOnce stateReport;
    /// By interface: what was told of one outlives its device, which the next rescan, or the next time that
    /// its adapter is put in, makes anew.
    std::map<QString, std::shared_ptr<DeviceReports>> deviceReports;
    QHash<QString, ReportOnce> flagReports; ///< by path: flag files that cannot be removed

    // Life, the supervision tick
    void Rescan();
    void SetUpResolved();
    void WarnOfOtherManagers();
    void SetUpNetworks();
    void SetUpBelowWired();
    void SetUpWithoutWired();

    // Discovery
    void SortInterfaces();
    void WarnOfVirtualInterfaces();
    void NoteBridgePorts();
    void DeleteDevices();
    void DeleteDevice(NetworkDevice *device);
    void UpdateBonding();
    void AddInterface(const QString &interfaceName);
    void AddDevice(const QString &interfaceName);
    void LogDiscovery() const;
    bool IsForDiscovery(const QString &interfaceName) const;
    bool IsEnslaved(const QString &interfaceName) const;
    void ForgetGoneInterfaces();
    /// The kernel's number of the interface (netdevice(7)), which no other one gets under the same name; 0
    /// where there is none.
    static unsigned int InterfaceIndex(const QString &interfaceName);

    // Adapters that come and go
    using InterfaceIndexes = QMap<QString, unsigned int>;
    void CheckAdapters();
    std::optional<InterfaceIndexes> LookForInterfaces() const;
    static QStringList NamesOnlyIn(const InterfaceIndexes &interfaces, const InterfaceIndexes &others);
    void TellOfAdapters(const QStringList &gone, const QStringList &added);
    void AmendInterfaces(const InterfaceIndexes &present);
    void LetGoOfInterface(const QString &interfaceName);
    void LeaveDevice(NetworkDevice *device);
    LinkEvents linkEvents;
    bool isLookOwed = false;                             ///< the last one failed
    bool arePortsLoose = false;                          ///< interfaces wait to become ports of the bond
    InterfaceIndexes takenInterfaces;                    ///< by the last discovery, and amended since
    std::optional<InterfaceIndexes> differingInterfaces; ///< seen instead of these by the last tick

    // Wired network
    /// A wired link came, or went; null for the latter.
    void ReportWiredLink(NetworkDevice *chosen);
    void TellOfQuietLink();
    NetworkDevice *ChooseWiredDevice();
    void CheckBounce(NetworkDevice *d);
    void SuperviseWired(NetworkDevice *d);
    void BeginWiredLink(NetworkDevice *d);
    void WaitForAuthentication(NetworkDevice *d);
    void FollowFallback(NetworkDevice *d);
    void CheckRefreshFile(bool isConnected);

    // Wireless network
    void TakeWirelessDown();
    void StartWireless();
    void PickStrayWireless();
    void StartWirelessSupplicant(NetworkDevice *d);
    void SuperviseWireless();
    bool MayStartAnotherSupplicant() const;

    // Modem network
    void BringModemUp();
    void PublishLoss(Modem *modem);
    void GiveModemUp(Modem *modem);
    void KeepModemConnected(Modem *modem);
    void KeepModemConfigured(Modem *modem);
    void SeekDroppedModem();
    void TakeModemDown();
    void AdoptModem();

    // What a device leaves behind
    void ClearUpWired(const NetworkDevice *chosen);
    void TakeAddressAway(NetworkDevice *d);

    // The supplicant
    void ConfigureSupplicant(NetworkDevice *d);
    bool IsSupplicantActive() const;
    void StopUnneededSupplicant();
    bool Contributes(const NetworkDevice *d) const;
    bool IsAssociationOver() const;
    void TellOfMissingFiles(const QStringList &lines);

    // The segment
    bool OpenSegment();
    QByteArray ReadRecord();
    bool PutRecord(const QByteArray &record);
    bool LockSegment();
    bool IsLockKept();
    void KeepSegmentFound();
    void TakeOverRecord();
    void ReplaceStaleRecord();

    // The carrier
    /// Every configuration of a device but a modem's goes through here.
    void Configure(NetworkDevice *d);
    void ConfigureModem(Modem *modem);
    void KeepCarrierConfigured(bool isWiredConnected);

    // DHCP
    /// Configures a device again that carries, is set to DHCP and has no address, after growing pauses.
    void RetryDhcp(NetworkDevice *d, RetryPause &pause);
    void LeaveVainNetwork(NetworkDevice *d, RetryPause &pause);
    /// What is published of the device in use, and its static address, follow what is.
    void FollowAddress(NetworkDevice *d, RetryPause &dhcpPause);
    void PublishAddress(NetworkDevice *d);

    // The state's file
    void TellState();
    ServiceState CurrentState() const;
    InterfaceState StateOf(const NetworkDevice *d, const InterfaceState &earlier) const;
    void AddAuthentication(const NetworkDevice *d, InterfaceState &state,
                           const InterfaceState &earlier) const;
    void AddDhcp(const NetworkDevice *d, InterfaceState &state) const;

    // What the others ask
    NetworkDevice *Carrier(bool isWiredConnected) const;
    Modem *ModemInUse() const;
    bool IsAwaitingAuthentication(const NetworkDevice *d) const;

    // The flag files
    void ApplyDebugFlag();
    void RemoveFlag(const QString &path);
};
