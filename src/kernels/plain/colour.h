// SPDX-License-Identifier: MIT
// The plain loops of colour. They define the results: a SIMD build may replace a loop but not change a byte of what
// it writes.
#pragma once

#include <cstring>

#include "kernels/fixed.h"
#include "kernels/kinds.h"

namespace tavi {
namespace { // whoever includes this compiles its own

/// (a * b + 2^14) >> 15, the rounding high product that AVX2 and NEON both have.
inline int32_t mulhrs(int32_t a, int32_t b) { return (a * b + (1 << 14)) >> 15; }

inline uint8_t clamp8(int32_t v) { return static_cast<uint8_t>(v < 0 ? 0 : v > 255 ? 255 : v); }

// ------------------------------------------------------------------------------------------------ YUV to RGB

/// Where the samples of a row lie, and how far apart.
template <class T>
struct YuvRow {
    const T *y, *u, *v;
    int y_step, c_step;
};

template <int Chroma, class T>
YuvRow<T> yuv_row(const T* y, const T* u, const T* v) {
    switch (Chroma) {
    case kPlanar:
        return {y, u, v, 1, 1};
    case kPairsUV:
        return {y, u, u + 1, 1, 2};
    case kPairsVU:
        return {y, u + 1, u, 1, 2};
    case kPackedYUYV:
        return {y, y + 1, y + 3, 2, 4};
    default:
        return {y + 1, y, y + 2, 2, 4};
    }
}

struct ChromaTerms {
    int32_t r, g, b;
};

/// `us` and `vs` are differences from neutral times 256.
inline ChromaTerms chroma_terms(int32_t us, int32_t vs, const YuvToRgb& k) {
    return {mulhrs(vs, k.v_to_r) + k.bias, k.bias - mulhrs(us, k.u_to_g) - mulhrs(vs, k.v_to_g),
            mulhrs(us, k.u_to_b) + k.bias};
}

/// `red` is the byte of red: 0 or 2.
template <int N>
inline void store_pixel(int32_t luma, const ChromaTerms& c, uint8_t* out, int red) {
    out[red] = clamp8((luma + c.r) >> kRgbBits);
    out[1] = clamp8((luma + c.g) >> kRgbBits);
    out[2 - red] = clamp8((luma + c.b) >> kRgbBits);
    if (N == 4)
        out[3] = 255;
}

template <int N>
void yuv_row_to_rgb(YuvRow<uint8_t> s, uint8_t* rgb, int red, int width, const YuvToRgb& constants) {
    const YuvToRgb k = constants; // which stores to `rgb` cannot change
    for (int x = 0; x < width; x += 2, s.y += 2 * s.y_step, s.u += s.c_step, s.v += s.c_step, rgb += 2 * N) {
        const ChromaTerms t = chroma_terms((*s.u - kNeutral) * 256, (*s.v - kNeutral) * 256, k);
        store_pixel<N>((s.y[0] * k.luma) >> 1, t, rgb, red);
        store_pixel<N>((s.y[s.y_step] * k.luma) >> 1, t, rgb + N, red);
    }
}

/// Samples with kRowBits of fraction: shifted up by two they stand where whole ones do above.
template <int N>
void yuv444_row_to_rgb(YuvRow<uint16_t> s, uint8_t* rgb, int red, int width, const YuvToRgb& constants) {
    const YuvToRgb k = constants;
    const auto kept = [](int v) { return (v + (1 << kDroppedBits >> 1)) >> kDroppedBits << kDroppedBits; };
    for (int x = 0; x < width; ++x, ++s.y, s.u += s.c_step, s.v += s.c_step, rgb += N)
        store_pixel<N>((kept(*s.y) * k.luma) >> 7, chroma_terms(4 * kept(*s.u) - 32768, 4 * kept(*s.v) - 32768, k),
                       rgb, red);
}

template <int Chroma, int Kind>
void yuv_to_rgb_loop(const uint8_t* y, const uint8_t* u, const uint8_t* v, uint8_t* rgb, int width,
                     const YuvToRgb& k) {
    yuv_row_to_rgb<rgb_bytes(Kind)>(yuv_row<Chroma>(y, u, v), rgb, 2 * is_swapped(Kind), width, k);
}

template <int Chroma, int Kind>
void yuv444_to_rgb_loop(const uint16_t* y, const uint16_t* u, const uint16_t* v, uint8_t* rgb, int width,
                        const YuvToRgb& k) {
    yuv444_row_to_rgb<rgb_bytes(Kind)>(yuv_row<Chroma>(y, u, v), rgb, 2 * is_swapped(Kind), width, k);
}

// ------------------------------------------------------------------------------------------------ RGB to YUV

/// Where chroma goes, and how far apart.
struct ChromaRow {
    uint8_t *u, *v;
    int step;
};

template <int Chroma>
ChromaRow chroma_row(uint8_t* u, uint8_t* v) {
    return Chroma == kPlanar    ? ChromaRow{u, v, 1}
           : Chroma == kPairsUV ? ChromaRow{u, u + 1, 2}
                                : ChromaRow{u + 1, u, 2};
}

/// One row or, for 4:2:0, two.
template <int N, int Rows>
void rgb_rows_to_yuv(bool swapped, const uint8_t* a, const uint8_t* b, uint8_t* ya, uint8_t* yb, ChromaRow c,
                     int width, const RgbToYuv& constants) {
    const RgbToYuv k = weights_in_order(constants, swapped); // which stores cannot change
    for (int x = 0; x < width; x += 2, c.u += c.step, c.v += c.step) {
        Rgb sum = {0, 0, 0};
        const auto add = [&](const uint8_t* row, uint8_t* luma) {
            for (int i = 0; i < 2; ++i) {
                const uint8_t* p = row + (x + i) * N;
                luma[x + i] = luma_of({p[0], p[1], p[2]}, k);
                sum = {sum.r + p[0], sum.g + p[1], sum.b + p[2]};
            }
        };
        add(a, ya);
        if (Rows == 2)
            add(b, yb);
        *c.u = chroma_of(sum, k.u, Rows);
        *c.v = chroma_of(sum, k.v, Rows);
    }
}

template <int Chroma, int Kind>
void rgb_to_yuv420_loop(const uint8_t* a, const uint8_t* b, uint8_t* ya, uint8_t* yb, uint8_t* u, uint8_t* v,
                        int width, const RgbToYuv& k) {
    rgb_rows_to_yuv<rgb_bytes(Kind), 2>(is_swapped(Kind), a, b, ya, yb, chroma_row<Chroma>(u, v), width, k);
}

template <int Chroma, int Kind>
void rgb_to_yuv422_loop(const uint8_t* rgb, uint8_t* y, uint8_t* u, uint8_t* v, int width, const RgbToYuv& k) {
    rgb_rows_to_yuv<rgb_bytes(Kind), 1>(is_swapped(Kind), rgb, nullptr, y, nullptr, chroma_row<Chroma>(u, v), width,
                                        k);
}

template <int Luma> // 0 where luma stands first
void packed_to_nv12_loop(const uint8_t* a, const uint8_t* b, uint8_t* ya, uint8_t* yb, uint8_t* uv, int width) {
    for (int x = 0; x < width; ++x) {
        ya[x] = a[2 * x + Luma];
        yb[x] = b[2 * x + Luma];
        uv[x] = static_cast<uint8_t>((a[2 * x + 1 - Luma] + b[2 * x + 1 - Luma] + 1) >> 1);
    }
}

// --------------------------------------------------------------------------------------------- grey, orders

template <int Kind>
inline Rgb load_rgb(const uint8_t* p) {
    constexpr int red = 2 * is_swapped(Kind);
    return {p[red], p[1], p[2 - red]};
}

// Full-range luma, exactly (299 r + 587 g + 114 b) / 1000 rounded: floor(n / 8 / 125) with the division by 125 as a
// multiplication that is exact below 32768.
template <int Kind>
void rgb_to_gray_loop(const uint8_t* rgb, uint8_t* gray, int width) {
    for (int x = 0; x < width; ++x) {
        const Rgb p = load_rgb<Kind>(rgb + x * rgb_bytes(Kind));
        const uint32_t eighth = static_cast<uint32_t>(gray_sum(p) + 500) >> 3;
        gray[x] = static_cast<uint8_t>((eighth * 33555) >> 22);
    }
}

// The same in 16 bits: (sum * 257 + 500) / 1000, the division as a multiplication that is exact below 2^26.
template <int Kind>
void rgb_to_gray16_loop(const uint8_t* rgb, uint8_t* gray16, int width) {
    for (int x = 0; x < width; ++x) {
        const auto n = static_cast<uint32_t>(gray_sum(load_rgb<Kind>(rgb + x * rgb_bytes(Kind))) * 257 + 500);
        const auto v = static_cast<uint16_t>((uint64_t{n} * 274877907u) >> 38);
        std::memcpy(gray16 + 2 * x, &v, sizeof v);
    }
}

template <int N>
void gray_to_rgb_loop(const uint8_t* gray, uint8_t* rgb, int width) {
    for (int x = 0; x < width; ++x) {
        rgb[x * N] = rgb[x * N + 1] = rgb[x * N + 2] = gray[x];
        if (N == 4)
            rgb[x * N + 3] = 255;
    }
}

/// N bytes a pixel to M; `Swap` exchanges the first and the third.
template <int N, int M, bool Swap>
void rgb_to_rgb_loop(const uint8_t* from, uint8_t* to, int width) {
    for (int x = 0; x < width; ++x, from += N, to += M) {
        const uint8_t first = from[Swap ? 2 : 0], second = from[1], third = from[Swap ? 0 : 2];
        const uint8_t alpha = N == 4 ? from[N - 1] : 255;
        to[0] = first, to[1] = second, to[2] = third;
        if (M == 4)
            to[M - 1] = alpha;
    }
}

// (v * 255 + 32895) >> 16 is v / 257 rounded for all 65536 values.
inline void gray16_to_8_loop(const uint8_t* gray16, uint8_t* gray8, int width) {
    for (int x = 0; x < width; ++x) {
        uint16_t v;
        std::memcpy(&v, gray16 + 2 * x, sizeof v);
        gray8[x] = static_cast<uint8_t>((v * 255u + 32895u) >> 16);
    }
}

} // namespace
} // namespace tavi
