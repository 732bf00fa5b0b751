// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include "carrierfile.h"
#include "carrierlosses.h"
#include "dhcpclientwatch.h"
#include "duplicatewatch.h"
#include "reportonce.h"
#include "retrypause.h"

#include <QByteArray>
#include <QHash>
#include <QMetaType>
#include <QObject>
#include <QString>
#include <QStringList>

#include <memory>
#include <optional>

class Logging;
class NamedNetwork;
class QTimer;
class ZebNetConfig;
class ZebNetStatus;

/// What is told of an interface over and over while it lasts.
struct DeviceReports
{
    ReportOnce address{QString()}; ///< that there is none is no news
    ReportOnce config, dhcp, leases, speed, mtu, claim, resolver, leasedResolver, leasedGateway, refusal,
        hosts, start, upkeep, duplicate, client, ownGateway, radio;
};

/// One kernel interface: its last observed state, the network definitions that apply to it, and the
/// operations that configure it with the system's tools. Lives on the main thread; created without a parent
/// and deleted by the service object, which reads and sets the public state directly.
///
/// networkdevice.cpp         life, state, events
/// networkdevice_link.cpp    link and address control
/// networkdevice_dhcp.cpp    DHCP client, resolver, host list
/// networkdevice_config.cpp  applying a network definition
/// networkdevice_upkeep.cpp  link and static address follow what was asked for
class NetworkDevice : public QObject
{
    Q_OBJECT
public:
    NetworkDevice(const QString &interfaceName, QObject *parent);
    ~NetworkDevice() override;
    virtual void RefreshWirelessStatus();
    virtual void UseNewDriver(bool on);
    /// The record of the current network, chosen on first use; null when no definition applies. For a
    /// wireless device the definition is read again, which invalidates pointers got before.
    virtual ZebNetConfig *getCurrentConfig();

    // Life, state, events

    int InitDevice();
    /// Goes on with what was told of the interface before this device was made; where that was nothing,
    /// others will go on with what this one tells.
    void ShareReports(std::shared_ptr<DeviceReports> &known);
    ZebNetConfig *UpdateConfig();
    /// Reads addresses and link state again: interface ioctls (netdevice(7)) and the carrier file, which a
    /// link that is down refuses to give (Documentation/ABI/testing/sysfs-class-net).
    void RefreshStatus();
    /// Publishes the addresses and reports an address that is present with event (1, 1).
    void UpdateIpInformation();
    /// The address went without our doing: that it is back, the same one too, is news.
    void NoteAddressGone();
    QString toString() const;
    /// Called by whoever publishes the record.
    void NotePublished();
    /// Whether the record that was published last still says what is seen.
    bool IsPublished() const;
    /// Of the definition that was chosen, empty before.
    QString DefinitionName() const;
    /// Of the definition, where only one applies; empty where the supplicant has several to choose from.
    QString OnlyDefinitionName() const;
    void SendEvent(int code, int value);

    // Link and address control: each runs a tool whose result decides nothing.

    void Up(const QString &interfaceName);
    void Up();
    void Up(const QString &interfaceName, const QString &ip, const QString &mask);
    void Up(const QString &ip, const QString &mask);
    void Down(const QString &interfaceName);
    void Down();
    void AutoNegotiate(const QString &interfaceName);
    /// `speed` in Mbit/s; `duplex` 1 is full, anything else half.
    void SetSpeed(const QString &interfaceName, int speed, int duplex);
    /// `mtu` in bytes, decimal.
    void SetMtu(const QString &interfaceName, const QString &mtu);
    void FlushIpAddress();
    void SetGateway(const QString &gw);
    /// Brings the link up where it is not, and follows it from then on. A link that somebody took down is
    /// brought up again by the next call; one that did not come up, after growing pauses.
    int StartDevice();
    int StopDevice();

    // DHCP client, resolver, host list

    /// One attempt; true when an address was bound. The client has 30 s, and so has each of the two steps
    /// before it, which end an earlier client and take away the addresses.
    bool Dhclient(const QString &interfaceName);
    bool ClearDNS();
    void SetDNS(const QString &dns1, const QString &dns2, const QString &domain);
    void AppendDNS(const QString &dns1, const QString &dns2, const QString &domain);
    void SetHosts(const QStringList &lines);

    // Applying a network definition

    /// Applies the current definition; `renew` runs DHCP where the address is not static.
    void ConfigureNetwork(bool renew);
    /// Sets the static address and default route again where they are gone or could never be set, at most
    /// after growing pauses; nothing for a definition without a static address.
    void KeepStaticAddress();
    /// Sets the default route of the lease again where none is left, at most after growing pauses; nothing
    /// for a static address.
    void KeepLeasedRoute();
    /// Starts another client where the one that renews the lease has ended, at most after growing pauses:
    /// see RenewLease(). Only for the interface that was configured last: each configuration ends the clients
    /// of others.
    void KeepDhcpClient();
    /// Starts the client again for the address that there is, which stays meanwhile: the server confirms it,
    /// or the client keeps it where the lease is still good. After a configuration. Blocks for up to 30 s.
    void RenewLease();
    /// Tells of another host that has our address. It is left to an administrator which of the two keeps it.
    void WatchForDuplicate();
    /// The hardware address of that host; empty while there is none, or nobody watches.
    QString AddressHolder() const;
    /// Sets the definition's name servers and hosts again where they could not be written, or `update_hosts`
    /// failed, at most after growing pauses.
    void KeepNames();
    /// That the default route is to lead to, of the definition or, while there is none at all, of the lease;
    /// empty where none is known.
    QString ExpectedGateway() const;
    /// Of the definition or of the lease in force, where the interface leads to it; empty where none is
    /// known.
    QString ReachableGateway() const;
    bool getNamedNetworksForDevice();
    /// The names of the definitions that apply, in the order in which they are considered.
    QStringList GetNamedNetworks() const;
    /// The supplicant's block lines of all definitions that apply, in the same order.
    QStringList GetNamedNetworkWpasInformation() const;
    QStringList getWpaConfig() const;

signals:
    // Emitted on the main thread, in the middle of an operation of the device: no slot may delete it.

    /// An event to be published and sent, of ZebNetEvent.
    void SendEventMessage(int code, int value, NetworkDevice *device);
    /// Never emitted: kept for those who connect to it.
    void ConnectionStatusChange(NetworkDevice *device, bool connected);

public slots:
    void onTimerTrip();

public:
    // What is asked for and what is seen, read and set by the service object.

    NamedNetwork *currentNetwork = nullptr; ///< one of namedNetworks, chosen by getCurrentConfig()
    Logging *logger;                        ///< kept: the lines go through Log
    bool usesSupplicant = false; ///< always for wireless; for wired, once a definition has asked for 802.1X
    QStringList networkNames;    ///< of the definitions that apply, in the order in which they are considered
    QHash<QString, NamedNetwork *> namedNetworks; ///< the definitions that apply, by name, owned
    QString name;                                 ///< the kernel's for the interface
    bool isWireless = false;               ///< set by the concrete kind, as `configurable` and `driver` are
    ZebNetConfig *currentConfig = nullptr; ///< being applied; owned by the current network
    const std::unique_ptr<ZebNetStatus> status; ///< the record that the service object publishes
    int socketFd;                 ///< datagram socket for interface ioctls, -1 when there is none
    bool linkUp = false;          ///< asked for: brought up, and neither taken down since nor seen down
    bool stopped = false;         ///< asked for: by StopDevice(), until the next StartDevice()
    bool isUp = false;            ///< seen: the kernel gives the carrier, as it does of a link that is up
    bool isRunning = false;       ///< seen: there is a carrier
    bool fallbackEnabled = false; ///< the definition allows an attempt without 802.1X
    int authWaitTicks = 0;        ///< supervision ticks (1 s) that the service object has waited for 802.1X
    bool inFallback = false;      ///< the service object has given up on 802.1X for this link
    bool ipAnnounced = false;     ///< event (1, 1) has been sent for the address
    QString ipAddress;            ///< seen: IPv4, dotted, like the next two; empty where there is none
    QString broadcast;            ///< seen
    QString netmask;              ///< seen
    QString macAddress;           ///< seen: six groups of two digits, upper case, apart by colons
    QString essid;                ///< wireless: from `iwconfig`, like the next three
    QString accessPoint;          ///< wireless: its address
    QString encKey;               ///< wireless: whether the key is on
    int linkQuality = 0;          ///< wireless: of a highest value that the driver chooses
    QString driver;               ///< the supplicant's driver list, such as "wired"; "modem" for none
    const std::unique_ptr<QTimer> timer; ///< looks at the interface 4 times a second once it was started
    int wirelessTicks = 0;               ///< of that timer, since `iwconfig` was asked
    bool configurable = true;            ///< no concrete kind yet: the wired setup does not look at it
    bool driverChosen = false;           ///< by UseNewDriver(); read by nobody: kept as it is
    bool isBridgePort = false;           ///< somebody's bridge has the traffic of this interface
    QString publishedAddress;   ///< in the record of this device that was published last, or waits to be
    QString publishedBroadcast; ///< in the same record, like the next three
    QString publishedNetmask;
    QString publishedMacAddress;
    bool publishedCarrier = false;
    CarrierLosses carrierLosses;               ///< of the link, since it was reported
    int dhcpFailures = 0;                      ///< attempts in a row, on this link, that got no address
    QString dhcpRefuser;                       ///< the server that refused the last one, where one did
    QString dhcpOfferer;                       ///< the one that offered an address and gave none
    std::optional<RetryPause::Time> dhcpSince; ///< an attempt is under way

private:
    void ReadAddress(unsigned long request, QString &field) const;
    void ReadMacAddress();
    void ReadCarrier();
    bool WasCutShort() const;
    void FollowLink();
    bool IsRadioOff();
    void KeepLeasedAsStatic();
    bool HasStaticAddress() const;
    bool HasStaticRoute() const;
    void NoteStaticAttempt();
    void TellOfOwnGateway(const QString &gateway, const QString &address);
    void RestoreGateway(const QString &gateway, const QStringList &options);
    bool RestoreSubnetRoute(const QString &gateway);
    QStringList LeasedRouteOptions() const;

    void EndDhcpClient();
    void TakeBackDhcpMtu();
    void DropDamagedLeases(const QString &transcript);
    void TellOfRefusal(const QString &transcript);
    void NoteUnsetLease();
    void TellOfLostGateway(const QString &transcript);
    bool LearnLeasedRoute();
    void ClaimResolver(bool isOurs);

    NamedNetwork *FirstNetwork() const;

    // The steps of ConfigureNetwork().
    void ApplyConfig(bool renew);
    QString Gateway() const;
    void ApplyWiredFlags();
    void DropLeadingZeros();
    void ApplyStaticAddress();
    void ObtainAddress();
    void MakeRoomForDhcp(bool isForLargeAnswer);
    bool StartDhcpClient(const QString &interfaceName, const QStringList &options);
    void TellOfFailedDhcp();
    void ApplyResolver();
    void ApplyResolverAgain();
    void ApplyLinkSettings();
    void ApplyMtu();
    void ExpectLossForMtu(const QByteArray &earlierMtu);
    void ApplySpeed();
    bool IsSpeedInForce(int mbits, bool isFull) const;

    void WriteResolver(const QByteArray &earlier, const QString &dns1, const QString &dns2,
                       const QString &domain);
    void ReportNoResolver();
    void TellOfLostResolver(const QString &transcript);

    const QByteArray kernelName; ///< the name as the kernel's interfaces take it
    CarrierFile carrierFile;
    QString appliedSpeed; ///< the text that SetSpeed() was last run for
    QString upAnswer;     ///< what `ifconfig` said when the link was last brought up, nothing where it could

    QString toldRadioBlock; ///< what kept the radio from sending at the last look
    DhcpClientWatch dhcpClientWatch;
    DuplicateWatch duplicateWatch;
    RetryPause startPause{RetryPause::First::AT_ONCE};  ///< of bringing the link up
    RetryPause staticPause{RetryPause::First::AT_ONCE}; ///< of setting the static address and its route
    RetryPause routePause{RetryPause::First::AT_ONCE};  ///< of setting the default route of the lease
    RetryPause namesPause;                              ///< of writing the name servers and hosts
    bool isResolverDue = false;                         ///< it could not be written
    bool areHostsDue = false;                           ///< they could not be written, or not be merged
    QString leasedGateway;                              ///< that had the default route last
    int leasedMetric = 0;                               ///< that this route had
    QString leasedGatewayAddress;                       ///< our address at that time

    std::shared_ptr<DeviceReports> reports = std::make_shared<DeviceReports>();
};

Q_DECLARE_METATYPE(NetworkDevice *)
