// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include "testsupport.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

/// The small world around the service object: its files, stores, interfaces with a far end each, stand-in
/// tools that act on them.
namespace CorviWorld {

inline const QString DEBUG_FLAG = QStringLiteral("/tmp/debug_corvi");
inline const QString KILL_FLAG = QStringLiteral("/tmp/kill_corvi");
inline const QString RELOAD_FLAG = QStringLiteral("/tmp/config/files/network/reload");
inline const QString REFRESH_FLAG = QStringLiteral("/tmp/refresh_network");
inline const QString KEEP_WIRELESS_FLAG = QStringLiteral("/tmp/keepwirelessup");
inline const QString DHCP_EVENT = QStringLiteral("/tmp/dhcp_event");
inline const QString DHCLIENT_CONF = QStringLiteral("/etc/dhcp/dhclient.conf");
inline const QString SUPPLICANT_FILE = QStringLiteral("/tmp/wpa_supplicant.conf");

inline const QByteArray LAN_DHCP = "<networkconfig><network><name>lan</name></network></networkconfig>";
inline const QByteArray LAN_STATIC = "<networkconfig><network><name>lan</name><staticIp>true</staticIp>"
                                     "<ipAddress>10.1.0.2</ipAddress><netmask>255.255.255.0</netmask>"
                                     "<gateway>10.1.0.1</gateway></network></networkconfig>";
inline const QByteArray LAN_8021X =
    "<networkconfig><network><name>lan</name><securityMode>802.1X (PEAP/MSCHAPv2)</securityMode>"
    "<identity>me</identity><password>secret</password></network></networkconfig>";
inline const QByteArray LAN_8021X_STATIC =
    "<networkconfig><network><name>lan</name><securityMode>802.1X (PEAP/MSCHAPv2)</securityMode>"
    "<identity>me</identity><password>secret</password><staticIp>true</staticIp>"
    "<ipAddress>10.1.0.2</ipAddress><netmask>255.255.255.0</netmask><gateway>10.1.0.1</gateway>"
    "</network></networkconfig>";
inline const QByteArray WLAN = "<networkconfig><network><name>Office</name><ssid>Office</ssid>"
                               "<securityMode>Unsecured</securityMode></network></networkconfig>";
inline const QByteArray WLAN_AND_8021X =
    "<networkconfig>"
    "<network><name>lan</name><securityMode>802.1X (PEAP/MSCHAPv2)</securityMode><identity>me</identity>"
    "<password>secret</password><staticIp>true</staticIp><ipAddress>10.1.0.2</ipAddress>"
    "<netmask>255.255.255.0</netmask><gateway>10.1.0.1</gateway></network>"
    "<network><name>Office</name><ssid>Office</ssid><securityMode>Unsecured</securityMode></network>"
    "</networkconfig>";

void SetLevel(int level);
constexpr int SEGMENT_SIZE = 512;
inline const QString SEGMENT_KEY = QStringLiteral("com.qarbo.zebnetstatus");
/// The segment as another program reads it; empty when there is none.
QByteArray ReadSegment();
void FillSegment(char byte);

/// How often a line was logged.
int LogCount(const QString &text);
/// Whether the log echoed this line, of all that came as debug output.
bool WasEchoed(const QString &line, const QStringList &debugOutput);
/// The journal's lines that begin with this.
QStringList JournalOf(const QString &start);
/// An Ethernet interface with a cable to a far end that discovery does not see. It is down, the cable is in.
void MakeInterface(const QString &name);
/// The machine of a test: its configuration, and its interfaces in the order in which they come.
void MakeMachine(const QByteArray &store, const QStringList &interfaces);
/// As somebody other than the daemon does it.
void BringUp(const QString &name);
/// Puts the cable in again.
void PlugCable(const QString &name);
void PullCable(const QString &name);
/// Where the tools that set links and addresses do it, as the daemon's decisions follow from what they did.
void UseWorkingTools();
/// A DHCP client that is given an address at once.
void UseDhcpServer();
/// Every test starts from nothing: no interface, definition, flag file, log or journal; tools that work.
void StartFromNothing();
/// What a test is not about is forgotten: the log and the journal start here.
void Forget();
/// What a test is not about is forgotten, and from here on the log takes all up to this level.
void LogFromHere(int level);
int DhcpAttempts();

} // namespace CorviWorld
