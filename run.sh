#!/usr/bin/env bash
# Builds both programs, starts the server under Wine with a serial port COM5 that answers every
# byte with itself, has the client list the ports and send a line through COM5, and serves until
# Ctrl+C. With --once it ends after the conversation. Exit code 0: the line came back exactly, and
# the server stopped as it should.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"

if (($# > 1)) || [[ ${1---once} != --once ]]; then
  echo "Usage: ./run.sh [--once]" >&2
  exit 2
fi
once=${1-}

# shellcheck source=tools/setup.sh
source tools/setup.sh

port=COM5
name="Loopback port ($port)"
programs=build/release/bin
start_limit=60 # seconds, for what happens at once on an idle machine
stop_limit=10

fail() {
  echo "run.sh: $*" >&2
  exit 1
}

# The device that makes servers list the port stays until $device_end is closed.
start_device() {
  coproc device { exec setsid tools/wine build/release/tools/tarnwheel-test-port.exe "$port" "$name"; }
  device_pid=${device_PID-} device_end=${device[1]}
  local answer=
  read -r -t "$start_limit" answer <&"${device[0]}" || true
  [[ $answer == ready* ]] || fail "the device of $port cannot be made"
}

stop_device() {
  [[ -n ${device_pid-} ]] || return 0
  exec {device_end}>&-
  wait "$device_pid" || true
}

# What the server prints comes out marked. Ctrl+C is for this script, which passes it on once:
# setsid keeps the terminal's own signal from the server.
start_server() {
  exec {log}> >(trap '' INT && exec sed -u 's/\r$//; s/^/server | /' 9>&-)
  log_pid=$!
  setsid tools/wine "$programs/tarnwheel-server.exe" </dev/null >&"$log" 2>&1 &
  server=$!
  exec {log}>&-
}

server_runs() {
  [[ -n ${server-} ]] && kill -0 "$server" 2>/dev/null
}

# Gives the server's exit code. A signal that this script handles ends one wait, but not the loop.
wait_for_server() {
  while server_runs; do
    wait "$server" || true
  done
  wait "$log_pid" || true
  wait "$server"
}

client() {
  tools/wine "$programs/tarnwheel-client.exe" "$@" </dev/null 2>&1 | tr -d '\r'
}

# The server is ready when a client sees the port.
wait_until_ready() {
  local deadline=$((SECONDS + start_limit)) answer
  until answer=$(client list .) && grep -q "^$port"$'\t' <<<"$answer"; do
    server_runs || fail "the server ended early"
    ((SECONDS < deadline)) || fail "the server is not ready: $answer"
    sleep 0.1
  done
}

# ask ARG...: has the client do something and shows both; the answer is in $answer.
ask() {
  local words=("$@") code=0
  [[ ${words[-1]} != *' '* ]] || words[-1]="\"${words[-1]}\""
  echo "> tarnwheel-client ${words[*]}"
  answer=$(client "$@") || code=$?
  echo "$answer"
  ((code == 0)) || fail "the client failed"
}

converse() {
  local line="A line through $port, there and back again"
  ask list .
  ask send . "$port" "$line"
  [[ $answer == "$line" ]] || fail "what came back is not what was sent"
}

stop_server() {
  ! server_runs || kill -INT "$server"
}

clean_up() {
  trap '' INT TERM
  local deadline=$((SECONDS + stop_limit))
  stop_server
  while server_runs && ((SECONDS < deadline)); do
    sleep 0.1
  done
  stop_device
  stop_loopback
  stop_wine
}

claim_prefix
trap clean_up EXIT
build release tarnwheel-server tarnwheel-client tarnwheel-test-port
start_wine
make_loopback "${port#COM}"
start_device
start_server
wait_until_ready
converse
if [[ $once ]]; then
  stop_server
else
  trap stop_server INT TERM
  echo "Serving $port until Ctrl+C. From another terminal: tools/wine $programs/tarnwheel-client.exe list ."
fi
wait_for_server
