#!/usr/bin/env bash
# Runs every fuzz target of a build for a bounded time, from the committed seeds.
#
# usage: tools/fuzz.sh BUILD_DIR SECONDS
#
# What a run finds new goes to BUILD_DIR/corpus/<target>, an input that fails to BUILD_DIR/findings, and what the
# runs say to BUILD_DIR/logs. The last lines are the number of executions of each target.
set -euo pipefail
cd "$(dirname "$0")/.."
build=$1
seconds=$2
mkdir -p "$build/findings" "$build/logs"
found=0
summary=()
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
    "$build/corpus/$name" "fuzz/corpus/$name" 2>&1 | tee "$build/logs/$name.log"
  summary+=("$name: $(sed -n 's/^stat::number_of_executed_units: *//p' "$build/logs/$name.log") executions")
done
[ "$found" = 1 ] || { echo "cannot fuzz: $build/fuzz holds no target" >&2; exit 1; }
printf '%s\n' "${summary[@]}"
