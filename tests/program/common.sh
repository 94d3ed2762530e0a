# shellcheck shell=bash
# Shared by the tests of the program: each is called with the program's path. Sourced.
set -u
export LC_ALL=C.UTF-8
program=$(realpath "${1:?usage: $0 PATH-OF-CORVANE-MONITOR}")
folder=$(mktemp -d)
failures=0
children=()

cleanup() {
    local child
    for child in "${children[@]}"; do
        kill -KILL "$child"
        wait "$child"
    done 2>/dev/null
    rm -rf "$folder"
}
trap cleanup EXIT
trap 'exit 1' INT TERM

# check WHAT EXPECTED FOUND
check() {
    [[ $2 == "$3" ]] || fail "$1" "$2" "$3"
}

# check_match WHAT REGULAR-EXPRESSION FOUND
check_match() {
    [[ $3 =~ $2 ]] || fail "$1" "a match of $2" "$3"
}

# check_between WHAT LOWEST HIGHEST FOUND
check_between() {
    if ! [[ $4 =~ ^-?[0-9]+$ ]] || (($4 < $2 || $4 > $3)); then
        fail "$1" "$2 to $3" "$4"
    fi
}

fail() {
    printf '%s\n  expected: %q\n  found:    %q\n' "$1" "$2" "$3"
    ((++failures))
}

finish() {
    ((failures == 0)) || echo "$failures checks failed"
    exit $((failures > 0))
}

need() {
    local tool
    for tool; do
        command -v "$tool" >/dev/null || { echo "skipped: $tool is not installed"; exit 77; }
    done
}

# wait_until SECONDS COMMAND...: until the command succeeds
wait_until() {
    local end=$((SECONDS + $1))
    shift
    until "$@"; do
        ((SECONDS < end)) || return 1
        sleep 0.1
    done
}

# start NAME ARGUMENTS...: the program in the background; its output in $folder/NAME.out and .err,
# its number in $pid
start() {
    local name=$1
    shift
    : >"$folder/$name.err"
    "$program" "$@" >"$folder/$name.out" 2>"$folder/$name.err" </dev/null &
    pid=$!
    children+=("$pid")
}

# start_listening ARGUMENTS...: with --listen on a free port, which is in $port
start_listening() {
    start listen --listen 127.0.0.1:0 "$@"
    wait_until 10 grep -q 'metrics on' "$folder/listen.err" ||
        { cat "$folder/listen.err"; echo "the program does not listen"; exit 1; }
    port=$(sed -n 's#.*http://127.0.0.1:\([0-9]*\)/metrics#\1#p' "$folder/listen.err")
    : "$port"
}

has_ended() {
    [[ ! -e /proc/$pid || $(ps -o stat= -p "$pid") == Z* ]]
}

# check_ends WHAT MILLISECONDS: $pid ends with status 0 in time
check_ends() {
    local begin end
    begin=$(date +%s%3N)
    wait_until $(($2 / 1000 + 5)) has_ended || { fail "$1" ended running; return; }
    end=$(date +%s%3N)
    wait "$pid"
    check "$1: status" 0 $?
    check_between "$1: milliseconds" 0 "$2" $((end - begin))
}
