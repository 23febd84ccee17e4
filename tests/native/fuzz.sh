#!/usr/bin/env bash
# tests/native/fuzz.sh [SECONDS] [NAME...]: runs the fuzzers one after another, each for so long (60),
# and prints their figures. What they learn stays in build/native-asan/corpus for the next time; an
# input that fails is written to build/native-asan/tests and ends the script.
set -euo pipefail
# shellcheck source=tools/setup.sh
source "$(dirname "${BASH_SOURCE[0]}")/../../tools/setup.sh"

names=("${@:2}")
((${#names[@]})) || names=(command_line_fuzz datagram_fuzz format_fuzz message_fuzz telnet_fuzz)
build native-asan "${names[@]}"
export ASAN_OPTIONS=external_symbolizer_path=/usr/bin/addr2line UBSAN_OPTIONS=print_stacktrace=1
cd build/native-asan
for name in "${names[@]}"; do
  mkdir -p "corpus/$name"
  echo "$name"
  "tests/$name" -max_total_time="${1:-60}" -max_len=1000 -print_final_stats=1 -verbosity=0 \
    -artifact_prefix="tests/${name}_" "corpus/$name" "$project/tests/native/fuzz/corpus/$name"
done
