#!/usr/bin/env bash
# tests/native/test.sh PRESET: builds and runs the tests of the preset native-asan or native-tsan.
set -euo pipefail
# shellcheck source=tools/setup.sh
source "$(dirname "${BASH_SOURCE[0]}")/../../tools/setup.sh"

targets=(all)
[[ $1 != native-tsan ]] || targets=(async_test rpc_test)
build "$1" "${targets[@]}"
ctest --preset "$1"
