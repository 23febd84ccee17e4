#!/usr/bin/env bash
# terminal.sh PROGRAMS VIRTUAL_PORT: works with the client's terminal as a user does, by keys in a real terminal
# (tmux) of 80 by 24, and looks at its screen, at the file of --log, and at the shell that is there
# again afterwards.
#
# A console of Windows gives Ctrl+C to the terminal as a key. Wine makes an event of it, for a shell
# as well, after dropping what was struck just before, and keeps keys for the terminal that were
# struck before it began: so nothing is struck at once before Ctrl+C, nor before the terminal has
# greeted. Wine puts the terminal of a Unix shell in order by itself, but leaves a console's modes to
# its programs, as Windows does: so the shell is that of Windows.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."
port=COM${TARNWHEEL_LOOPBACK:-5}
export LC_ALL=C.UTF-8
unset TMUX
work=$(mktemp -d)
export TMUX_TMPDIR=$work
server=

in_tmux() {
  tmux -u -L terminal -f /dev/null "$@" 9>&-
}
screen() { in_tmux capture-pane -p; }
keys() { in_tmux send-keys "$@"; }
# The text is struck as it is.
strike() { in_tmux send-keys -l -- "$1"; }
press() {
  keys C-]
  strike "$1"
}

clean_up() {
  in_tmux kill-server || true
  [[ -z $server ]] || kill -INT "$server" || true
  wait || true
  rm -r "$work"
}

# eventually WHAT COMMAND...
eventually() {
  local deadline=$((SECONDS + 30))
  until "${@:2}"; do
    ((SECONDS < deadline)) || {
      printf '%s\n' "terminal.sh: $1" "The screen:" >&2
      screen >&2
      exit 1
    }
    sleep 0.05
  done
}

# The screen comes to have the text, or a line that is exactly the text.
has() { screen | grep -qF -e "$1"; }
lacks() { ! has "$1"; }
has_line() { screen | grep -qxF -e "$1"; }
shows() { eventually "does not show: $1" has "$1"; }
shows_line() { eventually "has no line: $1" has_line "$1"; }
logged() { cmp -s "$work/expected" "$work/log"; }

greets_again() { (($(screen | grep -cF "[$port of this machine") == 2)); }
greets() { shows "[$port of this machine; Ctrl+] q leaves, Ctrl+] ? shows the keys]"; }

# What is typed in the shell is to be seen, and runs.
ends_with() {
  shows_line '>'
  strike 'echo code %errorlevel%'
  shows_line '>echo code %errorlevel%'
  keys Enter
  shows_line "code $1"
}

trap clean_up EXIT
windows_log=$(tools/wine winepath -w "$work/log" </dev/null | tr -d '\r')
serve() {
  setsid tools/wine "$programs/tarnwheel-server.exe" --no-discovery </dev/null >"$work/server.out" 2>&1 &
  server=$!
  eventually "the server does not start" grep -q 'waiting for connections' "$work/server.out"
}

programs=$1
serve
in_tmux new-session -d -x 80 -y 24 "cd $1; wine=$PWD/tools/wine
  \$wine tarnwheel-client.exe term . $port --hex --log '$windows_log'
  echo code \$?
  \$wine cmd /k prompt '\$G'"

# Every key and a paste arrive as they were, and are seen.
seq -w 1 2000 | tr '\n' ' ' >"$work/paste"
greets
keys C-c
shows '00000000  03 '
keys Up F1 C-] C-] M-x
shows_line "00000000  03 1b 5b 41 1b 4f 50 1d  1b 78                    |..[A.OP..x|"
in_tmux load-buffer "$work/paste"
in_tmux paste-buffer
printf '\3\33[A\33OP\35\33x' | cat - "$work/paste" >"$work/expected"
eventually "the log is not what was struck" logged
press q
shows_line 'code 0'

# Commands reach the line, and the console is left as it was. While the server is away keys are
# discarded.
port=$2
for end in q server; do
  shows_line '>'
  strike "cls & tarnwheel-client term . $port --echo --retry"
  keys Enter
  eventually "the screen is not cleared" lacks 'code'
  greets
  strike 'Grüße, 漢 and more'
  shows_line 'Grüße, 漢 and more'
  [[ $end == q ]] || break
  press d
  shows_line '[DTR off]'
  press s
  shows "[$port: DTR off, RTS on; CTS off, DSR off, RI off, DCD off; no errors]"
  press b
  shows_line '[break sent]'
  press q
  ends_with 0
done
kill -INT "$server"
wait "$server"
shows ', Ctrl+] q leaves'
strike 'discarded'
serve
eventually "does not greet again" greets_again
strike 'kept'
shows_line 'kept'
press q
ends_with 0
