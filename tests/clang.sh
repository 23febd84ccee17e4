#!/usr/bin/env bash
# Builds both programs with the second compiler, whose warnings are errors as well, and compiles alone
# each header that no source of the same name includes first.
set -euo pipefail
# shellcheck source=../tools/setup.sh
source "$(dirname "${BASH_SOURCE[0]}")/../tools/setup.sh"
build clang tarnwheel-server tarnwheel-client all_verify_interface_header_sets
