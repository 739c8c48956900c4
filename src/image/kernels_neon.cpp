// SPDX-License-Identifier: MIT
// The NEON build: the loops compiled for NEON, and those that compilers do not vectorise well written out.
#include "image/kernels_loops.h"

#if defined(__ARM_NEON)

namespace tavi {

const Kernels& neon_kernels();

const Kernels& neon_kernels() {
    static const Kernels table = loop_kernels("neon");
    return table;
}

} // namespace tavi

#endif
