#!/bin/sh
# Shows what genreg does in a scratch folder. First the global registry, with a monitor looking on: copies and instances
# are recorded, changed, removed, by many processes at once. Then text files: reading, editing, many writers at once, and
# a writer that dies. Every number it prints is counted, and one that does not add up ends it with a failure.
# Usage: run.sh PATH-OF-GENREG
set -eu

if [ $# -ne 1 ] || [ ! -x "$1" ]; then
    echo "usage: $0 PATH-OF-GENREG" >&2
    exit 2
fi
TOOL=$(cd "$(dirname "$1")" && pwd)/$(basename "$1")
SELF=$(cd "$(dirname "$0")" && pwd)/$(basename "$0")
DEMO=$(mktemp -d)
trap 'rm -rf "$DEMO"' EXIT
trap 'exit 130' INT TERM
cd "$DEMO"

# The monitor's lock and the change log have fixed places, in /var and /tmp. As root, the whole of this runs where both
# folders are its own, but for the tool and this script.
# shellcheck disable=SC2016 # for the inner shell
PRIVATE_PLACES='
    mount -t tmpfs none /var && mkdir -p /var/rvn /var/machine || exit 1
    mount --bind /tmp /var/machine && mount -t tmpfs none /tmp || exit 1
    for file in "$0" "$1"; do
        top=${file#/tmp/}
        top=${top%%/*}
        if [ "${file#/tmp/}" = "$file" ] || [ -e "/tmp/$top" ]; then
            continue
        fi
        if [ -d "/var/machine/$top" ]; then mkdir "/tmp/$top"; else : > "/tmp/$top"; fi
        mount --bind "/var/machine/$top" "/tmp/$top" || exit 1
    done
'
if [ -z "${GENREG_DEMO_PRIVATE-}" ] && [ "$(id -u)" -eq 0 ] && command -v unshare > /dev/null &&
    unshare -m --propagation private sh -c "$PRIVATE_PLACES" "$SELF" "$TOOL" 2> /dev/null; then
    trap - EXIT
    cd /
    rm -rf "$DEMO"
    export GENREG_DEMO_PRIVATE=yes
    # shellcheck disable=SC2016 # for the inner shell, too
    exec unshare -m --propagation private sh -c "$PRIVATE_PLACES"' exec "$0" "$1"' "$SELF" "$TOOL"
fi
PRIVATE=${GENREG_DEMO_PRIVATE:-no}
export RVN_GLOBAL_REG_PATHNAME="$DEMO/global.reg"
unset RVNINSTANCE

genreg() { "$TOOL" "$@"; }
PROGRAM=genreg
program() { genreg "$@"; }
. "$(dirname "$SELF")/telling.sh"

# seen TEXT: how many lines of what the monitor saw hold it.
seen() { grep -c -- "$1" seen || true; }

# Waits until the monitor has told so many changes in all.
await() {
    i=0
    while [ "$(wc -l < seen)" -lt "$1" ] && [ $i -lt 100 ]; do
        i=$((i + 1))
        sleep 0.05
    done
}

watching() {
    title "Somebody watches: every change will be told, before and after"
    show path --explain
    if [ "$PRIVATE" = yes ]; then
        say "As the monitor: it holds a lock that names it, and every writer wakes it by a signal."
        "$TOOL" watch > seen 2> monitor &
    else
        say "Looking on (genreg watch --follow). As root it would be the monitor, which writers wake."
        "$TOOL" watch --follow > seen 2> monitor &
    fi
    MONITOR=$!
    trap 'kill $MONITOR 2> /dev/null; rm -rf "$DEMO"' EXIT
    i=0
    until grep -q watching monitor || [ $i -eq 100 ]; do
        i=$((i + 1))
        sleep 0.05
    done
    cat monitor
    LOGGED=no
    if [ "$PRIVATE" = yes ] && genreg log on; then
        LOGGED=yes
    fi
}

recording() {
    title "Two installed copies and four instances of them are recorded"
    show service set RVN 9.7.0.2 servicePath=/opt/rvn/V9.7 fixpackNumber=1
    show service set RVN 9.5.0.4 servicePath=/opt/rvn/V9.5 fixpackNumber=4
    show instance set RVN 9.7.0.2 inst1 instancePath=/home/inst1 startAtBoot=1
    show instance set RVN 9.7.0.2 inst2 instancePath=/home/inst2
    show instance set RVN 9.5.0.4 old1 instancePath=/home/old1 startAtBoot=1
    show instance set RVN 9.5.0.4 old2 instancePath=/home/old2
    show service list
    show instance list
    account "instances" 4 "$(genreg instance list --json | wc -l | tr -d ' ')"

    title "One is changed, the fixpack numbers are brought up to date, one is removed"
    show instance set RVN 9.7.0.2 inst2 startAtBoot=1 'comment=starts with the machine now'
    show fixpack sync
    show instance remove RVN 9.5.0.4 old2
    await 9
    say "What the one who watches saw:"
    cut -d ' ' -f 3- seen
    account "changes told" 9 "$(wc -l < seen | tr -d ' ')"
}

# One of eight: registers five instances.
registrar() {
    for n in 1 2 3 4 5; do
        genreg instance set RVN 9.7.0.2 "p$1-$n" instancePath="/home/p$1-$n" --wait 60 -q || echo "p$1-$n" >> failed
    done
}

registering() {
    title "Eight processes register forty instances at once"
    : > failed
    registrars=
    for p in 1 2 3 4 5 6 7 8; do
        registrar $p &
        registrars="$registrars $!"
    done
    # shellcheck disable=SC2086 # process ids
    wait $registrars
    await 49
    account "registrations that failed" 0 "$(wc -l < failed | tr -d ' ')"
    account "instances, 3 from before" 43 "$(genreg instance list --json | wc -l | tr -d ' ')"
    account "of them different ones" 43 "$(genreg instance list --json | sort -u | wc -l | tr -d ' ')"
    account "additions of these that the watcher told" 40 "$(seen 'add .* p[1-8]-[1-5] ')"
    if [ $LOGGED = yes ]; then
        say "The change log has a line for each, whoever made it. Its last ones:"
        genreg log show --json > log
        genreg log show | tail -n 3 | sed -E 's/^(.{24}) +([A-Za-z]+) .* (instance .*)$/\1  \2  \3/'
        account "lines of the change log about this registry" 49 "$(grep -c "$RVN_GLOBAL_REG_PATHNAME" log)"
    else
        say "(The change log of the machine is left alone.)"
    fi

    title "In the file, a record is its fields one after another"
    genreg dump --raw > frames
    sed -n '1,/frame 2/p' frames | sed '$d'
    account "frames" 45 "$(genreg dump --json | grep -c '"kind":"frame"')"

    status=0
    kill -TERM $MONITOR
    wait $MONITOR || status=$?
    account "the watcher was asked to end; its exit status is" 0 $status
    if [ $LOGGED = yes ]; then
        genreg log off -y
    fi
    trap 'rm -rf "$DEMO"' EXIT
}

batching() {
    title "A copy and five instances of it are one change, or none"
    echo '{"type":"service","service":"TOO","versionCode":"1.0.0.0","servicePath":"/opt/too"}' > batch
    for n in 1 2 3 4 5; do
        printf '{"type":"instance","service":"TOO","versionCode":"1.0.0.0","instanceName":"too%s"}\n' $n >> batch
    done
    show apply batch
    show apply batch
    echo '{"op":"add","type":"instance","service":"TOO","versionCode":"1.0.0.0","instanceName":"too5"}' >> batch
    show apply batch
    account "instances of it" 5 "$(genreg instance list TOO --json | wc -l | tr -d ' ')"

    title "Seven bytes of junk stand behind the last record of a copy"
    cp global.reg damaged
    printf 'JUNKJUN' >> damaged
    show check damaged
    show repair damaged -y
    account "records in it" "$(genreg export | wc -l | tr -d ' ')" "$(genreg export damaged | wc -l | tr -d ' ')"
}

# copy OF AS: a real file of the machine, or what standard input has in its stead.
copy() {
    if [ -r "$1" ]; then
        cp "$1" "$2"
        cat > /dev/null
        say "$2 is a copy of the machine's $1."
    else
        cat > "$2"
        say "There is no $1 here; $2 stands in for it."
    fi
}

real() {
    title "Copies of real files are read and edited"
    copy /etc/os-release os-release << 'END'
NAME="Example"
VERSION_ID="1"
HOME_URL="https://example.org/"
END
    show varval list os-release
    show varval get os-release NAME
    show varval set os-release NAME 'Our own build'
    show varval add os-release BUILD_ID 42
    show varval delete os-release HOME_URL
    show varval get os-release BUILD_ID --type int

    copy /etc/ssl/openssl.cnf openssl.cnf << 'END'
dir		= ./demoCA		# Where everything is kept
default_days	= 365			# how long to certify for
default_md	= default		# use public key default MD
dir		= ./demoCA		# TSA root directory
END
    cp openssl.cnf openssl.cnf.before
    show varval get openssl.cnf default_days --type int
    show varval set openssl.cnf default_days 730
    show varval delete openssl.cnf default_md
    show varval add openssl.cnf reviewed yes --comment 'by the administrator'
    say "A name that stands on several lines is not guessed at:"
    show varval set openssl.cnf dir /srv/ca
    say "All in all:"
    show diff openssl.cnf.before openssl.cnf
    account "lines with a comment: one less and one more" "$(grep -c '#' openssl.cnf.before)" "$(grep -c '#' openssl.cnf)"
}

reading() {
    title "Values have types, and what does not fit is refused"
    cat > settings << 'END'
# The server's settings
port     =   5000     # all clients know this one
	debug=off
ratio = 0.75          #no blank before this remark

path =    /var/data   # café, ünder, 日本
obsolete = 1
END
    cat settings
    show varval get settings port --type int
    show varval get settings debug --type bool
    show varval get settings path --type double
    show varval get settings prot
}

editing() {
    title "Changes keep the line's layout and its comment"
    cp settings settings.before
    show varval set settings port 6000 --diff
    show varval set settings path '/srv/data' --if-value /var/data
    show varval set settings path '/elsewhere' --if-value /var/data
    show varval add settings motd '  Welcome,  all  ' --comment 'blanks count, so it is quoted'
    show varval delete settings obsolete
    show varval set settings debug on --dry-run
    show varval set settings motd 'no # in here'
    say "All in all:"
    show diff settings.before settings

    i=0
    while [ $i -lt 10 ]; do
        i=$((i + 1))
        genreg varval set settings path "/srv/data$i"
    done
    account "after ten more changes the comment of that line is" "# café, ünder, 日本" \
        "$(sed -n 's/^path .*\(#.*\)/\1/p' settings)"
}

# One of eight: adds 20 variables of its own and counts the shared counter up five times.
writer() {
    i=0
    while [ $i -lt 20 ]; do
        i=$((i + 1))
        genreg varval add shared "w$1.$i" $i --wait 60 -q || echo "add w$1.$i" >> failed
    done
    i=0
    while [ $i -lt 5 ]; do
        now=$(genreg varval get shared counter)
        status=0
        genreg varval set shared counter $((now + 1)) --if-value "$now" --wait 60 2> /dev/null || status=$?
        case $status in
            0) i=$((i + 1)) ;;
            5) echo x >> retries ;;  # somebody else was faster; nothing is overwritten
            *) echo "counter $status" >> failed; return ;;
        esac
    done
}

# Reads until the writers are done: what it sees may only grow, and ends in a whole line.
reader() {
    seen=0
    while [ ! -e finished ]; do
        genreg varval list shared --json > "read$1"
        count=$(grep -c '"schema":1.*}$' "read$1")
        [ "$count" -ge "$seen" ] && [ "$count" -eq "$(wc -l < "read$1")" ] || echo "reader $1" >> failed
        seen=$count
        echo x >> "reads$1"
    done
}

together() {
    title "Eight writers and four readers on one file"
    printf '# shared by all\ncounter = 0\n' > shared
    : > failed
    : > retries
    readers=
    for r in 1 2 3 4; do
        reader $r &
        readers="$readers $!"
    done
    writers=
    for w in 1 2 3 4 5 6 7 8; do
        writer $w &
        writers="$writers $!"
    done
    # shellcheck disable=SC2086 # process ids
    wait $writers
    : > finished
    # shellcheck disable=SC2086
    wait $readers
    account "variables added by 8 writers, 20 each" 160 "$(grep -c '^w[1-8]\.' shared || true)"
    account "of them different ones" 160 "$(grep '^w[1-8]\.' shared | sort -u | wc -l | tr -d ' ')"
    account "counter, counted up 5 times by each" 40 "$(genreg varval get shared counter --type int)"
    say "(and $(wc -l < retries | tr -d ' ') times somebody else was faster: told with exit status 5, and tried again)"
    account "the comment at the top" "# shared by all" "$(head -n 1 shared)"
    account "failures, and half-written files that a reader saw in $(cat reads? | wc -l | tr -d ' ') readings" 0 \
        "$(wc -l < failed | tr -d ' ')"
}

dying() {
    title "A writer is killed in the middle of its work"
    cp settings killed
    say "It holds the lock and has written half of the next version when it dies:"
    # shellcheck disable=SC2016 # for the inner shell
    show lock run killed -- sh -c 'head -c 40 killed > killed.tmp; kill -9 $PPID'
    cmp -s settings killed || FAILURES=$((FAILURES + 1))
    account "the file is" unharmed "$(cmp -s settings killed && echo unharmed || echo changed)"
    show status killed
    say "The lock died with its holder. The next update sets the half-written copy aside and goes on:"
    show varval set killed port 7000 --wait 0
    account "port is" 7000 "$(genreg varval get killed port)"
    account "the half-written copy is now" killed.cor "$(ls killed.tmp killed.cor 2> /dev/null || true)"
    show status killed

    title "And forty writers are killed at any moment"
    awk 'BEGIN { for (i = 1; i <= 3000; i++) printf "v%d = %d   # line %d\n", i, i, i }' > big
    lines=$(wc -l < big)
    old=1 whole=0 finished=0 left=0 i=0
    while [ $i -lt 40 ]; do
        i=$((i + 1))
        "$TOOL" varval set big v1 "n$i" &
        victim=$!
        sleep "0.00$((i % 10))"
        kill -9 $victim 2> /dev/null || true
        wait $victim 2> /dev/null && finished=$((finished + 1))
        [ ! -e big.tmp ] || left=$((left + 1))
        now=$(genreg varval get big v1)
        case $now in
            "$old" | "n$i") [ "$(wc -l < big)" != "$lines" ] || whole=$((whole + 1)) ;;
        esac
        old=$now
    done 2> /dev/null
    account "of 40 ($finished were done before the blow), files that are wholly old or wholly new" 40 $whole
    say "($left of them left an unfinished copy beside it, which the next one set aside)"
    genreg varval set big v1 last --wait 0
    account "and the next writer gets through at once; v1 is" last "$(genreg varval get big v1)"
}

echo "The global registry lists a machine's installed copies and their instances. Here it is at work."
watching
recording
registering
batching

title "The same for text files"
echo "genreg edits configuration files that several programs change at once. Here is what that means."
real
reading
editing
together
dying
title "Done"
if [ $FAILURES -ne 0 ]; then
    say "$FAILURES accounts do not add up."
    exit 1
fi
say "Every account adds up. Errors explain themselves, too: genreg explain 0x900001f6"
