#!/usr/bin/env bash
# A real Prometheus server with the shipped configuration scrapes the program.
# shellcheck source=tests/program/common.sh disable=SC2317  # wait_until calls functions
. "$(dirname "$0")/common.sh"
need prometheus curl jq

directory=$folder/$'a "quoted\\ \xff\ndirectory'
mkdir "$directory"
start_listening --dir / --dir "$directory" 1

cp "$(dirname "$0")"/../../contrib/prometheus/{scrape,recording_rules,alerting_rules}.yml "$folder"
sed -i -E "s/^( *(scrape|evaluation)_interval:).*/\1 1s/; s/^( *scrape_timeout:).*/\1 1s/
    s/^( *)- targets:.*/\1- targets: ['127.0.0.1:$port']/; /^ +- '[a-z0-9.-]+:9464'$/d" \
    "$folder/scrape.yml"
# The server cannot tell a port that the system chose: ports below those, until one is free.
serving() { curl -sf -m 5 "http://127.0.0.1:$server_port/-/ready" >"$folder/ready"; }
failed_or_serving() { [[ ! -e /proc/$server ]] || serving; }
for ((try = 0; try < 5; ++try)); do
    server_port=$((20000 + RANDOM % 10000))
    prometheus --config.file="$folder/scrape.yml" --storage.tsdb.path="$folder/data" \
        --web.listen-address="127.0.0.1:$server_port" >"$folder/server.log" 2>&1 &
    server=$!
    children+=("$server")
    wait_until 30 failed_or_serving
    serving && [[ -e /proc/$server ]] && break
done

# ask EXPRESSION: the value of its first series
ask() {
    curl -sf -m 5 -G --data-urlencode "query=$1" "http://127.0.0.1:$server_port/api/v1/query" |
        jq -r '.data.result[0].value[1] // empty'
}
answers() { [[ $(ask "$1") == "$2" ]]; }
# check_answer EXPRESSION VALUE
check_answer() {
    wait_until 20 answers "$1" "$2" || fail "$1" "$2" "$(ask "$1"); $(tail -n 3 "$folder/server.log")"
}
check_answer corvane_up 1
check_answer 'up{job="corvane"}' 1
total=$(awk '/^MemTotal/ {printf "%.0f", int($2 / 1024) * 1024 * 1024}' /proc/meminfo)
check_answer corvane_memory_total_bytes "$total"
check_answer 'count(corvane_directory_size_bytes)' 2
check_answer "count(corvane_directory_size_bytes{directory=~\"(?s).*/a \\\"quoted\\\\\\\\ \uFFFD\\n.*\"})" 1
check_answer 'corvane_cpu_cores' "$(grep -c '^cpu[0-9]' /proc/stat)"
check_answer 'instance:corvane_memory_used:ratio > bool 0' 1
check_answer 'count({__name__=~"exposer_.*"}) or vector(0)' 0
check "groups of rules" '["corvane-alerts","corvane-recording"]' \
    "$(curl -sf -m 5 "http://127.0.0.1:$server_port/api/v1/rules" |
        jq -c '[.data.groups[].name] | sort')"
check "rules in error" 0 "$(curl -sf -m 5 "http://127.0.0.1:$server_port/api/v1/rules" |
    jq '[.data.groups[].rules[] | select(.health == "err")] | length')"

kill -TERM "$pid"
check_ends SIGTERM 5000
check_answer 'up{job="corvane"}' 0
finish
