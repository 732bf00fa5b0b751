#!/bin/bash
# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
#
# Shows the daemon at work, in a private machine that is gone afterwards:
#   demo.sh        Ethernet: DHCP, a pulled cable, a static address
#   demo.sh wifi   Wi-Fi, with simulated radios in a virtual machine
# Builds first, and installs what is missing for that.
set -eu

cd "$(dirname "$(readlink -f "$0")")/.."

build_quietly() {
    echo 'Building the daemon, the first time for a minute or two ...'
    scripts/build.sh demo corvi corvi-status >build/demo-build.log 2>&1 || {
        tail -n 40 build/demo-build.log
        exit 1
    }
}

# The servers of the demo and the virtual machine need root.
elevate=
[ "$(id -u)" = 0 ] || elevate=sudo
mkdir -p build
case ${1:-wired} in
    wired)
        scripts/install-deps.sh build run demo
        build_quietly
        exec $elevate env CORVI_BUILD_DIR="$PWD/build/release" \
            tests/sandbox/run --platform /usr/bin/python3 -B scripts/demo_wired.py
        ;;
    wifi)
        scripts/install-deps.sh build run vm
        build_quietly
        exec $elevate tests/vm/run --build-dir "$PWD/build/release" demo
        ;;
    *)
        echo 'usage: demo.sh [wifi]' >&2
        exit 2
        ;;
esac
