// SPDX-License-Identifier: MIT
// Warping, orientation and repetition for NEON. Every kernel gives the bytes of its plain loop.
#if defined(__ARM_NEON)

#include <algorithm>

#include "image/numbers.h"
#include "kernels/kinds.h"
#include "kernels/neon/vec.h"
#include "kernels/plain/geometry.h"

namespace tavi::neon {
namespace {

/// Bits 8 to 15 of positions, one in the low word of each lane.
inline uint32x2_t fractions(int32x2_t at) {
    return vand_u32(vshr_n_u32(vreinterpret_u32_s32(at), kPositionBits - kWarpBits),
                    vdup_n_u32((1 << kWarpBits) - 1));
}

template <int C>
void affine_wide(const AffineSpan& table, uint8_t* out, int n) {
    const AffineSpan s = table; // which stores to `out` cannot change
    // Loads of eight bytes must stay inside the plane: all but its last row lend the next row's bytes.
    const int32_t last_y = s.y + (n - 1) * s.dy;
    if ((std::max(s.y, last_y) >> kPositionBits) + 2 >= s.rows)
        return plain_kernels().affine_span[C - 1](s, out, n);
    const auto positions = [](int32_t first, int32_t step) {
        return vset_lane_s32(wrapping_add(first, step), vdup_n_s32(first), 1);
    };
    int32x2_t xs = positions(s.x, s.dx), ys = positions(s.y, s.dy);
    const int32x2_t step_x = vshl_n_s32(vdup_n_s32(s.dx), 1), step_y = vshl_n_s32(vdup_n_s32(s.dy), 1);
    int32_t x = s.x, y = s.y;
    int i = 0;
    for (; i + 3 <= n; i += 2) { // a store may run a byte into the next column
        const uint32x2_t fx = fractions(xs);
        const uint16x4_t fy = vreinterpret_u16_u32(fractions(ys));
        const int16x4_t right = vreinterpret_s16_u32(fx),
                        left = vreinterpret_s16_u32(vsub_u32(vdup_n_u32(1 << kWarpBits), fx));
        xs = vadd_s32(xs, step_x), ys = vadd_s32(ys, step_y);
        const auto vertical = [&](uint16x4_t f) {
            const uint8_t* p = s.data + (y >> kPositionBits) * s.pitch + (x >> kPositionBits) * C;
            x = wrapping_add(x, s.dx), y = wrapping_add(y, s.dy);
            const uint8x8_t top = vld1_u8(p), bottom = vld1_u8(p + s.pitch);
            // 256 top + fy (bottom - top), exact in sixteen bits although the product alone wraps.
            const uint16x8_t v = vmlaq_lane_u16(vshll_n_u8(top, kWarpBits), vsubl_u8(bottom, top), f, 0);
            return vreinterpretq_s16_u16(vshrq_n_u16(v, 1));
        };
        const int16x8_t a = vertical(fy), b = vertical(vext_u16(fy, fy, 2));
        const auto next = [](int16x8_t v) { return vext_s16(vget_low_s16(v), vget_high_s16(v), C % 4); };
        const int16x4_t a_next = C == 4 ? vget_high_s16(a) : next(a), b_next = C == 4 ? vget_high_s16(b) : next(b);
        const int32x4_t a_sum = vmlal_lane_s16(vmull_lane_s16(vget_low_s16(a), left, 0), a_next, right, 0);
        const int32x4_t b_sum = vmlal_lane_s16(vmull_lane_s16(vget_low_s16(b), left, 2), b_next, right, 2);
        store_columns2<C>(out + i * C, vqmovun_s16(vcombine_s16(vrshrn_n_s32(a_sum, kWarpSumBits),
                                                                vrshrn_n_s32(b_sum, kWarpSumBits))));
    }
    for (; i < n; ++i)
        affine_pixel<C>(s, s.x + i * s.dx, s.y + i * s.dy, out + i * C);
}

/// One and two channels: four or two columns at a time, of which no byte too many is read.
template <int C>
void affine_narrow(const AffineSpan& table, uint8_t* out, int n) {
    const AffineSpan s = table;
    constexpr int kColumns = 4 / C;
    constexpr int32_t kColumnOf[4] = {0, 1 / C, 2 / C, 3 / C}; // of the four results
    const auto positions = [&](int32_t first, int32_t step) {
        return vmlaq_n_s32(vdupq_n_s32(first), vld1q_s32(kColumnOf), step);
    };
    const auto fraction = [](int32x4_t at) {
        return vand_u16(vshrn_n_u32(vreinterpretq_u32_s32(at), kPositionBits - kWarpBits),
                        vdup_n_u16((1 << kWarpBits) - 1));
    };
    int32x4_t xs = positions(s.x, s.dx), ys = positions(s.y, s.dy);
    const int32x4_t step_x = vmulq_n_s32(vdupq_n_s32(kColumns), s.dx),
                    step_y = vmulq_n_s32(vdupq_n_s32(kColumns), s.dy);
    int32_t x = s.x, y = s.y;
    int i = 0;
    for (; i + kColumns <= n; i += kColumns, xs = vaddq_s32(xs, step_x), ys = vaddq_s32(ys, step_y)) {
        const auto next = [&] {
            const uint8_t* p = s.data + (y >> kPositionBits) * s.pitch + (x >> kPositionBits) * C;
            x = wrapping_add(x, s.dx), y = wrapping_add(y, s.dy);
            return p;
        };
        uint8x8_t top, bottom; // the samples of a column and of the next, for each
        if (C == 1) {
            const uint8_t *a = next(), *b = next(), *c = next(), *d = next();
            const auto load = [&](ptrdiff_t down) {
                const auto at = [&](const uint8_t* p) { return reinterpret_cast<const uint16_t*>(p + down); };
                const uint16x4_t ab = vld1_lane_u16(at(b), vld1_dup_u16(at(a)), 1);
                return vreinterpret_u8_u16(vld1_lane_u16(at(d), vld1_lane_u16(at(c), ab, 2), 3));
            };
            top = load(0), bottom = load(s.pitch);
        } else {
            const uint8_t *a = next(), *b = next();
            top = vreinterpret_u8_u32(load_words2(a, b));
            bottom = vreinterpret_u8_u32(load_words2(a + s.pitch, b + s.pitch));
        }
        const uint16x4_t fy = fraction(ys);
        const uint16x4x2_t twice = vzip_u16(fy, fy);
        const uint16x8_t v =
            vmlaq_u16(vshll_n_u8(top, kWarpBits), vsubl_u8(bottom, top), vcombine_u16(twice.val[0], twice.val[1]));
        const int16x8_t h = vreinterpretq_s16_u16(vshrq_n_u16(v, 1));
        int16x4_t left, right;
        if (C == 1) {
            const int16x4x2_t apart = vuzp_s16(vget_low_s16(h), vget_high_s16(h));
            left = apart.val[0], right = apart.val[1];
        } else {
            const int32x2x2_t apart =
                vtrn_s32(vreinterpret_s32_s16(vget_low_s16(h)), vreinterpret_s32_s16(vget_high_s16(h)));
            left = vreinterpret_s16_s32(apart.val[0]), right = vreinterpret_s16_s32(apart.val[1]);
        }
        const int16x4_t fx = vreinterpret_s16_u16(fraction(xs));
        const int32x4_t sum = vmlal_s16(vmull_s16(left, vsub_s16(vdup_n_s16(1 << kWarpBits), fx)), right, fx);
        const uint16x4_t bytes = vreinterpret_u16_s16(vrshrn_n_s32(sum, kWarpSumBits));
        store_bytes4(out + i * C, vmovn_u16(vcombine_u16(bytes, bytes)));
    }
    for (; i < n; ++i)
        affine_pixel<C>(s, s.x + i * s.dx, s.y + i * s.dy, out + i * C);
}

// --------------------------------------------------------------------------------------------- drawing

void repeat12(uint8_t* to, size_t size, const uint8_t* pattern) {
    const uint8x16_t a = vld1q_u8(pattern), b = vld1q_u8(pattern + 16), c = vld1q_u8(pattern + 32);
    for (size_t at = 0; at + 48 < size; at += 48) {
        vst1q_u8(to + at, a);
        vst1q_u8(to + at + 16, b);
        vst1q_u8(to + at + 32, c);
    }
    repeat12_end(to, size, pattern);
}

// --------------------------------------------------------------------------------------------- orientation

template <int N>
void mirror(const uint8_t* row, uint8_t* out, int cols) {
    if (!by_blocks<8>(cols, [=](int x) {
            const uint8_t* p = row + (cols - 8 - x) * N;
            uint8_t* q = out + x * N;
            if (N == 1) {
                vst1_u8(q, vrev64_u8(vld1_u8(p)));
            } else if (N == 2) {
                const uint8x8x2_t v = vld2_u8(p);
                vst2_u8(q, {{vrev64_u8(v.val[0]), vrev64_u8(v.val[1])}});
            } else if (N == 3) {
                const uint8x8x3_t v = vld3_u8(p);
                vst3_u8(q, {{vrev64_u8(v.val[0]), vrev64_u8(v.val[1]), vrev64_u8(v.val[2])}});
            } else {
                const uint8x8x4_t v = vld4_u8(p);
                vst4_u8(q, {{vrev64_u8(v.val[0]), vrev64_u8(v.val[1]), vrev64_u8(v.val[2]), vrev64_u8(v.val[3])}});
            }
        }))
        plain_kernels().mirror[N - 1](row, out, cols);
}

/// 8 x 8 bytes in place. Unrolled, the rows stay in registers.
inline void transpose8(uint8x8_t* a) {
#pragma GCC unroll 8
    for (int i = 0; i < 8; i += 2) {
        const uint8x8x2_t t = vtrn_u8(a[i], a[i + 1]);
        a[i] = t.val[0], a[i + 1] = t.val[1];
    }
#pragma GCC unroll 4
    for (int k = 0; k < 4; ++k) {
        const int i = k + (k & 2); // 0, 1, 4, 5
        const uint16x4x2_t t = vtrn_u16(vreinterpret_u16_u8(a[i]), vreinterpret_u16_u8(a[i + 2]));
        a[i] = vreinterpret_u8_u16(t.val[0]), a[i + 2] = vreinterpret_u8_u16(t.val[1]);
    }
#pragma GCC unroll 8
    for (int i = 0; i < 4; ++i) {
        const uint32x2x2_t t = vtrn_u32(vreinterpret_u32_u8(a[i]), vreinterpret_u32_u8(a[i + 4]));
        a[i] = vreinterpret_u8_u32(t.val[0]), a[i + 4] = vreinterpret_u8_u32(t.val[1]);
    }
}

template <int N>
void transpose_small(const uint8_t* src, ptrdiff_t src_pitch, uint8_t* dst, ptrdiff_t dst_pitch, int cols) {
    int x = 0;
    for (; x + 8 <= cols; x += 8)
        for (int y = 0; y < 16; y += 8) {
            uint8x8_t a[N][8];
#pragma GCC unroll 8
            for (int i = 0; i < 8; ++i) {
                const uint8_t* p = src + (y + i) * src_pitch + x * N;
                if (N == 1) {
                    a[0][i] = vld1_u8(p);
                } else if (N == 2) {
                    const uint8x8x2_t v = vld2_u8(p);
                    a[0][i] = v.val[0], a[N - 1][i] = v.val[1];
                } else {
                    const uint8x8x3_t v = vld3_u8(p);
                    a[0][i] = v.val[0], a[1 % N][i] = v.val[1], a[N - 1][i] = v.val[2];
                }
            }
#pragma GCC unroll 8
            for (int c = 0; c < N; ++c)
                transpose8(a[c]);
#pragma GCC unroll 8
            for (int i = 0; i < 8; ++i) {
                uint8_t* q = dst + (x + i) * dst_pitch + y * N;
                if (N == 1)
                    vst1_u8(q, a[0][i]);
                else if (N == 2)
                    vst2_u8(q, {{a[0][i], a[N - 1][i]}});
                else
                    vst3_u8(q, {{a[0][i], a[1 % N][i], a[N - 1][i]}});
            }
        }
    if (x < cols)
        plain_kernels().transpose16[N - 1](src + N * x, src_pitch, dst + x * dst_pitch, dst_pitch, cols - x);
}

void transpose_4(const uint8_t* src, ptrdiff_t src_pitch, uint8_t* dst, ptrdiff_t dst_pitch, int cols) {
    int x = 0;
    for (; x + 4 <= cols; x += 4)
        for (int y = 0; y < 16; y += 4) {
            uint32x4_t a[4];
#pragma GCC unroll 4 // so that they stay in registers
            for (int i = 0; i < 4; ++i)
                a[i] = vreinterpretq_u32_u8(vld1q_u8(src + (y + i) * src_pitch + 4 * x));
            const uint32x4x2_t p = vtrnq_u32(a[0], a[1]), q = vtrnq_u32(a[2], a[3]);
            const uint32x4_t out[4] = {vcombine_u32(vget_low_u32(p.val[0]), vget_low_u32(q.val[0])),
                                       vcombine_u32(vget_low_u32(p.val[1]), vget_low_u32(q.val[1])),
                                       vcombine_u32(vget_high_u32(p.val[0]), vget_high_u32(q.val[0])),
                                       vcombine_u32(vget_high_u32(p.val[1]), vget_high_u32(q.val[1]))};
#pragma GCC unroll 4
            for (int i = 0; i < 4; ++i)
                vst1q_u8(dst + (x + i) * dst_pitch + 4 * y, vreinterpretq_u8_u32(out[i]));
        }
    if (x < cols)
        plain_kernels().transpose16[3](src + 4 * x, src_pitch, dst + x * dst_pitch, dst_pitch, cols - x);
}

} // namespace

void use_geometry(Kernels& k) {
    k.affine_span[0] = affine_narrow<1>;
    k.affine_span[1] = affine_narrow<2>;
    k.affine_span[2] = affine_wide<3>;
    k.affine_span[3] = affine_wide<4>;
    k.repeat12 = repeat12;
    for_each<4>([&](auto i) { k.mirror[i] = mirror<i + 1>; });
    for_each<3>([&](auto i) { k.transpose16[i] = transpose_small<i + 1>; });
    k.transpose16[3] = transpose_4;
}

} // namespace tavi::neon

#endif
