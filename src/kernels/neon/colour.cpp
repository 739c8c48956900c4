// SPDX-License-Identifier: MIT
// Between YUV and RGB for NEON. Every kernel gives the bytes of its plain loop, which does the rows shorter than a
// block.
#if defined(__ARM_NEON)

#include "kernels/kinds.h"
#include "kernels/neon/pixels.h"
#include "kernels/neon/vec.h"

namespace tavi::neon {
namespace {

/// Eight pixels of N bytes.
template <int N>
inline void store_pixels8(uint8_t* out, uint8x8_t first, uint8x8_t second, uint8x8_t third) {
    if (N == 3)
        vst3_u8(out, {{first, second, third}});
    else
        vst4_u8(out, {{first, second, third, vdup_n_u8(255)}});
}

/// Sixteen pixels: the even and the odd ones, which share their chroma.
struct YuvBlock {
    uint8x8_t even, odd;
    uint8x8_t u, v;
};

// Orders of red and blue share their bodies: with U and V and the constants exchanged, the first channel is blue. The
// bodies do what the entries of the table would have to do each: that is kilobytes.

/// Which row of the table was called.
struct Entry {
    int8_t chroma, kind;
};

/// As what pairs are read.
constexpr int read_as(int chroma, int kind) {
    const bool pairs = chroma == kPairsUV || chroma == kPairsVU;
    return pairs && is_swapped(kind) ? other_pairs(chroma) : chroma;
}

template <int Chroma, bool Swap>
inline YuvBlock load_yuv(const uint8_t* y, const uint8_t* u, const uint8_t* v) {
    if (Chroma == kPackedYUYV || Chroma == kPackedUYVY) {
        const uint8x8x4_t p = vld4_u8(y); // y u y v, or u y v y
        constexpr int luma = Chroma == kPackedYUYV ? 0 : 1, first = 1 - luma + 2 * Swap,
                      second = 1 - luma + 2 * !Swap;
        return {p.val[luma], p.val[luma + 2], p.val[first], p.val[second]};
    }
    const uint8x8x2_t luma = vld2_u8(y);
    if (Chroma == kPlanar)
        return {luma.val[0], luma.val[1], vld1_u8(u), vld1_u8(v)};
    const uint8x8x2_t pairs = vld2_u8(u);
    return {luma.val[0], luma.val[1], pairs.val[Chroma == kPairsVU], pairs.val[Chroma == kPairsUV]};
}

/// The constants of a conversion; V to red, U to green, V to green and U to blue in one vector.
struct YuvVectors {
    YuvVectors(const YuvToRgb& k, bool swapped) : luma(vdup_n_u8(k.luma)), bias(vdupq_n_s16(k.bias)) {
        const YuvToRgb t = swapped ? exchanged(k) : k;
        const int16_t terms[4] = {t.v_to_r, t.u_to_g, t.v_to_g, t.u_to_b};
        factors = vld1_s16(terms);
    }

    uint8x8_t luma;
    int16x8_t bias;
    int16x4_t factors;
};

template <int N>
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
        return vzip_u8(vqshrun_n_s16(first, kRgbBits), vqshrun_n_s16(second, kRgbBits));
    };
    const uint8x8x2_t red = channel(vqaddq_s16(even, r), vqaddq_s16(odd, r));
    const uint8x8x2_t green = channel(vqsubq_s16(even, g), vqsubq_s16(odd, g));
    const uint8x8x2_t blue = channel(vqaddq_s16(even, b), vqaddq_s16(odd, b));
    store_pixels8<N>(out, red.val[0], green.val[0], blue.val[0]);
    store_pixels8<N>(out + 8 * N, red.val[1], green.val[1], blue.val[1]);
}

template <int Chroma, int N, bool Swap>
__attribute__((noinline)) void to_rgb(const uint8_t* y, const uint8_t* u, const uint8_t* v, uint8_t* rgb, int width,
                                      const YuvToRgb& constants, Entry entry) {
    if (width < 16)
        return plain_kernels().yuv_to_rgb[entry.chroma][entry.kind](y, u, v, rgb, width, constants);
    const YuvVectors k(constants, is_swapped(entry.kind));
    if (Chroma == kPlanar && is_swapped(entry.kind))
        std::swap(u, v);
    // Pointers that walk: an address of an index would take an instruction each.
    const auto advance = [&](int pixels) {
        y += Chroma >= kPackedYUYV ? 2 * pixels : pixels;
        if (Chroma < kPackedYUYV)
            u += Chroma == kPlanar ? pixels / 2 : pixels;
        if (Chroma == kPlanar)
            v += pixels / 2;
        rgb += pixels * N;
    };
    for (;; advance(width - 16), width = 16) { // a last block that overlaps the one before
        for (; width >= 16; width -= 16, advance(16))
            store_yuv_as_rgb<N>(k, load_yuv<Chroma, Swap>(y, u, v), rgb);
        if (width == 0)
            return;
    }
}

template <int Chroma, int Kind>
void yuv_to_rgb(const uint8_t* y, const uint8_t* u, const uint8_t* v, uint8_t* rgb, int width, const YuvToRgb& k) {
    constexpr bool packed = Chroma == kPackedYUYV || Chroma == kPackedUYVY;
    to_rgb<read_as(Chroma, Kind), rgb_bytes(Kind), packed && is_swapped(Kind)>(y, u, v, rgb, width, k,
                                                                               {Chroma, Kind});
}

/// Samples keep kRowBits of fraction: two bits up they fill a word.
template <int Chroma, int N>
__attribute__((noinline)) void to_rgb444(const uint16_t* y, const uint16_t* u, const uint16_t* v, uint8_t* rgb,
                                         int width, const YuvToRgb& constants, Entry entry) {
    if (width < 8)
        return plain_kernels().yuv444_to_rgb[entry.chroma][entry.kind](y, u, v, rgb, width, constants);
    const YuvVectors k(constants, is_swapped(entry.kind));
    if (Chroma == kPlanar && is_swapped(entry.kind))
        std::swap(u, v);
    const int16x8_t scale = vdupq_n_s16(static_cast<int16_t>(constants.luma * 128));
    const auto from_neutral = [](uint16x8_t c) {
        return vreinterpretq_s16_u16(
            veorq_u16(vshlq_n_u16(vrshrq_n_u16(c, kDroppedBits), kDroppedBits + 2), vdupq_n_u16(0x8000)));
    };
    const auto advance = [&](int pixels) {
        y += pixels;
        u += Chroma == kPlanar ? pixels : 2 * pixels;
        if (Chroma == kPlanar)
            v += pixels;
        rgb += pixels * N;
    };
    for (;; advance(width - 8), width = 8) {
        for (; width >= 8; width -= 8, advance(8)) {
            uint16x8_t first, second;
            if (Chroma == kPlanar) {
                first = vld1q_u16(u), second = vld1q_u16(v);
            } else {
                const uint16x8x2_t pairs = vld2q_u16(u);
                first = pairs.val[Chroma == kPairsVU], second = pairs.val[Chroma == kPairsUV];
            }
            const int16x8_t us = from_neutral(first), vs = from_neutral(second);
            // Twice a product's upper half is (4 y * 128 luma) >> 16 of y doubled.
            const int16x8_t twice =
                vreinterpretq_s16_u16(vshlq_n_u16(vrshrq_n_u16(vld1q_u16(y), kDroppedBits), kDroppedBits + 1));
            const int16x8_t luma = vaddq_s16(vqdmulhq_s16(twice, scale), k.bias);
            const int16x8_t g = vaddq_s16(vqrdmulhq_lane_s16(us, k.factors, 1), vqrdmulhq_lane_s16(vs, k.factors, 2));
            store_pixels8<N>(rgb, vqshrun_n_s16(vqaddq_s16(luma, vqrdmulhq_lane_s16(vs, k.factors, 0)), kRgbBits),
                             vqshrun_n_s16(vqsubq_s16(luma, g), kRgbBits),
                             vqshrun_n_s16(vqaddq_s16(luma, vqrdmulhq_lane_s16(us, k.factors, 3)), kRgbBits));
        }
        if (width == 0)
            return;
    }
}

template <int Chroma, int Kind>
void yuv444_to_rgb(const uint16_t* y, const uint16_t* u, const uint16_t* v, uint8_t* rgb, int width,
                   const YuvToRgb& k) {
    to_rgb444<read_as(Chroma, Kind), rgb_bytes(Kind)>(y, u, v, rgb, width, k, {Chroma, Kind});
}

// ---------------------------------------------------------------------------------------------- RGB to YUV

// One body for three bytes a pixel and one for four: the order of the channels is the order of the weights, and where
// chroma goes is asked per block. Twelve of each would be 20 KB of code.

/// Weights by channel in memory; the fourth is not used.
struct YuvWeights {
    explicit YuvWeights(const RgbToYuv& k) : luma_bias(k.luma_bias) {
        for (int c = 0; c < 3; ++c)
            y[c] = static_cast<uint16_t>(k.y[c]), u[c] = k.u[c], v[c] = k.v[c];
    }

    uint16_t y[4] = {};
    int16_t u[4] = {}, v[4] = {};
    uint32_t luma_bias;
};

inline uint8x8_t luma8(uint8x8_t a8, uint8x8_t b8, uint8x8_t c8, uint16x4_t w, uint32_t bias) {
    const uint16x8_t a = vmovl_u8(a8), b = vmovl_u8(b8), c = vmovl_u8(c8);
    const uint32x4_t lo = weigh(vget_low_u16(a), vget_low_u16(b), vget_low_u16(c), w, bias);
    const uint32x4_t hi = weigh(vget_high_u16(a), vget_high_u16(b), vget_high_u16(c), w, bias);
    return vmovn_u16(vcombine_u16(vshrn_n_u32(lo, kYuvBits), vshrn_n_u32(hi, kYuvBits)));
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

/// Two rows, and one.
template <int N>
__attribute__((noinline)) void to_yuv420(const uint8_t* a, const uint8_t* b, uint8_t* ya, uint8_t* yb, uint8_t* u,
                                         uint8_t* v, int width, const RgbToYuv& k, Entry entry) {
    const YuvWeights weights(weights_in_order(k, is_swapped(entry.kind)));
    const uint16x4_t w = vld1_u16(weights.y);
    if (!by_blocks<16>(width, [&](int x) {
            const Channels p = load_pixels<N>(a + x * N), q = load_pixels<N>(b + x * N);
            vst1q_u8(ya + x, luma16(p, w, weights.luma_bias));
            vst1q_u8(yb + x, luma16(q, w, weights.luma_bias));
            store_chroma<2>(entry.chroma, u, v, x,
                            {vpadalq_u8(vpaddlq_u8(p.first), q.first), vpadalq_u8(vpaddlq_u8(p.second), q.second),
                             vpadalq_u8(vpaddlq_u8(p.third), q.third)},
                            weights);
        }))
        plain_kernels().rgb_to_yuv420[entry.chroma][entry.kind](a, b, ya, yb, u, v, width, k);
}

template <int N>
__attribute__((noinline)) void to_yuv422(const uint8_t* rgb, uint8_t* y, uint8_t* u, uint8_t* v, int width,
                                         const RgbToYuv& k, Entry entry) {
    const YuvWeights weights(weights_in_order(k, is_swapped(entry.kind)));
    const uint16x4_t w = vld1_u16(weights.y);
    if (!by_blocks<16>(width, [&](int x) {
            const Channels p = load_pixels<N>(rgb + x * N);
            vst1q_u8(y + x, luma16(p, w, weights.luma_bias));
            store_chroma<1>(entry.chroma, u, v, x, {vpaddlq_u8(p.first), vpaddlq_u8(p.second), vpaddlq_u8(p.third)},
                            weights);
        }))
        plain_kernels().rgb_to_yuv422[entry.chroma][entry.kind](rgb, y, u, v, width, k);
}

template <int Chroma, int Kind>
void rgb_to_yuv420(const uint8_t* a, const uint8_t* b, uint8_t* ya, uint8_t* yb, uint8_t* u, uint8_t* v, int width,
                   const RgbToYuv& k) {
    to_yuv420<rgb_bytes(Kind)>(a, b, ya, yb, u, v, width, k, {Chroma, Kind});
}

template <int Chroma, int Kind>
void rgb_to_yuv422(const uint8_t* rgb, uint8_t* y, uint8_t* u, uint8_t* v, int width, const RgbToYuv& k) {
    to_yuv422<rgb_bytes(Kind)>(rgb, y, u, v, width, k, {Chroma, Kind});
}

template <int Luma>
void packed_to_nv12(const uint8_t* a, const uint8_t* b, uint8_t* ya, uint8_t* yb, uint8_t* uv, int width) {
    if (!by_blocks<16>(width, [=](int x) {
            const uint8x16x2_t p = vld2q_u8(a + 2 * x), q = vld2q_u8(b + 2 * x);
            vst1q_u8(ya + x, p.val[Luma]);
            vst1q_u8(yb + x, q.val[Luma]);
            vst1q_u8(uv + x, vrhaddq_u8(p.val[1 - Luma], q.val[1 - Luma]));
        }))
        plain_kernels().packed_to_nv12[Luma](a, b, ya, yb, uv, width);
}

} // namespace

void use_colour(Kernels& k) {
    for_pairs<kChromaKinds, kRgbKinds>([&](auto c, auto rgb) { k.yuv_to_rgb[c][rgb] = yuv_to_rgb<c, rgb>; });
    for_pairs<3, kRgbKinds>([&](auto c, auto rgb) {
        k.yuv444_to_rgb[c][rgb] = yuv444_to_rgb<c, rgb>;
        k.rgb_to_yuv420[c][rgb] = rgb_to_yuv420<c, rgb>;
        k.rgb_to_yuv422[c][rgb] = rgb_to_yuv422<c, rgb>;
    });
    k.packed_to_nv12[0] = packed_to_nv12<0>;
    k.packed_to_nv12[1] = packed_to_nv12<1>;
}

} // namespace tavi::neon

#endif
