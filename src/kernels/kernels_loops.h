// SPDX-License-Identifier: MIT
// The plain loops behind every kernel, included by each build and compiled with that build's instruction set. They
// define the results: a SIMD build may replace a loop but not change a byte of what it writes.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <type_traits>
#include <utility>

#include "kernels/kernels.h"

namespace tavi {
namespace {

// (a * b + 2^14) >> 15, the rounding high product that AVX2 and NEON both have.
inline int32_t mulhrs(int32_t a, int32_t b) { return (a * b + (1 << 14)) >> 15; }

inline uint8_t clamp8(int32_t v) { return static_cast<uint8_t>(v < 0 ? 0 : v > 255 ? 255 : v); }

// ------------------------------------------------------------------------------------------------ YUV to RGB
struct ChromaTerms {
    int32_t r, g, b;
};

inline ChromaTerms chroma_terms(int u, int v, const YuvToRgb& k) {
    const int32_t us = (u - kNeutral) * 256, vs = (v - kNeutral) * 256;
    return {mulhrs(vs, k.v_to_r) + k.bias, k.bias - mulhrs(us, k.u_to_g) - mulhrs(vs, k.v_to_g),
            mulhrs(us, k.u_to_b) + k.bias};
}

template <int Rgb>
inline void store_rgb(uint8_t* out, int r, int g, int b) {
    constexpr bool swapped = Rgb == kBGR || Rgb == kBGRA;
    out[0] = static_cast<uint8_t>(swapped ? b : r);
    out[1] = static_cast<uint8_t>(g);
    out[2] = static_cast<uint8_t>(swapped ? r : b);
    if (Rgb == kRGBA || Rgb == kBGRA)
        out[3] = 255;
}

template <int Rgb>
constexpr int rgb_bytes() {
    return Rgb == kRGBA || Rgb == kBGRA ? 4 : 3;
}

template <int Rgb>
inline void yuv_pixel(int y, const ChromaTerms& c, const YuvToRgb& k, uint8_t* out) {
    const int32_t luma = (y * k.luma) >> 1;
    store_rgb<Rgb>(out, clamp8((luma + c.r) >> kRgbBits), clamp8((luma + c.g) >> kRgbBits),
                   clamp8((luma + c.b) >> kRgbBits));
}

template <int Chroma, int Rgb>
void yuv_to_rgb_loop(const uint8_t* y, const uint8_t* u, const uint8_t* v, uint8_t* rgb, int width,
                     const YuvToRgb& constants) {
    const YuvToRgb k = constants; // which stores to `rgb` cannot change
    for (int x = 0; x < width; x += 2) {
        const int c = x / 2;
        int y0, y1, cu, cv;
        if (Chroma == kPackedYUYV || Chroma == kPackedUYVY) {
            const uint8_t* p = y + 4 * c;
            const int luma = Chroma == kPackedYUYV ? 0 : 1, chroma = 1 - luma;
            y0 = p[luma], y1 = p[luma + 2], cu = p[chroma], cv = p[chroma + 2];
        } else {
            y0 = y[x], y1 = y[x + 1];
            cu = Chroma == kPlanar ? u[c] : u[2 * c + (Chroma == kPairsVU)];
            cv = Chroma == kPlanar ? v[c] : u[2 * c + (Chroma == kPairsUV)];
        }
        const ChromaTerms t = chroma_terms(cu, cv, k);
        yuv_pixel<Rgb>(y0, t, k, rgb + x * rgb_bytes<Rgb>());
        yuv_pixel<Rgb>(y1, t, k, rgb + (x + 1) * rgb_bytes<Rgb>());
    }
}

// Samples with six fractional bits: shifted up by two they stand where whole ones do above.
template <int Chroma, int Rgb>
void yuv444_to_rgb_loop(const uint16_t* y, const uint16_t* u, const uint16_t* v, uint8_t* rgb, int width,
                        const YuvToRgb& constants) {
    const YuvToRgb k = constants; // which stores to `rgb` cannot change
    for (int x = 0; x < width; ++x) {
        const int cu = Chroma == kPlanar ? u[x] : u[2 * x + (Chroma == kPairsVU)];
        const int cv = Chroma == kPlanar ? v[x] : u[2 * x + (Chroma == kPairsUV)];
        const int32_t us = 4 * cu - 32768, vs = 4 * cv - 32768;
        const int32_t luma = ((4 * y[x]) * (128 * k.luma)) >> 16;
        const int32_t r = luma + mulhrs(vs, k.v_to_r) + k.bias, b = luma + mulhrs(us, k.u_to_b) + k.bias;
        const int32_t g = luma - mulhrs(us, k.u_to_g) - mulhrs(vs, k.v_to_g) + k.bias;
        store_rgb<Rgb>(rgb + x * rgb_bytes<Rgb>(), clamp8(r >> kRgbBits), clamp8(g >> kRgbBits),
                       clamp8(b >> kRgbBits));
    }
}

// ------------------------------------------------------------------------------------------------ RGB to YUV
template <int Kind>
inline Rgb load_rgb(const uint8_t* p) {
    constexpr bool swapped = Kind == kBGR || Kind == kBGRA;
    return {p[swapped ? 2 : 0], p[1], p[swapped ? 0 : 2]};
}

template <int Chroma>
inline void store_chroma(uint8_t* u, uint8_t* v, int c, uint8_t cu, uint8_t cv) {
    if (Chroma == kPlanar) {
        u[c] = cu;
        v[c] = cv;
    } else {
        u[2 * c + (Chroma == kPairsVU)] = cu;
        u[2 * c + (Chroma == kPairsUV)] = cv;
    }
}

template <int Chroma, int Kind>
void rgb_to_yuv420_loop(const uint8_t* a, const uint8_t* b, uint8_t* ya, uint8_t* yb, uint8_t* u, uint8_t* v,
                        int width, const RgbToYuv& constants) {
    constexpr int n = rgb_bytes<Kind>();
    const RgbToYuv k = constants; // which stores cannot change
    for (int x = 0; x < width; x += 2) {
        const Rgb p = load_rgb<Kind>(a + x * n), q = load_rgb<Kind>(a + (x + 1) * n);
        const Rgb r = load_rgb<Kind>(b + x * n), s = load_rgb<Kind>(b + (x + 1) * n);
        ya[x] = luma_of(p, k), ya[x + 1] = luma_of(q, k);
        yb[x] = luma_of(r, k), yb[x + 1] = luma_of(s, k);
        const Rgb sum{p.r + q.r + r.r + s.r, p.g + q.g + r.g + s.g, p.b + q.b + r.b + s.b};
        store_chroma<Chroma>(u, v, x / 2, chroma_of(sum, k.u, 2), chroma_of(sum, k.v, 2));
    }
}

template <int Chroma, int Kind>
void rgb_to_yuv422_loop(const uint8_t* rgb, uint8_t* y, uint8_t* u, uint8_t* v, int width,
                        const RgbToYuv& constants) {
    constexpr int n = rgb_bytes<Kind>();
    const RgbToYuv k = constants; // which stores cannot change
    for (int x = 0; x < width; x += 2) {
        const Rgb p = load_rgb<Kind>(rgb + x * n), q = load_rgb<Kind>(rgb + (x + 1) * n);
        y[x] = luma_of(p, k), y[x + 1] = luma_of(q, k);
        const Rgb sum{p.r + q.r, p.g + q.g, p.b + q.b};
        store_chroma<Chroma>(u, v, x / 2, chroma_of(sum, k.u, 1), chroma_of(sum, k.v, 1));
    }
}

template <int Luma> // 0 where luma stands first
void packed_to_nv12_loop(const uint8_t* a, const uint8_t* b, uint8_t* ya, uint8_t* yb, uint8_t* uv, int width) {
    for (int x = 0; x < width; ++x) {
        ya[x] = a[2 * x + Luma];
        yb[x] = b[2 * x + Luma];
        uv[x] = static_cast<uint8_t>((a[2 * x + 1 - Luma] + b[2 * x + 1 - Luma] + 1) >> 1);
    }
}

// Full-range luma, exactly (299 r + 587 g + 114 b) / 1000 rounded: floor(n / 8 / 125) with the division by 125 as a
// multiplication that is exact below 32768.
template <int Kind>
void rgb_to_gray_loop(const uint8_t* rgb, uint8_t* gray, int width) {
    constexpr int n = rgb_bytes<Kind>();
    for (int x = 0; x < width; ++x) {
        const Rgb p = load_rgb<Kind>(rgb + x * n);
        const uint32_t eighth = static_cast<uint32_t>(gray_sum(p) + 500) >> 3;
        gray[x] = static_cast<uint8_t>((eighth * 33555) >> 22);
    }
}

// The same in 16 bits: (sum * 257 + 500) / 1000, the division as a multiplication that is exact below 2^26.
template <int Kind>
void rgb_to_gray16_loop(const uint8_t* rgb, uint8_t* gray16, int width) {
    for (int x = 0; x < width; ++x) {
        const auto n = static_cast<uint32_t>(gray_sum(load_rgb<Kind>(rgb + x * rgb_bytes<Kind>())) * 257 + 500);
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

template <int From, int To>
void rgb_to_rgb_loop(const uint8_t* from, uint8_t* to, int width) {
    for (int x = 0; x < width; ++x, from += rgb_bytes<From>(), to += rgb_bytes<To>()) {
        const Rgb p = load_rgb<From>(from);
        const uint8_t alpha = rgb_bytes<From>() == 4 ? from[3] : 255;
        store_rgb<To>(to, p.r, p.g, p.b);
        if (rgb_bytes<To>() == 4)
            to[3] = alpha;
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

// --------------------------------------------------------------------------------------------------- scaling

inline void widen_loop(const uint8_t* row, uint16_t* out, int n) {
    for (int i = 0; i < n; ++i)
        out[i] = static_cast<uint16_t>(row[i] << 6);
}

inline void narrow_loop(const uint16_t* row, uint8_t* out, int n) {
    for (int i = 0; i < n; ++i)
        out[i] = clamp8((row[i] + 32) >> 6);
}

inline int32_t blend(int32_t a, int32_t b, int32_t weight) { return a + mulhrs(b - a, weight); }

inline void blend8_loop(const uint8_t* a, const uint8_t* b, int weight, uint16_t* out, int n) {
    for (int i = 0; i < n; ++i)
        out[i] = static_cast<uint16_t>(blend(a[i] << 6, b[i] << 6, weight));
}

inline void blend8_to_8_loop(const uint8_t* a, const uint8_t* b, int weight, uint8_t* out, int n) {
    for (int i = 0; i < n; ++i)
        out[i] = static_cast<uint8_t>((blend(a[i] << 6, b[i] << 6, weight) + 32) >> 6);
}

inline void blend16_to_8_loop(const uint16_t* a, const uint16_t* b, int weight, uint8_t* out, int n) {
    for (int i = 0; i < n; ++i)
        out[i] = clamp8((blend(a[i], b[i], weight) + 32) >> 6);
}

inline void blend16_loop(const uint16_t* a, const uint16_t* b, int weight, uint16_t* out, int n) {
    for (int i = 0; i < n; ++i)
        out[i] = static_cast<uint16_t>(blend(a[i], b[i], weight));
}

inline void box_rows_loop(const BoxRows& rows, uint16_t* out, int n) {
    for (int i = 0; i < n; ++i) {
        int32_t v = rows.top ? mulhrs(rows.top[i] << 6, rows.top_weight) : 0;
        if (rows.bottom)
            v += mulhrs(rows.bottom[i] << 6, rows.bottom_weight);
        uint32_t sum = 0;
        for (int k = 0; k < rows.count; ++k)
            sum += rows.inner[k * rows.pitch + i];
        if (rows.count > kBoxRowsIn16Bits)
            v += static_cast<int32_t>(sum * rows.inner_weight_big);
        else if (rows.count > 0)
            v += mulhrs(static_cast<int32_t>(sum << rows.inner_shift), rows.inner_weight);
        out[i] = static_cast<uint16_t>(v);
    }
}

inline uint16_t wide_sample(const uint8_t* row, int i) {
    uint16_t v;
    std::memcpy(&v, row + 2 * i, sizeof v);
    return v;
}

inline void wide_rows_loop(const WideRows& rows, float* out, int n, int from = 0) {
    const uint8_t* last = rows.first + (rows.count - 1) * rows.pitch;
    for (int i = from; i < n; ++i) {
        float v = wide_sample(rows.first, i);
        if (rows.count > 1)
            v = v * rows.first_weight + static_cast<float>(wide_sample(last, i)) * rows.last_weight;
        if (rows.count > 2) {
            int32_t sum = 0;
            for (int k = 1; k < rows.count - 1; ++k)
                sum += wide_sample(rows.first + k * rows.pitch, i);
            v = v + static_cast<float>(sum) * rows.inner_weight;
        }
        out[i] = v;
    }
}

inline void wide_fir_loop(const float* row, const WideFir& t, uint8_t* out, int from = 0) {
    for (int i = from; i < t.cols; ++i) {
        const float *p = row + t.start[i], *w = t.weight + i;
        float sum = 0;
        if (t.taps > kWideTapsInSingle) {
            double total = 0;
            for (int k = 0; k < t.taps; ++k, w += t.cols)
                total = total + double(p[k]) * *w;
            sum = static_cast<float>(total);
        } else {
            for (int k = 0; k < t.taps; ++k, w += t.cols)
                sum = sum + p[k] * *w;
        }
        sum = sum + 0.5f;
        const uint16_t v = static_cast<uint16_t>(sum < 65535.0f ? sum : 65535.0f);
        std::memcpy(out + 2 * i, &v, sizeof v);
    }
}

template <int C>
inline void fir_pixel(const uint16_t* p, const int16_t* w, int taps, int32_t* acc) {
    for (int c = 0; c < C; ++c)
        acc[c] = 0;
    for (int k = 0; k < taps; ++k)
        for (int c = 0; c < C; ++c)
            acc[c] += p[k * C + c] * w[k];
}

template <int C>
void fir_to_16_loop(const uint16_t* row, const FirTable& t, uint16_t* out, int from = 0) {
    for (int i = from; i < t.cols; ++i) {
        int32_t acc[C];
        fir_pixel<C>(row + t.start[i], t.weight + i * t.taps, t.taps, acc);
        for (int c = 0; c < C; ++c)
            out[i * C + c] = static_cast<uint16_t>((acc[c] + (1 << 13)) >> 14);
    }
}

template <int C>
void fir_to_8_loop(const uint16_t* row, const FirTable& t, uint8_t* out, int from = 0) {
    for (int i = from; i < t.cols; ++i) {
        int32_t acc[C];
        fir_pixel<C>(row + t.start[i], t.weight + i * t.taps, t.taps, acc);
        for (int c = 0; c < C; ++c)
            out[i * C + c] = clamp8((acc[c] + (1 << 19)) >> 20);
    }
}

inline void expand_loop(const uint8_t* row, const ExpandTable& t, uint16_t* out) {
    for (int i = 0; i < 8 * t.eights; ++i) {
        const uint8_t* p = row + t.start[i / 8] + t.index[i];
        out[i] = static_cast<uint16_t>((p[0] << 6) + mulhrs((p[t.next] - p[0]) * 128, t.weight[i]));
    }
}

// `scale` is 1 for bytes and 64 for six fractional bits more.
template <int C, class Out>
void spans_loop(const uint16_t* row, const SpanTable& t, Out* out, double scale) {
    for (int i = 0; i < t.cols; ++i) {
        const uint16_t* p = row + t.start[i];
        const uint16_t* last = p + (t.inner[i] + 1) * C;
        uint32_t sum[C] = {};
        for (const uint16_t* q = p + C; q != last; q += C)
            for (int c = 0; c < C; ++c)
                sum[c] += q[c];
        for (int c = 0; c < C; ++c) {
            const double total =
                4096.0 * sum[c] + double(p[c]) * t.weight[2 * i] + double(last[c]) * t.weight[2 * i + 1];
            const auto v = static_cast<int32_t>(total * (t.scale * scale) + 0.5);
            out[i * C + c] = static_cast<Out>(std::min(v, static_cast<int32_t>(255 * scale)));
        }
    }
}

template <int C>
void spans_to_8_loop(const uint16_t* row, const SpanTable& t, uint8_t* out) {
    spans_loop<C>(row, t, out, 1);
}

template <int C>
void spans_to_16_loop(const uint16_t* row, const SpanTable& t, uint16_t* out) {
    spans_loop<C>(row, t, out, 64);
}

template <int C>
void bilinear_at_loop(const uint8_t* a, const uint8_t* b, int weight, const FirTable& t, uint8_t* out, int from = 0) {
    for (int i = from; i < t.cols; ++i) {
        const uint8_t *p = a + t.start[i], *q = b + t.start[i];
        const int16_t* w = t.weight + 2 * i;
        for (int c = 0; c < C; ++c) {
            const int32_t v0 = blend(p[c] << 6, q[c] << 6, weight);
            const int32_t v1 = blend(p[C + c] << 6, q[C + c] << 6, weight);
            out[i * C + c] = clamp8((v0 * w[0] + v1 * w[1] + (1 << 19)) >> 20);
        }
    }
}

template <int C>
void bilinear_at_16_loop(const uint8_t* a, const uint8_t* b, int weight, const FirTable& t, uint16_t* out,
                         int from = 0) {
    for (int i = from; i < t.cols; ++i) {
        const uint8_t *p = a + t.start[i], *q = b + t.start[i];
        const int16_t* w = t.weight + 2 * i;
        for (int c = 0; c < C; ++c) {
            const int32_t v0 = blend(p[c] << 6, q[c] << 6, weight);
            const int32_t v1 = blend(p[C + c] << 6, q[C + c] << 6, weight);
            out[i * C + c] = static_cast<uint16_t>((v0 * w[0] + v1 * w[1] + (1 << 13)) >> 14);
        }
    }
}

template <int N>
void third_loop(const uint8_t* row, uint8_t* out, int cols) {
    for (int x = 0; x < cols; ++x)
        std::memcpy(out + x * N, row + (3 * x + 1) * N, N);
}

template <int C>
void halve_loop(const uint8_t* a, const uint8_t* b, uint8_t* out, int cols) {
    for (int i = 0; i < cols; ++i)
        for (int c = 0; c < C; ++c) {
            const int at = 2 * i * C + c;
            out[i * C + c] = static_cast<uint8_t>((a[at] + a[at + C] + b[at] + b[at + C] + 2) >> 2);
        }
}

template <int C>
void halve_to_16_loop(const uint8_t* a, const uint8_t* b, uint16_t* out, int cols) {
    for (int i = 0; i < cols; ++i)
        for (int c = 0; c < C; ++c) {
            const int at = 2 * i * C + c;
            out[i * C + c] = static_cast<uint16_t>((a[at] + a[at + C] + b[at] + b[at + C]) << 4);
        }
}

// Bilinear with weights of 1/256: down first, then across with one bit less so that SIMD can multiply signed words.
template <int C>
inline void affine_pixel(const AffineSpan& s, int32_t x, int32_t y, uint8_t* out) {
    const uint8_t* p = s.data + (y >> 16) * s.pitch + (x >> 16) * C;
    const uint8_t* q = p + s.pitch;
    const int fx = (x >> 8) & 255, fy = (y >> 8) & 255;
    for (int c = 0; c < C; ++c) {
        const int left = (p[c] * (256 - fy) + q[c] * fy) >> 1;
        const int right = (p[C + c] * (256 - fy) + q[C + c] * fy) >> 1;
        out[c] = static_cast<uint8_t>((left * (256 - fx) + right * fx + (1 << 14)) >> 15);
    }
}

template <int C>
void affine_span_loop(const AffineSpan& s, uint8_t* out, int n) {
    for (int i = 0; i < n; ++i)
        affine_pixel<C>(s, s.x + i * s.dx, s.y + i * s.dy, out + i * C);
}

// --------------------------------------------------------------------------------------------------- drawing

// The last 48 bytes of a run of `size` may overlap those before: what stands at an offset is right for it modulo 12.
inline void repeat12_end(uint8_t* to, size_t size, const uint8_t* pattern) {
    std::memcpy(to + size - 48, pattern + (size - 48) % 12, 48);
}

inline void repeat12_loop(uint8_t* to, size_t size, const uint8_t* pattern) {
    for (size_t at = 0; at + 48 < size; at += 48)
        std::memcpy(to + at, pattern, 48);
    repeat12_end(to, size, pattern);
}

// ----------------------------------------------------------------------------------------------- orientation

template <int N>
void mirror_loop(const uint8_t* row, uint8_t* out, int cols) {
    for (int x = 0; x < cols; ++x)
        std::memcpy(out + x * N, row + (cols - 1 - x) * N, N);
}

template <int N>
void transpose16_loop(const uint8_t* src, ptrdiff_t src_pitch, uint8_t* dst, ptrdiff_t dst_pitch, int cols) {
    for (int x = 0; x < cols; ++x)
        for (int y = 0; y < 16; ++y)
            std::memcpy(dst + x * dst_pitch + y * N, src + y * src_pitch + x * N, N);
}

// Wrappers without the `from` argument, for the table.
template <int C>
void fir8(const uint16_t* row, const FirTable& t, uint8_t* out) {
    fir_to_8_loop<C>(row, t, out);
}
template <int C>
void bilinear(const uint8_t* a, const uint8_t* b, int weight, const FirTable& t, uint8_t* out) {
    bilinear_at_loop<C>(a, b, weight, t, out);
}

template <int C>
void fir16(const uint16_t* row, const FirTable& t, uint16_t* out) {
    fir_to_16_loop<C>(row, t, out);
}
template <int C>
void bilinear16(const uint8_t* a, const uint8_t* b, int weight, const FirTable& t, uint16_t* out) {
    bilinear_at_16_loop<C>(a, b, weight, t, out);
}

inline void wide_rows_plain(const WideRows& rows, float* out, int n) { wide_rows_loop(rows, out, n); }
inline void wide_fir_plain(const float* row, const WideFir& t, uint8_t* out) { wide_fir_loop(row, t, out); }

// A table of the loops above; SIMD builds start from it and replace entries.
template <int Chroma>
void fill_yuv_to_rgb(Kernels& k) {
    k.yuv_to_rgb[Chroma][kRGB] = yuv_to_rgb_loop<Chroma, kRGB>;
    k.yuv_to_rgb[Chroma][kBGR] = yuv_to_rgb_loop<Chroma, kBGR>;
    k.yuv_to_rgb[Chroma][kRGBA] = yuv_to_rgb_loop<Chroma, kRGBA>;
    k.yuv_to_rgb[Chroma][kBGRA] = yuv_to_rgb_loop<Chroma, kBGRA>;
}

template <int Chroma, int Kind>
void fill_rgb_to_yuv(Kernels& k) {
    k.rgb_to_yuv420[Chroma][Kind] = rgb_to_yuv420_loop<Chroma, Kind>;
    k.rgb_to_yuv422[Chroma][Kind] = rgb_to_yuv422_loop<Chroma, Kind>;
}

template <int Kind>
void fill_rgb(Kernels& k) {
    fill_rgb_to_yuv<kPlanar, Kind>(k);
    fill_rgb_to_yuv<kPairsUV, Kind>(k);
    fill_rgb_to_yuv<kPairsVU, Kind>(k);
    k.rgb_to_gray[Kind] = rgb_to_gray_loop<Kind>;
    k.rgb_to_gray16[Kind] = rgb_to_gray16_loop<Kind>;
    k.yuv444_to_rgb[kPlanar][Kind] = yuv444_to_rgb_loop<kPlanar, Kind>;
    k.yuv444_to_rgb[kPairsUV][Kind] = yuv444_to_rgb_loop<kPairsUV, Kind>;
    k.yuv444_to_rgb[kPairsVU][Kind] = yuv444_to_rgb_loop<kPairsVU, Kind>;
}

/// Calls set() with each pair of different kinds, as two constants.
template <class Set>
void for_rgb_pairs(Set set) {
    const auto with = [&](auto from) {
        const auto to = [&](auto other) {
            if constexpr (from != other)
                set(from, other);
        };
        to(std::integral_constant<int, kRGB>());
        to(std::integral_constant<int, kBGR>());
        to(std::integral_constant<int, kRGBA>());
        to(std::integral_constant<int, kBGRA>());
    };
    with(std::integral_constant<int, kRGB>());
    with(std::integral_constant<int, kBGR>());
    with(std::integral_constant<int, kRGBA>());
    with(std::integral_constant<int, kBGRA>());
}

template <int C>
void fill_channels(Kernels& k) {
    k.fir_to_8[C - 1] = fir8<C>;
    k.spans_to_8[C - 1] = spans_to_8_loop<C>;
    k.bilinear_at[C - 1] = bilinear<C>;
    k.halve[C - 1] = halve_loop<C>;
    k.third[C - 1] = third_loop<C>;
    k.affine_span[C - 1] = affine_span_loop<C>;
    k.mirror[C - 1] = mirror_loop<C>;
    k.transpose16[C - 1] = transpose16_loop<C>;
}

template <int C>
void fill_narrow(Kernels& k) {
    k.fir_to_16[C - 1] = fir16<C>;
    k.spans_to_16[C - 1] = spans_to_16_loop<C>;
    k.bilinear_at_16[C - 1] = bilinear16<C>;
    k.halve_to_16[C - 1] = halve_to_16_loop<C>;
}

inline Kernels loop_kernels(const char* name) {
    Kernels k = {};
    k.name = name;
    fill_yuv_to_rgb<kPlanar>(k);
    fill_yuv_to_rgb<kPairsUV>(k);
    fill_yuv_to_rgb<kPairsVU>(k);
    fill_yuv_to_rgb<kPackedYUYV>(k);
    fill_yuv_to_rgb<kPackedUYVY>(k);
    fill_rgb<kRGB>(k);
    fill_rgb<kBGR>(k);
    fill_rgb<kRGBA>(k);
    fill_rgb<kBGRA>(k);
    for_rgb_pairs([&](auto from, auto to) { k.rgb_to_rgb[from][to] = rgb_to_rgb_loop<from, to>; });
    k.packed_to_nv12[0] = packed_to_nv12_loop<0>;
    k.packed_to_nv12[1] = packed_to_nv12_loop<1>;
    k.gray_to_rgb[0] = gray_to_rgb_loop<3>;
    k.gray_to_rgb[1] = gray_to_rgb_loop<4>;
    k.gray16_to_8 = gray16_to_8_loop;
    k.widen = widen_loop;
    k.narrow = narrow_loop;
    k.blend8 = blend8_loop;
    k.blend8_to_8 = blend8_to_8_loop;
    k.blend16_to_8 = blend16_to_8_loop;
    k.blend16 = blend16_loop;
    k.box_rows = box_rows_loop;
    k.repeat12 = repeat12_loop;
    k.expand = expand_loop;
    k.wide_rows = wide_rows_plain;
    k.wide_fir = wide_fir_plain;
    fill_channels<1>(k);
    fill_channels<2>(k);
    fill_channels<3>(k);
    fill_channels<4>(k);
    fill_narrow<1>(k);
    fill_narrow<2>(k);
    return k;
}

} // namespace
} // namespace tavi
