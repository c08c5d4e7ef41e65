#!/usr/bin/env bash
# Every seed that the generator makes is in the corpus, byte for byte. The corpus may hold more: inputs that once failed.
#
# usage: check_seeds.sh MAKE_SEEDS CORPUS
set -euo pipefail
made=$(mktemp -d)
trap 'rm -rf "$made"' EXIT
"$1" "$made"
cd "$made"
status=0
while read -r seed; do
  cmp "$seed" "$2/$seed" || status=1
done < <(find . -type f)
exit $status
