#!/usr/bin/env bash
# Builds everything with all checks and runs every test: first the portable core's under the
# sanitizers, natively, then all of them under Wine. Ends with ctest's summary and its exit code.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"
# shellcheck source=tools/setup.sh
source tools/setup.sh

clean_up() {
  stop_loopback
  stop_wine
}

claim_prefix
trap clean_up EXIT
build native-asan all
build native-tsan async_test rpc_test
build checked all all_verify_interface_header_sets
native=0
ctest --preset native-asan </dev/null || native=$?
ctest --preset native-tsan </dev/null || native=$?
start_wine
make_loopback 5
make_loopback 9
ctest --preset checked </dev/null
if ((native)); then
  echo "The native tests failed, see above." >&2
  exit "$native"
fi
