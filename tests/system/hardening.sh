#!/usr/bin/env bash
# hardening.sh PROGRAM...: each must be built with the compiler's and the linker's protections, and must
# load no library that could be planted beside it.
set -euo pipefail
# The libraries that Windows maps from its own folder before a program starts (KnownDLLs), and ntdll.
known=" advapi32.dll kernel32.dll msvcrt.dll ntdll.dll setupapi.dll shlwapi.dll ws2_32.dll "
failed=0

# check PROGRAM WHAT HOW...: counts a failure unless the command HOW... finds a match.
check() {
  "${@:3}" >/dev/null || { echo "$1: no $2"; failed=$((failed + 1)); }
}

for program in "$@"; do
  headers=$(x86_64-w64-mingw32-objdump -p "$program")
  for flag in HIGH_ENTROPY_VA DYNAMIC_BASE NX_COMPAT; do
    check "$program" "$flag" grep -w "$flag" <<<"$headers"
  done
  check "$program" "relocations" grep DIR64 <<<"$headers"
  check "$program" "stack protector" grep -w __stack_chk_fail <(x86_64-w64-mingw32-nm "$program")
  while read -r library; do
    [[ $known == *" ${library,,} "* ]] || { echo "$program loads $library"; failed=$((failed + 1)); }
  done < <(sed -n 's/.*DLL Name: //p' <<<"$headers" | tr -d '\r')
done
exit "$failed"
