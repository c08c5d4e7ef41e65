#!/bin/sh
# Runs a Windows program: run-in-wine.sh LIBRARY-FOLDER PROGRAM [ARGUMENT...]
#
# KX_WINEPREFIX is the Wine prefix to use, by default the one that tools/windows.sh sets up. File names need a UTF-8
# locale: under C every name outside ASCII fails.
WINEPREFIX=${KX_WINEPREFIX:-$(cd "$(dirname "$0")/../.." && pwd)/build/wine}
WINEDEBUG=${WINEDEBUG:--all}
WINEDLLOVERRIDES='mscoree,mshtml=;winemenubuilder.exe=d'
WINEPATH=$1
# An installation has the compiler's libraries, the build has not.
[ -e "$1/libstdc++-6.dll" ] || WINEPATH="$1;/usr/lib/gcc/x86_64-w64-mingw32/12-posix;/usr/x86_64-w64-mingw32/lib"
LC_ALL=C.UTF-8
export WINEPREFIX WINEDEBUG WINEDLLOVERRIDES WINEPATH LC_ALL
unset DISPLAY WAYLAND_DISPLAY
shift
exec /usr/lib/wine/wine64 "$@"
