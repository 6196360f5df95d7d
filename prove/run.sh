#!/bin/sh
# Runs the proof rigs, all of each, two at a time where there are two cores, the fuzz targets for a minute each, and
# the tests, to count the failure points that all of them reached; prints a table at the end, which is also written to
# build/prove/table.txt. Exits 1 when anything failed.
#
#   prove/run.sh [--quick] [--no-fuzz] [RIG...]      RIG: a name without "rig_"; all of them by default
#
# --quick: a part of each rig, and neither fuzz targets nor failure points, as with RIG. The rigs are those of the
# release build (RVN_BUILD names another build folder). Words of a rig: build/prove/RIG.log (RVN_RESULTS: another
# folder).
set -u
cd "$(dirname "$0")/.." || exit 1

FUZZ_SECONDS=60

build=${RVN_BUILD-build/release}
results=${RVN_RESULTS-build/prove}
mkdir -p "$results"
results=$(cd "$results" && pwd)

# seconds_since START
seconds_since() {
    echo "$(($(date +%s) - $1)) s"
}

# row NAME CASES FAILED TIME
row() {
    printf '%-24s | %10s | %8s | %7s\n' "$@"
}

# run_rig NAME [--quick]: leaves its words in NAME.log and its line of the table in NAME.row.
run_rig() {
    rig=$1
    shift
    before=$(date +%s)
    RVN_DIAG_LOG=$results/$rig.points "$build/prove/rig_$rig" "$@" > "$results/$rig.log" 2>&1
    code=$?
    line=$(grep "^RIG $rig [0-9]* [0-9]*\$" "$results/$rig.log" | tail -n 1)
    cases=${line#RIG "$rig" }
    if [ -z "$line" ]; then
        # It never came to its last line, which is where it would have told.
        row "$rig" "died ($code)" 1 "$(seconds_since "$before")" > "$results/$rig.row"
    else
        failed=${cases#* }
        [ "$code" -eq 0 ] || [ "$failed" -gt 0 ] || failed="exit $code"
        row "$rig" "${cases% *}" "$failed" "$(seconds_since "$before")" > "$results/$rig.row"
    fi
    echo "== $rig"
    cat "$results/$rig.log"
}

# The tests, for the failure points that they reach. Some of them run as an ordinary user, or with a /tmp and a /var of
# their own: the log lies where all of them can write it.
run_tests() {
    folder=$(mktemp -d /dev/shm/prove-XXXXXX) || return 1
    chmod 711 "$folder"
    : > "$folder/points"
    chmod 666 "$folder/points"
    RVN_DIAG_LOG=$folder/points ctest --test-dir "$build" -LE 'prove|fuzz|package' -j "$jobs" > "$results/tests.log" 2>&1
    code=$?
    mv "$folder/points" "$results/tests.points"
    rmdir "$folder"
    [ "$code" -eq 0 ] || tail -n 20 "$results/tests.log"
    return $code
}

if [ "${1-}" = --one ]; then
    shift
    run_rig "$@"
    exit 0
fi

quick=
fuzz=true
chosen=
for argument; do
    case $argument in
        --quick) quick=--quick fuzz=false ;;
        --no-fuzz) fuzz=false ;;
        -*)
            sed -n '2,10s/^# \{0,1\}//p' "$0" >&2
            exit 2
            ;;
        *) chosen="$chosen $argument" ;;
    esac
done
whole=false
if [ -z "$chosen" ]; then
    # The longest first, so that none of them is left alone at the end.
    for rig in failing_calls power_cuts "$build"/prove/rig_*; do
        rig=${rig##*/rig_}
        case " $chosen " in
            *" $rig "*) ;;
            *) [ ! -x "$build/prove/rig_$rig" ] || [ ! -f "$build/prove/rig_$rig" ] || chosen="$chosen $rig" ;;
        esac
    done
    [ -n "$quick" ] || whole=true
else
    fuzz=false
fi
if [ -z "$chosen" ]; then
    echo "prove/run.sh: no rigs in $build/prove; build them first: ./dev prove" >&2
    exit 1
fi

jobs=$(nproc 2>/dev/null || getconf _NPROCESSORS_ONLN)
table=$results/table.txt
good=true
start=$(date +%s)
rm -f "$results"/*.row "$results"/*.points

# shellcheck disable=SC2086 # words
printf '%s\n' $chosen | xargs -P "$jobs" -I RIG sh prove/run.sh --one RIG $quick
{
    row rig cases failed time
    for rig in $chosen; do
        cat "$results/$rig.row" 2>/dev/null || row "$rig" - 1 -
    done
} > "$table"

if $whole; then
    before=$(date +%s)
    run_tests || good=false
    log=$results/failure_points.log
    python3 -B prove/failure_points.py "$results"/*.points > "$log"
    cat "$log"
    line=$(tail -n 1 "$log")
    cases=${line#RIG failure_points }
    row failure_points "${cases% *}" "${cases#* }" "$(seconds_since "$before")" >> "$table"
    rm -f "$results"/*.points
fi

if $fuzz; then
    before=$(date +%s)
    log=$results/fuzz.log
    ./dev fuzz $FUZZ_SECONDS > "$log" 2>&1
    code=$?
    cat "$log"
    # A target's name, then how many inputs it ran.
    awk '/^== / { target = $2 } /number_of_executed_units/ { print target, $NF }' "$log" > "$log.counts"
    while read -r target units; do
        row "fuzz $target" "$units" 0 "$FUZZ_SECONDS s" >> "$table"
    done < "$log.counts"
    rm -f "$log.counts"
    [ "$code" -eq 0 ] || row "fuzz, see fuzz.log" - 1 "$(seconds_since "$before")" >> "$table"
fi

# A line whose third column is not 0 is a failure.
awk -F '|' 'NR > 1 && $3 !~ /^ *0 *$/ { bad = 1 } END { exit bad }' "$table" || good=false
row all "" "" "$(seconds_since "$start")" >> "$table"
echo
cat "$table"
$good
