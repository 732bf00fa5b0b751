// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include "bondeddevice.h"
#include "fakesysnet.h"
#include "logging.h"
#include "testsupport.h"

#include <memory>

/// What the tests of the bond share: interfaces, and a driver that acts on them.

inline const QString SAVED_MAC = QStringLiteral("/tmp/config/files/network/bondedMac");
inline const QByteArray MAC = "02:00:5e:0a:bc:0f";

/// What the driver does to /sys/class/net: bonds appear, are renamed and go, `bonding_masters` lists them.
inline const QByteArray DRIVER = R"(
net=/sys/class/net
list_masters() {
    [ -e $net/bonding_masters ] || return 0
    (cd $net && ls -d */bonding 2>/dev/null | sed 's,/bonding,,' | tr '\n' ' ' | sed 's/ $//'; echo) >/tmp/masters
    mv /tmp/masters $net/bonding_masters
}
add_bond() {
    mkdir -p $net/$1/bonding
    echo 02:bb:bb:bb:bb:bb >$net/$1/address
}
case "$(basename $0) $*" in
    "modprobe bonding"*) : >$net/bonding_masters; add_bond bond0 ;;
    "modprobe -r bonding") for b in $net/*/bonding; do rm -rf ${b%/bonding}; done; rm -f $net/bonding_masters ;;
    "ip link set name"*) [ ! -d $net/$5 ] || [ -e $net/$4 ] || mv $net/$5 $net/$4 ;;
    "ip link add"*) [ ! -e $net/bonding_masters ] || add_bond $3 ;;
    "ip link delete"*) rm -rf $net/$3 ;;
    "ip link set dev "*" master "*) [ ! -d $net/$4 ] || : >$net/$4/master ;;
    "ip link set dev "*" nomaster") rm -f $net/$4/master ;;
    "ip link set"*address*) echo $5 >$net/$3/address ;;
esac
list_masters
)";

inline void GivenSettings(const QByteArray &settings)
{
    TestSupport::WriteStore("<x>" + settings + "</x>");
}

/// Every test starts from nothing: two cables and a radio, bonding wanted, no saved address.
inline std::unique_ptr<FakeSysNet> MakeBondWorld()
{
    TestSupport::RestorePrograms();
    TestSupport::ClearAnswers();
    TestSupport::ClearJournal();
    TestSupport::Remove("/tmp/config/files");
    GivenSettings("<bonding_enable>true</bonding_enable><bonding_mode>1</bonding_mode>");
    BondedDevice::driverFound = false;
    BondedDevice::enableChecked = false;
    Logging::GetInstance(Logging::KEEP_LEVEL, false)->SetLoggingLevel(Level::TRACE);
    TestSupport::ClearLog();
    auto net = std::make_unique<FakeSysNet>();
    for (const char *name : {"lo", "eth0", "eth1", "wlan0"})
        net->Add(name);
    net->Write("eth0/address", MAC + "\n");
    return net;
}
