#!/usr/bin/env bash
# What the program costs at one cycle a second: processor time, memory, descriptors.
# shellcheck source=tests/program/common.sh
. "$(dirname "$0")/common.sh"
readonly CYCLES=20
readonly MOST_RESIDENT_KIB=$((20 * 1024))

# Hundredths of a second that a process has used.
used_time() { awk -v hz="$(getconf CLK_TCK)" '{sub(/.*\) /, ""); print ($12 + $13) * 100 / hz}' /proc/"$1"/stat; }
resident() { awk '/^VmRSS/ {print $2}' /proc/"$1"/status; }
descriptors() { find /proc/"$1"/fd -mindepth 1 | wc -l; }

start table --dir / 1
programs=("$pid")
start_listening --dir / 1
programs+=("$pid")
names=("table" "--listen")
sleep 3
declare -A resident_before descriptors_before
for pid in "${programs[@]}"; do
    resident_before[$pid]=$(resident "$pid")
    descriptors_before[$pid]=$(descriptors "$pid")
done
for ((second = 3; second < CYCLES; ++second)); do
    if command -v curl >/dev/null && ((second % 5 == 0)); then
        curl -sf -m 5 -o "$folder/metrics" "http://127.0.0.1:$port/metrics"
    fi
    sleep 1
done
for i in 0 1; do
    pid=${programs[i]}
    used=$(used_time "$pid")
    now=$(resident "$pid")
    echo "${names[i]}: $used hundredths of a second in $CYCLES s, $now KiB resident"
    # Half a percent of a core, start included.
    check_between "${names[i]}: hundredths of a second" 0 $((CYCLES / 2)) "$used"
    check_between "${names[i]}: KiB resident" 1 $MOST_RESIDENT_KIB "$now"
    check_between "${names[i]}: growth in KiB" -100000 256 $((now - resident_before[$pid]))
    check "${names[i]}: descriptors" "${descriptors_before[$pid]}" "$(descriptors "$pid")"
done
finish
