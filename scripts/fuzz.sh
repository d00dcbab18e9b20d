#!/usr/bin/env bash
# Builds the fuzz harnesses and runs each for SECONDS_EACH seconds (first argument, default 60), from made inputs
# and what earlier runs found, in build/fuzz. Further arguments: the harnesses to run, default all.
# Ends with 1 if one found a fault; the input is then kept as build/fuzz/crash_*.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}
shift || true
harnesses=${*:-header reader text index chunk_table pointwise layered}
build=build/fuzz
cmake -S fuzz -B $build -G Ninja -DCMAKE_CXX_COMPILER=clang++-14 -DCMAKE_BUILD_TYPE=None >/dev/null
nice cmake --build $build -j"${JOBS:-2}"
$build/seed_corpus $build/seeds

failed=0
for name in $harnesses; do
  mkdir -p "$build/corpus/$name"
  log=$build/$name.log
  if nice -n 19 "$build/fuzz_$name" "$build/corpus/$name" "$build/seeds/$name" -max_total_time="$seconds" -timeout=20 \
      -rss_limit_mb=3000 -max_len=20000 -artifact_prefix="$build/crash_${name}_" -print_final_stats=1 \
      -close_fd_mask=1 >"$log" 2>&1; then
    result=clean
  else
    result="FAILED, see $log"
    failed=1
  fi
  echo "$name: $(grep -ao 'number_of_executed_units: [0-9]*' "$log" | grep -o '[0-9]*' || echo 0) executions, $result"
done
exit $failed
