#!/usr/bin/env bash
# Whether what the Windows build installs is whole: the plug-in stands where its manifest says, and the tool works with
# nothing but what is installed.
#
# usage: tools/windows/check-installation.sh BUILD
set -euo pipefail
tools=$(cd "$(dirname "$0")" && pwd)

tree=$(mktemp -d)
trap 'rm -rf "$tree"' EXIT
cmake --install "$1" --prefix "$tree/kxvfs" >/dev/null
programs=$tree/kxvfs/bin/win64
plugin=vfs/provider/storage/zipprovider/libkxzipprovider.dll

fail() {
  echo "the installation is not whole: $*" >&2
  exit 1
}

[ -f "$programs/$plugin" ] || fail "no $plugin"
grep -aq "\"installpath\": *\"bin/win64/$plugin\"" <(unzip -p "$programs/$plugin" '*/manifest.json' 2>/dev/null) ||
  fail "the manifest names another place than bin/win64/$plugin"
"$tools/check-imports.sh" "$programs" "$programs"

run() { "$tools/run-in-wine.sh" "$programs" "$programs/kxvfs.exe" "$@"; }
cd "$tree"
printf 'text\n' >notes.txt
run create plans.zip
run cp notes.txt plans.zip/docs.txt
[ "$(run cat plans.zip/docs.txt)" = text ] || fail "kxvfs.exe reads something else than it wrote"
unzip -qt plans.zip || fail "unzip finds the archive of kxvfs.exe damaged"
echo "The installation is whole."
