#!/usr/bin/env bash
# pack_checklist.sh [BUILD]: puts the files for docs/windows-checklist.md into BUILD/windows, to be
# copied to a Windows machine. BUILD must be complete; without it, the release build is made first.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
if (($# == 0)); then
  # shellcheck source=setup.sh
  source tools/setup.sh
  build release all
  set -- build/release
fi

folder=$1/windows
rm -rf "$folder"
mkdir -p "$folder/bin" "$folder/tests"
cp "$1"/bin/tarnwheel-{server,client,line-check}.exe "$folder/bin"
find "$1/tests" -maxdepth 1 -name '*_test.exe' -exec cp -t "$folder/tests" {} +
for text in tools/{windows-checklist.cmd,conversation.ps1} docs/{windows-checklist,administration,protocol}.md; do
  sed 's/$/\r/' "$text" >"$folder/$(basename "$text")"
done
echo "$folder"
