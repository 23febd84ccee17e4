#!/usr/bin/env bash
# terminal.sh PROGRAMS VIRTUAL_PORT: works with the client's terminal as a user does, by keys in a
# real terminal (tmux) of 80 by 24, and looks at its screen, at the file of --log, and at the shell
# that is there again afterwards.
#
# A console of Windows gives Ctrl+C to the terminal as a key. Wine makes an event of it, after
# dropping what was struck just before, and keeps keys for the terminal that were struck before it
# began: so nothing is struck at once before Ctrl+C, nor before the terminal has greeted.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."
programs=$1
loopback=COM${TARNWHEEL_LOOPBACK:-5}
virtual=COM$2
patience=20 # seconds

export LC_ALL=C.UTF-8
unset TMUX
work=$(mktemp -d)
export TMUX_TMPDIR=$work
server=

in_tmux() {
  tmux -u -L terminal -f /dev/null "$@" 9>&-
}

screen() {
  in_tmux capture-pane -p
}

fail() {
  printf '%s\n' "terminal.sh: $*" "The screen:" >&2
  screen >&2
  exit 1
}

clean_up() {
  in_tmux kill-server || true
  [[ -z $server ]] || kill -INT "$server" || true
  wait || true
  rm -r "$work"
}

# eventually WHAT COMMAND...
eventually() {
  local what=$1 deadline=$((SECONDS + patience))
  shift
  until "$@"; do
    ((SECONDS < deadline)) || fail "$what"
    sleep 0.05
  done
}

# The screen comes to have the text, or a line that is exactly the text.
has() { screen | grep -qF -e "$1"; }
has_line() { screen | grep -qxF -e "$1"; }
shows() { eventually "does not show: $1" has "$1"; }
shows_line() { eventually "has no line: $1" has_line "$1"; }

keys() {
  in_tmux send-keys "$@"
}

# The text is struck as it is.
strike() {
  in_tmux send-keys -l -- "$1"
}

press() {
  keys C-]
  strike "$1"
}

serves() { grep -q 'waiting for connections' "$work/server.out"; }

# term ARG...: runs the terminal from the shell on an empty screen.
term() {
  keys C-l
  strike "clear; tools/wine $programs/tarnwheel-client.exe term . $*; code=\$?; in_order; echo code \$code"
  keys Enter
}

greets() { shows "[$1 of this machine; Ctrl+] q leaves, Ctrl+] ? shows the keys]"; }

# What is typed in the shell is to be seen, and runs.
ends_with() {
  shows_line "code $1"
  strike 'expr 6 \* 7'
  shows_line '$ expr 6 \* 7'
  keys Enter
  shows_line 42
}

# Every key and a paste arrive as they were, and are seen.
what_is_typed_reaches_the_line_whole() {
  seq -w 1 2000 | tr '\n' ' ' >"$work/paste"
  term "$loopback" --hex --log "$windows_log"
  greets "$loopback"
  keys C-c
  shows '00000000  03 '
  keys Up F1 C-] C-] M-x
  shows_line "00000000  03 1b 5b 41 1b 4f 50 1d  1b 78                    |..[A.OP..x|"
  in_tmux load-buffer "$work/paste"
  in_tmux paste-buffer
  printf '\3\33[A\33OP\35\33x' | cat - "$work/paste" >"$work/expected"
  eventually "the log is not what was struck" cmp -s "$work/expected" "$work/log"
  press q
  ends_with 0
}

# Wine puts the terminal of a Unix shell in order by itself, a moment after its program has ended, but
# leaves a console's modes to its programs, as Windows does.
the_console_is_left_as_it_was() {
  keys C-l
  strike "clear; cd $programs; $PWD/tools/wine cmd /k prompt '\$G'; in_order; cd -; clear"
  keys Enter
  shows_line '>'
  strike "tarnwheel-client term . $loopback"
  keys Enter
  greets "$loopback"
  press q
  shows_line '>'
  strike 'echo code %errorlevel%'
  shows_line '>echo code %errorlevel%'
  keys Enter
  shows_line 'code 0'
  strike 'exit'
  keys Enter
  eventually "cmd does not end" has_line '$'
}

commands_reach_the_line() {
  term "$virtual" --echo
  greets "$virtual"
  strike 'no echo'
  shows_line 'no echo'
  press d
  shows_line '[DTR off]'
  press s
  shows "[$virtual: DTR off, RTS on; CTS off, DSR off, RI off, DCD off; no errors]"
  press b
  shows_line '[break sent]'
  press q
  ends_with 0
}

a_server_that_goes_is_told_of() {
  term "$loopback"
  greets "$loopback"
  strike 'Grüße, 漢 and more'
  shows_line 'Grüße, 漢 and more'
  kill -INT "$server"
  wait "$server" || fail "the server ended with $?"
  server=
  shows_line "$loopback: the server on this machine ended the connection (0x800704c7)"
  ends_with 2
}

trap clean_up EXIT
windows_log=$(tools/wine winepath -w "$work/log" </dev/null | tr -d '\r')
windows_log="'$windows_log'"
cat >"$work/shell" <<'END'
PS1='$ '
in_order() { until stty -a | grep -q ' echo '; do sleep 0.1; done; }
END
in_tmux new-session -d -x 80 -y 24 "exec bash --rcfile $work/shell"
setsid tools/wine "$programs/tarnwheel-server.exe" --no-discovery </dev/null >"$work/server.out" 2>&1 &
server=$!
eventually "the server does not start" serves
what_is_typed_reaches_the_line_whole
the_console_is_left_as_it_was
commands_reach_the_line
a_server_that_goes_is_told_of
