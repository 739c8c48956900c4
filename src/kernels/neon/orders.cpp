// SPDX-License-Identifier: MIT
// Grey, and other orders of RGB, for NEON. Every kernel gives the bytes of its plain loop.
#if defined(__ARM_NEON)

#include "kernels/kinds.h"
#include "kernels/neon/pixels.h"
#include "kernels/neon/vec.h"

namespace tavi::neon {
namespace {

inline uint8x8_t gray8(uint8x8_t a8, uint8x8_t b8, uint8x8_t c8, uint16x4_t w) {
    const uint16x8_t a = vmovl_u8(a8), b = vmovl_u8(b8), c = vmovl_u8(c8);
    const auto half = [&](uint16x4_t a4, uint16x4_t b4, uint16x4_t c4) {
        return vshrn_n_u32(vmull_n_u16(vshrn_n_u32(weigh(a4, b4, c4, w, 500), 3), 33555), 16);
    };
    return vshrn_n_u16(vcombine_u16(half(vget_low_u16(a), vget_low_u16(b), vget_low_u16(c)),
                                    half(vget_high_u16(a), vget_high_u16(b), vget_high_u16(c))),
                       6);
}

/// In the order of the channels; the fourth is not used.
inline uint16x4_t gray_weights(bool swapped) {
    constexpr uint16_t kWeights[2][4] = {{299, 587, 114}, {114, 587, 299}};
    return vld1_u16(kWeights[swapped]);
}

template <int N>
__attribute__((noinline)) bool to_gray(bool swapped, const uint8_t* rgb, uint8_t* gray, int width) {
    const uint16x4_t w = gray_weights(swapped);
    return by_blocks<16>(width, [=](int x) {
        const Channels p = load_pixels<N>(rgb + x * N);
        vst1_u8(gray + x, gray8(vget_low_u8(p.first), vget_low_u8(p.second), vget_low_u8(p.third), w));
        vst1_u8(gray + x + 8, gray8(vget_high_u8(p.first), vget_high_u8(p.second), vget_high_u8(p.third), w));
    });
}

template <int Kind>
void rgb_to_gray(const uint8_t* rgb, uint8_t* gray, int width) {
    if (!to_gray<rgb_bytes(Kind)>(is_swapped(Kind), rgb, gray, width))
        plain_kernels().rgb_to_gray[Kind](rgb, gray, width);
}

/// Four sums times 257, rounded thousandths of them. The factor is 2^38 / 1000.
inline uint16x4_t thousandths(uint32x4_t sum) {
    const uint32x4_t n = vaddq_u32(vaddq_u32(vshlq_n_u32(sum, 8), sum), vdupq_n_u32(500));
    const auto half = [](uint32x2_t v) { return vshrn_n_u64(vmull_n_u32(v, 274877907u), 32); };
    return vshrn_n_u32(vcombine_u32(half(vget_low_u32(n)), half(vget_high_u32(n))), 6);
}

template <int N>
__attribute__((noinline)) bool to_gray16(bool swapped, const uint8_t* rgb, uint8_t* gray16, int width) {
    const uint16x4_t w = gray_weights(swapped);
    return by_blocks<8>(width, [=](int x) {
        uint8x8_t a8, b8, c8;
        if (N == 3) {
            const uint8x8x3_t p = vld3_u8(rgb + N * x);
            a8 = p.val[0], b8 = p.val[1], c8 = p.val[2];
        } else {
            const uint8x8x4_t p = vld4_u8(rgb + N * x);
            a8 = p.val[0], b8 = p.val[1], c8 = p.val[2];
        }
        const uint16x8_t a = vmovl_u8(a8), b = vmovl_u8(b8), c = vmovl_u8(c8);
        const uint16x4_t lo = thousandths(weigh(vget_low_u16(a), vget_low_u16(b), vget_low_u16(c), w, 0));
        const uint16x4_t hi = thousandths(weigh(vget_high_u16(a), vget_high_u16(b), vget_high_u16(c), w, 0));
        vst1q_u8(gray16 + 2 * x, vreinterpretq_u8_u16(vcombine_u16(lo, hi)));
    });
}

template <int Kind>
void rgb_to_gray16(const uint8_t* rgb, uint8_t* gray16, int width) {
    if (!to_gray16<rgb_bytes(Kind)>(is_swapped(Kind), rgb, gray16, width))
        plain_kernels().rgb_to_gray16[Kind](rgb, gray16, width);
}

template <int N>
void gray_to_rgb(const uint8_t* gray, uint8_t* rgb, int width) {
    if (!by_blocks<16>(width, [=](int x) {
            const uint8x16_t g = vld1q_u8(gray + x);
            if (N == 3)
                vst3q_u8(rgb + 3 * x, {{g, g, g}});
            else
                vst4q_u8(rgb + 4 * x, {{g, g, g, vdupq_n_u8(255)}});
        }))
        plain_kernels().gray_to_rgb[N - 3](gray, rgb, width);
}

/// N bytes a pixel to M; `Swap` exchanges the first and the third.
template <int N, int M, bool Swap>
__attribute__((noinline)) bool reorder(const uint8_t* from, uint8_t* to, int width) {
    return by_blocks<16>(width, [=](int x) {
        uint8x16x4_t p;
        if (N == 4) {
            p = vld4q_u8(from + 4 * x);
        } else {
            const uint8x16x3_t q = vld3q_u8(from + 3 * x);
            p = {{q.val[0], q.val[1], q.val[2], vdupq_n_u8(255)}};
        }
        if (Swap)
            std::swap(p.val[0], p.val[2]);
        if (M == 4)
            vst4q_u8(to + 4 * x, p);
        else
            vst3q_u8(to + 3 * x, {{p.val[0], p.val[1], p.val[2]}});
    });
}

template <int From, int To>
void rgb_to_rgb(const uint8_t* from, uint8_t* to, int width) {
    if (!reorder<rgb_bytes(From), rgb_bytes(To), is_swapped(From) != is_swapped(To)>(from, to, width))
        plain_kernels().rgb_to_rgb[From][To](from, to, width);
}

void gray16_to_8(const uint8_t* gray16, uint8_t* gray, int width) {
    if (!by_blocks<8>(width, [=](int x) {
            const uint16x8_t v = vreinterpretq_u16_u8(vld1q_u8(gray16 + 2 * x));
            const uint32x4_t bias = vdupq_n_u32(32895);
            const uint16x4_t lo = vshrn_n_u32(vmlal_n_u16(bias, vget_low_u16(v), 255), 16);
            const uint16x4_t hi = vshrn_n_u32(vmlal_n_u16(bias, vget_high_u16(v), 255), 16);
            vst1_u8(gray + x, vmovn_u16(vcombine_u16(lo, hi)));
        }))
        plain_kernels().gray16_to_8(gray16, gray, width);
}

} // namespace

void use_orders(Kernels& k) {
    for_each<kRgbKinds>([&](auto rgb) {
        k.rgb_to_gray[rgb] = rgb_to_gray<rgb>;
        k.rgb_to_gray16[rgb] = rgb_to_gray16<rgb>;
    });
    for_pairs<kRgbKinds, kRgbKinds>([&](auto a, auto b) {
        if constexpr (a != b)
            k.rgb_to_rgb[a][b] = rgb_to_rgb<a, b>;
    });
    k.gray_to_rgb[0] = gray_to_rgb<3>;
    k.gray_to_rgb[1] = gray_to_rgb<4>;
    k.gray16_to_8 = gray16_to_8;
}

} // namespace tavi::neon

#endif
