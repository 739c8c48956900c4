#!/bin/sh
# SPDX-License-Identifier: MIT
# Runs a program of an ARM target in the emulator: run-arm.sh armhf|arm64 PROGRAM ARGUMENT...
# With TAVI_ARM_NEON=off the 32-bit processor has no NEON, nor the /proc/cpuinfo that the program sees.
cache=${TAVI_ARM_CACHE:-${XDG_CACHE_HOME:-$HOME/.cache}/tavi-arm}
arch=$1
shift
# The search for leaks stops the program to look at it, which the emulator does not offer. Of freed memory only a little
# is held back: with the usual amount two tests of the conversions come to a standstill in the emulator's 4 GiB.
export ASAN_OPTIONS="detect_leaks=0:quarantine_size_mb=4:thread_local_quarantine_size_kb=64${ASAN_OPTIONS:+:$ASAN_OPTIONS}"
if [ "$arch" = arm64 ]; then
    exec qemu-aarch64 -cpu cortex-a53 -L "$cache/arm64/root" "$@"
elif [ "${TAVI_ARM_NEON:-on}" = off ]; then
    exec qemu-arm -cpu max,neon=off -L "$cache/root-without-neon" "$@"
fi
exec qemu-arm -cpu cortex-a15 -L "$cache/root" "$@"
