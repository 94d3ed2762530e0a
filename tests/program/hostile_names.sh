#!/usr/bin/env bash
# Names that others chose, of processes and directories, with control bytes, quotes and bytes that
# are not UTF-8: nothing of it reaches a terminal or breaks an output.
# shellcheck source=tests/program/common.sh disable=SC2317  # wait_until calls functions
. "$(dirname "$0")/common.sh"
need jq curl iconv

directory=$folder/$'\e]0;title\a"\\\n\xff\xc2\x9b31m'
mkdir "$directory"
pids=()
for name in $'\e[2J"\\\n\xff' $'\xc2\x9b31m\x9b\r' $'a b\e[31m\x9d'; do
    cp "$(command -v sleep)" "$folder/$name"  # the kernel names a process by its file
    "$folder/$name" 60 &
    children+=($!)
    pids+=(--pid $!)
done
named() { grep -q '^a b' /proc/"${pids[5]}"/comm; }
wait_until 10 named
arguments=("${pids[@]}" --dir "$directory" --dir /)

# unsafe FILE: bytes that are neither printable ASCII nor the end of a line
unsafe() { LC_ALL=C tr -d '\n\40-\176' <"$1" | od -An -c; }

start table "${arguments[@]}" 1 2
wait "$pid"
check "table: status" 0 $?
check "table: bytes" "" "$(unsafe "$folder/table.out")"
check "notes: bytes" "" "$(unsafe "$folder/table.err")"
check_match "the name with a blank" 'a b\?\[31m\?, holds a blank' "$(cat "$folder/table.err")"
check_match "a name" '\?\[2J"' "$(cat "$folder/table.out")"
check "lines are at most 80 columns" "" "$(grep -E '.{81}' "$folder/table.out")"

start log "${arguments[@]}" --log-level trace 1 2
wait "$pid"
check "log: control bytes" "" "$(LC_ALL=C tr -cd '\1-\11\13-\37\177' <"$folder/log.err" | od -An -c)"

start json "${arguments[@]}" --format json 1 1
wait "$pid"
check "JSON: bytes" "" "$(unsafe "$folder/json.out")"
check "JSON: directory" $'\e]0;title\a"\\\n\uFFFD\u009b31m' \
    "$(jq -r '.directories[0].directory' "$folder/json.out" | sed "1s#^$folder/##")"
check "JSON: command" $'\e[2J"\\\n\uFFFD' "$(jq -r '.processes[0].command' "$folder/json.out")"

# On a terminal, without and with colour.
if command -v script >/dev/null; then
    printf -v command '%q ' "$program" "${arguments[@]}"
    export SHELL=$BASH  # script hands the command to it; other shells read no $'...'
    NO_COLOR=1 script -qec "$command" "$folder/typescript" </dev/null |
        tr -d '\r' >"$folder/plain"
    check_match "NO_COLOR on a terminal" 'peaks of' "$(cat "$folder/plain")"
    check "NO_COLOR on a terminal: bytes" "" "$(unsafe "$folder/plain")"
    env -u NO_COLOR script -qec "$command" "$folder/typescript" </dev/null |
        tr -d '\r' | sed 's/\x1b\[\(0\|1\|31\)m//g' >"$folder/coloured"
    check "colour on a terminal: bytes" "" "$(unsafe "$folder/coloured")"
fi

start_listening "${arguments[@]}" 1
metrics() { curl -sf -m 10 "http://127.0.0.1:$port/metrics" >"$folder/metrics"; }
measured() { metrics && grep -q '^corvane_up 1' "$folder/metrics"; }
wait_until 10 measured
iconv -f UTF-8 -t UTF-8 "$folder/metrics" >/dev/null || fail "the scrape" "UTF-8" "other bytes"
check "lines that are none of a scrape" "" \
    "$(grep -vE '^(# (HELP|TYPE) [a-z_]+ .*|[a-z_]+(\{.*\})? [-+0-9.eNan]+)$' "$folder/metrics")"
check "directories in it" 2 "$(grep -c '^corvane_directory_size_bytes' "$folder/metrics")"
if command -v promtool >/dev/null; then
    check "promtool check metrics" "" "$(promtool check metrics <"$folder/metrics" 2>&1)"
fi
finish
