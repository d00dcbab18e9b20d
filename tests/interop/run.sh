#!/usr/bin/env bash
# Our LAZ files against another implementation: run.sh PROGRAM, with the program that writes the files.
# Ends with 77 (skipped) where node, npm or the package can't be had.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

if ! command -v node >/dev/null || ! command -v npm >/dev/null; then
  echo "skipped: node and npm are not here"
  exit 77
fi
mkdir "$work/packages" "$work/files"
cp "$here/package.json" "$here/package-lock.json" "$work/packages"
if ! (cd "$work/packages" && timeout 60 npm ci --no-audit --no-fund >"$work/npm.log" 2>&1); then
  echo "skipped: the package laz-perf can't be had"
  exit 77
fi
"$1" "$work/files"
node "$here/check.mjs" "$work/packages" "$work/files"
