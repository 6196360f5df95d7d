#!/bin/sh
# Builds, installs and uses the libraries as others do: as static ones, and as a distribution has them, below /usr.
# usage: otherwise_test.sh SOURCE_DIR CMAKE COMPILER GENERATOR
set -eu

source=$1 cmake=$2 compiler=$3 generator=$4
here=$(cd "$(dirname "$0")" && pwd)
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

fail() {
    echo "otherwise: $*" >&2
    exit 1
}
. "$here/client.sh"

# build NAME [OPTION...]
build() {
    name=$1
    shift
    { "$cmake" -G "$generator" -S "$source" -B "$scratch/$name" -DCMAKE_CXX_COMPILER="$compiler" \
        -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG=-O0 -DRVN_TESTS=OFF -DRVN_TOOL=OFF "$@" &&
        "$cmake" --build "$scratch/$name" -j 2; } > "$scratch/$name.log" 2>&1 || fail "$(cat "$scratch/$name.log")"
}

unset LD_LIBRARY_PATH
build static -DBUILD_SHARED_LIBS=OFF -DCMAKE_INSTALL_PREFIX="$scratch/prefix" -DCMAKE_INSTALL_LIBDIR=lib
"$cmake" --install "$scratch/static" > "$scratch/install.log"
PKG_CONFIG_PATH=$scratch/prefix/lib/pkgconfig
export PKG_CONFIG_PATH
own_names=
by_pkg_config static-by-pkg-config --static
by_cmake static-by-cmake "$scratch/prefix"
mv "$scratch/prefix" "$scratch/gone"
try "$scratch/static-by-pkg-config"
try "$scratch/static-by-cmake/outside"
! readelf -d "$scratch/static-by-pkg-config" | grep -E 'RVN|R(UN)?PATH' ||
    fail "a program of static libraries looks for others"

# Into a root of its own, as packages are made.
libdir=lib/$(uname -m)-linux-gnu
build distribution -DCMAKE_INSTALL_PREFIX=/usr -DCMAKE_INSTALL_LIBDIR="$libdir"
DESTDIR=$scratch/root "$cmake" --install "$scratch/distribution" > "$scratch/install.log"
(cd "$scratch/root/usr" && find . -mindepth 1 -maxdepth 3 \( -path './include/*' -o -name '*.so*' \) | sort) > "$scratch/laid"
cat > "$scratch/expected" << END
./include/RVNgenreg
./include/RVNgenreg/genreg
./include/RVNgenreg/install
./include/RVNgenreg/osse
$(for library in RVNgenreg RVNinstall RVNosse; do
    for end in '' .1 .1.0.0; do echo "./$libdir/lib$library.so$end"; done
done)
END
diff "$scratch/expected" "$scratch/laid" || fail "what lies below /usr (>) is not what should (<)"
flags=$(PKG_CONFIG_PATH=$scratch/root/usr/$libdir/pkgconfig pkg-config --cflags --libs RVNgenreg)
[ "$(echo $flags)" = "-I/usr/include/RVNgenreg -lRVNgenreg -lRVNosse -lRVNinstall" ] || fail "pkg-config says $flags"
export PKG_CONFIG_SYSROOT_DIR="$scratch/root" PKG_CONFIG_PATH="$scratch/root/usr/$libdir/pkgconfig"
export LD_LIBRARY_PATH="$scratch/root/usr/$libdir"
own_names=-DOWN_NAMES
by_pkg_config below-usr-by-pkg-config
by_cmake below-usr-by-cmake "$scratch/root/usr"
try "$scratch/below-usr-by-pkg-config"
try "$scratch/below-usr-by-cmake/outside"
for file in "$scratch/below-usr-by-pkg-config" "$LD_LIBRARY_PATH/"lib*.so; do
    ! readelf -d "$file" | grep -E 'R(UN)?PATH' || fail "$file says where to look, where every loader looks"
done
