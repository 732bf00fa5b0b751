#!/bin/sh
# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
#
# Ends every running DHCP client and returns once they are gone, so that a new
# attempt never meets an old client. Asks first; after 2 s it insists.
#
# Then it makes way for the default route that the next client adds, which is
# refused while there is one of the same metric. What stands in its way:
#   - the route of an interface that does not carry goes;
#   - that of a modem or a radio is put behind those of cables (none, 0) and of
#     modem-tool.sh (500): it is used again as soon as nothing better is there;
#   - that of a cable that carries stays: it comes first, whoever is renewed.
#
# Runs before every attempt to get an address, so it starts a program only
# where there is something to do.
set -u

LATER_METRIC=600

# A process of another network namespace (a container's) or of another user is
# no client of this machine. One that is about to end has left its namespace.
# One that may do more than we keeps its "ns" closed to us (ptrace(2)), but not
# the list of its links (proc(5)), of which each namespace has one.
is_ours() {
    case " $known " in
        *" ${1#/proc/} "*) return 0 ;;
    esac
    # shellcheck disable=SC3013,SC3067 # dash and busybox know both, and they save starting programs
    [ -O "$1" ] && [ "$1/net/dev" -ef /proc/self/net/dev ]
}

# Sets "clients" to the process ids of the clients, and "scripts" to those of
# what they run when an address comes or goes. One that only waits for its
# parent to take note has ended.
find_clients() {
    clients=
    scripts=
    for process in /proc/[0-9]*; do
        { read -r name <"$process/comm"; } 2>/dev/null || continue
        case $name in
            dhclient | dhclient-script) ;;
            *) continue ;;
        esac
        is_ours "$process" || continue
        { read -r _ _ state _ <"$process/stat"; } 2>/dev/null || continue
        [ "$state" != Z ] || continue
        case $name in
            dhclient) clients="$clients ${process#/proc/}" ;;
            *) scripts="$scripts ${process#/proc/}" ;;
        esac
    done
    known="$clients $scripts"
}

# end_with SIGNAL PAUSES SECONDS: true when all are gone after at most so many
# pauses. A script is only killed: ended early, it leaves half a resolver file.
end_with() {
    pauses=$2
    while find_clients && [ -n "$clients$scripts" ]; do
        [ "$pauses" -gt 0 ] || return 1
        pauses=$((pauses - 1))
        [ "$1" != KILL ] || clients="$clients $scripts"
        # Again each time, as one may have started another in between.
        # shellcheck disable=SC2086 # one word for each process
        [ -z "$clients" ] || kill -s "$1" $clients 2>/dev/null
        sleep "$3"
    done
}

# A client that listens ends at once, so the first pauses are short.
end_clients() {
    known=
    end_with TERM 20 0.01 || end_with TERM 18 0.1 || end_with KILL 20 0.1
}

carries() {
    { read -r carrier <"/sys/class/net/$1/carrier"; } 2>/dev/null && [ "$carrier" = 1 ]
}

comes_after_a_cable() {
    case $1 in
        wlan* | mlan* | wwan*) return 0 ;;
    esac
    [ -e "/sys/class/net/$1/wireless" ]
}

# Sets "blocking" to the interfaces whose default routes are in the way.
find_blocking() {
    blocking=
    while read -r interface destination _ _ _ _ metric mask _; do
        [ "$destination$mask" = 0000000000000000 ] || continue
        if ! carries "$interface" || { comes_after_a_cable "$interface" && [ "$metric" = 0 ]; }; then
            blocking="$blocking $interface"
        fi
    done </proc/net/route
}

make_way() {
    find_blocking
    # A name may hold any letter but "/" and blanks, those of a pattern too.
    set -f
    for interface in $blocking; do
        if carries "$interface"; then
            put_behind "$interface"
        else
            ip -4 route flush default dev "$interface"
        fi
    done
}

# The first of several is the one that is used. One that the kernel does not take
# behind stays where it is: a way that may work is better than none.
put_behind() {
    ip -4 route show default dev "$1" metric 0 | {
        read -r route || exit 0
        # One that was put behind earlier would come first.
        ip -4 route flush default dev "$1" metric $LATER_METRIC
        # Not "replace", which takes away what another interface has with this metric.
        # shellcheck disable=SC2086 # the words of a route
        ip -4 route append $route dev "$1" metric $LATER_METRIC || exit 0
        ip -4 route flush default dev "$1" metric 0
    }
}

end_clients
make_way
