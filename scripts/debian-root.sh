#!/bin/bash
# SPDX-License-Identifier: MIT
# Copyright (c) 2026 The Corvi developers
#
# debian-root.sh NAME [--arch ARCH] [--hook COMMAND] PACKAGE...: prints a folder
# below build/roots that holds Debian 12 with the packages, from the machine's
# own Debian sources. It is made by the first call and kept for later ones: never
# write to it, mount an overlay on it. --arch adds a second architecture;
# COMMAND gets the folder as $1 before it is finished.
set -euo pipefail

cd "$(dirname "$(readlink -f "$0")")/.."

name=${1:?usage: debian-root.sh NAME [--arch ARCH] [--hook COMMAND] PACKAGE...}
shift
architectures=$(dpkg --print-architecture)
hooks=()
while true; do
    case ${1:-} in
        --arch) architectures=$architectures,$2 ;;
        --hook) hooks+=("--customize-hook=$2") ;;
        *) break ;;
    esac
    shift 2
done

sources() {
    # The names in $() are for apt-get.
    # shellcheck disable=SC2016
    apt-get indextargets --format '$(ORIGIN) deb $(REPO_URI) $(RELEASE) $(COMPONENT)' 'Created-By: Packages' |
        sed -n 's/^Debian //p' | sort -u
}

key=$({
    echo "$architectures" "${hooks[@]}" "$@"
    sources
} | sha256sum | cut -c 1-12)
root=$PWD/build/roots/$name-$key
if [ -d "$root" ]; then
    echo "$root"
    exit
fi

mkdir -p build/roots
rm -rf --one-file-system "build/roots/$name"-* "build/roots/.$name".*
new=$(mktemp -d "build/roots/.$name.XXXXXX")
# Its mounts end with it, even when it is killed. Caches stay: what is installed later needs no network.
sources | unshare --mount mmdebstrap --quiet --mode=root --variant=minbase --format=directory --architectures="$architectures" \
    --include="$(IFS=,; echo "$*")" --skip=cleanup/apt "${hooks[@]}" bookworm "$new" - >&2
chmod 755 "$new"
mv "$new" "$root"
echo "$root"
