#!/usr/bin/env bash
# The command line: what is refused, what ends the program and how.
# shellcheck source=tests/program/common.sh
. "$(dirname "$0")/common.sh"

# bad NAMED ARGUMENTS...: one line on standard error that holds NAMED, status 2
bad() {
    local named=$1 status
    shift
    "$program" "$@" >"$folder/out" 2>"$folder/err" </dev/null
    status=$?
    check "$*: status" 2 $status
    check "$*: standard output" "" "$(cat "$folder/out")"
    check "$*: lines of error" 1 "$(wc -l <"$folder/err")"
    [[ $(cat "$folder/err") == "corvane-monitor: "*"$named"* ]] ||
        fail "$*" "an error about $named" "$(cat "$folder/err")"
}
bad "INTERVAL: Value 0" 0
bad "INTERVAL: Value -1" -1
bad "INTERVAL: Value 1.5" 1.5
bad "INTERVAL: Value 86401" 86401
bad "INTERVAL: Value soon" soon
bad "COUNT: Value 0" 1 0
bad "COUNT: Value many" 1 many
bad "not expected: 3" 1 2 3
bad "not expected: --bogus" --bogus
bad "--pid: Value 0" --pid 0
bad "--pid: Value init" --pid init
bad "--pid: Value 4294967296" --pid 4294967296
bad "--pid" --pid
bad "does not exist: /no/such" --dir /no/such
bad "does not exist" --dir ''
bad 'does not exist: /?[31m' --dir $'/\e[31m'
bad "--cycle: Value 0" --cycle 0
bad "longer than the INTERVAL" --cycle 5 1
bad "longer than the INTERVAL" --tiny-cycle 2
bad "--cores excludes --no-cores" --cores --no-cores
bad "xml (table, json)" --format xml
bad "--format" --format=
bad "--format excludes --watch" --watch --format json
bad "--watch excludes --listen" --watch --listen 9464
bad "not ADDRESS:PORT: nowhere" --listen nowhere
bad "not ADDRESS:PORT: 65536" --listen 65536
bad "not a log level: loud (off," --log-level loud

check_match --version '^corvane-monitor [0-9]+\.[0-9]+\.[0-9]+$' "$("$program" --version)"
for option in INTERVAL COUNT --pid --dir --cycle --tiny-cycle --cores --format --watch --listen \
    --log-level --version; do
    [[ $("$program" --help) == *"$option"* ]] || fail --help "$option in it" "none"
done
check "lines of --help are short" "" "$("$program" --help | grep -E '.{101}')"
"$program" --watch </dev/null >/dev/null 2>"$folder/err"
check "--watch without a terminal: status" 1 $?
check_match "--watch without a terminal" 'needs a terminal' "$(cat "$folder/err")"

# Several at a time, as each takes its seconds.
start once
once=$pid
begin=$(date +%s%3N)
start twice 1 2
twice=$pid
start endless 1
endless=$pid
sleep 60 &
children+=($!)
watched=$!
start gone --pid 4194304 --pid "$watched" --pid $$ --format json 1 3
gone=$pid
"$program" 1 2> "$folder/head.err" | head -n 1 >"$folder/head.out"
check "a reader that leaves: status" 1 "${PIPESTATUS[0]}"
check "a reader that leaves: errors" "" "$(cat "$folder/head.err")"
check_match "a reader that leaves" 'peaks of the last 1 s' "$(cat "$folder/head.out")"
{ kill "$watched"; wait "$watched"; } 2>/dev/null

wait "$once"
check "no arguments: status" 0 $?
check_between "no arguments: milliseconds" 900 10000 $(($(date +%s%3N) - begin))
check "no arguments: reports" 1 "$(grep -c peaks "$folder/once.out")"
wait "$twice"
check "INTERVAL COUNT: status" 0 $?
check "INTERVAL COUNT: reports" 2 "$(grep -c peaks "$folder/twice.out")"
wait "$gone"
check "a process goes away: status" 0 $?
check_match "no such process" 'process 4194304 does not exist' "$(cat "$folder/gone.err")"
check_match "a process goes away" "process $watched has gone" "$(cat "$folder/gone.err")"
check "each said once" 2 "$(wc -l <"$folder/gone.err")"
if command -v jq >/dev/null; then
    check "gone at the end" "[true,true,false]" \
        "$(tail -n 1 "$folder/gone.out" | jq -c '[.processes[].gone]')"
    check_between "the others go on" 0 100000 \
        "$(tail -n 1 "$folder/gone.out" | jq '.processes[2].cpu_peak_percent')"
fi

# Most of a minute lies before the next report.
for signal in INT TERM; do
    start "$signal" 60
    sleep 0.3
    kill -"$signal" "$pid"
    check_ends "SIG$signal" 1000
done
pid=$endless
kill -TERM "$pid"
check_ends "SIGTERM between reports" 1000
finish
