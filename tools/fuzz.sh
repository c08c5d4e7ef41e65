#!/usr/bin/env bash
# Runs every fuzz target of a build for a bounded time, from the committed seeds.
#
# usage: tools/fuzz.sh BUILD_DIR SECONDS
#
# What a run finds new goes to BUILD_DIR/corpus/<target>, an input that fails to BUILD_DIR/findings.
set -euo pipefail
cd "$(dirname "$0")/.."
build=$1
seconds=$2
mkdir -p "$build/findings"
found=0
for target in "$build"/fuzz/fuzz_*; do
  [ -x "$target" ] || continue
  found=1
  name=${target##*/fuzz_}
  mkdir -p "$build/corpus/$name"
  dictionary=()
  if [ -f "fuzz/$name.dict" ]; then dictionary=("-dict=fuzz/$name.dict"); else dictionary=(-dict=fuzz/archive.dict); fi
  echo "== $name, $seconds s"
  "$target" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -print_final_stats=1 \
    -artifact_prefix="$build/findings/$name-" "${dictionary[@]}" \
    "$build/corpus/$name" "fuzz/corpus/$name"
done
[ "$found" = 1 ] || { echo "cannot fuzz: $build/fuzz holds no target" >&2; exit 1; }
