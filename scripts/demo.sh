#!/usr/bin/env bash
# Makes a simulated project, aligns it, and scores the result against the truth.
# usage: scripts/demo.sh [preset] [directory], by default "demo" in ./demo
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
bin=$top/build/release
preset=${1:-demo}
dir=${2:-$top/demo}/$preset

rm -rf "$dir"
mkdir -p "$dir/out" "$dir/tmp"
echo "== simulate =="
"$bin/sim/veldsim" -preset "$preset" -odir "$dir"
echo "== align =="
cd "$dir"
# command.txt holds the options that fit the project: inputs, trajectory, zone.
read -r -a options < command.txt
"$bin/prj/LiDAR/veldrunner2/veldrunner" -align "${options[@]}" -odir out -tmpdir tmp -out '*_c.las' -mul
echo "== score =="
"$bin/sim/veldscore" "$dir" "$dir/out" -suffix _c
