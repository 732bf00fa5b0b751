#!/bin/sh
# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
#
# modem-tool.sh connect | disconnect | ip_config | status
#
# The cellular modem through ModemManager. Every call of mmcli is bounded, as
# the caller waits without a limit. "status" prints "connected", "disconnected"
# or "cannot find modem". The access point name, where the network needs one,
# is the first line of /tmp/config/files/network/apn.
set -u

APN_FILE=/tmp/config/files/network/apn
RESOLV_CONF=/etc/resolv.conf
QUICK=5
# Registration and bearer set-up; the daemon stands still meanwhile.
SLOW=25

# mm SECONDS ARGUMENT...
mm() {
    seconds=$1
    shift
    timeout -k 1 "$seconds" mmcli "$@" 2>/dev/null
}

# value KEY, from "key : value" lines; "--" is how mmcli says "none"
value() {
    sed -n "s/^$1[[:blank:]]*: *//p" | grep -v '^--$' | head -n 1
}

connection_status() {
    modem=$(mm $QUICK -m any -K) || {
        echo 'cannot find modem'
        return
    }
    if [ "$(printf '%s\n' "$modem" | value modem.generic.state)" = connected ]; then
        echo connected
    else
        echo disconnected
    fi
}

connect() {
    apn=
    [ ! -r "$APN_FILE" ] || apn=$(head -n 1 "$APN_FILE" | tr -cd 'A-Za-z0-9._-')
    mm $QUICK -m any -e
    mm $SLOW -m any --simple-connect="${apn:+apn=$apn}"
}

disconnect() {
    mm $QUICK -m any --simple-disconnect
}

bearer() {
    path=$(mm $QUICK -m any -K | value 'modem.generic.bearers.value\[1\]')
    [ -n "$path" ] && mm $QUICK -b "$path" -K
}

write_resolv_conf() {
    target=$(readlink -f "$RESOLV_CONF")
    [ -n "$target" ] || return 1
    trap 'rm -f "$target.new.$$"' EXIT
    printf '%s\n' "$1" | sed -n 's/^bearer.ipv4-config.dns.value\[[0-9]*\][[:blank:]]*: *\([0-9.]*\)$/nameserver \1/p' \
        >"$target.new.$$" || return 1
    [ -s "$target.new.$$" ] || return 0
    chmod 644 "$target.new.$$"
    mv -f "$target.new.$$" "$target"
}

ip_config() {
    settings=$(bearer) || return 1
    interface=$(printf '%s\n' "$settings" | value bearer.status.interface)
    address=$(printf '%s\n' "$settings" | value bearer.ipv4-config.address)
    prefix=$(printf '%s\n' "$settings" | value bearer.ipv4-config.prefix)
    gateway=$(printf '%s\n' "$settings" | value bearer.ipv4-config.gateway)
    mtu=$(printf '%s\n' "$settings" | value bearer.ipv4-config.mtu)
    [ -n "$interface" ] || return 1

    ip link set dev "$interface" up
    if [ "$(printf '%s\n' "$settings" | value bearer.ipv4-config.method)" = dhcp ]; then
        timeout -k 1 30 dhclient -1 -cf /etc/dhcp/dhclient.conf "$interface"
        return
    fi
    [ -n "$address" ] && [ -n "$prefix" ] || return 1
    ip address flush dev "$interface"
    ip address add "$address/$prefix" dev "$interface"
    [ -z "$mtu" ] || ip link set dev "$interface" mtu "$mtu"
    # A point-to-point link may name no gateway; the link itself is the way then.
    if [ -n "$gateway" ]; then
        ip route replace default via "$gateway" dev "$interface" onlink
    else
        ip route replace default dev "$interface"
    fi
    write_resolv_conf "$settings"
}

case ${1:-} in
    connect) connect ;;
    disconnect) disconnect ;;
    ip_config) ip_config ;;
    status) connection_status ;;
    *)
        echo 'usage: modem-tool.sh connect | disconnect | ip_config | status' >&2
        exit 2
        ;;
esac
