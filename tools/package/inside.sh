#!/bin/sh
# What try.sh does inside of the bare root, in whose /srv lie the packages, new and old, and a client.
set -eu
export DEBIAN_FRONTEND=noninteractive
here=/srv/client scratch=/srv/scratch cmake=cmake compiler=c++ generator=Ninja
mkdir "$scratch"

fail() {
    echo "inside: $*" >&2
    exit 1
}
. "$here/client.sh"

names=$(for deb in new/*.deb; do dpkg-deb -f "$deb" Package; done)
# What it has of others is there before, so that what it leaves is its own.
others=$(for deb in new/*.deb; do dpkg-deb -f "$deb" Depends; done | tr ',' '\n' | sed 's/^ *//; s/[ :(|].*//' |
    grep -vxF "$names" | sort -u)
apt-get update -qq
# shellcheck disable=SC2086 # words
apt-get install -q -y --no-install-recommends $others g++ cmake ninja-build pkg-config man-db bash-completion \
    zsh fish

files() {
    find / -xdev \( -path /proc -o -path /sys -o -path /dev -o -path /tmp -o -path /srv -o -path /root \
        -o -path /var/lib/dpkg -o -path /var/lib/apt -o -path /var/log -o -path /var/cache \) -prune -o -print | sort
}
files > "$scratch/before"

echo "== an older build is installed"
apt-get install -q -y --no-install-recommends ./old/*.deb
genreg service set RVN 9.7.0.2 servicePath=/opt/rvn/V9.7
genreg instance set RVN 9.7.0.2 inst1 instancePath=/home/inst1
genreg export > "$scratch/exported"
cp /var/rvn/global.reg "$scratch/global.reg"
[ "$(stat -c %a:%U:%G /var/rvn)" = 755:root:root ] || fail "/var/rvn is $(stat -c %a:%U:%G /var/rvn)"

echo "== and upgraded"
apt-get install -q -y --no-install-recommends ./new/*.deb
# shellcheck disable=SC2086 # words
! dpkg-query -W -f '${Package} ${Version}\n' $names | grep older || fail "these were not upgraded"
cmp "$scratch/global.reg" /var/rvn/global.reg || fail "the registry is another after the upgrade"

echo "== the tool, its manual and completion"
genreg --version
genreg export | cmp - "$scratch/exported" || fail "the registry is told otherwise after the upgrade"
ldd "$(command -v genreg)" | grep -q 'libRVNgenreg\.so\.1 => /' || fail "the tool has a library of its own"
for page in 1.genreg 1.genreg-fleet 3.genreg 5.global.reg 5.genreg-formats; do
    [ -n "$(MANPAGER=cat man -E UTF-8 "${page%%.*}" "${page#*.}")" ] || fail "man knows no $page"
done
# shellcheck disable=SC2016 # for the other shell
completed=$(bash -c '. /usr/share/bash-completion/bash_completion
    _completion_loader genreg
    COMP_WORDS=(genreg instance get RVN 9.7.0.2 "") COMP_CWORD=5 COMP_LINE="genreg instance get RVN 9.7.0.2 " COMP_POINT=32
    $(complete -p genreg | sed "s/.*-F \([^ ]*\).*/\1/") genreg "" 9.7.0.2
    echo "${COMPREPLY[@]}"')
[ "$(echo $completed)" = inst1 ] || fail "bash completes '$completed'"
# shellcheck disable=SC2016 # for the other shell
[ "$(zsh -fc 'autoload -Uz compinit && compinit -u -D && echo $_comps[genreg]')" = _genreg ] || fail "zsh has no completion"
fish -c 'complete --do-complete "genreg instance get RVN 9.7.0.2 "' | grep -qx 'inst1.*' || fail "fish completes no name"

echo "== a machine of a fleet, whose store is away"
getent passwd genreg-fleet > /dev/null || fail "there is no user genreg-fleet"
mkdir /etc/genreg
printf 'endpoints = 127.0.0.1:1\ninsecure = yes\n' > /etc/genreg/fleet.conf
id=$(genreg-fleet enrol)
[ "$(stat -c %a /var/lib/genreg-fleet/host)" = 600 ] || fail "others may read who the machine is"
genreg-fleet setup --print | grep -q "/genreg/v1/host/$id/reg" || fail "setup does not name the host's key"
code=0
genreg-fleet --wait 0 status > "$scratch/status" || code=$?
[ "$code" -eq 4 ] || fail "status ends with $code where no store is"
grep -q '/var/rvn/global.reg: 2 records' "$scratch/status" || fail "status says: $(cat "$scratch/status")"
rm -r /etc/genreg
# shellcheck disable=SC2016 # for the other shell
[ "$(zsh -fc 'autoload -Uz compinit && compinit -u -D && echo $_comps[genreg-fleet]')" = _genreg-fleet ] ||
    fail "zsh has no completion of genreg-fleet"
fish -c 'complete --do-complete "genreg-fleet enr"' | grep -q '^enrol' || fail "fish completes no command of genreg-fleet"

echo "== a client, by pkg-config and by CMake"
own_names=-DOWN_NAMES
by_pkg_config by-pkg-config
by_cmake by-cmake /usr
try "$scratch/by-pkg-config"
try "$scratch/by-cmake/outside"
for example in /usr/share/doc/librvngenreg-dev/examples/*.cpp; do
    # shellcheck disable=SC2046 # words
    c++ -std=c++17 "$example" $(pkg-config --cflags --libs RVNgenreg) -o "$scratch/example"
done

echo "== the Python package"
[ "$(python3 -c 'import genreg; print(genreg.Variables("/srv/scratch/colours")["COLOUR"])')" = blue ] ||
    fail "Python reads something else"

echo "== removed, the registry stays; purged, it stays and is spoken of"
# shellcheck disable=SC2086 # words
apt-get remove -q -y $names
cmp "$scratch/global.reg" /var/rvn/global.reg || fail "the registry is another after the removal"
# shellcheck disable=SC2086 # words
dpkg --purge $names > "$scratch/purge.log" 2>&1 || fail "$(cat "$scratch/purge.log")"
grep -q '/var/rvn is left' "$scratch/purge.log" || fail "nothing says that /var/rvn stays: $(cat "$scratch/purge.log")"
cmp "$scratch/global.reg" /var/rvn/global.reg || fail "the registry is another after the purge"
files | grep -v '^/var/rvn' > "$scratch/after"
diff "$scratch/before" "$scratch/after" || fail "the packages leave something"

echo "== where no registry is, nothing stays"
rm -rf /var/rvn
apt-get install -q -y --no-install-recommends ./new/*.deb
mkdir -p /var/rvn
touch /var/rvn/.fmcd.lock
# shellcheck disable=SC2086 # words
apt-get purge -q -y $names
[ ! -e /var/rvn ] || fail "an empty /var/rvn stays"
