#!/usr/bin/env bash
# Builds everything with all checks and runs every test under Wine; beside that it builds and tests the
# portable core natively, under the sanitizers. Ends with ctest's summary and its exit code.
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
build checked system_tests
start_wine
make_loopback 5
make_loopback 9
ctest --preset checked </dev/null
