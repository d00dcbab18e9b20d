#!/usr/bin/env bash
# Installs what the fuzz harnesses need beyond the build: clang and its fuzzer. Does nothing when they are there.
set -euo pipefail
missing=""
for package in clang-14 libclang-rt-14-dev; do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed' || missing="$missing $package"
done
[ -n "$missing" ] || exit 0

echo "installing:$missing"
as_root=""
if [ "$(id -u)" -ne 0 ] && command -v sudo >/dev/null; then as_root=sudo; fi
export DEBIAN_FRONTEND=noninteractive
$as_root apt-get update -q
# shellcheck disable=SC2086
$as_root apt-get install -q -y --no-install-recommends $missing
