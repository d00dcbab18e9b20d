#!/usr/bin/env bash
# Builds the fuzz harnesses and runs one after the other for SECONDS in all (first argument, default 480), from
# made inputs and what earlier runs found. Further arguments: the harnesses to run, default all.
# Ends with 1 if one found a fault; the input is then kept as crash_* in the build directory.
# The caches start from those of a small registration by the programs in PROGRAMS, default build/release, where these are
# built. FUZZ_BUILD: the build directory, default build/fuzz. FUZZ_KIND: of a harness for several formats that one alone.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-480}
shift || true
harnesses=${*:-header vlrs reader text index chunk_table pointwise layered options tags lists caches trajectories crs}
# shellcheck disable=SC2086
each=$((seconds / $(wc -w <<<"$harnesses")))
build=${FUZZ_BUILD:-build/fuzz}
cmake -S fuzz -B "$build" -G Ninja -DCMAKE_CXX_COMPILER=clang++-14 -DCMAKE_BUILD_TYPE=None >/dev/null
# shellcheck disable=SC2086
cmake --build "$build" -j"${JOBS:-2}" --target seed_corpus $(printf 'fuzz_%s ' $harnesses)
rm -rf "$build/seeds"
programs=${PROGRAMS:-build/release} caches=
if [ -x "$programs/sim/veldsim" ] && [ -x "$programs/prj/LiDAR/run/veldrunner" ]; then
  caches=$(mktemp -d)
  trap 'rm -rf "$caches"' EXIT
  "$programs/sim/veldsim" -preset tiny -length 100 -spacing 25 -cross 0 -agl 70 -pulse_rate 800 -east 500032 \
      -north 5321024 -odir "$caches" >/dev/null 2>&1
  "$programs/prj/LiDAR/run/veldrunner" -reg -utm 33 -i "$caches/L*.las" -odir "$caches" -tmpdir "$caches" \
      >/dev/null 2>&1
else
  echo "caches: no programs in $programs, so no seeds"
fi
"$build/seed_corpus" "$build/seeds" ${caches:+"$caches"}

failed=0
for name in $harnesses; do
  mkdir -p "$build/corpus/$name" "$build/seeds/$name"  # not all have seeds
  log=$build/$name.log
  length=20000
  [ "$name" = caches ] && length=60000
  if "$build/fuzz_$name" "$build/corpus/$name" "$build/seeds/$name" -max_total_time="$((each > 0 ? each : 1))" \
      -timeout=20 -rss_limit_mb=1500 -malloc_limit_mb=300 -max_len="$length" -artifact_prefix="$build/crash_${name}_" \
      -print_final_stats=1 -close_fd_mask=3 >"$log" 2>&1; then
    result=clean
  else
    result="FAILED, see $log"
    failed=1
  fi
  stat() { grep -ao "stat::$1: *[0-9]*" "$log" | grep -o '[0-9]*$' || echo 0; }
  echo "$name: $(stat number_of_executed_units) executions in $each s, $(stat peak_rss_mb) MB at most, $result"
done
exit $failed
