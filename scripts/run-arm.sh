#!/bin/sh
# SPDX-License-Identifier: MIT
# Runs a program of the ARM target in the emulator. TAVI_ARM_NEON=off takes NEON away: from the processor, and from the
# /proc/cpuinfo that the program sees.
cache=${TAVI_ARM_CACHE:-${XDG_CACHE_HOME:-$HOME/.cache}/tavi-arm}
# The search for leaks stops the program to look at it, which the emulator does not offer. Of freed memory only a little
# is held back: with the usual amount two tests of the conversions come to a standstill in the emulator's 4 GiB.
export ASAN_OPTIONS="detect_leaks=0:quarantine_size_mb=4:thread_local_quarantine_size_kb=64${ASAN_OPTIONS:+:$ASAN_OPTIONS}"
if [ "${TAVI_ARM_NEON:-on}" = off ]; then
    exec qemu-arm -cpu max,neon=off -L "$cache/root-without-neon" "$@"
fi
exec qemu-arm -cpu cortex-a15 -L "$cache/root" "$@"
