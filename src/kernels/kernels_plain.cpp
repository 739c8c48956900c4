// SPDX-License-Identifier: MIT
// The plain build, and the choice between the builds.
#include "kernels/kernels_loops.h"

#if defined(__arm__) && defined(__linux__)
#include <sys/auxv.h>
#endif

namespace tavi {

#if defined(__x86_64__) || defined(__i386__)
const Kernels& avx2_kernels();
const Kernels* simd_kernels() { return __builtin_cpu_supports("avx2") ? &avx2_kernels() : nullptr; }
#elif defined(__arm__)
const Kernels& neon_kernels();
const Kernels* simd_kernels() {
    constexpr unsigned long kHwcapNeon = 1UL << 12; // HWCAP_NEON of the 32-bit ARM kernel
    return getauxval(AT_HWCAP) & kHwcapNeon ? &neon_kernels() : nullptr;
}
#else
const Kernels* simd_kernels() { return nullptr; }
#endif

const Kernels& plain_kernels() {
    static const Kernels table = loop_kernels("plain");
    return table;
}

const Kernels& kernels() {
    static const Kernels* const simd = simd_kernels();
    return simd ? *simd : plain_kernels();
}

} // namespace tavi
