#!/bin/sh
# Builds the Debian packages of this tree as it stands into FOLDER, which is made anew, in a folder of their own that is
# taken away again. The same tree gives the same packages wherever it lies. usage: tools/package/build.sh FOLDER
set -eu
tree=$(cd "$(dirname "$0")/../.." && pwd)

fail() {
    echo "tools/package/build.sh: $*" >&2
    exit 1
}

[ $# -eq 1 ] || fail "usage: tools/package/build.sh FOLDER"
mkdir -p "$1"
results=$(cd "$1" && pwd)
cd "$tree"
find "$results" -maxdepth 1 -type f -exec rm -f {} +

version=$(sed -n 's/^#define GENREG_VERSION_\(MAJOR\|MINOR\|PATCH\) //p' include/genreg/Version.h | paste -sd .)
told=$(dpkg-parsechangelog -S Version)
[ "$told" = "$version" ] || fail "debian/changelog is of $told, the libraries are $version"
SOURCE_DATE_EPOCH=$(dpkg-parsechangelog -S Timestamp)
export SOURCE_DATE_EPOCH

folder=$(mktemp -d "${TMPDIR:-/var/tmp}/package-XXXXXX")
trap 'rm -rf "$folder"' EXIT
trap 'exit 130' INT TERM HUP

# What git would take, as it lies there: with the times and the modes of a clone nothing would be the same twice.
mkdir "$folder/genreg-$version"
git ls-files -z --cached --others --exclude-standard |
    xargs -0 -r sh -c 'for f; do [ ! -e "$f" ] || printf "%s\0" "$f"; done' sh |
    tar -c --null --files-from=- | tar -x -C "$folder/genreg-$version" --no-same-owner
chmod -R u=rwX,go=rX "$folder/genreg-$version"
find "$folder" -exec touch --no-dereference --date="@$SOURCE_DATE_EPOCH" {} +

cd "$folder/genreg-$version"
umask 022
# Where ccache is asked for.
export CCACHE_BASEDIR="$PWD"
dpkg-buildpackage -us -uc > "$folder/log" 2>&1 || { cat "$folder/log" >&2; fail "the packages could not be built"; }
cd "$folder"
mv ./*.deb ./*.dsc ./*.tar.* ./*.changes ./*.buildinfo log "$results/"
