#!/bin/sh
# Shows what genreg-fleet does: a private etcd on this machine alone, and six simulated machines in a scratch folder, each
# with a registry of its own. They are enrolled, published, changed; one is stopped, one is cloned; and somebody asks.
# Every number it prints is counted, and one that does not add up ends it with a failure.
# Usage: fleet.sh FOLDER-OF-THE-TOOLS
set -eu

if [ $# -ne 1 ] || [ ! -x "$1/tool/genreg" ] || [ ! -x "$1/fleet/genreg-fleet" ]; then
    echo "usage: $0 FOLDER-OF-THE-TOOLS" >&2
    exit 2
fi
SELF=$(cd "$(dirname "$0")" && pwd)
BUILT=$(cd "$1" && pwd)
DEMO=$(mktemp -d)
PROCESSES=
trap 'end_all; rm -rf "$DEMO"' EXIT
trap 'exit 130' INT TERM
cd "$DEMO"
unset RVN_GLOBAL_REG_PATHNAME RVNINSTANCE STATE_DIRECTORY CREDENTIALS_DIRECTORY
export XDG_STATE_HOME="$DEMO/memory" NO_COLOR=1 ETCDCTL_API=3

genreg() { "$BUILT/tool/genreg" "$@"; }
# Of a machine: on MACHINE COMMAND...
on() {
    machine=$1
    shift
    "$BUILT/fleet/genreg-fleet" --config "$machine/fleet.conf" "$@"
}
# Of who looks at all of them.
fleet() { "$BUILT/fleet/genreg-fleet" --config viewer.conf "$@"; }
PROGRAM=genreg-fleet
program() { fleet "$@"; }
. "$SELF/telling.sh"

end_all() {
    for process in $PROCESSES; do
        kill -CONT "$process" 2> /dev/null || true
        kill "$process" 2> /dev/null || true
    done
    for process in $PROCESSES; do
        wait "$process" 2> /dev/null || true
    done
    PROCESSES=
}

# await WHAT COMMAND...: until the command is true, for as long as that may take on a busy machine.
await() {
    what=$1
    shift
    i=0
    until "$@" > /dev/null 2>&1; do
        i=$((i + 1))
        [ $i -lt 300 ] || { echo "fleet: waited in vain: $what" >&2; tail -n 5 -- */log >&2; exit 1; }
        sleep 0.1
    done
}

count_of() { fleet --json hosts --state "$1" | grep -c '"state"' || true; }
are() { [ "$(count_of "$2")" = "$1" ]; }
mirrored() { fleet find "$@"; }  # exits 1 where there is none
shown() { grep -q -- "$1" seen; }
store_answers() { etcdctl --endpoints "127.0.0.1:$PORT" endpoint health; }

# A port of this machine that nobody has; two are taken.
start_store() {
    for attempt in 1 2 3 4 5 6 7 8; do
        PORT=$((20000 + $(od -An -N2 -tu2 /dev/urandom) % 20000))
        peer=http://127.0.0.1:$((PORT + 1))
        etcd --name one --data-dir "$DEMO/etcd" --log-level error \
            --listen-client-urls "http://127.0.0.1:$PORT" --advertise-client-urls "http://127.0.0.1:$PORT" \
            --listen-peer-urls "$peer" --initial-advertise-peer-urls "$peer" --initial-cluster "one=$peer" \
            > "etcd.log" 2>&1 &
        store=$!
        i=0
        while kill -0 $store 2> /dev/null && [ $i -lt 100 ]; do
            if store_answers > /dev/null 2>&1; then
                PROCESSES="$PROCESSES $store"
                return
            fi
            i=$((i + 1))
            sleep 0.1
        done
        kill $store 2> /dev/null || true
        wait $store 2> /dev/null || true
    done
    cat etcd.log >&2
    echo "fleet: no etcd could be started" >&2
    exit 1
}

# machine NAME VERSION FIXPACK INSTANCE...
machine() {
    name=$1 version=$2 fixpack=$3
    shift 3
    mkdir -p "$name"
    cat > "$name/fleet.conf" << END
endpoints = 127.0.0.1:$PORT
insecure = yes # this machine alone
name = $name
state = state
registries = $DEMO/$name/global.reg
lease = 3
END
    genreg -q --registry "$name/global.reg" service set RVN "$version" servicePath=/opt/rvn "fixpackNumber=$fixpack"
    for instance in "$@"; do
        genreg -q --registry "$name/global.reg" instance set RVN "$version" "$instance" "instancePath=/home/$instance"
    done
    on "$name" -q enrol > "$name/id"
}

publish() {
    "$BUILT/fleet/genreg-fleet" --config "$1/fleet.conf" publish > /dev/null 2> "$1/log" &
    eval "publisher_$1=$!"
    PROCESSES="$PROCESSES $!"
}

beginning() {
    title "An etcd of its own, on this machine alone"
    start_store
    say "$(etcd --version | head -n 1), with the settings of who asks:"
    printf 'endpoints = 127.0.0.1:%s\ninsecure = yes\n' "$PORT" > viewer.conf
    sed 's/^/   /' viewer.conf
    show hosts

    title "Six machines are enrolled and published, each with a registry of its own"
    machine web1 9.7.0.2 2 inst1 inst2
    machine web2 9.7.0.2 2 inst1 inst2
    machine web3 9.7.0.2 2 inst1
    machine db1 9.5.0.4 4 main
    machine db2 9.5.0.4 4 main report
    machine test1 9.7.0.2 1 inst1
    for name in web1 web2 web3 db1 db2 test1; do publish $name; done
    await "six machines are alive" are 6 alive
    show hosts
    account "machines that are alive" 6 "$(count_of alive)"
}

asking() {
    title "Which copies run where?"
    show count service versionCode
    show find instance instanceName=main
    account "instances in all" 9 "$(fleet --json find instance | grep -c instanceName)"

    title "How does one machine differ from another?"
    show diff web1 web3
}

changing() {
    title "Two registries are changed while somebody watches"
    fleet watch > seen 2> watcher &
    watcher=$!
    PROCESSES="$PROCESSES $watcher"
    await "the watcher looks on" grep -q . watcher
    genreg -q --registry web3/global.reg instance set RVN 9.7.0.2 inst2 instancePath=/home/inst2
    genreg -q --registry db1/global.reg service set RVN 9.5.0.4 fixpackNumber=5
    await "both changes are told" shown 'fixpackNumber: 4 -> 5'
    await "both changes are told" shown 'inst2'
    cat seen
    account "machines whose registry is that of web1" 2 "$(for name in web2 web3; do
        fleet diff web1 $name > /dev/null && echo $name; done | wc -l | tr -d ' ')"
}

losing() {
    title "One machine stops, without a word"
    eval "kill -STOP \$publisher_test1"
    await "it is silent" are 1 silent
    show hosts --state silent
    show find instance instancePath=/home/inst1
    eval "kill -CONT \$publisher_test1"
    await "it is alive again" are 6 alive
    say "It goes on, and is alive again."

    title "One machine is cloned: two go by one id"
    cp -R db2 clone
    rm -f clone/state/publisher.lck
    sed 's/^name = db2/name = clone/; s|/db2/|/clone/|' db2/fleet.conf > clone/fleet.conf
    publish clone
    await "the clash is seen" are 1 clash
    show hosts --state clash
    sed 's/^/   /' db2/log | tail -n 1
    say "The clone is enrolled anew, and the other one takes its id back."
    eval "kill \$publisher_clone \$publisher_db2; wait \$publisher_clone \$publisher_db2 || true"
    on clone -q enrol --anew > clone/id
    on db2 publish --once --take-over
    publish clone
    publish db2
    await "both are alive" are 7 alive
    account "machines that are alive" 7 "$(count_of alive)"
}

rehearsing() {
    title "What would this batch do to each?"
    cat > batch << 'END'
{"type":"service","service":"RVN","versionCode":"9.7.0.2","fixpackNumber":3,"ifFields":{"fixpackNumber":2}}
END
    cat batch
    show rehearse batch --into shipped
    account "batches to be shipped" 3 "$(find shipped -type f | wc -l | tr -d ' ')"
    say "Nothing was sent. One of them travels as whatever one trusts does, and is applied on the machine:"
    cat "shipped/$(cat web1/id).jsonl"
    echo "\$ genreg apply shipped/$(cat web1/id).jsonl"
    genreg --registry web1/global.reg apply "shipped/$(cat web1/id).jsonl" 2>&1
    await "it is mirrored" mirrored service fixpackNumber=3
    show find service fixpackNumber=3
    echo "\$ genreg apply shipped/$(cat web1/id).jsonl"
    status=0
    genreg --registry web1/global.reg apply "shipped/$(cat web1/id).jsonl" 2>&1 || status=$?
    account "applied once more it is refused, with exit status" 5 $status
}

ending() {
    title "The store is lost: no machine is harmed, and nobody is told that there are none"
    kill -STOP $store
    genreg --registry web2/global.reg variable set RVN PORT value=5000 2>&1
    show hosts --wait 1
    kill -CONT $store
    await "all are alive" are 7 alive
    await "what was changed meanwhile is mirrored" mirrored variable variable=PORT
    say "It is back, and what was changed meanwhile is mirrored:"
    show find variable
}

beginning
asking
changing
losing
rehearsing
ending
end_all
echo
if [ $FAILURES -ne 0 ]; then
    say "$FAILURES of the numbers above DO NOT ADD UP"
    exit 1
fi
say "Every account adds up."
