#!/usr/bin/env bash
# Installs what is missing, builds, and sends a photograph through the library: scripts/demo.sh [PHOTO]
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/packages.sh
need "${build_packages[@]}"
cmake --preset release -DTAVI_BUILD_TESTS=OFF >/dev/null
cmake --build --preset release --target tavi-demo tavi-image
mkdir -p out
build/release/examples/tavi-demo "${1:-assets/astronaut.png}" out
echo
echo "pictures written to out/:"
ls -l out | awk 'NR > 1 {printf "  %-18s %8d bytes\n", $NF, $5}'
