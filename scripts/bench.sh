#!/usr/bin/env bash
# Installs the peers, builds the benchmarks and prints the table: scripts/bench.sh [--benchmark_filter=REGEX ...]
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/packages.sh
need "${build_packages[@]}" libbenchmark-dev libopencv-core-dev libopencv-imgproc-dev libswscale-dev libavutil-dev
cmake --preset bench >/dev/null
cmake --build --preset bench --target tavi_bench
build/bench/bench/tavi_bench "$@" 2>/dev/null
