#!/usr/bin/env bash
# Installs what "make deb" needs beyond the build, and with the argument "check" what scripts/check_deb needs too.
# Does nothing when they are there.
set -euo pipefail
packages="dpkg-dev file gzip"
if [ "${1:-}" = check ]; then packages="$packages lintian debootstrap"; fi
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
