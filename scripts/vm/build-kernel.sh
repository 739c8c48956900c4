#!/bin/bash
# SPDX-License-Identifier: MIT
# Builds the test machine's kernel from Debian's kernel source, outside the tree, and prints the image's path. A kernel
# is kept until its options or the source package change.
# Usage: build-kernel.sh x86_64|arm
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
. "$here/../packages.sh"
arch=$1
cache=${TAVI_VM_CACHE:-${XDG_CACHE_HOME:-$HOME/.cache}/tavi-vm}
package=linux-source-6.1

case $arch in
    x86_64) make_arch=x86_64 cross= target=bzImage image=arch/x86/boot/bzImage packages=() ;;
    arm) make_arch=arm cross=arm-linux-gnueabihf- target=zImage image=arch/arm/boot/zImage
        packages=(gcc-arm-linux-gnueabihf libc6-dev-armhf-cross) ;;
    *) echo "usage: $0 x86_64|arm" >&2; exit 2 ;;
esac
need $package gcc make flex bison bc xz-utils libelf-dev libc6-dev "${packages[@]}"

version=$(dpkg-query -W -f '${Version}' $package)
options=$(cat "$here/kernel.config" "$here/kernel-$arch.config")
key=$(printf '%s\n%s\n' "$version" "$options" | sha256sum | cut -c1-16)
kernel=$cache/kernel-$arch-$key
if [ -f "$kernel" ]; then
    echo "$kernel"
    exit 0
fi

mkdir -p "$cache"
exec 9>"$cache/lock-$arch"
flock 9 # two runs at once build one kernel
[ ! -f "$kernel" ] || { echo "$kernel"; exit 0; }
source=$cache/source-$version
if [ ! -f "$source/.unpacked" ]; then
    (
        flock 8
        [ ! -f "$source/.unpacked" ] || exit 0
        echo "unpacking $package $version" >&2
        rm -rf "$source" && mkdir -p "$source"
        tar -C "$source" --strip-components=1 -xf /usr/src/$package.tar.xz
        touch "$source/.unpacked"
    ) 8>"$cache/lock-source"
fi

echo "building the $arch kernel: about ten minutes of processor time, once" >&2
build=$cache/build-$arch
make=(nice make -C "$source" O="$build" ARCH=$make_arch CROSS_COMPILE=$cross)
mkdir -p "$build"
"${make[@]}" -s tinyconfig >"$build/log" 2>&1
printf '%s\n' "$options" >"$build/tavi.config"
"$source/scripts/kconfig/merge_config.sh" -m -O "$build" "$build/.config" "$build/tavi.config" >>"$build/log" 2>&1
"${make[@]}" -s olddefconfig >>"$build/log" 2>&1
# The merge drops an option whose dependencies fail without a word.
missing=$(grep '^CONFIG' "$build/tavi.config" | grep -vxFf "$build/.config" || true)
if [ -n "$missing" ]; then
    printf 'these kernel options did not survive:\n%s\n' "$missing" >&2
    exit 1
fi
if ! "${make[@]}" -j"$(nproc)" $target >>"$build/log" 2>&1; then
    tail -n 30 "$build/log" >&2
    exit 1
fi
cp "$build/$image" "$kernel.part"
mv "$kernel.part" "$kernel"
echo "$kernel"
