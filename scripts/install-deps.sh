#!/bin/sh
# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
#
# install-deps.sh PURPOSE...: installs the Debian packages of the lists
# packages/PURPOSE.txt that are not there yet, and says before how much it
# will download.
#   build   compiles the daemon and its tools
#   run     what the daemon runs
#   demo    what demo.sh needs besides
#   test    what the tests need besides
#   vm      what the virtual machine needs besides
#   package what makes and tries the Debian packages
#   qt6, fuzz, check   for the preset qt6, the fuzz targets, the other checks of .ci/run
set -eu

folder=$(dirname "$0")/packages

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

install_packages() {
    as_root env DEBIAN_FRONTEND=noninteractive apt-get -qq -o Acquire::Retries=5 install --yes --no-install-recommends "$@"
}

# Each line of the output is: 'address' file size checksum.
download_megabytes() {
    install_packages --print-uris "$@" | awk '{ bytes += $3 } END { printf "%.1f", bytes / 1e6 }'
}

[ $# -gt 0 ] || {
    sed -n '5,15s/^# \?//p' "$0" >&2
    exit 2
}
for purpose in "$@"; do
    [ -e "$folder/$purpose.txt" ] || {
        echo "install-deps.sh: no list $folder/$purpose.txt" >&2
        exit 2
    }
done

# The names become separate words, here and below.
wanted=$(cd "$folder" && for purpose in "$@"; do cat "$purpose.txt"; done | sort -u)
missing=
for package in $wanted; do
    is_installed "$package" || missing="$missing $package"
done
[ -n "$missing" ] || exit 0

echo "Reading Debian's lists of packages (about 10 MB when they are old) ..."
as_root apt-get -qq -o Acquire::Retries=5 update
# shellcheck disable=SC2086
echo "Installing$missing: $(download_megabytes $missing) MB to download, with what they need ..."
# shellcheck disable=SC2086
install_packages $missing >/dev/null
