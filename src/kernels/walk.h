// SPDX-License-Identifier: MIT
// The one walk along a row that the SIMD builds share, and with it the rule for what is left of a row.
#pragma once

namespace tavi {
namespace { // each build compiles its own

/// Calls `block` with the start of each N of n elements; the last block overlaps the one before. False, and nothing
/// is done, for a row shorter than a block.
template <int N, class Block>
inline bool by_blocks(int n, Block block) {
    if (n < N)
        return false;
    for (int i = 0;;) { // one call: the block is expanded once
        block(i);
        if (i == n - N)
            return true;
        i += N;
        if (__builtin_expect(i > n - N, 0)) {
            i = n - N;
            asm("" : "+r"(i)); // a jump and no selection, for which the next block would wait
        }
    }
}

} // namespace
} // namespace tavi
