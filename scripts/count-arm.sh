#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Counts the ARM instructions per output pixel of some requests, ours beside libyuv by hand, OpenCV and swscale (Debian's
# packages for the target). The emulator counts them: the same result every time, on any machine. Fails when one of ours
# grew by more than 5 % over bench/count-arm.txt; with `update` writes that file instead.
# Usage: count-arm.sh [update]
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/arm-env.sh
need gcc libc6-dev

# The peers with all that they need make a root of their own, for the compiler and for the emulator.
peers=$arm_cache/peers
arm_unpack_all "$peers" "${arm_packages[@]}" libopencv-imgproc406 libswscale6 libavutil57 libstdc++6 libc6
arm_unpack "$peers" libopencv-core-dev libopencv-imgproc-dev libswscale-dev libavutil-dev
arm_relink "$peers"
mkdir -p "$peers/proc"
cp "$TAVI_ARM_ROOT/proc/cpuinfo" "$peers/proc/"
multiarch=$peers/usr/lib/arm-linux-gnueabihf
# By their real names: the emulator does not find folders below the root that it pretends.
emulator=(qemu-arm -cpu cortex-a15 -L "$peers" -E LD_LIBRARY_PATH="$multiarch:$multiarch/blas:$multiarch/lapack")

build=build/count-arm
TAVI_ARM_SYSROOT=$peers cmake --preset arm -B $build -DTAVI_BUILD_TESTS=OFF -DTAVI_BUILD_BENCH=ON -DTAVI_WITH_FILES=OFF \
    -DCMAKE_EXE_LINKER_FLAGS="-Wl,-rpath-link,$multiarch:$peers/lib/arm-linux-gnueabihf:$multiarch/blas:$multiarch/lapack" \
    >/dev/null
cmake --build $build --target tavi_count >/dev/null
gcc -shared -fPIC -O2 -o $build/count_plugin.so bench/count_plugin.c

instructions() { # instructions ROW CANDIDATE TIMES
    "${emulator[@]}" -plugin $build/count_plugin.so $build/bench/tavi_count "$1" "$2" "$3" 2>&1 >/dev/null |
        sed -n 's/^INSTRUCTIONS //p' || true # a candidate may have no way to do a row
}

table=$(mktemp)
trap 'rm -f "$table"' EXIT
printf '%-20s %8s %8s %8s %8s\n' row ours libyuv opencv swscale
"${emulator[@]}" $build/bench/tavi_count |
    while read -r row pixels; do
        printf '%-20s' "$row"
        for candidate in ours libyuv opencv swscale; do
            # The first runs fill pools and tables; only what the later ones add counts.
            few=$(instructions "$row" $candidate 2)
            many=$(instructions "$row" $candidate 6)
            if [ "$((many - few))" -lt $((pixels / 4)) ]; then
                printf ' %8s' -
                continue
            fi
            per_pixel=$(awk -v n=$((many - few)) -v p="$pixels" 'BEGIN {printf "%.2f", n / 4 / p}')
            printf ' %8s' "$per_pixel"
            [ $candidate != ours ] || echo "$row $per_pixel" >>"$table"
        done
        echo
    done
if [ "${1:-}" = update ]; then
    cp "$table" bench/count-arm.txt
    exit 0
fi
awk 'NR == FNR {was[$1] = $2; next}
     !($1 in was) {print $1 ": not in bench/count-arm.txt"; bad = 1; next}
     $2 > was[$1] * 1.05 {print $1 ": " $2 " instructions per pixel, " was[$1] " in bench/count-arm.txt"; bad = 1}
     END {exit bad}' bench/count-arm.txt "$table"
