#!/usr/bin/env bash
# load_virtual_serial.sh DRIVER: loads the driver file of the virtual serial ports into the project's
# Wine prefix, in the place of the one that may be loaded there.
set -euo pipefail
wine=$(cd "$(dirname "${BASH_SOURCE[0]}")/../../tools" && pwd)/wine
service=tarnwheel_virtual_serial
driver=$("$wine" winepath -w "$(realpath "$1")" </dev/null)

control() {
  timeout 30 "$wine" sc "$@" </dev/null >/dev/null
}

load() {
  # Both fail when there is nothing to replace.
  control stop $service || true
  control delete $service || true
  control create $service type= kernel "binPath=" "${driver%$'\r'}"
  control start $service
}

# When the drivers' process has crashed, the service manager notices by the first command that fails.
load || load
