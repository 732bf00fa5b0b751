#!/bin/sh
# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
#
# build_packages.sh ARCH: builds the packages of this source tree into the
# folder above it and checks them. For the clean Debian of scripts/package.sh;
# any user, no network.
set -eu

cd "$(dirname "$0")/.."
dpkg-buildpackage --build=binary --no-sign --host-arch "$1"
lintian -EvIL +pedantic --fail-on error,warning,info,pedantic,experimental ../corvi_*.changes
