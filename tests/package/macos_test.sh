#!/bin/sh
# Looks at what was built for macOS and is not run here: how the libraries are named, what they export and what they lean
# on, installed as it would be. usage: macos_test.sh BUILD_DIR CMAKE x86_64|aarch64
set -eu
export LC_ALL=C

build=$1 cmake=$2 target=$3
here=$(cd "$(dirname "$0")" && pwd)
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
. "$here/declared.sh"

fail() {
    echo "macos: $*" >&2
    exit 1
}

same() {
    diff "$2" "$3" > "$scratch/diff" || fail "$1:
$(cat "$scratch/diff")"
}

# look FILE: what it is called and by which versions, then each library that it needs.
look() {
    llvm-objdump --macho --dylib-id --dylibs-used "$1" | sed -n 's/^[[:space:]]\(.*\) (\(.*\))$/\1 \2/p'
}

# A prefix of the version is what clients are bound to.
names() {
    for name in "$@"; do
        echo "@rpath/lib$name.1.dylib compatibility version 1.0.0, current version 1.0.0"
    done
}

"$cmake" --install "$build" --prefix "$scratch/prefix" > "$scratch/install.log"
case $target in
    x86_64) machine=X86_64 ;;
    *) machine=ARM64 ;;
esac

for each in lib/libRVNosse.1.dylib:RVNosse lib/libRVNinstall.1.dylib:RVNinstall \
    "lib/libRVNgenreg.1.dylib:RVNgenreg RVNosse RVNinstall" "bin/genreg:RVNgenreg RVNosse RVNinstall"; do
    file=$scratch/prefix/${each%%:*}
    [ -f "$file" ] || fail "there is no ${each%%:*}"
    llvm-objdump --macho --private-header "$file" | grep -q "MH_MAGIC_64 *$machine" || fail "${each%%:*} is not for $target"

    # Its own name first, where it is a library, then those of its libraries; beyond them the system's alone.
    look "$file" > "$scratch/found"
    grep '^@rpath' "$scratch/found" | sort > "$scratch/ours"
    # shellcheck disable=SC2086 # words
    names ${each#*:} | sort > "$scratch/expected"
    same "${each%%:*} has (>) other libraries than it should (<)" "$scratch/expected" "$scratch/ours"
    ! grep -v -e '^@rpath' -e '^/usr/lib/lib\(c++\.1\|System\.B\)\.dylib ' "$scratch/found" ||
        fail "${each%%:*} leans on what the system does not have"

    # Where it looks for them, wherever the prefix was moved to.
    llvm-objdump --macho --private-headers "$file" | sed -n '/LC_RPATH/,/path/s/^ *path \(.*\) (offset.*/\1/p' > "$scratch/rpath"
    case $each in
        bin/*) echo "@loader_path/../lib" ;;
        *) echo "@loader_path" ;;
    esac > "$scratch/expected"
    same "${each%%:*} looks (>) elsewhere for them (<)" "$scratch/expected" "$scratch/rpath"

    # Each name is looked up in one library, which was named when it was linked, and none of them at large.
    ! llvm-nm -m "$file" | grep '(undefined)' | grep -v ' (from lib\(RVN[a-z]*\|c++\|System\))$' ||
        fail "${each%%:*} leaves names open"
done

for pair in genreg:RVNgenreg osse:RVNosse install:RVNinstall; do
    declared "$scratch/prefix/include/${pair%:*}" > "$scratch/declared"
    llvm-objdump --macho --exports-trie "$scratch/prefix/lib/lib${pair#*:}.1.dylib" |
        sed -n 's/^0x[0-9A-F]*  //p' | sed 's/^_//; s/ \[.*//' | llvm-cxxfilt | sed 's/(.*//' | sort -u > "$scratch/exported"
    [ -s "$scratch/declared" ] || fail "found no declarations for lib${pair#*:}"
    same "lib${pair#*:} exports (>) other names than its headers declare (<)" "$scratch/declared" "$scratch/exported"
done
