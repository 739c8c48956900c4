// SPDX-License-Identifier: MIT
// The AVX2 build: the loops compiled for AVX2, and those that compilers do not vectorise well written out.
#include "image/kernels_loops.h"

#if defined(__AVX2__)

namespace tavi {

const Kernels& avx2_kernels();

const Kernels& avx2_kernels() {
    static const Kernels table = loop_kernels("avx2");
    return table;
}

} // namespace tavi

#endif
