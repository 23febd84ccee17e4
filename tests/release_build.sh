#!/usr/bin/env bash
# tests/release_build.sh: the optimised programs and benchmarks compile, without a warning.
set -euo pipefail
# shellcheck source=tools/setup.sh
source "$(dirname "${BASH_SOURCE[0]}")/../tools/setup.sh"

build release tarnwheel-server tarnwheel-client tarnwheel-test-port benchmarks
