#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Builds for 32-bit ARM and runs all tests in the emulator: once with NEON, the pixel tests once without, and with
# `asan` under AddressSanitizer and UndefinedBehaviorSanitizer too. Prints the library's size.
# Usage: test-arm.sh [asan]
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/arm-env.sh

run() { # run PRESET CTEST-ARGUMENT...
    cmake --preset "$1" >/dev/null
    cmake --build --preset "$1"
    ctest --preset "$@" -j "$(nproc)"
}
run arm
echo "and without NEON:"
TAVI_ARM_NEON=off ctest --preset arm -j "$(nproc)" -R 'Kernels|Neon|Convert|Scale|Crop|Affine|Transpose|Draw|Letterbox'
if [ "${1:-}" = asan ]; then
    run arm-asan
fi
scripts/size-arm.sh
