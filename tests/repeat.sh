#!/usr/bin/env bash
# repeat.sh [TIMES]: runs all tests TIMES times (20 by default) while two processes keep two processors
# busy, and prints a line for each run. Exit code: the number of runs that failed. The output of each run
# is in build/repeat.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
rm -rf build/repeat
mkdir -p build/repeat
busy=()
trap 'kill "${busy[@]}"' EXIT
for _ in 1 2; do
  while :; do :; done &
  busy+=($!)
done
failed=0
for ((run = 1; run <= ${1-20}; ++run)); do
  start=$SECONDS result=passed
  ./test.sh >"build/repeat/$run.log" 2>&1 </dev/null || { result=FAILED && failed=$((failed + 1)); }
  echo "run $run $result in $((SECONDS - start)) s"
done
exit "$failed"
