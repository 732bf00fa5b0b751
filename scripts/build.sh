#!/bin/bash
# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
#
# build.sh PRESET [TARGET...]: configures and builds one preset of
# CMakePresets.json; all of it, unless targets are named.
set -eu

cd "$(dirname "$(readlink -f "$0")")/.."
preset=${1:?usage: build.sh PRESET [TARGET...]}
shift

if command -v ccache >/dev/null; then
    export CMAKE_CXX_COMPILER_LAUNCHER=ccache CCACHE_NOHASHDIR=1 CCACHE_BASEDIR=$PWD
fi
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset" ${1:+--target "$@"}
