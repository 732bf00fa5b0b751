#!/bin/bash
# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
#
# Builds everything and runs every test, and installs first what is missing for
# that. Ends with CTest's summary and, when something failed, a status that says
# so. Arguments go to ctest, for example: scripts/test.sh -L unit
# CORVI_PRESET names another preset than "release", with the tests that it is for.
set -eu

cd "$(dirname "$(readlink -f "$0")")/.."
preset=${CORVI_PRESET:-release}
# The virtual machine's scenarios, a line each as they end; CTest shows only what failed, and at its end.
progress=build/$preset/vm/progress

purposes=(build run test vm)
case $preset in
    qt6 | fuzz) purposes+=("$preset") ;;
esac
scripts/install-deps.sh "${purposes[@]}"
scripts/build.sh "$preset"

# The servers of the system tests and the virtual machine need root.
elevate=
[ "$(id -u)" = 0 ] || elevate=sudo
begin=$(mktemp)
tail --pid=$$ --lines=0 -F "$progress" 2>/dev/null &
shower=$!
trap 'kill "$shower" 2>/dev/null || true; rm -f "$begin"' EXIT

# Tests wait more than they work, all in all twelve times as long: so more of them than cores run at once. A sanitizer
# has them work more.
per_core=6
case $preset in
    sanitize | thread | fuzz) per_core=3 ;;
esac
status=0
$elevate ctest --preset "$preset" -j "$((per_core * $(nproc)))" "$@" || status=$?

if [ "$progress" -nt "$begin" ] && grep -q 'at the second try' "$progress"; then
    echo 'FINDING: not everything passed at once:'
    grep 'at the second try' "$progress"
fi
exit "$status"
