#!/usr/bin/env bash
# --watch in a terminal: what it draws, a change of size, every way out.
# shellcheck source=tests/program/common.sh disable=SC2317  # wait_until calls functions
. "$(dirname "$0")/common.sh"
need tmux

socket=$folder/tmux
terminal() { TMUX='' tmux -u -S "$socket" -f /dev/null "$@"; }
trap 'terminal kill-server 2>/dev/null; cleanup' EXIT
terminal new-session -d -x 100 -y 30 "PS1='ready> ' TERM=screen bash --norc --noprofile"
screen() { terminal capture-pane -p; }
type_line() { terminal send-keys "$1" Enter; }
shows() { [[ $(screen) =~ $1 ]]; }
check_shows() {
    wait_until 10 shows "$2" || fail "$1" "$2 on the screen" "$(screen)"
}
start_view() {
    type_line "clear; '$program' --watch --dir / $1; echo status=\$?"
    check_shows "$1: titles" 'CPU: [0-9]+ of [0-9]+ %.*Memory: [0-9]+ of [0-9]+ MiB'
    check_shows "$1: title of the disk" 'Disk of /:'
}
# The shell's line is echoed, and not on the screen of the view.
check_restored() {
    check_shows "after $1: status" "status=$2"
    # shellcheck disable=SC2016  # for the shell in the terminal
    type_line 'echo typed-$((20 + 3))'
    check_shows "after $1: what is typed shows" 'ready> echo typed-\$\(\(20 \+ 3\)\)'
    check_shows "after $1: the shell answers" $'\ntyped-23\n'
    if shows 'q quits'; then
        fail "after $1" "the shell's screen" "$(screen)"
    fi
}
view_pid() { pgrep -P "$(terminal display-message -p '#{pane_pid}')"; }

check_shows shell 'ready>'
(while :; do :; done) &
children+=($!)
start_view "--pid $!"
check_shows "a graph" '[▁▂▃▄▅▆▇█]'
check_shows "process" " $! bash +CPU [0-9-]+ %"
check_shows "title line" '^corvane-monitor .* q quits'
terminal resize-window -x 60 -y 20
wait_until 5 shows 'corvane-monitor' || fail "redrawn" "the view" "$(screen)"
check_shows "redrawn after a change of size" 'CPU: [0-9]+ of'
check "lines of the smaller screen" "" "$(screen | grep -E '.{61}')"
for size in "20 5" "1 1" "200 60"; do
    read -r columns rows <<<"$size"
    terminal resize-window -x "$columns" -y "$rows"
    sleep 0.2
done
check_shows "redrawn from tiny to large" 'CPU: [0-9]+ of'
terminal send-keys q
check_restored q 0

start_view ""
kill -TERM "$(view_pid)"
check_restored SIGTERM 0
start_view ""
terminal send-keys C-c
check_restored SIGINT 0

# The terminal goes away. (A leak check at the end may hang when the loss interrupts it.)
type_line 'export ASAN_OPTIONS=detect_leaks=0'
start_view ""
pid=$(view_pid)
children+=("$pid")
terminal kill-server
wait_until 5 has_ended || fail "the terminal went away" ended running
finish
