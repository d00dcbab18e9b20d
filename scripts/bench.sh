#!/usr/bin/env bash
# Runs all benchmarks of a release build; their figures go into docs/performance.md.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
for bench in "$top"/build/release/bench/*_bench; do
  [ -x "$bench" ] || continue
  echo "== $(basename "$bench") =="
  "$bench" --benchmark_min_time=0.5 "$@"
done
