#!/usr/bin/env bash
# The shipped configuration and rules, as promtool sees them.
# shellcheck source=tests/program/common.sh
. "$(dirname "$0")/common.sh"
need promtool
cd "$(dirname "$0")/../../contrib/prometheus" || exit 1

for arguments in "check config --lint=all --lint-fatal scrape.yml" "test rules rules_test.yml" \
    "check rules --lint=all --lint-fatal recording_rules.yml alerting_rules.yml"; do
    # shellcheck disable=SC2086  # several words
    promtool $arguments >"$folder/out" 2>&1 || fail "promtool $arguments" success "$(cat "$folder/out")"
done
# A rule on a name that the program does not have would be silent for ever.
while read -r name; do
    grep -q "\"$name\"" ../../src/host/metrics.cpp ||
        grep -q "record: .*:$name" recording_rules.yml ||
        fail "$name" "a metric of the program" "none of this name"
done < <(grep -ho '\bcorvane_[a-z_]*' recording_rules.yml alerting_rules.yml | sort -u)
# Every alert is seen firing.
while read -r alert; do
    grep -A 2 "alertname: $alert$" rules_test.yml | grep -q exp_alerts:$ ||
        fail "$alert" "a test that sees it" "none"
done < <(sed -n 's/.*alert: //p' alerting_rules.yml)
finish
