#!/usr/bin/env bash
# Checks the formatting of every source file and runs clang-tidy.
#
# usage: tools/lint.sh BUILD_DIR changed|all
#
# BUILD_DIR holds compile_commands.json of a clang build. "changed" looks at what differs from the main branch
# of the origin (without one, from the previous commit) and at what is not committed.
set -euo pipefail
cd "$(dirname "$0")/.."
build=$1
scope=${2:-changed}

git ls-files -z '*.h' '*.cpp' | xargs -0 clang-format-14 --dry-run -Werror

case "$scope" in
  all) files=$(git ls-files '*.cpp') ;;
  changed)
    base=$(git merge-base HEAD origin/main 2>/dev/null || git rev-parse HEAD~1 2>/dev/null || git rev-parse HEAD)
    files=$(git diff --name-only --diff-filter=d "$base" -- '*.cpp')
    ;;
  *)
    echo "cannot lint '$scope': expected changed or all" >&2
    exit 2
    ;;
esac

# Files for another system are in no compile command, so clang-tidy cannot judge them.
known=()
while read -r file; do
  if [ -n "$file" ] && grep -qF "/$file\"" "$build/compile_commands.json"; then known+=("$file"); fi
done <<<"$files"
[ "${#known[@]}" -gt 0 ] || exit 0
# Headers that the build generates must be there before a file that includes them is looked at.
cmake --build "$build" --parallel "$(nproc)" --target src/all >/dev/null
printf '%s\0' "${known[@]}" | xargs -0 -n 1 -P "$(nproc)" clang-tidy-14 --quiet -p "$build"
