#!/usr/bin/env bash
# bench/run.sh: runs format-bench, log-bench and server-bench, optimised, under Wine. The machine should
# be idle otherwise.
# bench/run.sh NAME [ARG ...]: runs one of format-bench, log-bench, server-bench, flood [SECONDS] and
# soak SECONDS.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
# shellcheck source=tools/setup.sh
source tools/setup.sh

clean_up() {
  stop_loopback
  stop_wine
}

run() {
  tools/wine "build/release/bin/$1.exe" "${@:2}" </dev/null | sed -u 's/\r$//'
}

claim_prefix
trap clean_up EXIT
build release benchmarks
start_wine
make_loopback 5
make_loopback 9
tests/support/make_file_port.sh 6
if (($#)); then
  run "$@"
else
  run format-bench
  run log-bench
  run server-bench
fi
