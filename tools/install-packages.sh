#!/usr/bin/env bash
# Installs what is missing of the given groups of tools/packages.txt.
#
# usage: tools/install-packages.sh GROUP...
#
# Asks dpkg once and returns at once when nothing is missing. Otherwise installs with apt-get, as root or
# through sudo, and refreshes the package lists only when the first try fails. KX_SKIP_PACKAGES=1 turns the
# script into a no-op, for systems whose packages come from elsewhere.
set -euo pipefail

fail() {
  echo "cannot install packages: $*" >&2
  exit 1
}

[ "${KX_SKIP_PACKAGES:-0}" != 1 ] || exit 0
[ $# -gt 0 ] || fail "no group given (usage: tools/install-packages.sh GROUP...)"
list=$(dirname "$0")/packages.txt

wanted=()
for group in "$@"; do
  before=${#wanted[@]}
  while read -r name package _; do
    if [ "$name" = "$group" ]; then wanted+=("$package"); fi
  done <"$list"
  [ "${#wanted[@]}" -gt "$before" ] || fail "$list has no group '$group'"
done

command -v dpkg-query >/dev/null ||
  fail "this is no Debian system; provide ${wanted[*]} in its own way and set KX_SKIP_PACKAGES=1"

# A package that dpkg has never seen is named on standard error only, so what is present decides.
present=" $(dpkg-query -W -f='${db:Status-Status}:${Package} ' "${wanted[@]}" 2>/dev/null || true)"
missing=()
for package in "${wanted[@]}"; do
  case "$present" in
    *" installed:$package "*) ;;
    *) missing+=("$package") ;;
  esac
done
[ "${#missing[@]}" -gt 0 ] || exit 0

as_root=()
if [ "$(id -u)" -ne 0 ]; then
  command -v sudo >/dev/null || fail "neither root nor sudo; install these first: ${missing[*]}"
  as_root=(sudo)
fi

install() {
  "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
    apt-get -o DPkg::Lock::Timeout=300 install -y --no-install-recommends "${missing[@]}"
}

echo "Installing ${missing[*]}"
log=$(mktemp)
trap 'rm -f "$log"' EXIT
if ! install >"$log" 2>&1; then
  "${as_root[@]}" apt-get -o DPkg::Lock::Timeout=300 update >"$log" 2>&1 ||
    { cat "$log" >&2; fail "the package lists cannot be refreshed (see above)"; }
  install >"$log" 2>&1 || { cat "$log" >&2; fail "apt-get could not install ${missing[*]} (see above)"; }
fi
