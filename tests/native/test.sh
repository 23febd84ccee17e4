#!/usr/bin/env bash
# tests/native/test.sh PRESET: builds and runs what native-asan or native-tsan has.
set -euo pipefail
# shellcheck source=tools/setup.sh
source "$(dirname "${BASH_SOURCE[0]}")/../../tools/setup.sh"

build "$1" all
ctest --preset "$1"
