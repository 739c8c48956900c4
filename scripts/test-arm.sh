#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Builds for 32-bit ARM and runs all tests in the emulator: once with NEON, the pixel tests once without, and with
# `asan` under AddressSanitizer and UndefinedBehaviorSanitizer too. Prints the library's size. With `arm64` builds for
# 64-bit ARM and runs all tests, and no more.
# Usage: test-arm.sh [asan|arm64]
set -euo pipefail
cd "$(dirname "$0")/.."
[ "${1:-}" != arm64 ] || arm_arch=arm64
. scripts/arm-env.sh

run() { # run PRESET CTEST-ARGUMENT...
    cmake --preset "$1" >/dev/null
    cmake --build --preset "$1"
    ctest --preset "$@" -j "$(nproc)"
}
if [ $arm_arch = arm64 ]; then
    run arm64
    exit
fi
run arm
echo "and without NEON:"
TAVI_ARM_NEON=off ctest --preset arm -j "$(nproc)" -R 'Kernels|Neon|Convert|Scale|Crop|Affine|Transpose|Draw|Letterbox'
if [ "${1:-}" = asan ]; then
    run arm-asan
fi
scripts/size-arm.sh
