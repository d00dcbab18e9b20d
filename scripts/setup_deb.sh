#!/usr/bin/env bash
# Installs what "make deb" needs beyond the build, and with the argument "check" what scripts/check_deb needs too.
set -euo pipefail
extra=()
if [ "${1:-}" = check ]; then extra=(lintian debootstrap); fi
"$(dirname "$0")/install_packages" dpkg-dev file gzip "${extra[@]}"
