#!/usr/bin/env bash
# Installs the peers, builds the benchmarks and prints the table: scripts/bench.sh [--benchmark_filter=REGEX ...]
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/packages.sh
need "${build_packages[@]}" libbenchmark-dev libopencv-core-dev libopencv-imgproc-dev libopencv-dnn-dev libswscale-dev \
    libavutil-dev python3-pil
cmake --preset bench >/dev/null
cmake --build --preset bench --target tavi_bench tavi_image
build/bench/bench/tavi_bench "$@" 2>/dev/null
[ $# -gt 0 ] || /usr/bin/python3 bench/decode.py build/bench/src/libtavi_image.so
