#!/bin/sh
# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
#
# check_installed.sh BUILD_DIR PREFIX LIBDIR: installs the platform library,
# builds a small program against it, once with CMake and once with pkg-config,
# and runs both. In the sandbox, as it installs where the build says.
set -eu

build=$1 prefix=$2 libdir=$3
user=$(dirname "$(readlink -f "$0")")/user
work=$(mktemp -d)
export CMAKE_PREFIX_PATH="$prefix" PKG_CONFIG_PATH="$libdir/pkgconfig" LD_LIBRARY_PATH="$libdir"

fail() {
    echo "check_installed.sh: $*" >&2
    exit 1
}

cmake --install "$build" --component runtime
[ -z "$(find "$prefix" -name '*zeb*' ! -name 'libzeb3.so.*')" ] || fail 'the runtime component has more than the library'
cmake --install "$build" --component development

cmake -S "$user" -B "$work/build"
cmake --build "$work/build"
"$work/build/zebuser" || fail 'built with CMake, it does not run'

# Qt wants -fPIC of everybody, and tells it to CMake alone.
# shellcheck disable=SC2046
c++ -std=c++17 -fPIC "$user/main.cpp" $(pkg-config --cflags --libs zeb3) -o "$work/zebuser"
"$work/zebuser" || fail 'built with pkg-config, it does not run'
