#!/usr/bin/env bash
# --format json: the documented keys, and figures that agree with the kernel's own.
# shellcheck source=tests/program/common.sh
. "$(dirname "$0")/common.sh"
need jq df

# A process that keeps a core busy as far as the machine lets it.
(while :; do :; done) &
busy=$!
children+=("$busy")
start json --format json --cores --dir / --pid "$busy" 1 3
wait "$pid"
check status 0 $?
check "standard error" "" "$(grep -v 'network: no interface' "$folder/json.err")"
check "lines" 3 "$(wc -l <"$folder/json.out")"
check "objects" 3 "$(jq -c . "$folder/json.out" | wc -l)"
line=$(tail -n 1 "$folder/json.out")
figure() { jq -r "$1" <<<"$line"; }

check keys 'cpu cpu.core_number cpu.cores cpu.cores[] cpu.cores[].name cpu.cores[].percent'\
' cpu.latest_percent cpu.limit_percent cpu.peak_percent directories directories[]'\
' directories[].busy_percent directories[].directory directories[].disk'\
' directories[].operations_per_second directories[].total_mib directories[].used_mib failed'\
' interval_seconds memory memory.total_mib memory.used_mib network network.eth1 network.receive'\
' network.receive.interface network.receive.peak_megabits_per_second network.transmit'\
' network.transmit.interface network.transmit.peak_megabits_per_second processes processes[]'\
' processes[].busiest_thread_peak_percent processes[].command processes[].cpu_peak_percent'\
' processes[].gone processes[].pid processes[].resident_mib processes[].virtual_mib stale time' \
    "$(figure '[paths | map(if type == "number" then "[]" else "." + . end) | add | ltrimstr(".")]
               | map(select(test("eth1\\.|failed\\[|stale\\[") | not)) | unique | join(" ")')"
check_match time '^[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9:]{8}Z$' "$(figure .time)"

cores=$(grep -c '^cpu[0-9]' /proc/stat)
check cores "$cores" "$(figure .cpu.core_number)"
check "a figure per core" "$cores" "$(figure '.cpu.cores | length')"
check_between "machine's CPU beside a busy process" 1 $((100 * cores)) \
    "$(figure .cpu.peak_percent)"
check_between "busy process" 1 120 "$(figure '.processes[0].cpu_peak_percent')"
check_between "its only thread" 1 100 "$(figure '.processes[0].busiest_thread_peak_percent')"
check_between "its memory" $(($(awk '/^VmRSS/ {print $2}' /proc/"$busy"/status) / 1024 - 1)) \
    $(($(awk '/^VmRSS/ {print $2}' /proc/"$busy"/status) / 1024)) \
    "$(figure '.processes[0].resident_mib')"

total=$(awk '/^MemTotal/ {print int($2 / 1024)}' /proc/meminfo)
check "memory" "$total" "$(figure .memory.total_mib)"
# What others take and give back in between.
used=$(awk '/^(MemTotal|Shmem):/ {kb += $2} /^(MemFree|Buffers|Cached):/ {kb -= $2}
    END {print int(kb / 1024)}' /proc/meminfo)
check_between "memory in use" $((used - total / 10 - 200)) $((used + total / 10 + 200)) \
    "$(figure .memory.used_mib)"

read -r size used < <(df -B1M --output=size,used / | tail -n 1)
check_between "size of /" $((size - 1)) "$size" "$(figure '.directories[0].total_mib')"
check_between "used space of /" $((used - 2048)) $((used + 2048)) \
    "$(figure '.directories[0].used_mib')"
finish
