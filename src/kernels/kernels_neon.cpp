// SPDX-License-Identifier: MIT
// The NEON build for 32-bit ARM: the loops worth it written out, and the plain ones for the rest. Every kernel here
// gives the bytes of its loop. What is left of a row after whole blocks is done by a last block that overlaps the one
// before, or by the loop where a row is shorter than a block.
#include "kernels/kernels_loops.h"

#if defined(__ARM_NEON)

#include <arm_neon.h>

#include "image/numbers.h"

namespace tavi {

const Kernels& neon_kernels();

namespace {

// ---------------------------------------------------------------------------------------------- YUV to RGB

/// Eight pixels.
template <int Kind>
inline void store_pixels8(uint8_t* out, uint8x8_t r, uint8x8_t g, uint8x8_t b) {
    constexpr bool swapped = Kind == kBGR || Kind == kBGRA;
    if (rgb_bytes<Kind>() == 3)
        vst3_u8(out, {{swapped ? b : r, g, swapped ? r : b}});
    else
        vst4_u8(out, {{swapped ? b : r, g, swapped ? r : b, vdup_n_u8(255)}});
}

/// Sixteen pixels: the even and the odd ones, which share their chroma.
struct YuvBlock {
    uint8x8_t even, odd;
    uint8x8_t u, v;
};

template <int Chroma>
inline YuvBlock load_yuv(const uint8_t* y, const uint8_t* u, const uint8_t* v) {
    if (Chroma == kPackedYUYV || Chroma == kPackedUYVY) {
        const uint8x8x4_t p = vld4_u8(y); // y u y v, or u y v y
        constexpr int luma = Chroma == kPackedYUYV ? 0 : 1, chroma = 1 - luma;
        return {p.val[luma], p.val[luma + 2], p.val[chroma], p.val[chroma + 2]};
    }
    const uint8x8x2_t luma = vld2_u8(y);
    if (Chroma == kPlanar)
        return {luma.val[0], luma.val[1], vld1_u8(u), vld1_u8(v)};
    const uint8x8x2_t pairs = vld2_u8(u);
    return {luma.val[0], luma.val[1], pairs.val[Chroma == kPairsVU], pairs.val[Chroma == kPairsUV]};
}

/// The constants of a conversion; V to red, U to green, V to green and U to blue in one vector.
struct YuvVectors {
    explicit YuvVectors(const YuvToRgb& k) : luma(vdup_n_u8(k.luma)), bias(vdupq_n_s16(k.bias)) {
        const int16_t terms[4] = {k.v_to_r, k.u_to_g, k.v_to_g, k.u_to_b};
        factors = vld1_s16(terms);
    }

    uint8x8_t luma;
    int16x8_t bias;
    int16x4_t factors;
};

template <int Kind>
inline void store_yuv_as_rgb(const YuvVectors& k, const YuvBlock& block, uint8_t* out) {
    const uint8x8_t sign = vdup_n_u8(0x80), scale = k.luma;
    const int16x8_t bias = k.bias;
    const int16x4_t factors = k.factors;
    const int16x8_t u = vshll_n_s8(vreinterpret_s8_u8(veor_u8(block.u, sign)), 8);
    const int16x8_t v = vshll_n_s8(vreinterpret_s8_u8(veor_u8(block.v, sign)), 8);
    const int16x8_t r = vqrdmulhq_lane_s16(v, factors, 0), b = vqrdmulhq_lane_s16(u, factors, 3);
    const int16x8_t g = vaddq_s16(vqrdmulhq_lane_s16(u, factors, 1), vqrdmulhq_lane_s16(v, factors, 2));
    const auto luma = [&](uint8x8_t y) {
        return vaddq_s16(vreinterpretq_s16_u16(vshrq_n_u16(vmull_u8(y, scale), 1)), bias);
    };
    const int16x8_t even = luma(block.even), odd = luma(block.odd);
    const auto channel = [](int16x8_t first, int16x8_t second) {
        return vzip_u8(vqshrun_n_s16(first, 6), vqshrun_n_s16(second, 6));
    };
    const uint8x8x2_t red = channel(vqaddq_s16(even, r), vqaddq_s16(odd, r));
    const uint8x8x2_t green = channel(vqsubq_s16(even, g), vqsubq_s16(odd, g));
    const uint8x8x2_t blue = channel(vqaddq_s16(even, b), vqaddq_s16(odd, b));
    store_pixels8<Kind>(out, red.val[0], green.val[0], blue.val[0]);
    store_pixels8<Kind>(out + 8 * rgb_bytes<Kind>(), red.val[1], green.val[1], blue.val[1]);
}

template <int Chroma, int Kind>
void yuv_to_rgb(const uint8_t* y, const uint8_t* u, const uint8_t* v, uint8_t* rgb, int width,
                const YuvToRgb& constants) {
    if (width < 16)
        return plain_kernels().yuv_to_rgb[Chroma][Kind](y, u, v, rgb, width, constants);
    const YuvVectors k(constants);
    const auto advance = [&](int pixels) {
        y += Chroma >= kPackedYUYV ? 2 * pixels : pixels;
        if (Chroma < kPackedYUYV)
            u += Chroma == kPlanar ? pixels / 2 : pixels;
        if (Chroma == kPlanar)
            v += pixels / 2;
        rgb += pixels * rgb_bytes<Kind>();
    };
    for (;; advance(width - 16), width = 16) { // a last block that overlaps the one before
        for (; width >= 16; width -= 16, advance(16))
            store_yuv_as_rgb<Kind>(k, load_yuv<Chroma>(y, u, v), rgb);
        if (width == 0)
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
    YuvWeights(const RgbToYuv& k, bool swapped) : luma_bias(k.luma_bias) {
        for (int c = 0; c < 3; ++c) {
            const int from = swapped ? 2 - c : c;
            y[c] = static_cast<uint16_t>(k.y[from]), u[c] = k.u[from], v[c] = k.v[from];
        }
    }

    uint16_t y[4] = {};
    int16_t u[4] = {}, v[4] = {};
    uint32_t luma_bias;
};

inline uint32x4_t weigh(uint16x4_t a, uint16x4_t b, uint16x4_t c, uint16x4_t w, uint32_t bias) {
    return vmlal_lane_u16(vmlal_lane_u16(vmlal_lane_u16(vdupq_n_u32(bias), a, w, 0), b, w, 1), c, w, 2);
}

inline uint8x8_t luma8(uint8x8_t a8, uint8x8_t b8, uint8x8_t c8, uint16x4_t w, uint32_t bias) {
    const uint16x8_t a = vmovl_u8(a8), b = vmovl_u8(b8), c = vmovl_u8(c8);
    const uint32x4_t lo = weigh(vget_low_u16(a), vget_low_u16(b), vget_low_u16(c), w, bias);
    const uint32x4_t hi = weigh(vget_high_u16(a), vget_high_u16(b), vget_high_u16(c), w, bias);
    return vmovn_u16(vcombine_u16(vshrn_n_u32(lo, 15), vshrn_n_u32(hi, 15)));
}

inline uint8x16_t luma16(const Channels& p, uint16x4_t w, uint32_t bias) {
    return vcombine_u8(luma8(vget_low_u8(p.first), vget_low_u8(p.second), vget_low_u8(p.third), w, bias),
                       luma8(vget_high_u8(p.first), vget_high_u8(p.second), vget_high_u8(p.third), w, bias));
}

/// Sums of pixels, eight samples of chroma.
struct Sums {
    uint16x8_t first, second, third;
};

/// Eight chroma samples of sums of 1 << Shift pixels.
template <int Shift>
inline uint8x8_t chroma8(const Sums& s, int16x4_t w) {
    constexpr int kBits = kYuvBits + Shift;
    const int16x8_t a = vreinterpretq_s16_u16(s.first), b = vreinterpretq_s16_u16(s.second),
                    c = vreinterpretq_s16_u16(s.third);
    const int32x4_t bias = vdupq_n_s32((kNeutral << kBits) + (1 << (kBits - 1)));
    const auto half = [&](int16x4_t a4, int16x4_t b4, int16x4_t c4) {
        const int32x4_t sum = vmlal_lane_s16(vmlal_lane_s16(vmlal_lane_s16(bias, a4, w, 0), b4, w, 1), c4, w, 2);
        return vmovn_s32(vshrq_n_s32(sum, kBits));
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
                                         uint8_t* yb, uint8_t* u, uint8_t* v, int width, const RgbToYuv& k) {
    const YuvWeights weights(k, swapped);
    const uint16x4_t w = vld1_u16(weights.y);
    for (int x = 0;; x = x + 32 <= width ? x + 16 : width - 16) {
        const Channels p = load_pixels<N>(a + x * N), q = load_pixels<N>(b + x * N);
        vst1q_u8(ya + x, luma16(p, w, weights.luma_bias));
        vst1q_u8(yb + x, luma16(q, w, weights.luma_bias));
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
                                         uint8_t* v, int width, const RgbToYuv& k) {
    const YuvWeights weights(k, swapped);
    const uint16x4_t w = vld1_u16(weights.y);
    for (int x = 0;; x = x + 32 <= width ? x + 16 : width - 16) {
        const Channels p = load_pixels<N>(rgb + x * N);
        vst1q_u8(y + x, luma16(p, w, weights.luma_bias));
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
void rgb_to_yuv420(const uint8_t* a, const uint8_t* b, uint8_t* ya, uint8_t* yb, uint8_t* u, uint8_t* v, int width,
                   const RgbToYuv& k) {
    if (width < 16)
        return plain_kernels().rgb_to_yuv420[Chroma][Kind](a, b, ya, yb, u, v, width, k);
    to_yuv420<rgb_bytes<Kind>()>(Chroma, is_swapped<Kind>(), a, b, ya, yb, u, v, width, k);
}

template <int Chroma, int Kind>
void rgb_to_yuv422(const uint8_t* rgb, uint8_t* y, uint8_t* u, uint8_t* v, int width, const RgbToYuv& k) {
    if (width < 16)
        return plain_kernels().rgb_to_yuv422[Chroma][Kind](rgb, y, u, v, width, k);
    to_yuv422<rgb_bytes<Kind>()>(Chroma, is_swapped<Kind>(), rgb, y, u, v, width, k);
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

template <int Luma>
void packed_to_nv12(const uint8_t* a, const uint8_t* b, uint8_t* ya, uint8_t* yb, uint8_t* uv, int width) {
    if (width < 16)
        return plain_kernels().packed_to_nv12[Luma](a, b, ya, yb, uv, width);
    for (int x = 0;; x = x + 32 <= width ? x + 16 : width - 16) {
        const uint8x16x2_t p = vld2q_u8(a + 2 * x), q = vld2q_u8(b + 2 * x);
        vst1q_u8(ya + x, p.val[Luma]);
        vst1q_u8(yb + x, q.val[Luma]);
        vst1q_u8(uv + x, vrhaddq_u8(p.val[1 - Luma], q.val[1 - Luma]));
        if (x + 16 >= width)
            return;
    }
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

template <int From, int To>
void rgb_to_rgb(const uint8_t* from, uint8_t* to, int width) {
    constexpr int n = rgb_bytes<From>(), m = rgb_bytes<To>();
    if (width < 16)
        return plain_kernels().rgb_to_rgb[From][To](from, to, width);
    for (int x = 0;; x = x + 32 <= width ? x + 16 : width - 16) {
        uint8x16x4_t p;
        if (n == 4) {
            p = vld4q_u8(from + 4 * x);
        } else {
            const uint8x16x3_t q = vld3q_u8(from + 3 * x);
            p = {{q.val[0], q.val[1], q.val[2], vdupq_n_u8(255)}};
        }
        if (is_swapped<From>() != is_swapped<To>())
            std::swap(p.val[0], p.val[2]);
        if (m == 4)
            vst4q_u8(to + 4 * x, p);
        else
            vst3q_u8(to + 3 * x, {{p.val[0], p.val[1], p.val[2]}});
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

// Rows are read and written with the loads and stores of pairs, which move 32 bytes at once: what is done to each
// element does not care that evens and odds are apart.

/// Calls `wide` for blocks of 32 elements and `block` for what is left, in blocks of 16 of which the last may
/// overlap.
template <class Wide, class Block>
inline void along_row(int n, Wide wide, Block block) {
    int i = 0;
    for (; i + 32 <= n; i += 32)
        wide(i);
    for (; i < n; i += 16)
        block(std::min(i, n - 16));
}

/// Eight-bit elements to words, by an operation on eight of each of the rows.
template <class Op>
inline void to_words(const uint8_t* row, uint16_t* out, int n, Op op) {
    along_row(
        n,
        [=](int i) {
            const uint8x16x2_t p = vld2q_u8(row + i);
            vst2q_u16(out + i, {{op(vget_low_u8(p.val[0])), op(vget_low_u8(p.val[1]))}});
            vst2q_u16(out + i + 16, {{op(vget_high_u8(p.val[0])), op(vget_high_u8(p.val[1]))}});
        },
        [=](int i) {
            const uint8x8x2_t p = vld2_u8(row + i);
            vst2q_u16(out + i, {{op(p.val[0]), op(p.val[1])}});
        });
}

inline int16x8_t scaled(uint8x8_t v) { return vreinterpretq_s16_u16(vshll_n_u8(v, 6)); }

inline uint16x8_t words(int16x8_t v) { return vreinterpretq_u16_s16(v); }

inline int16x8_t mix8(uint8x8_t a, uint8x8_t b, int16x8_t weight) {
    const int16x8_t d = vshlq_n_s16(vreinterpretq_s16_u16(vsubl_u8(b, a)), 6);
    return vaddq_s16(scaled(a), vqrdmulhq_s16(d, weight));
}

inline int16x8_t weights8(int weight) { return vdupq_n_s16(static_cast<int16_t>(weight)); }

void widen(const uint8_t* row, uint16_t* out, int n) {
    if (n < 16)
        return plain_kernels().widen(row, out, n);
    to_words(row, out, n, [](uint8x8_t v) { return vshll_n_u8(v, 6); });
}

void narrow(const uint16_t* row, uint8_t* out, int n) {
    if (n < 16)
        return plain_kernels().narrow(row, out, n);
    const auto block = [=](int i) {
        const uint16x8x2_t v = vld2q_u16(row + i);
        vst2_u8(out + i, {{vqrshrn_n_u16(v.val[0], 6), vqrshrn_n_u16(v.val[1], 6)}});
    };
    for (int i = 0; i < n; i += 16)
        block(std::min(i, n - 16));
}

void blend8(const uint8_t* a, const uint8_t* b, int weight, uint16_t* out, int n) {
    if (n < 16)
        return plain_kernels().blend8(a, b, weight, out, n);
    const int16x8_t w = weights8(weight);
    const auto mix = [w](uint8x8_t p, uint8x8_t q) { return words(mix8(p, q, w)); };
    along_row(
        n,
        [=](int i) {
            const uint8x16x2_t p = vld2q_u8(a + i), q = vld2q_u8(b + i);
            vst2q_u16(out + i, {{mix(vget_low_u8(p.val[0]), vget_low_u8(q.val[0])),
                                 mix(vget_low_u8(p.val[1]), vget_low_u8(q.val[1]))}});
            vst2q_u16(out + i + 16, {{mix(vget_high_u8(p.val[0]), vget_high_u8(q.val[0])),
                                      mix(vget_high_u8(p.val[1]), vget_high_u8(q.val[1]))}});
        },
        [=](int i) {
            const uint8x8x2_t p = vld2_u8(a + i), q = vld2_u8(b + i);
            vst2q_u16(out + i, {{mix(p.val[0], q.val[0]), mix(p.val[1], q.val[1])}});
        });
}

void blend8_to_8(const uint8_t* a, const uint8_t* b, int weight, uint8_t* out, int n) {
    if (n < 16)
        return plain_kernels().blend8_to_8(a, b, weight, out, n);
    const int16x8_t w = weights8(weight);
    for (int at = 0; at < n; at += 16) {
        const int i = std::min(at, n - 16);
        const uint8x8x2_t p = vld2_u8(a + i), q = vld2_u8(b + i);
        vst2_u8(out + i,
                {{vqrshrun_n_s16(mix8(p.val[0], q.val[0], w), 6), vqrshrun_n_s16(mix8(p.val[1], q.val[1], w), 6)}});
    }
}

void blend16_to_8(const uint16_t* a, const uint16_t* b, int weight, uint8_t* out, int n) {
    if (n < 16)
        return plain_kernels().blend16_to_8(a, b, weight, out, n);
    const int16x8_t w = weights8(weight);
    const auto mix = [w](uint16x8_t first, uint16x8_t second) {
        const int16x8_t p = vreinterpretq_s16_u16(first), q = vreinterpretq_s16_u16(second);
        return vqrshrun_n_s16(vaddq_s16(p, vqrdmulhq_s16(vsubq_s16(q, p), w)), 6);
    };
    for (int at = 0; at < n; at += 16) {
        const int i = std::min(at, n - 16);
        const uint16x8x2_t p = vld2q_u16(a + i), q = vld2q_u16(b + i);
        vst2_u8(out + i, {{mix(p.val[0], q.val[0]), mix(p.val[1], q.val[1])}});
    }
}

/// 32 elements as words: evens and odds of the first half, then of the second.
struct Words32 {
    uint16x8_t a, b, c, d;
};

void box_rows(const BoxRows& table, uint16_t* out, int n) {
    const BoxRows rows = table; // which stores to `out` cannot change
    if (n < 32 || rows.count > kBoxRowsIn16Bits)
        return plain_kernels().box_rows(rows, out, n);
    const int16x8_t shift = vdupq_n_s16(rows.inner_shift), inner_weight = weights8(rows.inner_weight);
    const int16x8_t top_weight = weights8(rows.top_weight), bottom_weight = weights8(rows.bottom_weight);
    const auto of_sum = [&](uint16x8_t v) {
        return words(vqrdmulhq_s16(vreinterpretq_s16_u16(vshlq_u16(v, shift)), inner_weight));
    };
    const auto cut_row = [](Words32& v, const uint8_t* row, int16x8_t weight) {
        const uint8x16x2_t p = vld2q_u8(row);
        const auto add = [&](uint16x8_t sum, uint8x8_t bytes) {
            return vaddq_u16(sum, words(vqrdmulhq_s16(scaled(bytes), weight)));
        };
        v = {add(v.a, vget_low_u8(p.val[0])), add(v.b, vget_low_u8(p.val[1])), add(v.c, vget_high_u8(p.val[0])),
             add(v.d, vget_high_u8(p.val[1]))};
    };
    for (int at = 0; at < n; at += 32) {
        const int i = std::min(at, n - 32);
        Words32 v = {vdupq_n_u16(0), vdupq_n_u16(0), vdupq_n_u16(0), vdupq_n_u16(0)};
        if (rows.count > 0) {
            const uint8_t* row = rows.inner + i;
            for (int k = rows.count; k > 0; --k, row += rows.pitch) {
                const uint8x16x2_t p = vld2q_u8(row);
                v.a = vaddw_u8(v.a, vget_low_u8(p.val[0]));
                v.b = vaddw_u8(v.b, vget_low_u8(p.val[1]));
                v.c = vaddw_u8(v.c, vget_high_u8(p.val[0]));
                v.d = vaddw_u8(v.d, vget_high_u8(p.val[1]));
            }
            v = {of_sum(v.a), of_sum(v.b), of_sum(v.c), of_sum(v.d)};
        }
        if (rows.top)
            cut_row(v, rows.top + i, top_weight);
        if (rows.bottom)
            cut_row(v, rows.bottom + i, bottom_weight);
        vst2q_u16(out + i, {{v.a, v.b}});
        vst2q_u16(out + i + 16, {{v.c, v.d}});
    }
}

inline int16x4_t signed4(uint16x4_t v) { return vreinterpret_s16_u16(v); }

struct Starts {
    int32_t a, b, c, d;
};

/// The starts of four columns.
inline Starts four_starts(const int32_t* start) {
#ifdef __thumb2__ // in two loads: the compiler takes four, and every instruction counts in these loops
    int32_t a, b, c, d;
    asm("ldrd %0, %1, [%4]\n\tldrd %2, %3, [%4, #8]"
        : "=&r"(a), "=&r"(b), "=&r"(c), "=&r"(d)
        : "r"(start), "m"(*reinterpret_cast<const int32_t(*)[4]>(start)));
    return {a, b, c, d};
#else
    return {start[0], start[1], start[2], start[3]};
#endif
}

/// The upper halves of eight sums.
inline uint16x8_t upper_halves(int32x4_t a, int32x4_t b) {
    return vuzpq_u16(vreinterpretq_u16_s32(a), vreinterpretq_u16_s32(b)).val[1];
}

/// Eight sums to bytes: (sum + 2^19) >> 20, in two steps that round once.
inline uint8x8_t bytes_of(int32x4_t a, int32x4_t b) { return vqrshrn_n_u16(upper_halves(a, b), 4); }

inline void store_bytes4(uint8_t* out, uint8x8_t v) {
    vst1_lane_u32(reinterpret_cast<uint32_t*>(out), vreinterpret_u32_u8(v), 0);
}

/// The same of four columns of three or four channels.
template <int C>
inline void store_columns4(uint8_t* out, int32x4_t a, int32x4_t b, int32x4_t c, int32x4_t d) {
    if (C == 4) {
        const uint16x8_t ab = vrshrq_n_u16(upper_halves(a, b), 4), cd = vrshrq_n_u16(upper_halves(c, d), 4);
        vst1q_u8(out, vuzpq_u8(vreinterpretq_u8_u16(ab), vreinterpretq_u8_u16(cd)).val[0]);
    } else {
        const uint8x8_t first = vcreate_u8(0x0908060504020100u), last = vcreate_u8(0xFFFFFFFF0E0D0C0Au);
        const uint8x8x2_t bytes = {{bytes_of(a, b), bytes_of(c, d)}};
        vst1_u8(out, vtbl2_u8(bytes, first));
        store_bytes4(out + 8, vtbl2_u8(bytes, last));
    }
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

/// Two taps of one column; Lane is that of its first weight.
template <int C, int Lane>
inline int32x4_t two_taps(const uint16_t* p, int16x4_t w) {
    const int16x8_t v = vreinterpretq_s16_u16(vld1q_u16(p));
    const int16x4_t second = C == 4 ? vget_high_s16(v) : vext_s16(vget_low_s16(v), vget_high_s16(v), C % 4);
    return vmlal_lane_s16(vmull_lane_s16(vget_low_s16(v), w, Lane), second, w, Lane + 1);
}

/// Four more taps of one column.
template <int C>
inline int32x4_t four_taps(int32x4_t acc, const uint16_t* p, const int16_t* weight) {
    const int16x4_t w = vld1_s16(weight);
    const int16x8_t a = vreinterpretq_s16_u16(vld1q_u16(p));
    const int16x8_t b = vreinterpretq_s16_u16(vld1q_u16(p + (C == 4 ? 8 : 4))); // of three channels: 4 to 11
    const int16x4_t a_low = vget_low_s16(a), a_high = vget_high_s16(a), b_low = vget_low_s16(b),
                    b_high = vget_high_s16(b);
    acc = vmlal_lane_s16(acc, a_low, w, 0);
    acc = vmlal_lane_s16(acc, C == 4 ? a_high : vext_s16(a_low, a_high, 3), w, 1);
    acc = vmlal_lane_s16(acc, C == 4 ? b_low : vext_s16(b_low, b_high, 2), w, 2);
    return vmlal_lane_s16(acc, C == 4 ? b_high : vext_s16(b_high, b_high, 1), w, 3);
}

/// Any even number of taps of one column.
template <int C>
inline int32x4_t many_taps(const uint16_t* p, const int16_t* weight, int taps) {
    int32x4_t acc = vdupq_n_s32(0);
    for (; taps >= 4; taps -= 4, p += 4 * C, weight += 4)
        acc = four_taps<C>(acc, p, weight);
    if (taps) {
        const int16x4x2_t w = vld2_dup_s16(weight);
        acc = vmlal_s16(acc, signed4(vld1_u16(p)), w.val[0]);
        acc = vmlal_s16(acc, signed4(vld1_u16(p + C)), w.val[1]);
    }
    return acc;
}

template <int C>
void fir_wide(const uint16_t* row, const FirTable& table, uint8_t* out) {
    const FirTable t = table;
    const int done = t.cols & ~3;
    const int32_t *start = t.start, *const end = start + done;
    const int16_t* w = t.weight;
    if (t.taps == 2) {
        for (; start != end; start += 4, w += 8, out += 4 * C) {
            const int16x8_t pairs = vld1q_s16(w);
            const int16x4_t w01 = vget_low_s16(pairs), w23 = vget_high_s16(pairs);
            const Starts at = four_starts(start);
            store_columns4<C>(out, two_taps<C, 0>(row + at.a, w01), two_taps<C, 2>(row + at.b, w01),
                              two_taps<C, 0>(row + at.c, w23), two_taps<C, 2>(row + at.d, w23));
        }
    } else if (t.taps == 4) {
        const int32x4_t zero = vdupq_n_s32(0);
        for (; start != end; start += 4, w += 16, out += 4 * C) {
            const Starts at = four_starts(start);
            store_columns4<C>(out, four_taps<C>(zero, row + at.a, w), four_taps<C>(zero, row + at.b, w + 4),
                              four_taps<C>(zero, row + at.c, w + 8), four_taps<C>(zero, row + at.d, w + 12));
        }
    } else {
        for (; start != end; out += 4 * C) {
            int32x4_t sum[4];
#pragma GCC unroll 1
            for (int c = 0; c < 4; ++c, ++start, w += t.taps)
                sum[c] = many_taps<C>(row + *start, w, t.taps);
            store_columns4<C>(out, sum[0], sum[1], sum[2], sum[3]);
        }
    }
    fir_to_8_loop<C>(row, t, out - done * C, done);
}

inline uint32x2_t load_words2(const void* a, const void* b) {
    return vld1_lane_u32(static_cast<const uint32_t*>(b), vld1_dup_u32(static_cast<const uint32_t*>(a)), 1);
}

struct Sums8 {
    int32x4_t a, b;
};

/// Two taps of eight columns of one channel.
inline Sums8 fir1_two_taps(const uint16_t* row, const int32_t* start, const int16_t* weight) {
    const Starts s = four_starts(start), t = four_starts(start + 4);
    const uint32x4_t first = vcombine_u32(load_words2(row + s.a, row + s.b), load_words2(row + s.c, row + s.d));
    const uint32x4_t last = vcombine_u32(load_words2(row + t.a, row + t.b), load_words2(row + t.c, row + t.d));
    const int16x8x2_t v = vuzpq_s16(vreinterpretq_s16_u32(first), vreinterpretq_s16_u32(last));
    const int16x8x2_t w = vld2q_s16(weight);
    const int32x4_t a = vmull_s16(vget_low_s16(v.val[0]), vget_low_s16(w.val[0]));
    const int32x4_t b = vmull_s16(vget_high_s16(v.val[0]), vget_high_s16(w.val[0]));
    return {vmlal_s16(a, vget_low_s16(v.val[1]), vget_low_s16(w.val[1])),
            vmlal_s16(b, vget_high_s16(v.val[1]), vget_high_s16(w.val[1]))};
}

/// Four or more taps of four columns of one channel.
inline int32x4_t fir1_four(const uint16_t* row, const FirTable& t, int i) {
    const Starts at = four_starts(t.start + i);
    const int16_t* w = t.weight + i * t.taps;
    const auto column = [&](const uint16_t* p) {
        int32x4_t acc = vmull_s16(signed4(vld1_u16(p)), vld1_s16(w));
        for (int k = 4; k < t.taps; k += 4)
            acc = vmlal_s16(acc, signed4(vld1_u16(p + k)), vld1_s16(w + k));
        w += t.taps;
        return vpadd_s32(vget_low_s32(acc), vget_high_s32(acc));
    };
    const int32x2_t a = column(row + at.a), b = column(row + at.b), c = column(row + at.c), d = column(row + at.d);
    return vcombine_s32(vpadd_s32(a, b), vpadd_s32(c, d));
}

void fir1(const uint16_t* row, const FirTable& table, uint8_t* out) {
    const FirTable t = table;
    int i = 0;
    if (t.taps == 2)
        for (; i + 8 <= t.cols; i += 8) {
            const Sums8 sums = fir1_two_taps(row, t.start + i, t.weight + 2 * i);
            vst1_u8(out + i, bytes_of(sums.a, sums.b));
        }
    else
        for (; i + 8 <= t.cols; i += 8)
            vst1_u8(out + i, bytes_of(fir1_four(row, t, i), fir1_four(row, t, i + 4)));
    fir_to_8_loop<1>(row, t, out, i);
}

/// Two taps of two columns of two channels, from a pair of each; the weights are those of the one and of the other.
inline int32x4_t fir2_two_taps(int32x4_t acc, const uint16_t* a, const uint16_t* b, int16x4_t first,
                               int16x4_t second) {
    const int32x2x2_t taps = vtrn_s32(vreinterpret_s32_u16(vld1_u16(a)), vreinterpret_s32_u16(vld1_u16(b)));
    return vmlal_s16(vmlal_s16(acc, vreinterpret_s16_s32(taps.val[0]), first), vreinterpret_s16_s32(taps.val[1]),
                     second);
}

/// Sums of four columns of two channels.
inline Sums8 fir2_four(const uint16_t* row, const FirTable& t, int i) {
    const Starts at = four_starts(t.start + i);
    const uint16_t *a = row + at.a, *b = row + at.b, *c = row + at.c, *d = row + at.d;
    const int16_t* w = t.weight + i * t.taps;
    Sums8 sums = {vdupq_n_s32(0), vdupq_n_s32(0)};
    const auto add = [&](int k, int16x8_t pairs) {
        const int16x8x2_t twice = vtrnq_s16(pairs, pairs); // first weight of each column twice, then the second
        sums.a = fir2_two_taps(sums.a, a + k, b + k, vget_low_s16(twice.val[0]), vget_low_s16(twice.val[1]));
        sums.b = fir2_two_taps(sums.b, c + k, d + k, vget_high_s16(twice.val[0]), vget_high_s16(twice.val[1]));
    };
    if (t.taps == 2)
        add(0, vld1q_s16(w));
    else
        for (int k = 0; k < t.taps; k += 2, w += 2)
            add(2 * k, vreinterpretq_s16_u32(
                           vcombine_u32(load_words2(w, w + t.taps), load_words2(w + 2 * t.taps, w + 3 * t.taps))));
    return sums;
}

void fir2(const uint16_t* row, const FirTable& table, uint8_t* out) {
    const FirTable t = table;
    int i = 0;
    for (; i + 4 <= t.cols; i += 4) {
        const Sums8 sums = fir2_four(row, t, i);
        vst1_u8(out + 2 * i, bytes_of(sums.a, sums.b));
    }
    fir_to_8_loop<2>(row, t, out, i);
}

/// Sums of neighbours.
inline int32x4_t add_pairs(int32x4_t a, int32x4_t b) {
    const int32x4x2_t apart = vuzpq_s32(a, b);
    return vaddq_s32(apart.val[0], apart.val[1]);
}

template <int C>
void bilinear_wide(const uint8_t* a, const uint8_t* b, int weight, const FirTable& table, uint8_t* out) {
    const FirTable t = table;
    const int16x8_t down = weights8(weight);
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
        store_columns2<C>(out + i * C, bytes_of(column(i), column(i + 1)));
    bilinear_at_loop<C>(a, b, weight, t, out, i);
}

void bilinear1(const uint8_t* a, const uint8_t* b, int weight, const FirTable& table, uint8_t* out) {
    const FirTable t = table;
    const int16x8_t down = weights8(weight);
    const auto four = [](const uint8_t* row, const int32_t* start) { // two bytes of each of four columns
        uint16x4_t v = vld1_dup_u16(reinterpret_cast<const uint16_t*>(row + start[0]));
        v = vld1_lane_u16(reinterpret_cast<const uint16_t*>(row + start[1]), v, 1);
        v = vld1_lane_u16(reinterpret_cast<const uint16_t*>(row + start[2]), v, 2);
        v = vld1_lane_u16(reinterpret_cast<const uint16_t*>(row + start[3]), v, 3);
        return vreinterpret_u8_u16(v);
    };
    const auto sums = [&](int i) {
        const int16x8_t v = mix8(four(a, t.start + i), four(b, t.start + i), down);
        const int16x8_t w = vld1q_s16(t.weight + 2 * i);
        return add_pairs(vmull_s16(vget_low_s16(v), vget_low_s16(w)), vmull_s16(vget_high_s16(v), vget_high_s16(w)));
    };
    int i = 0;
    for (; i + 8 <= t.cols; i += 8)
        vst1_u8(out + i, bytes_of(sums(i), sums(i + 4)));
    bilinear_at_loop<1>(a, b, weight, t, out, i);
}

void bilinear2(const uint8_t* a, const uint8_t* b, int weight, const FirTable& table, uint8_t* out) {
    const FirTable t = table;
    const int16x8_t down = weights8(weight);
    const auto two = [](const uint8_t* row, const int32_t* start) { // four bytes of each of two columns
        const uint32x2_t v = vld1_dup_u32(reinterpret_cast<const uint32_t*>(row + start[0]));
        return vreinterpret_u8_u32(vld1_lane_u32(reinterpret_cast<const uint32_t*>(row + start[1]), v, 1));
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
        vst1_u8(out + 2 * i, bytes_of(sums(i), sums(i + 2)));
    bilinear_at_loop<2>(a, b, weight, t, out, i);
}

template <int N>
void third(const uint8_t* row, uint8_t* out, int cols) {
    constexpr int kBlock = N == 1 ? 16 : N == 4 ? 4 : 8;
    if (cols < kBlock)
        return third_loop<N>(row, out, cols);
    for (int at = 0; at < cols; at += kBlock) {
        const int x = std::min(at, cols - kBlock);
        const uint8_t* p = row + 3 * x * N;
        uint8_t* o = out + x * N;
        if (N == 1) {
            vst1q_u8(o, vld3q_u8(p).val[1]);
        } else if (N == 2) {
            vst1q_u8(o, vreinterpretq_u8_u16(vld3q_u16(reinterpret_cast<const uint16_t*>(p)).val[1]));
        } else if (N == 4) {
            vst1q_u8(o, vreinterpretq_u8_u32(vld3q_u32(reinterpret_cast<const uint32_t*>(p)).val[1]));
        } else { // each channel of 24 columns, of which a table takes eight
            const uint8x8x3_t a = vld3_u8(p), b = vld3_u8(p + 24), c = vld3_u8(p + 48);
            const uint8x8_t index = vcreate_u8(0x1613100D0A070401u);
            const auto take = [&](int k) { return vtbl3_u8({{a.val[k], b.val[k], c.val[k]}}, index); };
            vst3_u8(o, {{take(0), take(1), take(2)}});
        }
    }
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

void expand(const uint8_t* row, const ExpandTable& table, uint16_t* out) {
    const ExpandTable t = table;
    if (!t.by_16)
        return plain_kernels().expand(row, table, out);
    const uint8x8_t next = vdup_n_u8(static_cast<uint8_t>(t.next));
    for (int i = 0; i < t.eights; ++i, out += 8) {
        const uint8x16_t bytes = vld1q_u8(row + t.start[i]);
        const uint8x8x2_t window = {{vget_low_u8(bytes), vget_high_u8(bytes)}};
        const uint8x8_t index = vld1_u8(t.index + 8 * i);
        const uint8x8_t left = vtbl2_u8(window, index), right = vtbl2_u8(window, vadd_u8(index, next));
        const int16x8_t d = vshlq_n_s16(vreinterpretq_s16_u16(vsubl_u8(right, left)), 7);
        vst1q_u16(out, words(vaddq_s16(scaled(left), vqrdmulhq_s16(d, vld1q_s16(t.weight + 8 * i)))));
    }
}

// 16-bit samples. NEON adds and multiplies single precision as the plain loops do: none of these numbers is too small
// for it.

void wide_rows(const WideRows& table, float* out, int n) {
    const WideRows rows = table;
    const uint8_t* last = rows.first + (rows.count - 1) * rows.pitch;
    const auto load = [](const uint8_t* row, int i) { return vreinterpretq_u16_u8(vld1q_u8(row + 2 * i)); };
    const auto floats = [](uint16x4_t v) { return vcvtq_f32_u32(vmovl_u16(v)); };
    int i = 0;
    for (; i + 8 <= n; i += 8) {
        const uint16x8_t first = load(rows.first, i);
        float32x4_t lo = floats(vget_low_u16(first)), hi = floats(vget_high_u16(first));
        const auto add = [&](float32x4_t l, float32x4_t h, float weight) {
            lo = vaddq_f32(lo, vmulq_n_f32(l, weight));
            hi = vaddq_f32(hi, vmulq_n_f32(h, weight));
        };
        if (rows.count > 1) {
            const uint16x8_t end = load(last, i);
            lo = vmulq_n_f32(lo, rows.first_weight), hi = vmulq_n_f32(hi, rows.first_weight);
            add(floats(vget_low_u16(end)), floats(vget_high_u16(end)), rows.last_weight);
        }
        if (rows.count > 2) {
            uint32x4_t sum_lo = vdupq_n_u32(0), sum_hi = sum_lo;
            const uint8_t* p = rows.first;
            for (int k = rows.count - 2; k > 0; --k) {
                const uint16x8_t v = load(p += rows.pitch, i);
                sum_lo = vaddw_u16(sum_lo, vget_low_u16(v));
                sum_hi = vaddw_u16(sum_hi, vget_high_u16(v));
            }
            add(vcvtq_f32_u32(sum_lo), vcvtq_f32_u32(sum_hi), rows.inner_weight);
        }
        vst1q_f32(out + i, lo);
        vst1q_f32(out + i + 4, hi);
    }
    wide_rows_loop(rows, out, n, i);
}

void wide_fir(const float* row, const WideFir& table, uint8_t* out) {
    const WideFir t = table;
    if (t.taps > kWideTapsInSingle)
        return plain_kernels().wide_fir(row, t, out);
    int i = 0;
    for (; i + 4 <= t.cols; i += 4) {
        const int32_t* start = t.start + i;
        const float *a = row + start[0], *b = row + start[1], *c = row + start[2], *d = row + start[3];
        const float* w = t.weight + i;
        float32x4_t sum = vdupq_n_f32(0);
        for (int k = 0; k < t.taps; ++k, w += t.cols) {
            const float32x2_t ab = vld1_lane_f32(b++, vld1_dup_f32(a++), 1),
                              cd = vld1_lane_f32(d++, vld1_dup_f32(c++), 1);
            sum = vaddq_f32(sum, vmulq_f32(vcombine_f32(ab, cd), vld1q_f32(w)));
        }
        const uint32x4_t v = vcvtq_u32_f32(vaddq_f32(sum, vdupq_n_f32(0.5f)));
        vst1_u8(out + 2 * i, vreinterpret_u8_u16(vqmovn_u32(v)));
    }
    wide_fir_loop(row, t, out, i);
}

// -------------------------------------------------------------------------------------------------- affine

/// Bits 8 to 15 of positions, one in the low word of each lane.
inline uint32x2_t fractions(int32x2_t at) {
    return vand_u32(vshr_n_u32(vreinterpret_u32_s32(at), 8), vdup_n_u32(255));
}

template <int C>
void affine_wide(const AffineSpan& table, uint8_t* out, int n) {
    const AffineSpan s = table; // which stores to `out` cannot change
    // Loads of eight bytes must stay inside the plane: all but its last row lend the next row's bytes.
    const int32_t last_y = s.y + (n - 1) * s.dy;
    if ((std::max(s.y, last_y) >> 16) + 2 >= s.rows)
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
        const int16x4_t right = vreinterpret_s16_u32(fx), left = vreinterpret_s16_u32(vsub_u32(vdup_n_u32(256), fx));
        xs = vadd_s32(xs, step_x), ys = vadd_s32(ys, step_y);
        const auto vertical = [&](uint16x4_t f) {
            const uint8_t* p = s.data + (y >> 16) * s.pitch + (x >> 16) * C;
            x = wrapping_add(x, s.dx), y = wrapping_add(y, s.dy);
            const uint8x8_t top = vld1_u8(p), bottom = vld1_u8(p + s.pitch);
            // 256 top + fy (bottom - top), exact in sixteen bits although the product alone wraps.
            const uint16x8_t v = vmlaq_lane_u16(vshll_n_u8(top, 8), vsubl_u8(bottom, top), f, 0);
            return vreinterpretq_s16_u16(vshrq_n_u16(v, 1));
        };
        const int16x8_t a = vertical(fy), b = vertical(vext_u16(fy, fy, 2));
        const auto next = [](int16x8_t v) { return vext_s16(vget_low_s16(v), vget_high_s16(v), C % 4); };
        const int16x4_t a_next = C == 4 ? vget_high_s16(a) : next(a), b_next = C == 4 ? vget_high_s16(b) : next(b);
        const int32x4_t a_sum = vmlal_lane_s16(vmull_lane_s16(vget_low_s16(a), left, 0), a_next, right, 0);
        const int32x4_t b_sum = vmlal_lane_s16(vmull_lane_s16(vget_low_s16(b), left, 2), b_next, right, 2);
        store_columns2<C>(out + i * C, vqmovun_s16(vcombine_s16(vrshrn_n_s32(a_sum, 15), vrshrn_n_s32(b_sum, 15))));
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
        return vand_u16(vshrn_n_u32(vreinterpretq_u32_s32(at), 8), vdup_n_u16(255));
    };
    int32x4_t xs = positions(s.x, s.dx), ys = positions(s.y, s.dy);
    const int32x4_t step_x = vmulq_n_s32(vdupq_n_s32(kColumns), s.dx),
                    step_y = vmulq_n_s32(vdupq_n_s32(kColumns), s.dy);
    int32_t x = s.x, y = s.y;
    int i = 0;
    for (; i + kColumns <= n; i += kColumns, xs = vaddq_s32(xs, step_x), ys = vaddq_s32(ys, step_y)) {
        const auto next = [&] {
            const uint8_t* p = s.data + (y >> 16) * s.pitch + (x >> 16) * C;
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
            vmlaq_u16(vshll_n_u8(top, 8), vsubl_u8(bottom, top), vcombine_u16(twice.val[0], twice.val[1]));
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
        const int32x4_t sum = vmlal_s16(vmull_s16(left, vsub_s16(vdup_n_s16(256), fx)), right, fx);
        const uint16x4_t bytes = vreinterpret_u16_s16(vrshrn_n_s32(sum, 15));
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
    k.packed_to_nv12[0] = packed_to_nv12<0>;
    k.packed_to_nv12[1] = packed_to_nv12<1>;
    for_rgb_pairs([&](auto from, auto to) { k.rgb_to_rgb[from][to] = rgb_to_rgb<from, to>; });
    k.gray_to_rgb[0] = gray_to_rgb<3>;
    k.gray_to_rgb[1] = gray_to_rgb<4>;
    k.gray16_to_8 = gray16_to_8;
    k.widen = widen;
    k.narrow = narrow;
    k.blend8 = blend8;
    k.blend8_to_8 = blend8_to_8;
    k.blend16_to_8 = blend16_to_8;
    k.box_rows = box_rows;
    k.expand = expand;
    k.wide_rows = wide_rows;
    k.wide_fir = wide_fir;
    k.fir_to_8[0] = fir1;
    k.fir_to_8[1] = fir2;
    k.fir_to_8[2] = fir_wide<3>;
    k.fir_to_8[3] = fir_wide<4>;
    k.bilinear_at[0] = bilinear1;
    k.bilinear_at[1] = bilinear2;
    k.bilinear_at[2] = bilinear_wide<3>;
    k.bilinear_at[3] = bilinear_wide<4>;
    k.third[0] = third<1>;
    k.third[1] = third<2>;
    k.third[2] = third<3>;
    k.third[3] = third<4>;
    k.halve[0] = halve<1>;
    k.halve[1] = halve<2>;
    k.halve[2] = halve<3>;
    k.halve[3] = halve<4>;
    k.affine_span[0] = affine_narrow<1>;
    k.affine_span[1] = affine_narrow<2>;
    k.affine_span[2] = affine_wide<3>;
    k.affine_span[3] = affine_wide<4>;
    k.repeat12 = repeat12;
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
