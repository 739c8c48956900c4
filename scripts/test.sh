#!/usr/bin/env bash
# Installs what is missing, builds and runs every test: scripts/test.sh [PRESET] (dev, release or tsan; default dev)
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/packages.sh
need "${build_packages[@]}" "${test_packages[@]}"
preset=${1:-dev}
cmake --preset "$preset" -DTAVI_BUILD_TESTS=ON >/dev/null
cmake --build --preset "$preset"
ctest --preset "$preset" -j "$(nproc)" --no-tests=error
