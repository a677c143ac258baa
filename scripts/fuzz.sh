#!/usr/bin/env bash
# Searches for inputs that break a reader: every fuzz target, for a while each. What it finds stays in
# build/fuzz/found, and a finding ends it with the name of the input. Kept inputs are not changed.
#
#   scripts/fuzz.sh [SECONDS]      per target; 20 if not given
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=${1:-20}
jobs=${JOBS:-$(nproc)}
programs=build/fuzz/fuzz

search() {
  local target=$1 found=build/fuzz/found/$1
  mkdir -p "$found"
  # A program or a failed load may leave objects behind for good, so nobody looks for leaks.
  if OMP_NUM_THREADS=1 ASAN_OPTIONS=detect_leaks=0 "$programs/fuzz_$target" \
    -max_total_time="$seconds" -timeout=20 \
    -seed=1 -rss_limit_mb=3000 -max_len=4096 -detect_leaks=0 -print_final_stats=1 \
    -artifact_prefix="$found/" "$found" "fuzz/corpus/$target" >"$found.log" 2>&1; then
    echo "$target: $(grep -o 'number_of_executed_units: *[0-9]*' "$found.log" | grep -o '[0-9]*$') inputs"
  else
    grep -E 'does not hold|ERROR|SUMMARY|Test unit written' "$found.log" | sed "s/^/$target: /" >&2
    echo "$target: see $found.log" >&2
    return 1
  fi
}
export -f search
export programs seconds

for corpus in fuzz/corpus/*; do basename "$corpus"; done |
  xargs -P "$jobs" -I{} bash -c 'search {}'
