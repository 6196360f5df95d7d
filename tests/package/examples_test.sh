#!/usr/bin/env bash
# The examples do what they say. Usage: examples_test.sh FOLDER-OF-THE-PROGRAMS
set -euo pipefail
programs=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"

# expect STATUS TEXT NAME ARGUMENT...: what the example prints, on either stream.
expect() {
    local status=$1 text=$2 name=$3 said got=0
    shift 3
    said=$("$programs/example_$name" "$@" 2>&1) || got=$?
    if [ "$got" -ne "$status" ] || [ "$said" != "$text" ]; then
        printf '%s %s: exit %s, expected %s\n%s\nexpected:\n%s\n' "$name" "$*" "$got" "$status" "$said" "$text" >&2
        exit 1
    fi
}
# holds FILE TEXT
holds() {
    [ "$(cat "$1")" = "$2" ] || { echo "$1 holds: $(cat "$1")" >&2; exit 1; }
}

printf '# top\nport =  6000   # why\n' > settings
expect 0 $'port 6000, debug off\nport is 6001 (why)\ndebug is on (until the next release)' settings settings
holds settings $'# top\nport =  6001   # why\ndebug = on # until the next release'
expect 0 $'port 6001, debug on\nport is 6002 (why)\ndebug is on (until the next release)' settings settings
expect 1 'none: port is no integer' settings none

expect 0 $'one 50000/tcp\none 50000/udp' services ports one
expect 0 $'one 50000/tcp\none 50000/udp\ntwo 50001/tcp\ntwo 50001/udp' services ports two
expect 0 $'one 50000/tcp\none 50000/udp\ntwo 50001/tcp\ntwo 50001/udp' services ports two

printf 'fm:35:respawn:/opt/fm   # why\n' > inittab
expect 0 'fm: off in 35 run levels: /opt/fm' inittab inittab fm
expect 0 'fm: off in 35 run levels: /opt/fm' inittab inittab fm
holds inittab 'fm:35:off:/opt/fm   # why'
expect 1 "inittab: No record matches." inittab inittab rc

expect 0 $'a 1\nb 1' counters counters a b
expect 0 $'a 1\nb 3' counters counters b b

export RVN_GLOBAL_REG_PATHNAME=$work/global.reg
for attempt in 1 2; do
    expect 0 "inst1 of RVN 9.7.0.2 at /home/inst1/rvnhome, started at boot
inst2 of RVN 9.7.0.2 at /home/inst2/rvnhome
0 records are left" copies
done
expect 0 "inst1 of RVN 9.7.0.2 at /home/inst1/rvnhome, started at boot" instances

expect 0 '-' daemon none <<< a
expect 0 $'6002\n-\n6002' daemon settings <<< $'port\nnone\nport'
expect 0 'on' lookup settings debug
expect 0 $'red is ff0000' schema colours red ff0000
echo "all examples did what they say"
