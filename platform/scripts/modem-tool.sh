#!/bin/sh
# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
#
# modem-tool.sh connect | disconnect | ip_config | status
#
# The cellular modem through ModemManager. Every call of mmcli is bounded, as
# the caller waits without a limit. "status" prints "connected", "disconnected",
# "cannot find modem", or what somebody has to do something about, as a SIM that
# wants its PIN; it runs every second. The access point name, where the
# network needs one, is the first line of /tmp/config/files/network/apn, a file
# of root's own.
set -u

APN_FILE=/tmp/config/files/network/apn
RESOLV_CONF=/etc/resolv.conf
QUICK=5
# Registration and bearer set-up; the daemon stands still meanwhile.
SLOW=25
# Behind a cable's default route, which has none, and before a radio's.
METRIC=500

# mm SECONDS ARGUMENT...
mm() {
    seconds=$1
    shift
    timeout -k 1 "$seconds" mmcli "$@" 2>/dev/null
}

# field KEY TEXT: sets "value" from the lines "KEY : value" of a text; "--" is how mmcli says "none"
field() {
    value=
    while IFS=: read -r key rest; do
        [ "${key%%[[:blank:]]*}" = "$1" ] || continue
        value=${rest#"${rest%%[![:blank:]]*}"}
        [ "$value" != -- ] || value=
        return
    done <<TEXT
$2
TEXT
}

connection_status() {
    modem=$(mm $QUICK -m any -K) || {
        echo 'cannot find modem'
        return
    }
    field modem.generic.state "$modem"
    case $value in
        connected) echo connected ;;
        locked)
            field modem.generic.unlock-required "$modem"
            echo "the SIM is locked${value:+: $value}"
            ;;
        failed)
            field modem.generic.state-failed-reason "$modem"
            echo "the modem has failed${value:+: $value}"
            ;;
        *) echo disconnected ;;
    esac
}

# Where users may write: a pipe would be waited for, a link show them what root alone may read.
is_roots_file() {
    # shellcheck disable=SC3067 # dash and busybox know it
    [ -f "$1" ] && [ ! -L "$1" ] && [ -O "$1" ]
}

connect() {
    apn=
    ! is_roots_file "$APN_FILE" || apn=$(head -n 1 "$APN_FILE" | tr -cd 'A-Za-z0-9._-')
    mm $QUICK -m any -e
    mm $SLOW -m any --simple-connect="${apn:+apn=$apn}"
}

disconnect() {
    mm $QUICK -m any --simple-disconnect
}

# Sets "bearer" to the description of the connected bearer, or to nothing. False when the modem does not say.
find_bearer() {
    bearer=
    modem=$(mm $QUICK -m any -K) || return 1
    number=1
    field 'modem.generic.bearers.value[1]' "$modem"
    while [ -n "$value" ]; do
        bearer=$(mm $QUICK -b "$value" -K) || return 1
        field bearer.status.connected "$bearer"
        [ "$value" != yes ] || return 0
        number=$((number + 1))
        field "modem.generic.bearers.value[$number]" "$modem"
    done
    bearer=
}

# A connection that is gone leaves no address behind, nor the route that goes with it.
clear_addresses() {
    for path in /sys/class/net/wwan*; do
        [ ! -e "$path" ] || ip -4 address flush dev "${path##*/}"
    done
}

write_resolv_conf() {
    # A link into a folder that is gone gives way to a file.
    target=$(readlink -f "$RESOLV_CONF") || target=$RESOLV_CONF
    trap 'rm -f "$target.new.$$"' EXIT
    printf '%s\n' "$bearer" | sed -n 's/^bearer.ipv4-config.dns.value\[[0-9]*\][[:blank:]]*: *\([0-9.]*\)$/nameserver \1/p' \
        >"$target.new.$$" || return 1
    [ -s "$target.new.$$" ] || return 0
    chmod 644 "$target.new.$$"
    # A file that is a mount point of its own cannot be replaced.
    mv -f "$target.new.$$" "$target" 2>/dev/null || cat "$target.new.$$" >"$target"
}

# set_default_route INTERFACE GATEWAY
set_default_route() {
    # A point-to-point link may name no gateway; the link itself is the way then.
    if [ -n "$2" ]; then
        ip route replace default via "$2" dev "$1" metric $METRIC onlink
    else
        ip route replace default dev "$1" metric $METRIC
    fi
}

set_static_address() {
    field bearer.ipv4-config.address "$bearer"
    address=$value
    field bearer.ipv4-config.prefix "$bearer"
    [ -n "$address" ] && [ -n "$value" ] || return 1
    ip address add "$address/$value" dev "$1"
    field bearer.ipv4-config.mtu "$bearer"
    [ -z "$value" ] || ip link set dev "$1" mtu "$value"
    field bearer.ipv4-config.gateway "$bearer"
    set_default_route "$1" "$value"
    write_resolv_conf
}

ip_config() {
    find_bearer || return 1
    # As before every attempt of the daemon: no other client, and no route in the way.
    /usr/network/stop_dhclient.sh
    clear_addresses
    field bearer.status.interface "$bearer"
    interface=$value
    [ -n "$interface" ] || return 1
    ip link set dev "$interface" up
    field bearer.ipv4-config.method "$bearer"
    if [ "$value" = dhcp ]; then
        timeout -k 1 30 dhclient -1 -e IF_METRIC=$METRIC -cf /etc/dhcp/dhclient.conf "$interface"
    else
        set_static_address "$interface"
    fi
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
