#!/usr/bin/env bash
# administration_commands.sh DOCUMENT PROGRAMS: runs every command of the document's cmd blocks as it
# stands there, one after another, in the folder PROGRAMS. Each must end with 0.
set -euo pipefail
wine=$(cd "$(dirname "${BASH_SOURCE[0]}")/../../tools" && pwd)/wine
document=$(realpath "$1")
cd "$2"
batch=$(mktemp --suffix .bat "$PWD/command.XXXXXX")

# Also of what an attempt that was cut off has left.
clean_up() {
  rm -f "$batch"
  "$wine" tarnwheel-server.exe --uninstall-service
  "$wine" reg delete 'HKLM\Software\Quorvane\Tarnwheel Server 1.02' /f
  "$wine" cmd /c rd 'C:\ProgramData\Tarnwheel'
} >/dev/null 2>&1 </dev/null
clean_up || true
trap 'clean_up || true' EXIT

count=0
while IFS= read -r command; do
  # A batch file reads a doubled percent sign as one.
  printf '@%s\r\n' "${command//%/%%}" >"$batch"
  echo "> $command"
  "$wine" cmd /c "$(basename "$batch")" </dev/null || { echo "failed with $?"; exit 1; }
  count=$((count + 1))
done < <(sed -n '/^```cmd$/,/^```$/{/^```/!p}' "$document")
((count > 0)) || { echo "no commands in $document"; exit 1; }
