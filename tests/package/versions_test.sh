#!/bin/sh
# Holds the versions of the exported names to what they must not break: programs that were linked when there were none,
# programs with members of their own in the place of the library's, and platform libraries of others, without versions.
# usage: versions_test.sh BUILD_DIR CMAKE COMPILER GENERATOR
set -eu
export LC_ALL=C

build=$1 compiler=$3
here=$(cd "$(dirname "$0")" && pwd)
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

fail() {
    echo "versions: $*" >&2
    exit 1
}
. "$here/client.sh"

# Every name of the library has the version, and no name that it takes of the platform libraries.
nm -D --defined-only "$build/libRVNgenreg.so" | awk '$2 != "A" { print $3 }' > "$scratch/names"
[ -s "$scratch/names" ] || fail "found no names in libRVNgenreg.so"
! grep -v '@@RVNgenreg_1\.[0-9]*$' "$scratch/names" || fail "libRVNgenreg.so exports these without their version"
for library in RVNosse RVNinstall; do
    ! nm -D --defined-only "$build/lib$library.so" | grep '@' || fail "lib$library.so has versions"
done

# relink NAME TARGET [OPTION...]: the library as it is without versions, below $scratch/plain.
mkdir "$scratch/plain"
relink() {
    name=$1 target=$2
    shift 2
    find "$build/CMakeFiles/$target.dir" -name '*.o' > "$scratch/objects"
    "$compiler" -shared "@$scratch/objects" -o "$scratch/plain/lib$name.so.1" -Wl,-soname,"lib$name.so.1" "$@"
    ln -s "lib$name.so.1" "$scratch/plain/lib$name.so"
}
relink RVNosse RVNosse
relink RVNinstall RVNinstall
relink RVNgenreg genreg_objects -L"$scratch/plain" -lRVNosse -lRVNinstall
! nm -D "$scratch/plain/libRVNgenreg.so" | grep '@.*RVN' || fail "the library without versions has some"

# uses PROGRAM LIBRARIES...: the program runs, and has its libraries from there.
uses() {
    program=$1 folders=$2 from=$3
    try env LD_LIBRARY_PATH="$folders" "$program"
    LD_LIBRARY_PATH=$folders ldd "$program" | grep -q "=> $from/libRVN" || fail "$program does not use $from"
}

for kind in outside replacing; do
    for linked in "$scratch/plain" "$build"; do
        "$compiler" -std=c++17 "$here/$kind.cpp" $own_names -DEXPECTED_VERSION=GENREG_VERSION_TEXT -I"$here/../../include" \
            -L"$linked" -lRVNgenreg -lRVNosse -lRVNinstall -o "$scratch/$kind"
        uses "$scratch/$kind" "$build" "$build"
    done
    # The library with versions between platform libraries without.
    mkdir -p "$scratch/others"
    cp -P "$scratch/plain"/libRVNosse.so* "$scratch/plain"/libRVNinstall.so* "$scratch/others"
    uses "$scratch/$kind" "$scratch/others:$build" "$scratch/others"
done
