#!/usr/bin/env bash
# The Windows x86-64 build from a clean clone on a Debian machine: installs what is missing, prepares the cache, builds with
# MinGW-w64, checks what the results import, and runs the tests under Wine and the comparison with the build for Linux.
#
# usage: tools/windows.sh [JOBS]
#
# KX_WINDOWS_CACHE is the folder that survives between runs, for the sources; default ~/.cache/kxvfs-windows. The Wine
# prefix is the build's own, so that several clones do not disturb one another.
set -euo pipefail
cd "$(dirname "$0")/.."

jobs=${1:-$(nproc)}
cache=${KX_WINDOWS_CACHE:-$HOME/.cache/kxvfs-windows}
export KX_WINEPREFIX=$PWD/build/wine WINEPREFIX=$PWD/build/wine WINEDEBUG=-all
# The C library of Windows knows time zones in this form only; the suite must not depend on UTC.
export TZ=CET-1CEST

wine() { tools/windows/run-in-wine.sh build/windows/bin/win64 "$@" >/dev/null 2>&1 </dev/null; }

tools/install-packages.sh build test windows
tools/windows/prepare.sh "$cache"
mkdir -p "$WINEPREFIX"
# One that an interrupted run has left.
wineserver -k >/dev/null 2>&1 || true

# A server that stays, started away from our streams: otherwise every test waits for Wine's services to end.
wineserver -p >/dev/null 2>&1 </dev/null || true
finish() {
  wineserver -k >/dev/null 2>&1 || true
  # What tests could not remove while it was open: libraries of bundles, for instance.
  rm -rf "$WINEPREFIX"/drive_c/users/*/Temp/*
}
trap finish EXIT
wine wineboot

# The tests compare with what the tool for this machine writes.
cmake --preset windows-peer
cmake --build --preset windows-peer --parallel "$jobs"

cmake --preset windows -DKX_WINDOWS_SOURCES="$cache/sources"
cmake --build --preset windows --parallel "$jobs"
tools/windows/check-imports.sh build/windows build/windows/bin/win64
tools/windows/check-installation.sh build/windows
# Once more, since Wine's desktop leaves while the build idles and the first tests would start it on ctest's pipes.
wine cmd /c exit
# One more than there are processors, since they often wait: for Wine's server, and for programs that they have started.
ctest --preset windows --parallel $((jobs + 1))
echo "The Windows build and its tests took $((SECONDS / 60)) minutes and $((SECONDS % 60)) seconds."
