#!/bin/sh
# Tries the README's two commands on a bare Debian 12, whose packages come from where this machine gets its own: in a
# root directory that holds the base system alone and this tree as committed, once where mounts are granted and once, in
# a fresh one, where they are not. Prints what passed; what the commands said stays in build/bare/. Takes everything
# else away, also when it fails or is ended. Only as root, and where mounts are granted.
#
#   tools/bare/run.sh [PRESET...]     of ./dev test; its own choice by default
#
# RVN_BARE_CCACHE=FOLDER: compiles through ccache, which is then no longer all that bare, with its files in that folder.
set -eu
tree=$(cd "$(dirname "$0")/../.." && pwd)
cd "$tree"
results=$tree/build/bare

fail() {
    echo "tools/bare/run.sh: $*" >&2
    exit 1
}

. tools/bare/world.sh
begin_worlds
cache=
[ -z "${RVN_BARE_CCACHE-}" ] || cache=$(cd "$RVN_BARE_CCACHE" && pwd)

# command_of_readme LABEL LOG COMMAND...: runs it in the root of this way, and tells.
command_of_readme() {
    label=$1 log=$results/$2
    shift 2
    before=$(date +%s)
    code=0
    in_root "$folder/$way" "$way" "$cache" /srv/tree "$@" > "$log" 2>&1 || code=$?
    seconds=$(($(date +%s) - before))
    if [ "$code" -eq 0 ]; then
        echo "$way mounts: $label passed ($seconds s)"
    else
        good=false
        tail -n 40 "$log" >&2
        echo "$way mounts: $label failed with $code ($seconds s), see $log"
    fi
    grep -E '^[0-9]+ (skipped|passed)|\((Skipped|Not Run)\)$' "$log" | sed 's/^[[:space:]]*/    /' || true
}

good=true
make_base
git clone -q --no-local "$tree" "$folder/base/srv/tree"
[ -z "$(git status --porcelain)" ] || echo "what is not committed is left out"
for way in with without; do
    cp -a --reflink=auto "$folder/base" "$folder/$way"
    [ -z "$cache" ] || command_of_readme "(ccache)" "$way.ccache.log" sh -c \
        'apt-get update -qq && apt-get install -qq -y --no-install-recommends ccache'
    command_of_readme "./dev run" "$way.run.log" ./dev run
    command_of_readme "./dev test" "$way.test.log" ./dev test "$@"
    rm -rf --one-file-system "${folder:?}/$way"
done
$good
