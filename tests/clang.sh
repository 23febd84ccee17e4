#!/usr/bin/env bash
# Builds both programs with the second compiler, whose warnings are errors as well, and each header that
# no source shows to compile alone.
set -euo pipefail
# shellcheck source=../tools/setup.sh
source "$(dirname "${BASH_SOURCE[0]}")/../tools/setup.sh"
build clang tarnwheel-server tarnwheel-client all_verify_interface_header_sets
