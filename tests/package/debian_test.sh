#!/bin/sh
# The Debian packages: "build" makes them, and the others, which come after it, take what it made in FOLDER: "lintian" has
# nothing to say of them, "again" builds the same ones elsewhere, "try" uses them in a bare root.
# usage: debian_test.sh build|lintian|again|try SOURCE_DIR FOLDER
set -eu

part=$1 source=$2 packages=$3
umask 022

fail() {
    echo "debian: $*" >&2
    exit 1
}

need() {
    command -v "$1" > /dev/null || { echo "left out: there is no $1"; exit 77; }
}

if [ "$part" != build ] && ! ls "$packages"/*.deb > /dev/null 2>&1; then
    echo "left out: no packages were built"
    exit 77
fi

case $part in
    build)
        need dh
        "$source/tools/package/build.sh" "$packages"
        ;;
    lintian)
        need lintian
        lintian --allow-root --fail-on error,warning --tag-display-limit 0 "$packages"/*.changes
        ;;
    again)
        need dh
        scratch=$(mktemp -d)
        trap 'rm -rf "$scratch"' EXIT
        # In another zone, with other rights for new files, and with nothing that was compiled before.
        (umask 077 && env TMPDIR="$scratch" TZ=Pacific/Kiritimati LC_ALL=C CCACHE_DISABLE=1 \
            "$source/tools/package/build.sh" "$scratch/a folder")
        for file in "$packages"/*.deb "$packages"/*.tar.*; do
            cmp "$file" "$scratch/a folder/${file##*/}" || fail "${file##*/} is not the same twice"
        done
        ;;
    try) "$source/tools/package/try.sh" "$packages" ;;
    *) fail "no part is called $part" ;;
esac
