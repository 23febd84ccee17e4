#!/usr/bin/env bash
# tests/native/fuzz.sh [SECONDS]: runs the fuzzer for SECONDS (60 by default) and prints its statistics.
# New inputs stay in build/native-asan/corpus for the next run; an input that fails is written to
# build/native-asan/tests.
set -euo pipefail
# shellcheck source=tools/setup.sh
source "$(dirname "${BASH_SOURCE[0]}")/../../tools/setup.sh"

build native-asan message_fuzz
export ASAN_OPTIONS=external_symbolizer_path=/usr/bin/addr2line UBSAN_OPTIONS=print_stacktrace=1
cd build/native-asan
mkdir -p corpus
tests/message_fuzz -max_total_time="${1:-60}" -max_len=1000 -print_final_stats=1 -verbosity=0 \
  -artifact_prefix=tests/message_fuzz_ corpus "$project/tests/native/corpus"
