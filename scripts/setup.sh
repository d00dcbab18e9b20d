#!/usr/bin/env bash
# Installs the Debian packages that the build needs.
set -euo pipefail
"$(dirname "$0")/install_packages" \
  g++ cmake ninja-build ccache libtiff-dev libgeotiff-dev libjpeg62-turbo-dev libproj-dev proj-data nlohmann-json3-dev \
  libxxhash-dev libgtest-dev libgmock-dev libbenchmark-dev clang-format gdal-bin
