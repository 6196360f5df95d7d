#!/bin/sh
# Builds copies of the tree in two folders, each in its own way, and compares what is installed, byte for byte.
# usage: reproducible_test.sh SOURCE_DIR CMAKE COMPILER GENERATOR
set -eu

source=$1 cmake=$2 compiler=$3 generator=$4
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
# What is kept of one build must not serve the other.
export CCACHE_DISABLE=1

fail() {
    echo "reproducible: $*" >&2
    exit 1
}

# build SOURCE BUILD ROOT JOBS
build() {
    mkdir -p "$scratch/$1"
    (cd "$source" && tar --exclude=./build --exclude=./.git -cf - .) | tar -xf - -C "$scratch/$1"
    { "$cmake" -G "$generator" -S "$scratch/$1" -B "$scratch/$2" -DCMAKE_CXX_COMPILER="$compiler" \
        -DCMAKE_BUILD_TYPE=RelWithDebInfo -DRVN_TESTS=OFF -DCMAKE_INSTALL_PREFIX=/opt/genreg &&
        "$cmake" --build "$scratch/$2" -j "$4" --target product &&
        DESTDIR=$scratch/$3 "$cmake" --install "$scratch/$2"; } > "$scratch/log" 2>&1 || fail "$(tail -n 50 "$scratch/log")"
    (cd "$scratch/$3" && find . -printf '%M %p %l\n' | sort) > "$scratch/$3.list"
    rm -rf "${scratch:?}/$2"
}

TZ=UTC LC_ALL=C build tree build first 2
TZ=Asia/Tokyo LC_ALL=C.UTF-8 build a/tree/elsewhere a/tree/elsewhere/build/of/it second 1

[ -x "$scratch/first/opt/genreg/bin/genreg" ] || fail "nothing was installed: $(cat "$scratch/first.list")"
readelf -S "$scratch/first/opt/genreg/bin/genreg" | grep -q debug_info || fail "it was built without debug information"
diff "$scratch/first.list" "$scratch/second.list" || fail "two builds install other files"
diff -r "$scratch/first" "$scratch/second" || fail "two builds install files with other contents"
! grep -rl -e "$scratch" "$scratch/first" || fail "files tell where they were built"
