#!/bin/sh
# Tries the Debian packages of FOLDER in a root directory that holds a bare Debian 12: upgrades an older build to them
# while there is a registry, uses the tool, its manual and completion, builds and runs a client, removes and purges them.
# What the commands said goes to FOLDER/try/. Only as root, and where mounts are granted: exits 77 elsewhere.
# usage: tools/package/try.sh FOLDER
set -eu
tree=$(cd "$(dirname "$0")/../.." && pwd)

fail() {
    echo "tools/package/try.sh: $*" >&2
    exit 1
}

[ $# -eq 1 ] && [ -d "$1" ] || fail "usage: tools/package/try.sh FOLDER"
packages=$(cd "$1" && pwd)
results=$packages/try
cd "$tree"
. tools/bare/world.sh
why=$(why_no_world)
if [ -n "$why" ] || ! command -v debootstrap > /dev/null; then
    echo "left out: ${why:-there is no debootstrap}"
    exit 77
fi
begin_worlds

# older DEB FOLDER: the same package under a version that comes before.
older() {
    dpkg-deb -R "$1" "$folder/older"
    version=$(dpkg-deb -f "$1" Version)
    sed -i "s/^Version: $version/&~older/; /^Depends: /s/\(librvngenreg1 ([>=]* $version\))/\1~older)/g" \
        "$folder/older/DEBIAN/control"
    dpkg-deb --root-owner-group -b "$folder/older" "$2" > /dev/null
    rm -rf "$folder/older"
}

make_base
place=$folder/base/srv
mkdir "$place/new" "$place/old" "$place/client"
for deb in "$packages"/*.deb; do
    case $deb in
        *-dbgsym_*) continue ;;
    esac
    cp "$deb" "$place/new/"
    older "$deb" "$place/old"
done
cp tools/package/inside.sh tests/package/client.sh tests/package/outside.cpp "$place/client/"
code=0
in_root "$folder/base" with "" /srv client/inside.sh > "$results/log" 2>&1 || code=$?
grep '^== ' "$results/log" || true
[ "$code" -eq 0 ] || { tail -n 40 "$results/log" >&2; fail "failed with $code, see $results/log"; }
