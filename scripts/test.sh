#!/bin/bash
# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
#
# Builds everything and runs every test, and installs first what is missing for
# that. Ends with CTest's summary and, when something failed, a status that says
# so. Arguments go to ctest, for example: scripts/test.sh -L unit
# CORVI_PRESET names another preset than "release".
set -eu

cd "$(dirname "$(readlink -f "$0")")/.."
preset=${CORVI_PRESET:-release}

scripts/install-deps.sh vm
scripts/build.sh "$preset"
# The servers of the system tests and the virtual machine need root.
elevate=
[ "$(id -u)" = 0 ] || elevate=sudo
# System tests wait more than they work, so more of them than cores run at once. One that fails on a machine that
# is busy for a moment gets a second try, after its first failure was shown.
exec $elevate ctest --test-dir "build/$preset" --output-on-failure --no-tests=error --repeat until-pass:2 \
    -j "$((3 * $(nproc)))" "$@"
