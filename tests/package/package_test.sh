#!/bin/sh
# Installs the build, moves the prefix away, and builds an outside program against what was moved: by pkg-config alone,
# and by the CMake package. usage: package_test.sh BUILD_DIR CMAKE COMPILER GENERATOR
set -eu

build=$1 cmake=$2 compiler=$3 generator=$4
here=$(cd "$(dirname "$0")" && pwd)
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

fail() {
    echo "package: $*" >&2
    exit 1
}

. "$here/client.sh"

unset LD_LIBRARY_PATH
"$cmake" --install "$build" --prefix "$scratch/first" > "$scratch/install.log"
mv "$scratch/first" "$scratch/moved"
pc=$(find "$scratch/moved" -name RVNgenreg.pc)
[ -n "$pc" ] || fail "no RVNgenreg.pc was installed"

PKG_CONFIG_PATH=$(dirname "$pc")
export PKG_CONFIG_PATH
by_pkg_config by-pkg-config
try "$scratch/by-pkg-config"
by_cmake by-cmake "$scratch/moved"
try "$scratch/by-cmake/outside"

if [ "$(uname)" != Darwin ]; then
    sh "$here/exports_test.sh" "$(dirname "$pc")/.." "$scratch/moved/include"
fi

# The tool stands beside the libraries and finds them from where it was moved to.
if [ -x "$build/tool/genreg" ]; then
    "$scratch/moved/bin/genreg" --help > /dev/null || fail "the moved tool does not start"
fi

# Manual and completion come with it.
if [ -f "$build/tool/genreg.1" ]; then
    for told in man/man1/genreg.1 man/man3/genreg.3 man/man5/global.reg.5 man/man5/genreg-formats.5 \
        bash-completion/completions/genreg zsh/site-functions/_genreg fish/vendor_completions.d/genreg.fish; do
        [ -s "$scratch/moved/share/$told" ] || fail "share/$told was not installed"
    done
fi

# Headers hold what a client may include; sources and their headers stay at home.
[ -z "$(find "$scratch/moved/include" -mindepth 1 -maxdepth 1 ! -name genreg ! -name osse ! -name install)" ] ||
    fail "include/ holds more than genreg, osse and install"
