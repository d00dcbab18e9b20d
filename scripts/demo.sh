#!/usr/bin/env bash
# Makes a simulated project, aligns it, and scores the result against the truth.
# usage: demo.sh [preset] [directory], by default "demo" in ./demo
# In the source tree it starts the programs of build/release, elsewhere the installed ones.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
preset=${1:-demo}
bin=$top/build/release
if [ -f "$top/CMakeLists.txt" ]; then
  dir=${2:-$top/demo}
  PATH=$bin/sim:$bin/prj/LiDAR/run:$PATH
else
  dir=${2:-$PWD/demo}
fi
case $dir in
  /*) dir=$dir/$preset ;;
  *) dir=$PWD/$dir/$preset ;;
esac

rm -rf "$dir"
mkdir -p "$dir/out" "$dir/tmp"
echo "== simulate =="
veldsim -preset "$preset" -odir "$dir"
echo "== align =="
cd "$dir"
# command.txt holds the options that fit the project: inputs, trajectory, zone.
read -r -a options < command.txt
veldrunner -align "${options[@]}" -odir out -tmpdir tmp -out '*_c.las' -name demo -mul
echo "== score =="
veldscore "$dir" "$dir/out" -suffix _c -cal out/demo_cal_0.txt
