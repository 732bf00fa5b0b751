#!/bin/sh
# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
#
# check_install.sh BUILD_DIR FILE...: installs the build into a folder of its
# own and tells which files are there that were not named, or the reverse.
set -eu

build=$1
shift
root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT

DESTDIR=$root/installed cmake --install "$build" >/dev/null
(cd "$root/installed" && find . ! -type d | sed 's/^\.//') | sort >"$root/found"
printf '%s\n' "$@" | sort >"$root/expected"
diff -u --label expected --label installed "$root/expected" "$root/found"
