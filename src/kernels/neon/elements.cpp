// SPDX-License-Identifier: MIT
// Elements of tensors on NEON.
#if defined(__ARM_NEON) && TAVI_WITH_FRAMES

#include "kernels/plain/elements.h"
#include "kernels/neon/vec.h"
#include "kernels/walk.h"

namespace tavi::neon {
namespace {

void split3(const uint8_t* pixels, uint8_t* const rows[3], int n) {
    const bool done = by_blocks<16>(n, [&](int i) {
        const uint8x16x3_t v = vld3q_u8(pixels + 3 * i);
        vst1q_u8(rows[0] + i, v.val[0]);
        vst1q_u8(rows[1] + i, v.val[1]);
        vst1q_u8(rows[2] + i, v.val[2]);
    });
    if (!done)
        split3_loop(pixels, rows, n);
}

// On 32-bit ARM results that are not normal numbers become 0; who needs those compares before.
void to_float(const uint8_t* bytes, float* out, int n, float mean, float scale) {
    const float32x4_t m = vdupq_n_f32(mean);
    const auto element = [&](uint16x4_t v) { return vmulq_n_f32(vsubq_f32(vcvtq_f32_u32(vmovl_u16(v)), m), scale); };
    const bool done = by_blocks<8>(n, [&](int i) {
        const uint16x8_t v = vmovl_u8(vld1_u8(bytes + i));
        vst1q_f32(out + i, element(vget_low_u16(v)));
        vst1q_f32(out + i + 4, element(vget_high_u16(v)));
    });
    if (!done)
        to_float_loop(bytes, out, n, mean, scale);
}

} // namespace

void use_elements(Kernels& k) {
    k.split3 = split3;
    k.to_float = to_float;
}

} // namespace tavi::neon

#endif
