#!/usr/bin/env bash
# pack.sh [BUILD [VERSION]]: makes the packages for users from BUILD, by default from a release build
# made first: an installer, a zip with the same files, and a zip with the programs' debug information.
# They go to BUILD/packages with their SHA-256 sums. Two runs on the same programs give the same bytes.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
# shellcheck source=setup.sh
source tools/setup.sh
if (($# == 0)); then
  build release tarnwheel-server tarnwheel-client
  set -- build/release
fi
version=${2-$(sed -n 's/^project(tarnwheel VERSION \([0-9.]*\)\.[0-9]* .*/\1/p' CMakeLists.txt)}
name=tarnwheel-$version-x64
sources=$PWD packages=$(realpath "$1")/packages
rm -rf "$packages"
mkdir -p "$packages/$name" "$packages/debug"
cd "$packages/$name"
export SOURCE_DATE_EPOCH=1700000000 # for tools that write a time into their output

for program in tarnwheel-{server,client}.exe; do
  cp "../../bin/$program" .
  x86_64-w64-mingw32-objcopy --only-keep-debug "$program" "../debug/${program%.exe}.debug"
  x86_64-w64-mingw32-strip "$program"
  x86_64-w64-mingw32-objcopy --add-gnu-debuglink="../debug/${program%.exe}.debug" "$program"
done
for text in README docs/administration docs/protocol; do
  sed 's/$/\r/' "$sources/$text.md" >"$(basename "$text").md"
done
# The packages of the code that is linked in.
for package in gcc-mingw-w64-base mingw-w64-common libboost-dev; do
  printf '=== %s ===\n\n' "$package"
  cat "/usr/share/doc/$package/copyright"
done | sed 's/$/\r/' >licences.txt

# Identifiers are derived from the packed files, so that the same programs make the same packages.
identifier() {
  python3 -c 'import sys, uuid; print("{%s}" % str(uuid.uuid5(uuid.NAMESPACE_OID, sys.argv[1])).upper())' \
    "$1 $version $(cat -- * | sha256sum)"
}
product=$(identifier product) package=$(identifier package)
touch -d "@$SOURCE_DATE_EPOCH" -- * ../debug/*

installer=../$name.msi
then=(faketime -f '2023-11-14 00:00:00')
"${then[@]}" wixl -a x64 -D "ProductCode=$product" -D "Version=$version" -o "$installer" \
  "$sources/tools/installer/tarnwheel.wxs"
# Settings that wixl cannot express: the client's folder on PATH; that an upgrade removes the old version
# before it installs the new one, whose service it would remove otherwise; and two commands, run by the
# system account, which may fail (type 34 + 64 + 1024 + 2048): a delayed start, as the program's own
# installation sets it, and restarts after failures.
sc_action() {
  echo "INSERT INTO CustomAction (Action, Type, Source, Target) VALUES ('$1', 3170, 'INSTALLDIR'," \
    "'[System64Folder]sc.exe $2')"
}
sc_sequence() {
  echo "INSERT INTO InstallExecuteSequence (Action, Condition, Sequence) VALUES ('$1', '\$Server=3', $2)"
}
printf '%s\r\n' $'Environment\tName\tValue\tComponent_' $'s72\tl255\tL255\ts72' $'Environment\tEnvironment' \
  $'Path\t=-*PATH\t[~];[INSTALLDIR]\tClient' >../Environment.idt
"${then[@]}" msibuild "$installer" -i ../Environment.idt \
  -q "INSERT INTO InstallExecuteSequence (Action, Sequence) VALUES ('WriteEnvironmentStrings', 5200)" \
  -q "INSERT INTO InstallExecuteSequence (Action, Sequence) VALUES ('RemoveEnvironmentStrings', 3300)" \
  -q "UPDATE InstallExecuteSequence SET Sequence = 1450 WHERE Action = 'RemoveExistingProducts'" \
  -q "$(sc_action DelayStart 'config qrvtwsrv start= delayed-auto')" \
  -q "$(sc_sequence DelayStart 5802)" \
  -q "$(sc_action RestartAfterFailures 'failure qrvtwsrv reset= 86400 actions= restart/5000/restart/30000//0')" \
  -q "$(sc_sequence RestartAfterFailures 5803)" \
  -s "Tarnwheel Server $version" Quorvane 'x64;1033' "$package"
rm ../Environment.idt

python3 - "../$name.zip" "$name" "../$name-debug.zip" debug <<'END'
import pathlib, sys, zipfile
for archive, folder in zip(sys.argv[1::2], sys.argv[2::2]):
    with zipfile.ZipFile(archive, "w", zipfile.ZIP_DEFLATED) as file:
        for path in sorted(pathlib.Path("..", folder).iterdir()):
            file.writestr(zipfile.ZipInfo(f"{folder}/{path.name}", (2023, 11, 14, 0, 0, 0)),
                          path.read_bytes(), zipfile.ZIP_DEFLATED)
END
cd ..
rm -r "$name" debug
sha256sum -- *.msi *.zip >SHA256SUMS
echo "$packages"
