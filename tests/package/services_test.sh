#!/bin/sh
# Looks at the units that an installation brings: systemd takes them for good and rates what they may do, they start the
# tool that was installed with what it knows, and the folder that they work in is made.
# usage: services_test.sh BUILD_DIR UNITS CMAKE COMPILER GENERATOR
set -eu

build=$1 expected=$2 cmake=$3
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

fail() {
    echo "services: $*" >&2
    exit 1
}

# The worst that systemd may say of a unit, times ten.
MOST_EXPOSED=20

if ! command -v systemd-analyze > /dev/null; then
    echo "left out: there is no systemd-analyze"
    exit 77
fi
"$cmake" --install "$build" --prefix "$scratch/usr" > "$scratch/install.log"
units=$(find "$scratch/usr" -name 'genreg-*.service' | sort)
[ "$(echo "$units" | wc -l)" -eq "$expected" ] || fail "$expected units should be installed, not: $units"
for unit in $units; do
    said=$(systemd-analyze verify --man=no "$unit" 2>&1) || fail "$unit: $said"
    [ -z "$said" ] || fail "$unit: $said"
    systemd-analyze security --offline=yes --threshold=$MOST_EXPOSED "$unit" > "$scratch/security" ||
        fail "$unit: $(tail -n 1 "$scratch/security")"
    command=$(sed -n 's/^ExecStart=//p' "$unit")
    # shellcheck disable=SC2086 # words
    $command --help > /dev/null || fail "$unit: the tool does not know '$command'"
done

systemd-tmpfiles --create --root="$scratch/root" "$scratch/usr/lib/tmpfiles.d/genreg.conf" ||
    fail "systemd-tmpfiles does not take genreg.conf"
mkdir -p "$scratch/root/etc"
for users in "$scratch"/usr/lib/sysusers.d/*.conf; do
    [ ! -e "$users" ] || systemd-sysusers --root="$scratch/root" "$users" || fail "systemd-sysusers does not take $users"
done
[ "$(stat -c %a "$scratch/root/var/rvn")" = 755 ] || fail "/var/rvn is made with $(stat -c %a "$scratch/root/var/rvn")"
