#!/bin/bash
# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
#
# package.sh [--host-arch ARCH] [--verify] [--no-tests]: builds the Debian
# packages of the working tree in a clean Debian 12 of their own, checks them
# with Lintian and puts them into build/packages/ARCH.
#
#   --host-arch ARCH  cross-builds for another architecture of Debian's; its
#                     unit tests run through qemu where the processor cannot
#   --verify          builds a second time, at another path and time and as
#                     another user would, and fails when a byte differs
#   --no-tests        leaves out the unit tests
#
# No part of it has the network but the making of that Debian, which the first
# call does (debian-root.sh).
set -euo pipefail

cd "$(dirname "$(readlink -f "$0")")/.."

die() {
    echo "package.sh: $*" >&2
    exit 1
}

build_depends() {
    sed -n '/^Build-Depends:/,/^[^ ]/s/^ //p' debian/control | tr -d '\n'
}

make_root() {
    local depends options=() packages=(build-essential fakeroot lintian)
    depends=$(build_depends)
    if [ "$arch" != "$native" ]; then
        options+=(--arch "$arch")
        packages+=("crossbuild-essential-$arch")
        runs_natively || packages+=(qemu-user-static)
    fi
    # $1 is the hook's.
    # shellcheck disable=SC2016
    options+=(--hook 'chroot "$1" useradd --create-home builder')
    options+=(--hook "chroot \"\$1\" apt-get satisfy --quiet --yes --no-install-recommends -a $arch '${depends%,}'")
    scripts/debian-root.sh "build-$arch" "${options[@]}" "${packages[@]}"
}

runs_natively() {
    [ "$native/$arch" = amd64/i386 ] || [ "$native" = "$arch" ]
}

# As root in a mount namespace of its own; what is mounted goes with it.
# inside_root ROOT FOLDER OUTPUT VARIABLE=VALUE...
inside_root() {
    local root=$1 folder=$2 output=$3
    shift 3
    mount -t tmpfs scratch /mnt
    mkdir /mnt/upper /mnt/work /mnt/root
    mount -t overlay -o "lowerdir=$root,upperdir=/mnt/upper,workdir=/mnt/work" overlay /mnt/root
    mount -t proc proc /mnt/root/proc
    mount --rbind /dev /mnt/root/dev
    mkdir -p "/mnt/root$folder"
    git -c safe.directory="$PWD" ls-files -z --cached --others --exclude-standard |
        tar --create --null --files-from=- | tar --extract --no-same-owner --directory "/mnt/root$folder"
    chroot /mnt/root chown -R builder: "${folder%/*}"
    chroot --userspec=builder /mnt/root env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/home/builder \
        "DEB_BUILD_OPTIONS=$build_options" "$@" "$folder/packaging/build_packages.sh" "$arch"
    cp "/mnt/root${folder%/*}"/*.{deb,changes,buildinfo} "$output/"
}

# build_once FOLDER OUTPUT VARIABLE=VALUE...: the packages of the working tree, built in FOLDER of the root
build_once() {
    rm -rf "$2"
    mkdir -p "$2"
    # It heeds no request to end, and would build on when we are ended.
    setpriv --pdeathsig KILL unshare --mount --pid --fork --kill-child --net --ipc --uts \
        env arch="$arch" build_options="$build_options" "$0" --inside "$root" "$@"
}

same_bytes() {
    local file status=0
    for file in "$1"/*.deb; do
        cmp "$file" "$2/${file##*/}" || status=1
    done
    return $status
}

main() {
    local verify=no
    native=$(dpkg --print-architecture)
    arch=$native
    build_options="parallel=$(nproc)"
    while [ $# -gt 0 ]; do
        case $1 in
            --host-arch)
                arch=${2:?package.sh: --host-arch needs an architecture}
                shift
                ;;
            --verify) verify=yes ;;
            --no-tests) build_options+=" nocheck" ;;
            *) die "unknown option $1" ;;
        esac
        shift
    done
    scripts/install-deps.sh package
    root=$(make_root)
    output=$PWD/build/packages/$arch
    build_once /build/corvi "$output" LC_ALL=C.UTF-8 TZ=UTC
    if [ $verify = yes ]; then
        build_once /srv/another/place/corvi "$output.second" LC_ALL=C TZ=Asia/Tokyo
        same_bytes "$output" "$output.second" || die 'the second build has other bytes'
        echo 'Built twice, at different paths and times: the same bytes.'
        rm -rf "$output.second"
    fi
    ls -l "$output"
}

if [ "${1:-}" = --inside ]; then
    shift
    inside_root "$@"
    exit
fi
# Namespaces and mounts need root.
[ "$(id -u)" = 0 ] || exec sudo "$0" "$@"
main "$@"
