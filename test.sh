#!/usr/bin/env bash
# Builds everything with all checks and runs every test under Wine; beside that it builds and tests the
# portable core natively, under the sanitizers. Ends with ctest's summary and its exit code.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"
# shellcheck source=tools/setup.sh
source tools/setup.sh

# A prefix can have only one server, and the tests that need it mostly wait, so some of them run in a
# second prefix.
prefixes=("$WINEPREFIX" "$project/build/wine-2")

in_each_prefix() {
  local prefix
  for prefix in "${prefixes[@]}"; do
    TARNWHEEL_PREFIX=$prefix WINEPREFIX=$prefix "$@"
  done
}

clean_up() {
  stop_loopback
  wait # for prefixes that are being created
  in_each_prefix stop_wine
}

claim_prefix
trap clean_up EXIT
in_each_prefix stop_wine
in_each_prefix start_wine &
wine=$!
build checked system_tests
wait "$wine"
in_each_prefix make_loopback 5
in_each_prefix make_loopback 9
ctest --preset checked </dev/null
