#!/usr/bin/env bash
# Installs what the build and the tests need, and makes the project's own Wine prefix (build/wine).
# Meant to be sourced; quick when everything is there. Also defines the functions below.
set -euo pipefail

project=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
export WINEPREFIX=${TARNWHEEL_PREFIX:-$project/build/wine}
export WINEDEBUG=${WINEDEBUG:--all} WINEARCH=win64

packages=(cmake ninja-build g++-mingw-w64-x86-64-posix binutils-mingw-w64-x86-64 wine64 wine
  googletest libboost-dev socat)

install_packages() {
  local missing=()
  for package in "${packages[@]}"; do
    dpkg-query -W -f '${Status}' "$package" 2>/dev/null | grep -q 'ok installed' || missing+=("$package")
  done
  ((${#missing[@]})) || return 0
  echo "Installing ${missing[*]}"
  local root=()
  ((EUID == 0)) || root=(sudo)
  "${root[@]}" apt-get update -qq
  DEBIAN_FRONTEND=noninteractive "${root[@]}" apt-get install -y -qq --no-install-recommends \
    "${missing[@]}" >/dev/null
}

# Starts Wine's services in the prefix and keeps them for ten idle minutes. Wine links the first
# free COM port to this machine's own serial line; a test must never write there.
start_wine() {
  mkdir -p "$WINEPREFIX"
  /usr/lib/wine/wineserver64 -p600 || true  # fails when it runs already
  if [[ -e $WINEPREFIX/system.reg ]]; then
    "$project/tools/wine" wineboot >/dev/null 2>&1
  else
    "$project/tools/wine" wineboot -i >/dev/null 2>&1
  fi
  find "$WINEPREFIX/dosdevices" -lname '/dev/tty*' -delete
}

# stop_wine: ends the programs of this prefix only.
stop_wine() {
  /usr/lib/wine/wineserver64 -k >/dev/null 2>&1 || true
}

# make_loopback N: a serial port COMN that answers every byte with itself, until the process
# $loopback_pid ends.
make_loopback() {
  local device=$WINEPREFIX/loopback-com$1
  rm -f "$device"
  socat "pty,raw,echo=0,link=$device" EXEC:cat &
  loopback_pid=$!
  for _ in {1..100}; do
    [[ -e $device ]] && break
    sleep 0.05
  done
  ln -sfn "$device" "$WINEPREFIX/dosdevices/com$1"
}

# build PRESET: configures once, then builds both programs and every test.
build() {
  cd "$project"
  [[ -e build/$1/build.ninja ]] || cmake --preset "$1" >/dev/null
  cmake --build --preset "$1"
}

install_packages
