// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <QString>

/// Paths and keys that more than one folder uses. What one file uses alone stays in that file.

inline const QString NET_CFG_DIR = QStringLiteral("network/");
/// Section of the configuration store that holds the network definitions and the daemon's settings.
inline const QString XML_NETWORK_PATH = QStringLiteral("user/hardware/networkconfig");
inline const QString XML_NETWORK_PATH_WS = XML_NETWORK_PATH + QLatin1Char('/');
inline const QString XML_FULL_NETWORK_PATH = QStringLiteral("/tmp/config/xmlconfig/") + XML_NETWORK_PATH;
inline const QString DEFAULT_NETWORK_NAME = QStringLiteral("Unspecified Network Name");

/// The last good version of the store, where it outlives a restart: not in /tmp, which the next start of the
/// device empties.
inline const QString LAST_GOOD_STORE = QStringLiteral("/var/lib/corvi/last-good.xml");

/// The kernel's network class directory (Documentation/ABI/testing/sysfs-class-net).
inline const QString SYS_NET = QStringLiteral("/sys/class/net/");
inline const QString WirelessCarrierFile = SYS_NET + QStringLiteral("wlan0/carrier");

inline const QString DHCLIENT_CONF = QStringLiteral("/etc/dhcp/dhclient.conf");
/// Transcript of the last DHCP client run.
inline const QString CORVI_DHCP_LOG = QStringLiteral("/tmp/dhclient.log");
/// What the DHCP client knows of leases, over restarts (dhclient.leases(5)).
inline const QString DHCP_LEASES = QStringLiteral("/var/lib/dhcp/dhclient.leases");
inline const QString WPA_SUPPLICANT_CONF = QStringLiteral("/tmp/wpa_supplicant.conf");
/// Where the supplicant has its control sockets, one for each interface.
inline const QString WPA_CONTROL_FOLDER = QStringLiteral("/var/run/wpa_supplicant");

/// Flag files: their presence alone switches behaviour.
inline const QString KILL_FLAG = QStringLiteral("/tmp/kill_corvi");
inline const QString USE_NL_DRIVER_FLAG = QStringLiteral("/tmp/config/files/use_nl_driver");
inline const QString USE_NL_DRIVER_TEMPORARY_FLAG = QStringLiteral("/tmp/use_nl_driver");
