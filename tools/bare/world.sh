# Root directories that hold a bare Debian 12 and nothing else, whose packages come from where this machine gets its own,
# and worlds of mounts and processes to run commands in them. Who reads this has fail, and has set $results, a folder for
# what the commands said; only as root, and where mounts are granted. Gives $folder, which is taken away again, also when
# it fails or is ended.
SUITE=bookworm

why_no_world() {
    if [ "$(id -u)" -ne 0 ]; then
        echo "only root has a root directory of its own"
    elif ! unshare --mount --propagation private true 2> /dev/null; then
        echo "mounts are not granted here"
    fi
}

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

begin_worlds() {
    why=$(why_no_world)
    [ -z "$why" ] || fail "$why"
    mkdir -p "$results"
    folder=$(mktemp -d "${TMPDIR:-/var/tmp}/bare-XXXXXX")
    trap clean_up EXIT
    trap 'exit 130' INT TERM HUP
}

# in_world COMMAND...: where mounts and processes are its own and end with it. The shell stays able to be ended meanwhile.
in_world() {
    unshare --mount --propagation private --pid --fork --kill-child "$@" < /dev/null &
    child=$!
    code=0
    wait "$child" || code=$?
    child=
    return $code
}

# The base system, in $folder/base.
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
}

# For a shell in a world of its own: makes $1 its root, where $3 names a folder for ccache, and goes on in the folder $4
# with the command from $5, without the right to mount when $2 is "without".
# shellcheck disable=SC2016 # for the inner shell
ENTER='
    set -e
    root=$1 mounts=$2 cache=$3 place=$4
    shift 4
    mount --bind "$root" "$root"
    cd "$root"
    mount -t proc proc proc
    mount --rbind /sys sys
    mount --rbind /dev dev
    mount -t tmpfs tmpfs dev/shm
    mkdir -p outside ccache
    [ -z "$cache" ] || mount --bind "$cache" ccache
    pivot_root . outside
    cd "$place"
    umount -l /outside
    rmdir /outside
    [ "$mounts" = with ] || set -- setpriv --bounding-set -sys_admin --inh-caps -sys_admin "$@"
    exec "$@"
'

# in_root ROOT MOUNTS CACHE PLACE COMMAND...: as ENTER has it, with nothing of this environment.
in_root() {
    root=$1 mounts=$2 used=$3 place=$4
    shift 4
    in_world sh -c "$ENTER" sh "$root" "$mounts" "$used" "$place" env -i HOME=/root LANG=C.UTF-8 \
        PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin \
        ${http_proxy:+http_proxy="$http_proxy"} ${https_proxy:+https_proxy="$https_proxy"} \
        ${used:+CCACHE_DIR=/ccache CMAKE_CXX_COMPILER_LAUNCHER=ccache} "$@"
}
