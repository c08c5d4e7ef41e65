#!/usr/bin/env bash
# Whether every program and library below FOLDER imports only what stands in LIBRARIES, what the system always has, and
# the run-time libraries of the compiler. Wine has libraries of its own, so a test under it does not show what is missing.
#
# usage: tools/windows/check-imports.sh FOLDER LIBRARIES
set -euo pipefail

folder=$1 libraries=$2
system=" advapi32.dll bcrypt.dll kernel32.dll msvcrt.dll mswsock.dll ole32.dll shell32.dll user32.dll ws2_32.dll "
compiler=" libgcc_s_seh-1.dll libstdc++-6.dll libwinpthread-1.dll "

mapfile -t files < <(find "$folder" -path '*/googletest/*' -prune -o \( -name '*.dll' -o -name '*.exe' \) -print)
[ "${#files[@]}" -gt 0 ] || { echo "$folder holds no program" >&2; exit 1; }
status=0
for file in "${files[@]}"; do
  while read -r import; do
    case "$system$compiler" in *" ${import,,} "*) continue ;; esac
    case "${import,,}" in api-ms-win-core-*) continue ;; esac
    [ -e "$libraries/$import" ] && continue
    echo "$file imports $import, which no Windows machine needs to have" >&2
    status=1
  done < <(x86_64-w64-mingw32-objdump -p "$file" | awk '/DLL Name:/ { print $3 }')
done
[ $status -eq 0 ] && echo "The imports of ${#files[@]} programs and libraries are in order."
exit $status
