#!/bin/sh
# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
#
# Ends every running DHCP client and returns once they are gone, so that a new
# attempt never meets an old client. Asks first; after 2 s it insists. A client
# that is ended leaves its default route behind, and the next one's is refused
# while there is one: so it goes, too.
set -u

clients() {
    pidof dhclient
}

# true when all are gone within $1 tenths of a second
wait_until_gone() {
    tenths=$1
    while clients >/dev/null; do
        [ "$tenths" -gt 0 ] || return 1
        tenths=$((tenths - 1))
        sleep 0.1
    done
}

signal_clients() {
    for pid in $(clients); do
        kill -s "$1" "$pid" 2>/dev/null
    done
}

# The interfaces that the clients were started for: their last argument.
interfaces() {
    for pid in $(clients); do
        tr '\0' '\n' <"/proc/$pid/cmdline" | tail -n 1
    done 2>/dev/null
}

# A wired interface that carries keeps its route: it comes first, whichever client is renewed beside it.
keeps_its_route() {
    case $1 in
        wlan* | mlan* | wwan*) return 1 ;;
    esac
    [ ! -e "/sys/class/net/$1/wireless" ] && [ "$(cat "/sys/class/net/$1/carrier" 2>/dev/null)" = 1 ]
}

clients >/dev/null || exit 0
served=$(interfaces)
signal_clients TERM
wait_until_gone 20 || {
    signal_clients KILL
    wait_until_gone 20
}
gone=$?
for interface in $served; do
    [ -e "/sys/class/net/$interface" ] || continue
    keeps_its_route "$interface" || ip -4 route flush default dev "$interface"
done
exit $gone
