// SPDX-License-Identifier: MIT
// The NEON build for 32-bit ARM: the loops worth it written out, and the plain ones for the rest. Every kernel here
// gives the bytes of its loop. What is left of a row after whole blocks is done by a last block that overlaps the one
// before, or by the loop where a row is shorter than a block.
#include "image/kernels_loops.h"

#if defined(__ARM_NEON)

#include <arm_neon.h>

namespace tavi {

const Kernels& neon_kernels();

namespace {

// ---------------------------------------------------------------------------------------------- YUV to RGB

template <int Kind>
inline void store_pixels(uint8_t* out, uint8x16_t r, uint8x16_t g, uint8x16_t b) {
    constexpr bool swapped = Kind == kBGR || Kind == kBGRA;
    if (rgb_bytes<Kind>() == 3)
        vst3q_u8(out, {{swapped ? b : r, g, swapped ? r : b}});
    else
        vst4q_u8(out, {{swapped ? b : r, g, swapped ? r : b, vdupq_n_u8(255)}});
}

/// Sixteen pixels: the even and the odd ones, which share their chroma.
struct YuvBlock {
    uint8x8_t even, odd;
    uint8x8_t u, v;
};

template <int Chroma>
inline YuvBlock load_yuv(const uint8_t* y, const uint8_t* u, const uint8_t* v, int x) {
    if (Chroma == kPackedYUYV || Chroma == kPackedUYVY) {
        const uint8x8x4_t p = vld4_u8(y + 2 * x); // y u y v, or u y v y
        constexpr int luma = Chroma == kPackedYUYV ? 0 : 1, chroma = 1 - luma;
        return {p.val[luma], p.val[luma + 2], p.val[chroma], p.val[chroma + 2]};
    }
    const uint8x8x2_t luma = vld2_u8(y + x);
    if (Chroma == kPlanar)
        return {luma.val[0], luma.val[1], vld1_u8(u + x / 2), vld1_u8(v + x / 2)};
    const uint8x8x2_t pairs = vld2_u8(u + x);
    return {luma.val[0], luma.val[1], pairs.val[Chroma == kPairsVU], pairs.val[Chroma == kPairsUV]};
}

/// Kept in registers over a row.
struct YuvFactors {
    int16x8_t v_to_r = vdupq_n_s16(kVtoR), u_to_g = vdupq_n_s16(kUtoG), v_to_g = vdupq_n_s16(kVtoG),
              u_to_b = vdupq_n_s16(kUtoB);
    int16x8_t bias = vdupq_n_s16(kYuvBias);
};

template <int Kind>
inline void store_yuv_as_rgb(const YuvFactors& k, const YuvBlock& block, uint8_t* out) {
    const uint8x8_t sign = vdup_n_u8(0x80), scale = vdup_n_u8(149);
    const int16x8_t u = vshll_n_s8(vreinterpret_s8_u8(veor_u8(block.u, sign)), 8);
    const int16x8_t v = vshll_n_s8(vreinterpret_s8_u8(veor_u8(block.v, sign)), 8);
    const int16x8_t r = vqrdmulhq_s16(v, k.v_to_r), b = vqrdmulhq_s16(u, k.u_to_b);
    const int16x8_t g = vaddq_s16(vqrdmulhq_s16(u, k.u_to_g), vqrdmulhq_s16(v, k.v_to_g));
    const auto luma = [&](uint8x8_t y) {
        return vaddq_s16(vreinterpretq_s16_u16(vshrq_n_u16(vmull_u8(y, scale), 1)), k.bias);
    };
    const int16x8_t even = luma(block.even), odd = luma(block.odd);
    const auto channel = [](int16x8_t first, int16x8_t second) {
        const uint8x8x2_t p = vzip_u8(vqshrun_n_s16(first, 6), vqshrun_n_s16(second, 6));
        return vcombine_u8(p.val[0], p.val[1]);
    };
    store_pixels<Kind>(out, channel(vqaddq_s16(even, r), vqaddq_s16(odd, r)),
                       channel(vqsubq_s16(even, g), vqsubq_s16(odd, g)),
                       channel(vqaddq_s16(even, b), vqaddq_s16(odd, b)));
}

template <int Chroma, int Kind>
void yuv_to_rgb(const uint8_t* y, const uint8_t* u, const uint8_t* v, uint8_t* rgb, int width) {
    if (width < 16)
        return plain_kernels().yuv_to_rgb[Chroma][Kind](y, u, v, rgb, width);
    const YuvFactors factors;
    for (int x = 0;; x = x + 32 <= width ? x + 16 : width - 16) {
        store_yuv_as_rgb<Kind>(factors, load_yuv<Chroma>(y, u, v, x), rgb + x * rgb_bytes<Kind>());
        if (x + 16 >= width)
            return;
    }
}

// ---------------------------------------------------------------------------------------------- RGB to YUV

// One body for three bytes a pixel and one for four: the order of the channels is the order of the weights, and where
// chroma goes is asked per block. Twelve of each would be 20 KB of code.

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

/// Weights by channel in memory; the fourth is not used.
struct YuvWeights {
    uint16_t y[4];
    int16_t u[4], v[4];
};
constexpr YuvWeights kYuvWeights[2] = {{{kRtoY, kGtoY, kBtoY}, {kRtoU, kGtoU, kBtoU}, {kRtoV, kGtoV, kBtoV}},
                                       {{kBtoY, kGtoY, kRtoY}, {kBtoU, kGtoU, kRtoU}, {kBtoV, kGtoV, kRtoV}}};

inline uint32x4_t weigh(uint16x4_t a, uint16x4_t b, uint16x4_t c, uint16x4_t w, uint32_t bias) {
    return vmlal_lane_u16(vmlal_lane_u16(vmlal_lane_u16(vdupq_n_u32(bias), a, w, 0), b, w, 1), c, w, 2);
}

inline uint8x8_t luma8(uint8x8_t a8, uint8x8_t b8, uint8x8_t c8, uint16x4_t w) {
    const uint16x8_t a = vmovl_u8(a8), b = vmovl_u8(b8), c = vmovl_u8(c8);
    const uint32x4_t lo = weigh(vget_low_u16(a), vget_low_u16(b), vget_low_u16(c), w, kLumaBias);
    const uint32x4_t hi = weigh(vget_high_u16(a), vget_high_u16(b), vget_high_u16(c), w, kLumaBias);
    return vmovn_u16(vcombine_u16(vshrn_n_u32(lo, 15), vshrn_n_u32(hi, 15)));
}

inline uint8x16_t luma16(const Channels& p, uint16x4_t w) {
    return vcombine_u8(luma8(vget_low_u8(p.first), vget_low_u8(p.second), vget_low_u8(p.third), w),
                       luma8(vget_high_u8(p.first), vget_high_u8(p.second), vget_high_u8(p.third), w));
}

/// Sums of pixels, eight samples of chroma.
struct Sums {
    uint16x8_t first, second, third;
};

/// Eight chroma samples of sums of 1 << Shift pixels.
template <int Shift>
inline uint8x8_t chroma8(const Sums& s, int16x4_t w) {
    const int16x8_t a = vreinterpretq_s16_u16(s.first), b = vreinterpretq_s16_u16(s.second),
                    c = vreinterpretq_s16_u16(s.third);
    const int32x4_t bias = vdupq_n_s32((128 << (15 + Shift)) + (1 << (14 + Shift)));
    const auto half = [&](int16x4_t a4, int16x4_t b4, int16x4_t c4) {
        const int32x4_t sum = vmlal_lane_s16(vmlal_lane_s16(vmlal_lane_s16(bias, a4, w, 0), b4, w, 1), c4, w, 2);
        return vmovn_s32(vshrq_n_s32(sum, 15 + Shift));
    };
    return vqmovun_s16(vcombine_s16(half(vget_low_s16(a), vget_low_s16(b), vget_low_s16(c)),
                                    half(vget_high_s16(a), vget_high_s16(b), vget_high_s16(c))));
}

template <int Shift>
inline void store_chroma(int chroma, uint8_t* u, uint8_t* v, int x, const Sums& s, const YuvWeights& weights) {
    const uint8x8_t cu = chroma8<Shift>(s, vld1_s16(weights.u)), cv = chroma8<Shift>(s, vld1_s16(weights.v));
    if (chroma == kPlanar) {
        vst1_u8(u + x / 2, cu);
        vst1_u8(v + x / 2, cv);
    } else if (chroma == kPairsUV) {
        vst2_u8(u + x, {{cu, cv}});
    } else {
        vst2_u8(u + x, {{cv, cu}});
    }
}

template <int N>
__attribute__((noinline)) void to_yuv420(int chroma, bool swapped, const uint8_t* a, const uint8_t* b, uint8_t* ya,
                                         uint8_t* yb, uint8_t* u, uint8_t* v, int width) {
    const YuvWeights& weights = kYuvWeights[swapped];
    const uint16x4_t w = vld1_u16(weights.y);
    for (int x = 0;; x = x + 32 <= width ? x + 16 : width - 16) {
        const Channels p = load_pixels<N>(a + x * N), q = load_pixels<N>(b + x * N);
        vst1q_u8(ya + x, luma16(p, w));
        vst1q_u8(yb + x, luma16(q, w));
        store_chroma<2>(chroma, u, v, x,
                        {vpadalq_u8(vpaddlq_u8(p.first), q.first), vpadalq_u8(vpaddlq_u8(p.second), q.second),
                         vpadalq_u8(vpaddlq_u8(p.third), q.third)},
                        weights);
        if (x + 16 >= width)
            return;
    }
}

template <int N>
__attribute__((noinline)) void to_yuv422(int chroma, bool swapped, const uint8_t* rgb, uint8_t* y, uint8_t* u,
                                         uint8_t* v, int width) {
    const YuvWeights& weights = kYuvWeights[swapped];
    const uint16x4_t w = vld1_u16(weights.y);
    for (int x = 0;; x = x + 32 <= width ? x + 16 : width - 16) {
        const Channels p = load_pixels<N>(rgb + x * N);
        vst1q_u8(y + x, luma16(p, w));
        store_chroma<1>(chroma, u, v, x, {vpaddlq_u8(p.first), vpaddlq_u8(p.second), vpaddlq_u8(p.third)}, weights);
        if (x + 16 >= width)
            return;
    }
}

template <int Kind>
constexpr bool is_swapped() {
    return Kind == kBGR || Kind == kBGRA;
}

template <int Chroma, int Kind>
void rgb_to_yuv420(const uint8_t* a, const uint8_t* b, uint8_t* ya, uint8_t* yb, uint8_t* u, uint8_t* v, int width) {
    if (width < 16)
        return plain_kernels().rgb_to_yuv420[Chroma][Kind](a, b, ya, yb, u, v, width);
    to_yuv420<rgb_bytes<Kind>()>(Chroma, is_swapped<Kind>(), a, b, ya, yb, u, v, width);
}

template <int Chroma, int Kind>
void rgb_to_yuv422(const uint8_t* rgb, uint8_t* y, uint8_t* u, uint8_t* v, int width) {
    if (width < 16)
        return plain_kernels().rgb_to_yuv422[Chroma][Kind](rgb, y, u, v, width);
    to_yuv422<rgb_bytes<Kind>()>(Chroma, is_swapped<Kind>(), rgb, y, u, v, width);
}

inline uint8x8_t gray8(uint8x8_t a8, uint8x8_t b8, uint8x8_t c8, uint16x4_t w) {
    const uint16x8_t a = vmovl_u8(a8), b = vmovl_u8(b8), c = vmovl_u8(c8);
    const auto half = [&](uint16x4_t a4, uint16x4_t b4, uint16x4_t c4) {
        return vshrn_n_u32(vmull_n_u16(vshrn_n_u32(weigh(a4, b4, c4, w, 500), 3), 33555), 16);
    };
    return vshrn_n_u16(vcombine_u16(half(vget_low_u16(a), vget_low_u16(b), vget_low_u16(c)),
                                    half(vget_high_u16(a), vget_high_u16(b), vget_high_u16(c))),
                       6);
}

template <int N>
__attribute__((noinline)) void to_gray(bool swapped, const uint8_t* rgb, uint8_t* gray, int width) {
    constexpr uint16_t kWeights[2][4] = {{299, 587, 114}, {114, 587, 299}};
    const uint16x4_t w = vld1_u16(kWeights[swapped]);
    for (int x = 0;; x = x + 32 <= width ? x + 16 : width - 16) {
        const Channels p = load_pixels<N>(rgb + x * N);
        vst1_u8(gray + x, gray8(vget_low_u8(p.first), vget_low_u8(p.second), vget_low_u8(p.third), w));
        vst1_u8(gray + x + 8, gray8(vget_high_u8(p.first), vget_high_u8(p.second), vget_high_u8(p.third), w));
        if (x + 16 >= width)
            return;
    }
}

template <int Kind>
void rgb_to_gray(const uint8_t* rgb, uint8_t* gray, int width) {
    if (width < 16)
        return plain_kernels().rgb_to_gray[Kind](rgb, gray, width);
    to_gray<rgb_bytes<Kind>()>(is_swapped<Kind>(), rgb, gray, width);
}

template <int N>
void gray_to_rgb(const uint8_t* gray, uint8_t* rgb, int width) {
    if (width < 16)
        return plain_kernels().gray_to_rgb[N - 3](gray, rgb, width);
    for (int x = 0;; x = x + 32 <= width ? x + 16 : width - 16) {
        const uint8x16_t g = vld1q_u8(gray + x);
        if (N == 3)
            vst3q_u8(rgb + 3 * x, {{g, g, g}});
        else
            vst4q_u8(rgb + 4 * x, {{g, g, g, vdupq_n_u8(255)}});
        if (x + 16 >= width)
            return;
    }
}

void gray16_to_8(const uint8_t* gray16, uint8_t* gray, int width) {
    if (width < 8)
        return plain_kernels().gray16_to_8(gray16, gray, width);
    for (int x = 0;; x = x + 16 <= width ? x + 8 : width - 8) {
        const uint16x8_t v = vreinterpretq_u16_u8(vld1q_u8(gray16 + 2 * x));
        const uint32x4_t bias = vdupq_n_u32(32895);
        const uint16x4_t lo = vshrn_n_u32(vmlal_n_u16(bias, vget_low_u16(v), 255), 16);
        const uint16x4_t hi = vshrn_n_u32(vmlal_n_u16(bias, vget_high_u16(v), 255), 16);
        vst1_u8(gray + x, vmovn_u16(vcombine_u16(lo, hi)));
        if (x + 8 >= width)
            return;
    }
}

// ------------------------------------------------------------------------------------------------- scaling

inline int16x8_t scaled(uint8x8_t v) { return vreinterpretq_s16_u16(vshll_n_u8(v, 6)); }

inline int16x8_t mix8(uint8x8_t a, uint8x8_t b, int16_t weight) {
    const int16x8_t d = vshlq_n_s16(vreinterpretq_s16_u16(vsubl_u8(b, a)), 6);
    return vaddq_s16(scaled(a), vqrdmulhq_n_s16(d, weight));
}

inline uint16x8_t words(int16x8_t v) { return vreinterpretq_u16_s16(v); }

void widen(const uint8_t* row, uint16_t* out, int n) {
    if (n < 8)
        return plain_kernels().widen(row, out, n);
    for (int i = 0;; i = i + 16 <= n ? i + 8 : n - 8) {
        vst1q_u16(out + i, vshll_n_u8(vld1_u8(row + i), 6));
        if (i + 8 >= n)
            return;
    }
}

void narrow(const uint16_t* row, uint8_t* out, int n) {
    if (n < 8)
        return plain_kernels().narrow(row, out, n);
    for (int i = 0;; i = i + 16 <= n ? i + 8 : n - 8) {
        vst1_u8(out + i, vqrshrn_n_u16(vld1q_u16(row + i), 6));
        if (i + 8 >= n)
            return;
    }
}

void blend8(const uint8_t* a, const uint8_t* b, int weight, uint16_t* out, int n) {
    if (n < 16)
        return plain_kernels().blend8(a, b, weight, out, n);
    const int16_t w = static_cast<int16_t>(weight);
    for (int i = 0;; i = i + 32 <= n ? i + 16 : n - 16) {
        const uint8x16_t p = vld1q_u8(a + i), q = vld1q_u8(b + i);
        vst1q_u16(out + i, words(mix8(vget_low_u8(p), vget_low_u8(q), w)));
        vst1q_u16(out + i + 8, words(mix8(vget_high_u8(p), vget_high_u8(q), w)));
        if (i + 16 >= n)
            return;
    }
}

void blend8_to_8(const uint8_t* a, const uint8_t* b, int weight, uint8_t* out, int n) {
    if (n < 16)
        return plain_kernels().blend8_to_8(a, b, weight, out, n);
    const int16_t w = static_cast<int16_t>(weight);
    for (int i = 0;; i = i + 32 <= n ? i + 16 : n - 16) {
        const uint8x16_t p = vld1q_u8(a + i), q = vld1q_u8(b + i);
        vst1q_u8(out + i, vcombine_u8(vqrshrun_n_s16(mix8(vget_low_u8(p), vget_low_u8(q), w), 6),
                                      vqrshrun_n_s16(mix8(vget_high_u8(p), vget_high_u8(q), w), 6)));
        if (i + 16 >= n)
            return;
    }
}

void blend16_to_8(const uint16_t* a, const uint16_t* b, int weight, uint8_t* out, int n) {
    if (n < 8)
        return plain_kernels().blend16_to_8(a, b, weight, out, n);
    for (int i = 0;; i = i + 16 <= n ? i + 8 : n - 8) {
        const int16x8_t p = vreinterpretq_s16_u16(vld1q_u16(a + i)), q = vreinterpretq_s16_u16(vld1q_u16(b + i));
        const int16x8_t v = vaddq_s16(p, vqrdmulhq_n_s16(vsubq_s16(q, p), static_cast<int16_t>(weight)));
        vst1_u8(out + i, vqrshrun_n_s16(v, 6));
        if (i + 8 >= n)
            return;
    }
}

void box_rows(const BoxRows& rows, uint16_t* out, int n) {
    const int inner = rows.count - 2;
    if (n < 16 || inner > kBoxRowsIn16Bits)
        return plain_kernels().box_rows(rows, out, n);
    const uint8_t* last = rows.first + (rows.count - 1) * rows.pitch;
    const int16_t w_first = static_cast<int16_t>(rows.first_weight), w_last = static_cast<int16_t>(rows.last_weight);
    const int16x8_t shift = vdupq_n_s16(rows.inner_shift);
    const auto of_inner = [&](uint16x8_t sum) {
        const uint16x8_t s = vshlq_u16(sum, shift);
        return vcombine_u16(vshrn_n_u32(vmull_n_u16(vget_low_u16(s), rows.inner_weight), 16),
                            vshrn_n_u32(vmull_n_u16(vget_high_u16(s), rows.inner_weight), 16));
    };
    for (int i = 0;; i = i + 32 <= n ? i + 16 : n - 16) {
        const uint8x16_t first = vld1q_u8(rows.first + i);
        uint16x8_t lo = words(vqrdmulhq_n_s16(scaled(vget_low_u8(first)), w_first));
        uint16x8_t hi = words(vqrdmulhq_n_s16(scaled(vget_high_u8(first)), w_first));
        if (rows.count > 1) {
            const uint8x16_t end = vld1q_u8(last + i);
            lo = vaddq_u16(lo, words(vqrdmulhq_n_s16(scaled(vget_low_u8(end)), w_last)));
            hi = vaddq_u16(hi, words(vqrdmulhq_n_s16(scaled(vget_high_u8(end)), w_last)));
        }
        if (inner > 0) {
            uint16x8_t sum_lo = vdupq_n_u16(0), sum_hi = sum_lo;
            const uint8_t* p = rows.first + i;
            for (int k = 0; k < inner; ++k) {
                const uint8x16_t row = vld1q_u8(p += rows.pitch);
                sum_lo = vaddw_u8(sum_lo, vget_low_u8(row));
                sum_hi = vaddw_u8(sum_hi, vget_high_u8(row));
            }
            lo = vaddq_u16(lo, of_inner(sum_lo));
            hi = vaddq_u16(hi, of_inner(sum_hi));
        }
        vst1q_u16(out + i, lo);
        vst1q_u16(out + i + 8, hi);
        if (i + 16 >= n)
            return;
    }
}

inline int16x4_t signed4(uint16x4_t v) { return vreinterpret_s16_u16(v); }

/// Sum of one column of three or four channels.
template <int C>
inline int32x4_t fir_column(const uint16_t* p, const int16_t* w, int taps) {
    int32x4_t acc = vdupq_n_s32(0);
    for (int k = 0; k < taps; k += 2) {
        const int16x4x2_t pair = vld2_dup_s16(w + k);
        acc = vmlal_s16(acc, signed4(vld1_u16(p + k * C)), pair.val[0]);
        acc = vmlal_s16(acc, signed4(vld1_u16(p + (k + 1) * C)), pair.val[1]);
    }
    return acc;
}

inline void store_bytes4(uint8_t* out, uint8x8_t v) {
    vst1_lane_u32(reinterpret_cast<uint32_t*>(out), vreinterpret_u32_u8(v), 0);
}

/// Two columns rounded to bytes. With three channels a store runs one byte into the next column.
template <int C>
inline void store_columns2(uint8_t* out, int32x4_t a, int32x4_t b) {
    const uint16x8_t v = vcombine_u16(vqmovun_s32(vrshrq_n_s32(a, 20)), vqmovun_s32(vrshrq_n_s32(b, 20)));
    const uint8x8_t bytes = vqmovn_u16(v);
    if (C == 4) {
        vst1_u8(out, bytes);
    } else {
        store_bytes4(out, bytes);
        store_bytes4(out + 3, vreinterpret_u8_u64(vshr_n_u64(vreinterpret_u64_u8(bytes), 32)));
    }
}

/// Two taps of one column; Lane is that of its first weight.
template <int C, int Lane>
inline int32x4_t two_taps(const uint16_t* p, int16x4_t w) {
    const int16x8_t v = vreinterpretq_s16_u16(vld1q_u16(p));
    const int16x4_t second = C == 4 ? vget_high_s16(v) : vget_low_s16(vextq_s16(v, v, C));
    return vmlal_lane_s16(vmull_lane_s16(vget_low_s16(v), w, Lane), second, w, Lane + 1);
}

/// Eight sums to bytes: (sum + 2^19) >> 20, in two steps that round once.
inline uint8x8_t bytes_of(int32x4_t a, int32x4_t b) {
    return vqrshrn_n_u16(vreinterpretq_u16_s16(vcombine_s16(vshrn_n_s32(a, 16), vshrn_n_s32(b, 16))), 4);
}

/// Four columns of three or four channels, each in four bytes.
template <int C>
inline void store_columns4(uint8_t* out, uint8x8_t a, uint8x8_t b) {
    if (C == 4) {
        vst1q_u8(out, vcombine_u8(a, b));
        return;
    }
    const uint8x8x2_t both = {{a, b}};
    const uint8x8_t first = vcreate_u8(0x0908060504020100u), last = vcreate_u8(0xFFFFFFFF0E0D0C0Au);
    vst1_u8(out, vtbl2_u8(both, first));
    store_bytes4(out + 8, vtbl2_u8(both, last));
}

template <int C>
void fir_wide(const uint16_t* row, const FirTable& t, uint8_t* out) {
    int i = 0;
    if (t.taps == 2)
        for (; i + 4 <= t.cols; i += 4) {
            const int16x8_t w = vld1q_s16(t.weight + 2 * i);
            const int16x4_t w01 = vget_low_s16(w), w23 = vget_high_s16(w);
            const int32_t* start = t.start + i;
            store_columns4<C>(out + i * C,
                              bytes_of(two_taps<C, 0>(row + start[0], w01), two_taps<C, 2>(row + start[1], w01)),
                              bytes_of(two_taps<C, 0>(row + start[2], w23), two_taps<C, 2>(row + start[3], w23)));
        }
    for (; i + 3 <= t.cols; i += 2)
        store_columns2<C>(out + i * C, fir_column<C>(row + t.start[i], t.weight + i * t.taps, t.taps),
                          fir_column<C>(row + t.start[i + 1], t.weight + (i + 1) * t.taps, t.taps));
    fir_to_8_loop<C>(row, t, out, i);
}

template <int C>
void fir_wide_to_16(const uint16_t* row, const FirTable& t, uint16_t* out) {
    int i = 0;
    for (; i + 2 <= t.cols; ++i) { // a store of four words may run into the next column's
        const int32x4_t acc = fir_column<C>(row + t.start[i], t.weight + i * t.taps, t.taps);
        vst1_u16(out + i * C, vqrshrun_n_s32(acc, 14));
    }
    fir_to_16_loop<C>(row, t, out, i);
}

inline int16x4_t two_pairs(const uint16_t* a, const uint16_t* b) {
    const uint32x2_t v = vld1_lane_u32(reinterpret_cast<const uint32_t*>(a), vdup_n_u32(0), 0);
    return vreinterpret_s16_u32(vld1_lane_u32(reinterpret_cast<const uint32_t*>(b), v, 1));
}

inline int32x4_t add_pairs(int32x4_t a, int32x4_t b) {
    return vcombine_s32(vpadd_s32(vget_low_s32(a), vget_high_s32(a)), vpadd_s32(vget_low_s32(b), vget_high_s32(b)));
}

/// Two taps of four columns of one channel.
inline int32x4_t fir1_two_taps(const uint16_t* row, const int32_t* start, const int16_t* weight) {
    const int16x8_t w = vld1q_s16(weight);
    return add_pairs(vmull_s16(two_pairs(row + start[0], row + start[1]), vget_low_s16(w)),
                     vmull_s16(two_pairs(row + start[2], row + start[3]), vget_high_s16(w)));
}

/// Two taps of two columns of two channels.
inline int32x4_t fir2_two_taps(const uint16_t* row, const int32_t* start, const int16_t* weight) {
    const int16x4_t w = vld1_s16(weight);
    const int16x4x2_t twice = vzip_s16(w, w); // w0 w0 w1 w1 of each column
    const int32x4_t a = vmull_s16(signed4(vld1_u16(row + start[0])), twice.val[0]);
    const int32x4_t b = vmull_s16(signed4(vld1_u16(row + start[1])), twice.val[1]);
    return vcombine_s32(vadd_s32(vget_low_s32(a), vget_high_s32(a)), vadd_s32(vget_low_s32(b), vget_high_s32(b)));
}

/// Sums of four columns of one channel.
inline int32x4_t fir1_four(const uint16_t* row, const FirTable& t, int i) {
    int32x4_t acc = vdupq_n_s32(0);
    const int32_t* start = t.start + i;
    const int16_t* w = t.weight + i * t.taps;
    const auto two = [](const void* a, const void* b) {
        const uint32x2_t v = vld1_lane_u32(static_cast<const uint32_t*>(a), vdup_n_u32(0), 0);
        return vreinterpret_s16_u32(vld1_lane_u32(static_cast<const uint32_t*>(b), v, 1));
    };
    for (int k = 0; k < t.taps; k += 2) {
        const int32x4_t p = vmull_s16(two(row + start[0] + k, row + start[1] + k), two(w + k, w + t.taps + k));
        const int32x4_t q =
            vmull_s16(two(row + start[2] + k, row + start[3] + k), two(w + 2 * t.taps + k, w + 3 * t.taps + k));
        acc = vaddq_s32(acc, vcombine_s32(vpadd_s32(vget_low_s32(p), vget_high_s32(p)),
                                          vpadd_s32(vget_low_s32(q), vget_high_s32(q))));
    }
    return acc;
}

/// Sums of one column of two channels.
inline int32x2_t fir2_one(const uint16_t* p, const int16_t* w, int taps) {
    int32x4_t acc = vdupq_n_s32(0);
    for (int k = 0; k < taps; k += 2) {
        const int16x4x2_t pair = vld2_dup_s16(w + k);
        const int16x4_t both = vreinterpret_s16_s32(
            vzip_s32(vreinterpret_s32_s16(pair.val[0]), vreinterpret_s32_s16(pair.val[1])).val[0]);
        acc = vmlal_s16(acc, signed4(vld1_u16(p + 2 * k)), both);
    }
    return vadd_s32(vget_low_s32(acc), vget_high_s32(acc));
}

inline int32x4_t fir2_two(const uint16_t* row, const FirTable& t, int i) {
    return vcombine_s32(fir2_one(row + t.start[i], t.weight + i * t.taps, t.taps),
                        fir2_one(row + t.start[i + 1], t.weight + (i + 1) * t.taps, t.taps));
}

inline uint8x8_t bytes8(int32x4_t a, int32x4_t b) {
    return vqmovn_u16(vcombine_u16(vqmovun_s32(vrshrq_n_s32(a, 20)), vqmovun_s32(vrshrq_n_s32(b, 20))));
}

void fir1(const uint16_t* row, const FirTable& t, uint8_t* out) {
    int i = 0;
    if (t.taps == 2)
        for (; i + 8 <= t.cols; i += 8)
            vst1_u8(out + i, bytes_of(fir1_two_taps(row, t.start + i, t.weight + 2 * i),
                                      fir1_two_taps(row, t.start + i + 4, t.weight + 2 * i + 8)));
    for (; i + 8 <= t.cols; i += 8)
        vst1_u8(out + i, bytes8(fir1_four(row, t, i), fir1_four(row, t, i + 4)));
    fir_to_8_loop<1>(row, t, out, i);
}

void fir1_to_16(const uint16_t* row, const FirTable& t, uint16_t* out) {
    int i = 0;
    for (; i + 4 <= t.cols; i += 4)
        vst1_u16(out + i, vqrshrun_n_s32(fir1_four(row, t, i), 14));
    fir_to_16_loop<1>(row, t, out, i);
}

void fir2(const uint16_t* row, const FirTable& t, uint8_t* out) {
    int i = 0;
    if (t.taps == 2)
        for (; i + 4 <= t.cols; i += 4)
            vst1_u8(out + 2 * i, bytes_of(fir2_two_taps(row, t.start + i, t.weight + 2 * i),
                                          fir2_two_taps(row, t.start + i + 2, t.weight + 2 * i + 4)));
    for (; i + 4 <= t.cols; i += 4)
        vst1_u8(out + 2 * i, bytes8(fir2_two(row, t, i), fir2_two(row, t, i + 2)));
    fir_to_8_loop<2>(row, t, out, i);
}

void fir2_to_16(const uint16_t* row, const FirTable& t, uint16_t* out) {
    int i = 0;
    for (; i + 2 <= t.cols; i += 2)
        vst1_u16(out + 2 * i, vqrshrun_n_s32(fir2_two(row, t, i), 14));
    fir_to_16_loop<2>(row, t, out, i);
}

template <int C>
void bilinear_wide(const uint8_t* a, const uint8_t* b, int weight, const FirTable& t, uint8_t* out) {
    const int16_t down = static_cast<int16_t>(weight);
    int safe = t.cols; // loads of eight bytes stay inside the row
    while (safe > 0 && t.start[safe - 1] + 8 > t.row_elements)
        --safe;
    const auto column = [&](int i) {
        const int16x8_t v = mix8(vld1_u8(a + t.start[i]), vld1_u8(b + t.start[i]), down);
        const int16x4x2_t w = vld2_dup_s16(t.weight + 2 * i);
        return vmlal_s16(vmull_s16(vget_low_s16(v), w.val[0]), vget_low_s16(vextq_s16(v, v, C)), w.val[1]);
    };
    int i = 0;
    for (; i + 3 <= safe; i += 2)
        store_columns2<C>(out + i * C, column(i), column(i + 1));
    bilinear_at_loop<C>(a, b, weight, t, out, i);
}

void bilinear1(const uint8_t* a, const uint8_t* b, int weight, const FirTable& t, uint8_t* out) {
    const int16_t down = static_cast<int16_t>(weight);
    const auto four = [](const uint8_t* row, const int32_t* start) {
        uint16x4_t v = vdup_n_u16(0); // two bytes of each of four columns
        v = vld1_lane_u16(reinterpret_cast<const uint16_t*>(row + start[0]), v, 0);
        v = vld1_lane_u16(reinterpret_cast<const uint16_t*>(row + start[1]), v, 1);
        v = vld1_lane_u16(reinterpret_cast<const uint16_t*>(row + start[2]), v, 2);
        v = vld1_lane_u16(reinterpret_cast<const uint16_t*>(row + start[3]), v, 3);
        return vreinterpret_u8_u16(v);
    };
    const auto sums = [&](int i) {
        const int16x8_t v = mix8(four(a, t.start + i), four(b, t.start + i), down);
        const int16x8_t w = vld1q_s16(t.weight + 2 * i);
        const int32x4_t p = vmull_s16(vget_low_s16(v), vget_low_s16(w)),
                        q = vmull_s16(vget_high_s16(v), vget_high_s16(w));
        return vcombine_s32(vpadd_s32(vget_low_s32(p), vget_high_s32(p)),
                            vpadd_s32(vget_low_s32(q), vget_high_s32(q)));
    };
    int i = 0;
    for (; i + 8 <= t.cols; i += 8)
        vst1_u8(out + i, bytes8(sums(i), sums(i + 4)));
    bilinear_at_loop<1>(a, b, weight, t, out, i);
}

void bilinear2(const uint8_t* a, const uint8_t* b, int weight, const FirTable& t, uint8_t* out) {
    const int16_t down = static_cast<int16_t>(weight);
    const auto two = [](const uint8_t* row, const int32_t* start) { // four bytes of each of two columns
        uint32x2_t v = vdup_n_u32(0);
        v = vld1_lane_u32(reinterpret_cast<const uint32_t*>(row + start[0]), v, 0);
        v = vld1_lane_u32(reinterpret_cast<const uint32_t*>(row + start[1]), v, 1);
        return vreinterpret_u8_u32(v);
    };
    const auto sums = [&](int i) {
        const int16x8_t v = mix8(two(a, t.start + i), two(b, t.start + i), down);
        const int16x4_t w = vld1_s16(t.weight + 2 * i);
        const int16x4x2_t twice = vzip_s16(w, w);
        const int32x4_t p = vmull_s16(vget_low_s16(v), twice.val[0]), q = vmull_s16(vget_high_s16(v), twice.val[1]);
        return vcombine_s32(vadd_s32(vget_low_s32(p), vget_high_s32(p)), vadd_s32(vget_low_s32(q), vget_high_s32(q)));
    };
    int i = 0;
    for (; i + 4 <= t.cols; i += 4)
        vst1_u8(out + 2 * i, bytes8(sums(i), sums(i + 2)));
    bilinear_at_loop<2>(a, b, weight, t, out, i);
}

template <int C>
void halve(const uint8_t* a, const uint8_t* b, uint8_t* out, int cols) {
    if (cols < 8)
        return halve_loop<C>(a, b, out, cols);
    const auto mean = [](uint8x16_t p, uint8x16_t q) { return vrshrn_n_u16(vpadalq_u8(vpaddlq_u8(p), q), 2); };
    for (int x = 0;; x = x + 16 <= cols ? x + 8 : cols - 8) {
        const uint8_t *p = a + 2 * x * C, *q = b + 2 * x * C;
        uint8_t* o = out + x * C;
        if (C == 1) {
            vst1_u8(o, mean(vld1q_u8(p), vld1q_u8(q)));
        } else if (C == 2) {
            const uint8x16x2_t v = vld2q_u8(p), w = vld2q_u8(q);
            vst2_u8(o, {{mean(v.val[0], w.val[0]), mean(v.val[1], w.val[1])}});
        } else if (C == 3) {
            const uint8x16x3_t v = vld3q_u8(p), w = vld3q_u8(q);
            vst3_u8(o, {{mean(v.val[0], w.val[0]), mean(v.val[1], w.val[1]), mean(v.val[2], w.val[2])}});
        } else {
            const uint8x16x4_t v = vld4q_u8(p), w = vld4q_u8(q);
            vst4_u8(o, {{mean(v.val[0], w.val[0]), mean(v.val[1], w.val[1]), mean(v.val[2], w.val[2]),
                         mean(v.val[3], w.val[3])}});
        }
        if (x + 8 >= cols)
            return;
    }
}

// -------------------------------------------------------------------------------------------------- affine

template <int C>
void affine_wide(const AffineSpan& s, uint8_t* out, int n) {
    // Loads of eight bytes must stay inside the plane: all but its last row lend the next row's bytes.
    const int32_t last_y = s.y + (n - 1) * s.dy;
    if ((std::max(s.y, last_y) >> 16) + 2 >= s.rows)
        return plain_kernels().affine_span[C - 1](s, out, n);
    int32_t x = s.x, y = s.y;
    const auto column = [&] {
        const uint8_t* p = s.data + (y >> 16) * s.pitch + (x >> 16) * C;
        const int fx = (x >> 8) & 255, fy = (y >> 8) & 255;
        x += s.dx, y += s.dy;
        const uint8x8_t top = vld1_u8(p), bottom = vld1_u8(p + s.pitch);
        // 256 top + fy (bottom - top), exact in sixteen bits although the product alone wraps.
        const uint16x8_t v = vmlaq_n_u16(vshll_n_u8(top, 8), vsubl_u8(bottom, top), static_cast<uint16_t>(fy));
        const int16x8_t h = vreinterpretq_s16_u16(vshrq_n_u16(v, 1));
        const int32x4_t sum = vmull_n_s16(vget_low_s16(h), static_cast<int16_t>(256 - fx));
        return vrshrn_n_s32(vmlal_n_s16(sum, vget_low_s16(vextq_s16(h, h, C)), static_cast<int16_t>(fx)), 15);
    };
    int i = 0;
    for (; i + 3 <= n; i += 2) { // a store may run a byte into the next column
        const int16x4_t a = column(), b = column();
        const uint8x8_t bytes = vqmovun_s16(vcombine_s16(a, b));
        if (C == 4) {
            vst1_u8(out + i * C, bytes);
        } else {
            store_bytes4(out + i * C, bytes);
            store_bytes4(out + i * C + 3, vreinterpret_u8_u64(vshr_n_u64(vreinterpret_u64_u8(bytes), 32)));
        }
    }
    for (; i < n; ++i)
        affine_pixel<C>(s, s.x + i * s.dx, s.y + i * s.dy, out + i * C);
}

// --------------------------------------------------------------------------------------------- orientation

template <int N>
void mirror(const uint8_t* row, uint8_t* out, int cols) {
    if (cols < 8)
        return plain_kernels().mirror[N - 1](row, out, cols);
    for (int x = 0;; x = x + 16 <= cols ? x + 8 : cols - 8) {
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
        if (x + 8 >= cols)
            return;
    }
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
    plain_kernels().transpose16[N - 1](src + N * x, src_pitch, dst + x * dst_pitch, dst_pitch, cols - x);
}

void transpose_4(const uint8_t* src, ptrdiff_t src_pitch, uint8_t* dst, ptrdiff_t dst_pitch, int cols) {
    int x = 0;
    for (; x + 4 <= cols; x += 4)
        for (int y = 0; y < 16; y += 4) {
            uint32x4_t a[4];
            for (int i = 0; i < 4; ++i)
                a[i] = vreinterpretq_u32_u8(vld1q_u8(src + (y + i) * src_pitch + 4 * x));
            const uint32x4x2_t p = vtrnq_u32(a[0], a[1]), q = vtrnq_u32(a[2], a[3]);
            const uint32x4_t out[4] = {vcombine_u32(vget_low_u32(p.val[0]), vget_low_u32(q.val[0])),
                                       vcombine_u32(vget_low_u32(p.val[1]), vget_low_u32(q.val[1])),
                                       vcombine_u32(vget_high_u32(p.val[0]), vget_high_u32(q.val[0])),
                                       vcombine_u32(vget_high_u32(p.val[1]), vget_high_u32(q.val[1]))};
            for (int i = 0; i < 4; ++i)
                vst1q_u8(dst + (x + i) * dst_pitch + 4 * y, vreinterpretq_u8_u32(out[i]));
        }
    plain_kernels().transpose16[3](src + 4 * x, src_pitch, dst + x * dst_pitch, dst_pitch, cols - x);
}

// --------------------------------------------------------------------------------------------------- table

template <int Chroma>
void use_yuv_to_rgb(Kernels& k) {
    k.yuv_to_rgb[Chroma][kRGB] = yuv_to_rgb<Chroma, kRGB>;
    k.yuv_to_rgb[Chroma][kBGR] = yuv_to_rgb<Chroma, kBGR>;
    k.yuv_to_rgb[Chroma][kRGBA] = yuv_to_rgb<Chroma, kRGBA>;
    k.yuv_to_rgb[Chroma][kBGRA] = yuv_to_rgb<Chroma, kBGRA>;
}

template <int Chroma, int Kind>
void use_rgb_to_yuv(Kernels& k) {
    k.rgb_to_yuv420[Chroma][Kind] = rgb_to_yuv420<Chroma, Kind>;
    k.rgb_to_yuv422[Chroma][Kind] = rgb_to_yuv422<Chroma, Kind>;
}

template <int Kind>
void use_rgb(Kernels& k) {
    use_rgb_to_yuv<kPlanar, Kind>(k);
    use_rgb_to_yuv<kPairsUV, Kind>(k);
    use_rgb_to_yuv<kPairsVU, Kind>(k);
    k.rgb_to_gray[Kind] = rgb_to_gray<Kind>;
}

Kernels make_table() {
    Kernels k = plain_kernels(); // what is not replaced below: few, and the same bytes
    k.name = "neon";
    use_yuv_to_rgb<kPlanar>(k);
    use_yuv_to_rgb<kPairsUV>(k);
    use_yuv_to_rgb<kPairsVU>(k);
    use_yuv_to_rgb<kPackedYUYV>(k);
    use_yuv_to_rgb<kPackedUYVY>(k);
    use_rgb<kRGB>(k);
    use_rgb<kBGR>(k);
    use_rgb<kRGBA>(k);
    use_rgb<kBGRA>(k);
    k.gray_to_rgb[0] = gray_to_rgb<3>;
    k.gray_to_rgb[1] = gray_to_rgb<4>;
    k.gray16_to_8 = gray16_to_8;
    k.widen = widen;
    k.narrow = narrow;
    k.blend8 = blend8;
    k.blend8_to_8 = blend8_to_8;
    k.blend16_to_8 = blend16_to_8;
    k.box_rows = box_rows;
    k.fir_to_8[0] = fir1;
    k.fir_to_8[1] = fir2;
    k.fir_to_8[2] = fir_wide<3>;
    k.fir_to_8[3] = fir_wide<4>;
    k.fir_to_16[0] = fir1_to_16;
    k.fir_to_16[1] = fir2_to_16;
    k.fir_to_16[2] = fir_wide_to_16<3>;
    k.fir_to_16[3] = fir_wide_to_16<4>;
    k.bilinear_at[0] = bilinear1;
    k.bilinear_at[1] = bilinear2;
    k.bilinear_at[2] = bilinear_wide<3>;
    k.bilinear_at[3] = bilinear_wide<4>;
    k.halve[0] = halve<1>;
    k.halve[1] = halve<2>;
    k.halve[2] = halve<3>;
    k.halve[3] = halve<4>;
    k.affine_span[2] = affine_wide<3>;
    k.affine_span[3] = affine_wide<4>;
    k.mirror[0] = mirror<1>;
    k.mirror[1] = mirror<2>;
    k.mirror[2] = mirror<3>;
    k.mirror[3] = mirror<4>;
    k.transpose16[0] = transpose_small<1>;
    k.transpose16[1] = transpose_small<2>;
    k.transpose16[2] = transpose_small<3>;
    k.transpose16[3] = transpose_4;
    return k;
}

} // namespace

const Kernels& neon_kernels() {
    static const Kernels table = make_table();
    return table;
}

} // namespace tavi

#endif
