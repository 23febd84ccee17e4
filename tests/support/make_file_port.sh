#!/usr/bin/env bash
# make_file_port.sh N: gives the project's Wine prefix a port COMN whose device is a regular file.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
prefix=${TARNWHEEL_PREFIX:-$here/../../build/wine}
device=$(cd "$prefix" && pwd)/file-com$1
head -c 1M /dev/zero >"$device"
ln -sfn "$device" "$prefix/dosdevices/com$1"
