#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Size of the shared library for 32-bit ARM, stripped, libyuv included and the codecs' own libraries not: with
# everything, and without files, drawing and frames. Fails when one is above its bound.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/arm-env.sh
status=0
report() { # report NAME BOUND-KB CMAKE-ARGUMENT...
    local build=build/size-$1 name=$1 bound=$2 bytes
    shift 2
    cmake --preset arm -B "$build" -DTAVI_BUILD_TESTS=OFF "$@" >/dev/null
    cmake --build "$build" --target tavi_image >/dev/null
    arm-linux-gnueabihf-strip -o "$build/stripped.so" "$build"/src/libtavi_image.so
    bytes=$(stat -c %s "$build/stripped.so")
    printf '%-28s %7d bytes (at most %d KB)\n' "$name" "$bytes" "$bound"
    [ "$bytes" -lt $((bound * 1024)) ] || status=1
}
report everything 300
report images-alone 160 -DTAVI_WITH_FILES=OFF -DTAVI_WITH_DRAWING=OFF -DTAVI_WITH_FRAMES=OFF
exit $status
