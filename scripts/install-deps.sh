#!/bin/sh
# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
#
# Installs the Debian packages that building and testing need and that are not
# there yet: packages.txt here and, with "vm", those of the virtual machine.
set -eu

folder=$(dirname "$0")

wanted() {
    cat "$folder/packages.txt"
    [ "${1:-}" != vm ] || cat "$folder/../tests/vm/packages.txt"
}

is_installed() {
    [ "$(dpkg-query -W -f '${db:Status-Status}' "$1" 2>/dev/null)" = installed ]
}

as_root() {
    if [ "$(id -u)" = 0 ]; then
        "$@"
    else
        sudo "$@"
    fi
}

missing=
for package in $(wanted "$@" | sort -u); do
    is_installed "$package" || missing="$missing $package"
done
[ -n "$missing" ] || exit 0

echo "Installing Debian packages:$missing"
as_root apt-get -qq update
# The names must become separate words.
# shellcheck disable=SC2086
as_root env DEBIAN_FRONTEND=noninteractive apt-get -qq install --yes --no-install-recommends $missing >/dev/null
