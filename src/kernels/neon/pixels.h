// SPDX-License-Identifier: MIT
// Sixteen RGB pixels in the vectors of the NEON build, and their weighted sums.
#pragma once

#include "kernels/neon/vec.h"

namespace tavi::neon {
namespace {

struct Channels {
    uint8x16_t first, second, third; // 16 pixels
};

template <int N>
inline Channels load_pixels(const uint8_t* p) {
    if (N == 3) {
        const uint8x16x3_t v = vld3q_u8(p);
        return {v.val[0], v.val[1], v.val[2]};
    }
    const uint8x16x4_t v = vld4q_u8(p);
    return {v.val[0], v.val[1], v.val[2]};
}

inline uint32x4_t weigh(uint16x4_t a, uint16x4_t b, uint16x4_t c, uint16x4_t w, uint32_t bias) {
    return vmlal_lane_u16(vmlal_lane_u16(vmlal_lane_u16(vdupq_n_u32(bias), a, w, 0), b, w, 1), c, w, 2);
}

} // namespace
} // namespace tavi::neon
