#!/bin/bash
# SPDX-License-Identifier: MIT
# Runs the tests of the blit engine and of device memory on a real kernel, in an emulated machine that needs no
# privileges and no virtualisation hardware. The exit status is that of the tests inside.
# Usage: test-vm.sh [x86_64|arm]
set -euo pipefail
arch=${1:-x86_64}
root=$(cd "$(dirname "$0")/.." && pwd)
. "$root/scripts/packages.sh"
case $arch in
    x86_64) need "${build_packages[@]}" "${test_packages[@]}" gcc libc6-dev cpio gzip binutils qemu-system-x86 ;;
    arm) need cpio gzip binutils qemu-system-arm gcc-arm-linux-gnueabihf ;;
    *) echo "usage: $0 [x86_64|arm]" >&2; exit 2 ;;
esac
kernel=$("$root/scripts/vm/build-kernel.sh" "$arch")

# The programs, without the parts that a kernel has no say in.
build=$root/build/vm-$arch
common=(-G Ninja -S "$root" -B "$build" -DTAVI_WITH_FILES=OFF -DTAVI_WITH_DRAWING=OFF -DTAVI_BUILD_TOOLS=OFF)
if [ "$arch" = arm ]; then
    . "$root/scripts/arm-env.sh"
    cmake "${common[@]}" --preset arm >/dev/null
    compiler=arm-linux-gnueabihf-gcc
    library_folders=(/usr/arm-linux-gnueabihf/lib "$TAVI_ARM_SYSROOT/usr/lib/arm-linux-gnueabihf" "$TAVI_ARM_SYSROOT/lib/arm-linux-gnueabihf")
else
    cmake "${common[@]}" -DCMAKE_BUILD_TYPE=Release >/dev/null
    compiler=gcc
    library_folders=(/lib/x86_64-linux-gnu /usr/lib/x86_64-linux-gnu)
fi
stage=$(mktemp -d)
trap 'rm -rf "$stage"' EXIT
if ! cmake --build "$build" --target services_test blit_test engine_test >"$stage/log"; then
    tail -n 40 "$stage/log" >&2
    exit 1
fi
mkdir -p "$stage"/{root/tests,root/proc,root/sys,root/dev,root/tmp,root/lib,root/lib64}
$compiler -O2 -Wall -Wextra -static -o "$stage/root/init" "$root/scripts/vm/init.c"
cp "$build"/tests/services/services_test "$build"/tests/backends/{blit,engine}_test "$stage/root/tests/"

# Adds the libraries that a program needs, and those that they need.
add_libraries() {
    local name folder
    for name in $(readelf -d "$1" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p') \
        $(readelf -l "$1" | sed -n 's/.*interpreter: .*\/\(.*\)\]/\1/p'); do
        [ ! -e "$stage/root/lib/$name" ] || continue
        for folder in "${library_folders[@]}"; do
            if [ -e "$folder/$name" ]; then
                cp -L "$folder/$name" "$stage/root/lib/"
                add_libraries "$folder/$name"
                continue 2
            fi
        done
        echo "library $name is not in ${library_folders[*]}" >&2
        return 1
    done
}
for program in "$stage"/root/tests/*; do
    add_libraries "$program"
done
[ "$arch" != x86_64 ] || cp "$stage"/root/lib/ld-linux-x86-64.so.2 "$stage/root/lib64/"
(cd "$stage/root" && find . | cpio -o -H newc --quiet) | gzip -1 >"$stage/initrd"

# vim2m takes 40 ms for a job unless told otherwise.
arguments="quiet panic=-1 loglevel=3 vim2m.default_transtime=1"
case $arch in
    x86_64)
        # Without its rate the clock now and then ticks in whole milliseconds.
        khz=$(awk '/cpu MHz/ {printf "%d", $4 * 1000; exit}' /proc/cpuinfo)
        emulator=(qemu-system-x86_64 -accel tcg -cpu max -smp 2,sockets=2,cores=1,threads=1)
        arguments+=" console=ttyS0 tsc=reliable${khz:+ tsc_early_khz=$khz}"
        ;;
    arm)
        emulator=(qemu-system-arm -accel tcg -M virt -cpu cortex-a15 -smp 2)
        arguments+=" console=ttyAMA0"
        ;;
esac
timeout 900 "${emulator[@]}" -m 512 -nodefaults -display none -serial stdio -no-reboot \
    -kernel "$kernel" -initrd "$stage/initrd" -append "$arguments" </dev/null | tr -d '\r' | tee "$stage/console"
status=$(sed -n 's/.*TAVI-VM-EXIT \([0-9]*\).*/\1/p' "$stage/console")
if [ -z "$status" ]; then
    echo "the machine ended without a result" >&2
    exit 1
fi
exit "$status"
