#!/usr/bin/env bash
# --listen: what a scrape gives, who can reach it, and clients that misbehave.
# shellcheck source=tests/program/common.sh disable=SC2317  # wait_until calls functions
. "$(dirname "$0")/common.sh"
need curl
source_folder=$(dirname "$0")/../../src/host

start_listening --dir / 2
metrics() { curl -sf -m 10 "http://127.0.0.1:$port/metrics"; }
check_match "before the first report" $'\ncorvane_up 0$' "$(metrics)"
measured() { [[ $(metrics) == *$'\ncorvane_up 1\n'* ]]; }
wait_until 15 measured || fail "corvane_up" 1 0

scrape=$(metrics)
for name in $(grep -ho '"corvane_[a-z_]*"' "$source_folder/metrics.cpp" | tr -d '"'); do
    # eth1 need not exist here.
    [[ $name =~ ^corvane_network_(receive|transmit)_(bytes|packets)_per_second$ ]] && continue
    check_match "$name" $'\n'"# HELP $name "[^$'\n']+$'\n'"# TYPE $name gauge"$'\n'"${name}[ {]" \
        $'\n'"$scrape"
done
check_match "content type" '^text/plain' \
    "$(curl -s -m 10 -o "$folder/metrics" -w '%{content_type}' "http://127.0.0.1:$port/metrics")"
if command -v promtool >/dev/null; then
    check "promtool check metrics" "" "$(promtool check metrics <"$folder/metrics" 2>&1)"
fi
check "sockets that listen on the port, by address" "0100007F" \
    "$(awk -v port="$(printf ':%04X$' "$port")" '$2 ~ port && $4 == "0A" {sub(/:.*/, "", $2)
        print $2}' /proc/net/tcp /proc/net/tcp6)"

# Two servers read the same figures, at any time between two reports.
figures() { grep -vE 'exposer_|^#|_age_' <<<"$1"; }
older() {
    local first second
    first=$(metrics)
    sleep 0.2
    second=$(metrics)
    [[ $(figures "$first") == "$(figures "$second")" ]] &&
        awk 'NR == 1 {first = $2} NR == 2 {exit !($2 > first + 0.1)}' \
            <<<"$(grep -h '^corvane_last_cycle_age_seconds' <<<"$first"$'\n'"$second")"
}
wait_until 10 older || fail "two scrapes" "the same figures, older" "others"

"$program" --listen "$port" 1 >"$folder/out" 2>"$folder/err"
check "port in use: status" 1 $?
check "port in use" "corvane-monitor: cannot listen on 127.0.0.1:$port: the port is in use or not \
allowed, or the address is not one of this machine" "$(cat "$folder/err")"

# Clients that send nothing, or half a request, and keep the line; one that sends a megabyte.
connections=()
for ((i = 0; i < 24; ++i)); do
    exec {connection}<>"/dev/tcp/127.0.0.1/$port" && connections+=("$connection")
    ((i % 2)) && printf 'GET /metr' >&"$connection"
done
head -c 1000000 /dev/zero | curl -s -m 5 -o "$folder/out" --data-binary @- \
    "http://127.0.0.1:$port/metrics"
begin=$(date +%s%3N)
metrics >"$folder/metrics"
check "a scrape beside them: status" 0 $?
check_between "a scrape beside them: milliseconds" 0 8000 $(($(date +%s%3N) - begin))
check "connections" 24 ${#connections[@]}

kill -TERM "$pid"
check_ends SIGTERM 5000
check "standard output" "" "$(cat "$folder/listen.out")"
finish
