#!/usr/bin/env bash
# Installs what the fuzz harnesses need beyond the build: clang and its fuzzer.
set -euo pipefail
"$(dirname "$0")/install_packages" clang-14 libclang-rt-14-dev
