#!/bin/sh
# Runs the proof rigs, all of each, and the fuzz targets for a minute each; prints a table at the end, which is also
# written to build/prove/table.txt. Exits 1 when anything failed.
#
#   prove/run.sh [--quick] [--no-fuzz] [RIG...]      RIG: a name without "rig_"; all of them by default
#
# The rigs are those of the release build (RVN_BUILD names another build folder). Words of a rig: build/prove/RIG.log.
set -u
cd "$(dirname "$0")/.." || exit 1

FUZZ_SECONDS=60

build=${RVN_BUILD-build/release}
quick=
fuzz=true
chosen=
for argument; do
    case $argument in
        --quick) quick=--quick ;;
        --no-fuzz) fuzz=false ;;
        -*)
            sed -n '2,6s/^# \{0,1\}//p' "$0" >&2
            exit 2
            ;;
        *) chosen="$chosen $argument" ;;
    esac
done
if [ -z "$chosen" ]; then
    for program in "$build"/prove/rig_*; do
        [ -f "$program" ] && [ -x "$program" ] && chosen="$chosen ${program##*/rig_}"
    done
else
    fuzz=false
fi
if [ -z "$chosen" ]; then
    echo "prove/run.sh: no rigs in $build/prove; build them first: ./dev prove" >&2
    exit 1
fi

results=build/prove
mkdir -p "$results"
table=$results/table.txt
good=true

# row NAME CASES FAILED SECONDS
row() {
    printf '%-24s | %10s | %8s | %7s\n' "$1" "$2" "$3" "$4" >> "$table.new"
}

: > "$table.new"
row rig cases failed time
start=$(date +%s)
for rig in $chosen; do
    echo "== $rig"
    log=$results/$rig.log
    before=$(date +%s)
    # shellcheck disable=SC2086 # none or one word
    "$build/prove/rig_$rig" $quick > "$log" 2>&1
    code=$?
    after=$(date +%s)
    cat "$log"
    line=$(grep "^RIG $rig [0-9]* [0-9]*\$" "$log" | tail -n 1)
    cases=${line#RIG "$rig" }
    if [ -z "$line" ]; then
        # It never came to its last line, which is where it would have told.
        row "$rig" "died ($code)" 1 "$((after - before)) s"
        good=false
        continue
    fi
    failed=${cases#* }
    row "$rig" "${cases% *}" "$failed" "$((after - before)) s"
    [ "$code" -eq 0 ] && [ "$failed" -eq 0 ] || good=false
done

if $fuzz && [ -z "$quick" ]; then
    before=$(date +%s)
    log=$results/fuzz.log
    ./dev fuzz $FUZZ_SECONDS > "$log" 2>&1
    code=$?
    after=$(date +%s)
    cat "$log"
    # A target's name, then how many inputs it ran.
    awk '/^== / { target = $2 } /number_of_executed_units/ { print target, $NF }' "$log" > "$log.counts"
    while read -r target units; do
        row "fuzz $target" "$units" 0 "$FUZZ_SECONDS s"
    done < "$log.counts"
    rm -f "$log.counts"
    if [ "$code" -ne 0 ]; then
        row "fuzz, see fuzz.log" - 1 "$((after - before)) s"
        good=false
    fi
fi
row "all" "" "" "$(($(date +%s) - start)) s"
mv "$table.new" "$table"
echo
cat "$table"
$good
