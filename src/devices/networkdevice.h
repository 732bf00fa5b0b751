// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include "carrierfile.h"
#include "carrierlosses.h"
#include "reportonce.h"
#include "retrypause.h"

#include <QByteArray>
#include <QHash>
#include <QMetaType>
#include <QObject>
#include <QString>
#include <QStringList>

#include <memory>

class Logging;
class NamedNetwork;
class QTimer;
class ZebNetConfig;
class ZebNetStatus;

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
    ZebNetConfig *UpdateConfig();
    /// Reads addresses and link state again: interface ioctls (netdevice(7)) and the carrier file, which a
    /// link that is down refuses to give (Documentation/ABI/testing/sysfs-class-net).
    void RefreshStatus();
    /// Publishes the addresses and reports an address that is present with event (1, 1).
    void UpdateIpInformation();
    QString toString() const;
    void SendEvent(int code, int value);

    // Link and address control: each runs a tool whose result is not examined.

    void Up(const QString &iface);
    void Up();
    void Up(const QString &iface, const QString &ip, const QString &mask);
    void Up(const QString &ip, const QString &mask);
    void Down(const QString &iface);
    void Down();
    void AutoNegotiate(const QString &iface);
    /// `speed` in Mbit/s; `duplex` 1 is full, anything else half.
    void SetSpeed(const QString &iface, int speed, int duplex);
    /// `mtu` in bytes, decimal.
    void SetMtu(const QString &iface, const QString &mtu);
    void FlushIpAddress();
    void SetGateway(const QString &gw);
    /// Brings the link up where it is not, and follows it from then on. A link that somebody took down is
    /// brought up again by the next call; one that did not come up, after growing pauses.
    int StartDevice();
    int StopDevice();

    // DHCP client, resolver, host list

    /// One attempt; true when an address was bound. The client has 30 s, and so has each of the two steps
    /// before it, which end an earlier client and take away the addresses.
    bool Dhclient(const QString &iface);
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
    bool getNamedNetworksForDevice();
    /// The names of the definitions that apply, in the order in which they are considered.
    QStringList GetNamedNetworks() const;
    /// The supplicant's block lines of all definitions that apply, in the same order.
    QStringList GetNamedNetworkWpasInformation() const;
    QStringList getWpaConfig() const;

signals:
    void SendEventMessage(int code, int value, NetworkDevice *device);
    void ConnectionStatusChange(NetworkDevice *device, bool connected);

public slots:
    void onTimerTrip();

public:
    NamedNetwork *currentNetwork = nullptr;
    Logging *logger;
    bool usesSupplicant = false;
    QStringList networkNames;
    QHash<QString, NamedNetwork *> namedNetworks; ///< owned
    QString name;
    bool isWireless = false;
    ZebNetConfig *currentConfig = nullptr; ///< owned by the current network
    const std::unique_ptr<ZebNetStatus> status;
    int socketFd; ///< datagram socket for interface ioctls, -1 when there is none
    bool linkUp = false;
    bool stopped = false;
    bool isUp = false;
    bool isRunning = false;
    bool fallbackEnabled = false;
    int authWaitTicks = 0;
    bool inFallback = false;
    bool ipAnnounced = false;
    QString ipAddress;
    QString broadcast;
    QString netmask;
    QString macAddress;
    QString essid;
    QString accessPoint;
    QString encKey;
    int linkQuality = 0;
    QString driver;
    const std::unique_ptr<QTimer> timer;
    int wirelessTicks = 0;
    bool configurable = true;
    bool driverChosen = false;
    QString publishedAddress; ///< in the record that was last published of this device
    CarrierLosses carrierLosses;

private:
    void ReadAddress(unsigned long request, QString &field) const;
    void ReadMacAddress();
    void ReadCarrier();
    void FollowLink();

    void EndDhcpClient();
    void TakeBackDhcpMtu();

    bool IsForThisDevice(const QString &networkName) const;
    void SortNetworkNames();
    NamedNetwork *FirstNetwork() const;

    // The steps of ConfigureNetwork().
    void ApplyConfig(bool renew);
    void ApplyWiredFlags();
    void ApplyStaticAddress();
    void ObtainAddress();
    void ApplyLinkSettings();
    void ApplyMtu();
    void ApplySpeed();
    bool IsSpeedInForce(int mbits, bool isFull) const;
    QByteArray ReadAttribute(const char *attribute) const;

    void WriteResolver(const QByteArray &earlier, const QString &dns1, const QString &dns2,
                       const QString &domain);
    void ReportNoResolver();

    const QByteArray kernelName; ///< the name as the kernel's interfaces take it
    CarrierFile carrierFile;
    QString appliedSpeed; ///< the text that SetSpeed() was last run for

    RetryPause startPause{RetryPause::First::AT_ONCE};
    RetryPause staticPause{RetryPause::First::AT_ONCE};

    // What is told of over and over while it lasts.
    ReportOnce addressReport{QString()};
    ReportOnce configReport;
    ReportOnce dhcpReport;
    ReportOnce speedReport;
    ReportOnce resolverReport;
    ReportOnce hostsReport;
    ReportOnce startReport;
    ReportOnce staticReport;
};

Q_DECLARE_METATYPE(NetworkDevice *)
