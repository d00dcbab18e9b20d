#!/usr/bin/env bash
# Installs the Debian packages that the build needs. Needs no network, and does nothing, when all are there.
set -euo pipefail
packages="g++ cmake ninja-build ccache libtiff-dev libjpeg62-turbo-dev libproj-dev proj-data nlohmann-json3-dev
          libgtest-dev libgmock-dev libbenchmark-dev clang-format"
missing=""
for package in $packages; do
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
