// SPDX-License-Identifier: MIT
// What several kinds of the NEON build share: loads and stores of columns, sums to bytes.
#pragma once

#include <arm_neon.h>

#include "kernels/fixed.h"
#include "kernels/kernels.h"
#include "kernels/walk.h"

namespace tavi::neon {

void use_colour(Kernels& k);
void use_orders(Kernels& k);
void use_scale(Kernels& k);
void use_taps(Kernels& k);
void use_geometry(Kernels& k);
void use_elements(Kernels& k);

namespace {

inline int16x4_t signed4(uint16x4_t v) { return vreinterpret_s16_u16(v); }

inline int16x8_t scaled(uint8x8_t v) { return vreinterpretq_s16_u16(vshll_n_u8(v, kRowBits)); }

inline uint16x8_t words(int16x8_t v) { return vreinterpretq_u16_s16(v); }

/// a to b by a weight in Q15, as words of a row.
inline int16x8_t mix8(uint8x8_t a, uint8x8_t b, int16x8_t weight) {
    const int16x8_t d = vshlq_n_s16(vreinterpretq_s16_u16(vsubl_u8(b, a)), kRowBits);
    return vaddq_s16(scaled(a), vqrdmulhq_s16(d, weight));
}

inline int16x8_t weights8(int weight) { return vdupq_n_s16(static_cast<int16_t>(weight)); }

inline void store_bytes4(uint8_t* out, uint8x8_t v) {
    vst1_lane_u32(reinterpret_cast<uint32_t*>(out), vreinterpret_u32_u8(v), 0);
}

inline uint32x2_t load_words2(const void* a, const void* b) {
    return vld1_lane_u32(static_cast<const uint32_t*>(b), vld1_dup_u32(static_cast<const uint32_t*>(a)), 1);
}

/// Two columns, each in four bytes. With three channels a store runs one byte into the next column.
template <int C>
inline void store_columns2(uint8_t* out, uint8x8_t bytes) {
    if (C == 4) {
        vst1_u8(out, bytes);
    } else {
        store_bytes4(out, bytes);
        store_bytes4(out + 3, vreinterpret_u8_u64(vshr_n_u64(vreinterpret_u64_u8(bytes), 32)));
    }
}

} // namespace
} // namespace tavi::neon
