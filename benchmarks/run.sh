#!/bin/sh
# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
#
# Runs every benchmark of a build in the sandbox, with the real programs.
#
#   run.sh BUILD_DIR [OPTION-OF-GOOGLE-BENCHMARK...]
set -eu

[ $# -ge 1 ] || {
    echo "usage: run.sh BUILD_DIR [OPTION...]" >&2
    exit 2
}
build=$(readlink -f "$1")
shift
here=$(dirname "$(readlink -f "$0")")

found=
for program in "$build"/benchmarks/bench_*; do
    # CMake keeps folders of such names beside the programs.
    [ -f "$program" ] || continue
    found=yes
    echo "== $(basename "$program")"
    CORVI_BUILD_DIR=$build "$here"/../tests/sandbox/run --platform "$program" "$@"
done
[ -n "$found" ] || {
    echo "run.sh: no benchmarks in $build; was it configured with CORVI_BENCHMARKS=ON?" >&2
    exit 1
}
