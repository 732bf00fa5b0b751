// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <QByteArray>
#include <QString>

/// Whether `iw` knows the interface. False when it does not answer within 30000 ms. The program asked for is
/// "iw ", with its blank: where nothing has that name, no interface is wireless.
bool interfaceIsWireless(const QString &interfaceName);

/// What sysfs says of the interface (Documentation/ABI/testing/sysfs-class-net), without blanks around it;
/// empty when it cannot be read.
QByteArray LinkAttribute(const QString &interfaceName, const char *attribute);

/// The ARP hardware type from sysfs (if_arp.h); 0 when it cannot be read.
int ReadLinkType(const QString &interfaceName);

/// False for loopback, tunnels and other links without hardware.
bool HasHardware(int linkType);

/// What an Ethernet interface without hardware of its own is: "bridge", "vlan", "tap", "port of br0" ...;
/// empty for an adapter, and where the kernel does not say (Documentation/ABI/testing/sysfs-class-net,
/// DEVTYPE).
QString VirtualKind(const QString &interfaceName);

/// Whether the interface is a port of a bridge. What comes in by it goes to the bridge, so an address of its
/// own would hear nothing.
bool IsBridgePort(const QString &interfaceName);

/// What keeps the interface's radio from sending, so that nobody can bring it up: "by a switch" of the
/// machine, or "by software"; empty where nothing does (Documentation/ABI/stable/sysfs-class-rfkill).
QString RadioBlock(const QString &interfaceName);

/// Whether the bond takes the interface, by the first letter alone: that of a radio is another one.
bool HasEthernetName(const QString &interfaceName);

enum class InterfaceKind { Wired, Wireless, Modem };

/// What the daemon takes an interface for, by its name and by what sysfs shows of it.
InterfaceKind KindOfInterface(const QString &interfaceName);
