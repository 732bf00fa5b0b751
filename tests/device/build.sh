#!/bin/sh
# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
#
# build.sh FOLDER QT: builds the daemon in FOLDER against a small library of
# other layouts that stands for a device's own. Without that library's headers,
# or with others, there has to be no daemon. What was built is kept.
set -eu

folder=$1 qt=$2
here=$(dirname "$(readlink -f "$0")")

fail() {
    echo "build.sh: $*" >&2
    exit 1
}

# configure NAME OPTION...
configure() {
    name=$1
    shift
    cmake -S "$here/../.." -B "$folder/$name" -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG= \
        -DBUILD_TESTING=OFF -DCORVI_BENCHMARKS=OFF "-DCMAKE_PROJECT_INCLUDE=$here/precompiled.cmake" \
        "-DCORVI_QT=$qt" -DCORVI_DEVICE_ZEB=ON "-DCORVI_DEVICE_ZEB_LIBRARY=$folder/device/lib/libzeb3.so" "$@"
}

cmake -S "$here/library" -B "$folder/library" "-DQT=$qt" "-DCMAKE_INSTALL_PREFIX=$folder/device"
cmake --build "$folder/library"
cmake --install "$folder/library"
configure daemon "-DCMAKE_PREFIX_PATH=$folder/device" -UCORVI_DEVICE_ZEB_INCLUDE_DIR
cmake --build "$folder/daemon" --target corvi -j 2

rm -rf "$folder/others" "$folder/without"
# Nor those of a bundled library that is installed on this machine.
! configure without '-DCMAKE_IGNORE_PATH=/usr/include/zeb;/usr/local/include/zeb' >"$folder/log" 2>&1 ||
    fail 'no headers were needed'
grep -q 'Could not find CORVI_DEVICE_ZEB_INCLUDE_DIR' "$folder/log" || fail "not told: $(cat "$folder/log")"

mkdir "$folder/others"
cp "$folder"/device/include/*.h "$folder/others"
sed -i 's/ ipAddress;/ address;/' "$folder/others/zebnetconfig.h"
# In the same folder, where what includes none of them is built.
configure daemon "-DCORVI_DEVICE_ZEB_INCLUDE_DIR=$folder/others" >"$folder/log" 2>&1
! cmake --build "$folder/daemon" --target corvi -j 2 >"$folder/log" 2>&1 || fail 'built with headers that lack a member'
grep -q "has no member named .ipAddress" "$folder/log" || fail "not told: $(cat "$folder/log")"
