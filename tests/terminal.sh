#!/usr/bin/env bash
# terminal.sh PROGRAMS VIRTUAL_PORT: works with the client's terminal as a user does, by keys in a
# real terminal (tmux) of 80 by 24, and looks at its screen, at the file of --log, and at the shell
# that is there again afterwards.
#
# A console of Windows gives Ctrl+C to the terminal as a key. Wine makes an event of it, after
# dropping what was struck just before, and keeps keys for the terminal that were struck before it
# began: so nothing is struck at once before Ctrl+C, nor before the terminal has greeted.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
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

start_server() {
  setsid tools/wine "$programs/tarnwheel-server.exe" --no-discovery </dev/null >"$work/server.out" 2>&1 &
  server=$!
  eventually "the server does not start: $(cat "$work/server.out")" serves
}

stop_server() {
  kill -INT "$server"
  wait "$server" || fail "the server ended with $?"
  server=
}

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

logged() { [[ $(xxd -p "$work/log" | tr -d '\n') == "$1" ]]; }
logs() { eventually "the log is not $1 but $(xxd -p "$work/log")" logged "$1"; }

what_is_typed_comes_back_and_is_seen() {
  term "$loopback" --log "$windows_log"
  greets "$loopback"
  strike 'Grüße, 漢 and more'
  shows_line 'Grüße, 漢 and more'
  press '?'
  shows '  q       leaves'
  shows '  ?       shows these keys]'
  keys Enter
  strike 'the next line'
  shows_line 'the next line'
  press q
  ends_with 0
  logs "$(printf 'Grüße, 漢 and more\rthe next line' | xxd -p | tr -d '\n')"
  rm "$work/log"
}

keys_are_seen_in_hexadecimal() {
  term "$loopback" --hex --log "$windows_log"
  greets "$loopback"
  keys C-c
  shows '00000000  03 '
  keys Up F1 C-] C-] M-x
  shows_line "00000000  03 1b 5b 41 1b 4f 50 1d  1b 78                    |..[A.OP..x|"
  strike '0123456789'
  shows_line "00000000  03 1b 5b 41 1b 4f 50 1d  1b 78 30 31 32 33 34 35  |..[A.OP..x012345|"
  shows_line "00000010  36 37 38 39                                       |6789|"
  press q
  ends_with 0
  logs 031b5b411b4f501d1b7830313233343536373839
  rm "$work/log"
}

a_paste_arrives_whole() {
  seq -w 1 2000 | tr '\n' ' ' >"$work/paste"
  term "$loopback" --log "$windows_log"
  greets "$loopback"
  in_tmux load-buffer "$work/paste"
  in_tmux paste-buffer
  eventually "the paste does not come back" cmp -s "$work/paste" "$work/log"
  press q
  ends_with 0
  rm "$work/log"
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
  press s
  shows "[$virtual: DTR on, RTS on; CTS off, DSR off, RI off, DCD off; no errors]"
  press d
  shows_line '[DTR off]'
  press r
  shows_line '[RTS off]'
  press s
  shows "[$virtual: DTR off, RTS off; CTS off"
  press d
  shows_line '[DTR on]'
  press b
  shows_line '[break sent]'
  press q
  ends_with 0
}

a_device_that_does_not_know_them_is_told_of() {
  term "$loopback"
  greets "$loopback"
  press d
  shows "[DTR is unchanged; $loopback: no answer within 2000 ms (0x800705b4)]"
  press d
  shows "[DTR is unchanged; $loopback: the device does not answer this request (0x80070032)]"
  press s
  shows "the device does not report CTS, DSR, RI and DCD;"
  press q
  ends_with 0
}

a_server_that_goes_is_told_of() {
  term "$loopback" --retry
  greets "$loopback"
  strike 'before'
  shows_line 'before'
  stop_server
  shows "$loopback: the server on this machine ended the connection (0x800704c7); trying again"
  start_server
  shows_line "$loopback is back"
  strike 'after'
  shows_line 'after'
  press q
  ends_with 0
  term "$loopback"
  greets "$loopback"
  strike 'a line that is not'
  shows_line 'a line that is not'
  stop_server
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
start_server
what_is_typed_comes_back_and_is_seen
keys_are_seen_in_hexadecimal
a_paste_arrives_whole
the_console_is_left_as_it_was
commands_reach_the_line
a_device_that_does_not_know_them_is_told_of
a_server_that_goes_is_told_of
