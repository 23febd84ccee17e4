#!/usr/bin/env bash
# dns_sd.sh TEST DLL: runs the program TEST with DLL in place of Wine's own dnsapi.dll.
set -euo pipefail
wine=$(cd "$(dirname "${BASH_SOURCE[0]}")/../../tools" && pwd)/wine
library=$("$wine" winepath -u 'C:\windows\system32\dnsapi.dll' </dev/null)
library=${library%$'\r'}
cp "$library" "$library.own"
trap 'mv "$library.own" "$library"' EXIT
cp "$2" "$library"
WINEDLLOVERRIDES=dnsapi=n "$wine" "$1"
