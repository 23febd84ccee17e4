#!/usr/bin/env bash
# Installs the packages that the build and the tests need, selects the project's own Wine prefix
# (build/wine unless TARNWHEEL_PREFIX names another), and defines the functions below. Meant to be
# sourced; quick when everything is installed.
set -euo pipefail

project=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
export WINEPREFIX=${TARNWHEEL_PREFIX:-$project/build/wine}
export WINEDEBUG=${WINEDEBUG:--all} WINEARCH=win64

packages=(cmake ninja-build g++-mingw-w64-x86-64-posix binutils-mingw-w64-x86-64 wine64 wine
  googletest libboost-dev libfmt-dev python3 python3-serial socat tmux wixl msitools faketime)
# For the presets clang and native-*; clang 14, the default of Debian 12, lacks the standard's
# coroutines.
clang_packages=(clang-19 lld-19 libclang-rt-19-dev)

install_packages() {
  local missing=()
  for package in "$@"; do
    dpkg-query -W -f '${Status}' "$package" 2>/dev/null | grep -q 'ok installed' || missing+=("$package")
  done
  ((${#missing[@]})) || return 0
  echo "Installing ${missing[*]}"
  local root=()
  ((EUID == 0)) || root=(sudo)
  "${root[@]}" apt-get update -qq
  DEBIAN_FRONTEND=noninteractive "${root[@]}" apt-get install -y -qq --no-install-recommends \
    "${missing[@]}" >/dev/null </dev/null
}

# For scripts that end the prefix's programs when they are done: locks the prefix until the script ends,
# and ends programs that a killed script may have left running. The lock is on descriptor 9, which no
# process that outlives the script may inherit.
claim_prefix() {
  mkdir -p "$(dirname "$WINEPREFIX")"
  exec 9>"$WINEPREFIX.lock"
  if ! flock --nonblock 9; then
    echo "Another run.sh or test.sh is using $WINEPREFIX; end it first." >&2
    exit 1
  fi
  stop_wine
}

# Starts Wine's services in the prefix, which is created if necessary; they end after ten idle minutes.
# Wine links the first free COM port to this machine's own serial line; the link is removed, since a test
# must never write there.
start_wine() {
  # Wine considers a prefix complete as soon as it begins to create it. One whose creation was
  # interrupted stays broken, so it is created again.
  local unfinished=$WINEPREFIX.unfinished
  if [[ -e $unfinished ]]; then
    stop_wine
    rm -rf "$WINEPREFIX"
  fi
  [[ -d $WINEPREFIX ]] || : >"$unfinished"
  mkdir -p "$WINEPREFIX"
  # Fails when the Wine server is already running.
  /usr/lib/wine/wineserver64 -p600 </dev/null >/dev/null 2>&1 9>&- || true
  # The first program creates the prefix. It must not be wineboot: Wine runs that by itself, and two at
  # once would start two service managers, each with its own services. The setup of the disabled
  # libraries takes 40 % of the time, and no program here needs it.
  if ! WINEDLLOVERRIDES=mscoree,mshtml,winemenubuilder.exe=d \
    "$project/tools/wine" cmd /c rem </dev/null >/dev/null 2>&1; then
    echo "No program starts in $WINEPREFIX; remove it." >&2
    return 1
  fi
  rm -f "$unfinished"
  find "$WINEPREFIX/dosdevices" -lname '/dev/tty*' -delete
}

# stop_wine: ends the programs of this prefix only.
stop_wine() {
  /usr/lib/wine/wineserver64 -k >/dev/null 2>&1 || true
}

loopback_pids=()

# make_loopback N: creates a serial port COMN that echoes every byte, until stop_loopback or the end of
# the script. There may be several.
make_loopback() {
  local device=$WINEPREFIX/loopback-com$1
  rm -f "$device"
  setsid setpriv --pdeathsig TERM socat "pty,raw,echo=0,link=$device" EXEC:cat \
    </dev/null >/dev/null 2>&1 9>&- &
  loopback_pids+=($!)
  for _ in {1..100}; do
    [[ -e $device ]] && break
    sleep 0.05
  done
  ln -sfn "$device" "$WINEPREFIX/dosdevices/com$1"
}

stop_loopback() {
  ((${#loopback_pids[@]})) || return 0
  kill "${loopback_pids[@]}" 2>/dev/null || true
  wait "${loopback_pids[@]}" 2>/dev/null || true
}

# build PRESET TARGET...: configures once, then builds the targets.
build() {
  cd "$project"
  [[ $1 != clang && $1 != native-* ]] || install_packages "${clang_packages[@]}"
  [[ -e build/$1/build.ninja ]] || cmake --preset "$1" >/dev/null
  cmake --build --preset "$1" --target "${@:2}"
}

install_packages "${packages[@]}"
