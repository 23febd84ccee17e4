#!/usr/bin/env bash
# load_virtual_serial.sh DRIVER: loads DRIVER, the file of the virtual serial ports' driver, into the
# project's Wine prefix, where it stays until Wine's services end.
set -euo pipefail
wine=$(cd "$(dirname "${BASH_SOURCE[0]}")/../../tools" && pwd)/wine
service=tarnwheel_virtual_serial

control() {
  timeout 30 "$wine" sc "$@" </dev/null
}

! control query $service | grep -q RUNNING || exit 0
control delete $service >/dev/null || true # left by another build
driver=$("$wine" winepath -w "$(realpath "$1")" </dev/null)
control create $service type= kernel "binPath=" "${driver%$'\r'}"
control start $service
