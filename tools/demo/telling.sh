# What a demonstration says and counts; for scripts that have set PROGRAM, whose commands are shown, and the function
# `program`, which runs it.
FAILURES=0

title() { printf '\n== %s\n' "$*"; }
say() { printf '   %s\n' "$*"; }

# Shows a command and what it answers.
show() {
    printf '$ %s' "$PROGRAM"
    for word in "$@"; do
        case $word in
            *[!A-Za-z0-9_./=:-]* | '') printf " '%s'" "$word" ;;
            *) printf ' %s' "$word" ;;
        esac
    done
    printf '\n'
    status=0
    program "$@" 2>&1 || status=$?
    [ $status -eq 0 ] || echo "   (exit status $status)"
}

# account WHAT EXPECTED FOUND
account() {
    if [ "$2" = "$3" ]; then
        say "$1: $3, as it should be"
    else
        say "$1: $3, but it should be $2  <-- DOES NOT ADD UP"
        FAILURES=$((FAILURES + 1))
    fi
}
