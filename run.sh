#!/usr/bin/env bash
# Builds both programs, starts the server under Wine with a serial port COM5 that echoes every byte, lets
# the client list the ports and send a line through COM5, and serves until Ctrl+C. With --once it ends
# after the conversation; with --bridge the client offers COM5 over TCP meanwhile. Exit code 0: the line
# came back unchanged, and all programs stopped properly.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"

if (($# > 1)) || [[ ! ${1---once} =~ ^--(once|bridge)$ ]]; then
  echo "Usage: ./run.sh [--once | --bridge]" >&2
  exit 2
fi
mode=${1-}

# shellcheck source=tools/setup.sh
source tools/setup.sh

port=COM5
name="Loopback port ($port)"
programs=build/release/bin
start_limit=60 # seconds, for steps that are immediate on an idle machine
stop_limit=10

fail() {
  echo "run.sh: $*" >&2
  exit 1
}

# Servers list the port while its device exists: until $device_end is closed.
start_device() {
  coproc device { exec setsid tools/wine build/release/tests/tarnwheel-test-port.exe "$port" "$name"; }
  device_pid=${device_PID-} device_end=${device[1]}
  local answer=
  read -r -t "$start_limit" answer <&"${device[0]}" || true
  [[ $answer == ready* ]] || fail "the device of $port cannot be made"
}

stop_device() {
  [[ -n ${device_pid-} ]] || return 0
  exec {device_end}>&-
  wait_at_most "$device_pid" "$stop_limit"
}

# start NAME PROGRAM [ARG...]: runs the program in the background as process $started, its output marked
# with NAME. Ctrl+C goes to this script, which passes it on once: setsid keeps the terminal's own signal
# from the program.
start() {
  local log
  exec {log}> >(trap '' INT && exec sed -u "s/\r\$//; s/^/$1 | /" 9>&-)
  log_pids+=($!)
  setsid tools/wine "$programs/$2" "${@:3}" </dev/null >&"$log" 2>&1 &
  started=$!
  exec {log}>&-
}

runs() {
  [[ -n ${1-} ]] && kill -0 "$1" 2>/dev/null
}

# wait_at_most PID SECONDS: waits until the process has ended, for at most that time.
wait_at_most() {
  local deadline=$((SECONDS + $2))
  while runs "$1" && ((SECONDS < deadline)); do
    sleep 0.1
  done
}

# Returns the process's exit code. A signal that this script handles ends one wait, but not the loop.
wait_for() {
  while runs "$1"; do
    wait "$1" || true
  done
  wait "$1"
}

interrupt() {
  ! runs "${1-}" || kill -INT "$1"
}

client() {
  tools/wine "$programs/tarnwheel-client.exe" "$@" </dev/null 2>&1 | tr -d '\r'
}

# The server is ready when a client sees the port.
wait_until_ready() {
  local deadline=$((SECONDS + start_limit)) answer
  until answer=$(client list .) && grep -q "^$port"$'\t' <<<"$answer"; do
    runs "$server" || fail "the server ended early"
    ((SECONDS < deadline)) || fail "the server is not ready: $answer"
    sleep 0.1
  done
}

# ask ARG...: runs the client, shows the command and its output, and leaves the output in $answer.
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

# Offers the port until Ctrl+C.
run_bridge() {
  start bridge tarnwheel-client.exe bridge . "$port" --listen 0
  bridge=$started
  trap 'interrupt "$bridge"' INT TERM
  echo "$port is offered over TCP until Ctrl+C, at the address that the bridge prints. For example:"
  echo "  python3 -m serial.tools.miniterm rfc2217://ADDRESS"
  wait_for "$bridge"
}

clean_up() {
  trap '' INT TERM
  interrupt "${bridge-}"
  interrupt "${server-}"
  wait_at_most "${server-}" "$stop_limit"
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
start server tarnwheel-server.exe
server=$started
wait_until_ready
converse
case $mode in
  --once) interrupt "$server" ;;
  --bridge)
    run_bridge
    interrupt "$server"
    ;;
  *)
    trap 'interrupt "$server"' INT TERM
    echo "Serving $port until Ctrl+C. From another terminal: tools/wine $programs/tarnwheel-client.exe list ."
    ;;
esac
wait_for "$server"
for pid in "${log_pids[@]}"; do
  wait_at_most "$pid" "$stop_limit"
done
