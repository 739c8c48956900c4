#!/bin/sh
# SPDX-License-Identifier: MIT
# Runs a program of the ARM target in the emulator. TAVI_ARM_NEON=off takes NEON away: from the processor, and from the
# /proc/cpuinfo that the program sees.
cache=${TAVI_ARM_CACHE:-${XDG_CACHE_HOME:-$HOME/.cache}/tavi-arm}
# The search for leaks stops the program to look at it, which the emulator does not offer.
export ASAN_OPTIONS="detect_leaks=0${ASAN_OPTIONS:+:$ASAN_OPTIONS}"
if [ "${TAVI_ARM_NEON:-on}" = off ]; then
    exec qemu-arm -cpu max,neon=off -L "$cache/root-without-neon" "$@"
fi
exec qemu-arm -cpu cortex-a15 -L "$cache/root" "$@"
