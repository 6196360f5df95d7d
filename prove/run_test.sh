#!/bin/sh
# Does run.sh tell of a rig that fails, is blind, dies or is not there? It is given stand-ins for rigs.
set -eu
cd "$(dirname "$0")"
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
mkdir "$folder/prove"

# rig NAME TEXT EXIT
rig() {
    printf '#!/bin/sh\necho "%s"\nexit %s\n' "$2" "$3" > "$folder/prove/rig_$1"
    chmod +x "$folder/prove/rig_$1"
}
rig good "RIG good 3 0" 0
rig failing "RIG failing 3 1" 1
rig forgetful "RIG forgetful 3 1" 0
rig blind "RIG blind 3 0" 1
rig dead "words" 139

failed=0
# expect STATUS ROW RIG...: the exit status, and a line of the table.
expect() {
    wanted=$1 row=$2
    shift 2
    status=0
    RVN_BUILD=$folder RVN_RESULTS=$folder/results ./run.sh --quick "$@" > "$folder/log" 2>&1 || status=$?
    if [ "$status" -ne "$wanted" ] || ! tr -s ' ' < "$folder/log" | grep -q "^$row"; then
        echo "run.sh $*: exit $status, not $wanted, or no line \"$row\":"
        cat "$folder/log"
        failed=1
    fi
}
expect 0 "good | 3 | 0 |" good
expect 1 "failing | 3 | 1 |" good failing
expect 1 "forgetful | 3 | 1 |" forgetful good
expect 1 "blind | 3 | exit 1 |" blind good
expect 1 "dead | died (139) | 1 |" good dead
expect 1 "missing | died (127) | 1 |" missing good
expect 1 "good | 3 | 0 |"
rm "$folder"/prove/rig_*
expect 1 "prove/run.sh: no rigs"
exit $failed
