#!/bin/sh
# Holds what the installed libraries export against what the installed headers declare public, name by name, and looks
# at how the library is bound. usage: exports_test.sh LIBRARY_DIR INCLUDE_DIR
set -eu
export LC_ALL=C

libraries=$1 headers=$2
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
. "$(dirname "$0")/declared.sh"

fail() {
    echo "exports: $*" >&2
    exit 1
}

exported() {
    nm -D --defined-only -C --without-symbol-versions "$libraries/lib$1.so" |
        sed '/ A RVNgenreg_[0-9.]*$/d; s/^[0-9a-f]* . //; s/(.*//' | sort -u
}

for pair in genreg:RVNgenreg osse:RVNosse install:RVNinstall; do
    declared "$headers/${pair%:*}" > "$scratch/declared"
    exported "${pair#*:}" > "$scratch/exported"
    [ -s "$scratch/declared" ] || fail "found no declarations for lib${pair#*:}"
    diff "$scratch/declared" "$scratch/exported" > "$scratch/diff" ||
        fail "lib${pair#*:} exports (>) other names than its headers declare (<):
$(cat "$scratch/diff")"
done

# A program with functions of the same plain names must not take the place of the library's own inside the library. The
# variable is the programs' to set, so the library looks it up like everybody else.
exported RVNgenreg > "$scratch/exported"
readelf -rW "$libraries/libRVNgenreg.so" | awk '$5 !~ /^_Z/ { sub(/@.*/, "", $5); print $5 }' | sort -u |
    comm -12 - "$scratch/exported" > "$scratch/replaceable"
[ "$(cat "$scratch/replaceable")" = bCompactFormattedLine ] ||
    fail "programs can replace inside the library: $(cat "$scratch/replaceable")"

# The platform keeps the table of names that a library hands it.
for library in RVNgenreg RVNosse; do
    readelf -dW "$libraries/lib$library.so" | grep -q NODELETE || fail "lib$library.so can be unloaded"
done
