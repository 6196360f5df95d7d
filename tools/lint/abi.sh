#!/bin/sh
# Holds the ABI of libRVNgenreg against the record in abi/, or makes that anew. usage: abi.sh check|record LIBRARY
#
# The record is of two parts, neither of which needs a build of its own: the symbols that the library exports, and what its
# public headers tell of types and of the functions with plain linkage, whose names do not say what they take. The latter
# is read from one small unit, so that nothing of the library's inside is in it; it is compiled for a debugger, with the
# types that it does not use.
set -eu
cd "$(dirname "$0")/../.."
export LC_ALL=C

what=$1 library=$2
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
. tests/package/declared.sh

# A function of two forms is named by the one with plain linkage.
cat > "$scratch/face.cpp" << 'END'
#include <genreg/genreg.h>
#define OF(name, ...) extern "C" { __attribute__((visibility("default"))) extern __VA_ARGS__ of_##name; } \
    __VA_ARGS__ of_##name = &name;
using GetInstance = unsigned int (*)(char*, unsigned long, char*, OSSInstanceInfo_t*);
using GetService = unsigned int (*)(char*, unsigned long, char*, OSSServiceInfo_t*);
using OpenInstances = unsigned int (*)(char*, void**);
OF(ossGetInstanceInfo, GetInstance)
OF(ossGetServiceInfo, GetService)
OF(ossOpenInstanceList, OpenInstances)
END
declared include/genreg | grep -vE '::|^oss(Get(Instance|Service)Info|OpenInstanceList)$' |
    sed 's/.*/OF(&, decltype(\&&))/' >> "$scratch/face.cpp"
g++ -std=c++17 -O0 -g -fno-eliminate-unused-debug-types -ffile-prefix-map="$PWD=." -ffile-prefix-map="$scratch=." \
    -shared -fPIC -Iinclude "$scratch/face.cpp" -o "$scratch/face.so"

# tell FILE OPTION...
tell() {
    abidw --no-corpus-path --no-comp-dir-path --no-show-locs --type-id-style hash "$@"
}

tell "$library" > "$scratch/symbols.abi"
tell --load-all-types --headers-dir include --drop-private-types "$scratch/face.so" > "$scratch/types.abi"

if [ "$what" = record ]; then
    mkdir -p abi
    cp "$scratch/symbols.abi" "$scratch/types.abi" abi/
    exit 0
fi

good=true
for part in symbols types; do
    abidiff --no-show-locs --non-reachable-types "abi/$part.abi" "$scratch/$part.abi" > "$scratch/said" ||
        { cat "$scratch/said" >&2; good=false; }
done
$good || {
    echo "abi: not as recorded; docs/abi.md says what may change, and ./dev abi record records it" >&2
    exit 1
}
