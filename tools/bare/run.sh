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
SUITE=bookworm
results=$tree/build/bare

fail() {
    echo "tools/bare/run.sh: $*" >&2
    exit 1
}

[ "$(id -u)" -eq 0 ] || fail "only root has a root directory of its own"
unshare --mount --propagation private true 2> /dev/null || fail "mounts are not granted here"
cache=
[ -z "${RVN_BARE_CCACHE-}" ] || cache=$(cd "$RVN_BARE_CCACHE" && pwd)

mkdir -p "$results"
folder=$(mktemp -d "${TMPDIR:-/var/tmp}/bare-XXXXXX")
child=
clean_up() {
    trap '' INT TERM HUP
    # unshare itself ignores all but this, at which its world ends, if a moment later.
    if [ -n "$child" ] && kill -KILL "$child" 2> /dev/null; then
        wait "$child" 2> /dev/null || true
        sleep 1
    fi
    rm -rf --one-file-system "$folder"
}
trap clean_up EXIT
trap 'exit 130' INT TERM HUP

# in_world COMMAND...: where mounts and processes are its own and end with it. The shell stays able to be ended meanwhile.
in_world() {
    unshare --mount --propagation private --pid --fork --kill-child "$@" < /dev/null &
    child=$!
    code=0
    wait "$child" || code=$?
    child=
    return $code
}

make_base() {
    # shellcheck disable=SC2016 # fields of apt's
    mirror=$(apt-get indextargets --format '$(REPO_URI) $(RELEASE) $(CODENAME) $(COMPONENT)' 'Created-By: Packages' |
        awk -v suite=$SUITE '($2 == suite || $3 == suite) && $4 == "main" { print $1; exit }')
    [ -n "$mirror" ] || fail "apt has no source of $SUITE here"
    http_proxy=${http_proxy-} https_proxy=${https_proxy-}
    eval "$(apt-config shell http_proxy Acquire::http::Proxy https_proxy Acquire::https::Proxy)"
    export http_proxy https_proxy
    echo "== the base system, of $SUITE"
    in_world debootstrap --variant=minbase "$SUITE" "$folder/base" "$mirror" > "$results/base.log" 2>&1 ||
        { tail -n 20 "$results/base.log" >&2; fail "the base system could not be made, see $results/base.log"; }
    apt-config dump | grep -E '^Acquire::https?::' > "$folder/base/etc/apt/apt.conf.d/01machine" || true
    cp -L /etc/resolv.conf /etc/hosts "$folder/base/etc/"
    case $mirror in
        https:*) mkdir -p "$folder/base/etc/ssl" && cp -rL /etc/ssl/certs "$folder/base/etc/ssl/" ;;
    esac
    git clone -q --no-local "$tree" "$folder/base/srv/tree"
    [ -z "$(git status --porcelain)" ] || echo "what is not committed is left out"
}

# For a shell in a world of its own: makes $1 its root, where $3 names a folder for ccache, and goes on with the command
# from $4, without the right to mount when $2 is "without".
# shellcheck disable=SC2016 # for the inner shell
ENTER='
    set -e
    root=$1 mounts=$2 cache=$3
    shift 3
    mount --bind "$root" "$root"
    cd "$root"
    mount -t proc proc proc
    mount --rbind /sys sys
    mount --rbind /dev dev
    mount -t tmpfs tmpfs dev/shm
    mkdir -p outside ccache
    [ -z "$cache" ] || mount --bind "$cache" ccache
    pivot_root . outside
    cd /srv/tree
    umount -l /outside
    rmdir /outside
    [ "$mounts" = with ] || set -- setpriv --bounding-set -sys_admin --inh-caps -sys_admin "$@"
    exec "$@"
'

# command_of_readme LABEL LOG COMMAND...: runs it in the root of this way, and tells.
command_of_readme() {
    label=$1 log=$results/$2
    shift 2
    before=$(date +%s)
    code=0
    in_world sh -c "$ENTER" sh "$folder/$way" "$way" "$cache" env -i HOME=/root LANG=C.UTF-8 \
        PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin \
        ${http_proxy:+http_proxy="$http_proxy"} ${https_proxy:+https_proxy="$https_proxy"} \
        ${cache:+CCACHE_DIR=/ccache CMAKE_CXX_COMPILER_LAUNCHER=ccache} "$@" > "$log" 2>&1 || code=$?
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
for way in with without; do
    cp -a --reflink=auto "$folder/base" "$folder/$way"
    [ -z "$cache" ] || command_of_readme "(ccache)" "$way.ccache.log" sh -c \
        'apt-get update -qq && apt-get install -qq -y --no-install-recommends ccache'
    command_of_readme "./dev run" "$way.run.log" ./dev run
    command_of_readme "./dev test" "$way.test.log" ./dev test "$@"
    rm -rf --one-file-system "${folder:?}/$way"
done
$good
