// SPDX-License-Identifier: MIT
// The plain loops of scaling: the oracle of every build. Those over channels are unrolled by name, which is what -O3
// would do for a third of the time and with twice the code.
#pragma once

#include <algorithm>

#include "kernels/fixed.h"
#include "kernels/plain/colour.h"

namespace tavi {
namespace { // whoever includes this compiles its own

/// A byte, or a word of the rows between the axes.
template <class Out>
inline Out limited(int32_t v) {
    constexpr int32_t kMost = sizeof(Out) == 1 ? 255 : 255 << kRowBits;
    return static_cast<Out>(std::min(std::max(v, 0), kMost));
}

/// A sum of taps rounded to a byte, or to a word of the rows between the axes.
template <class Out>
inline Out of_taps(int32_t sum) {
    return limited<Out>((sum + half_of(kSumShift<Out>)) >> kSumShift<Out>);
}

inline uint8_t of_row(int32_t v) { return clamp8((v + half_of(kRowBits)) >> kRowBits); }

inline int32_t blend(int32_t a, int32_t b, int32_t weight) { return a + mulhrs(b - a, weight); }

// ------------------------------------------------------------------------------------------------------ down

inline void widen_loop(const uint8_t* row, uint16_t* out, int n) {
    for (int i = 0; i < n; ++i)
        out[i] = static_cast<uint16_t>(row[i] << kRowBits);
}

inline void narrow_loop(const uint16_t* row, uint8_t* out, int n) {
    for (int i = 0; i < n; ++i)
        out[i] = of_row(row[i]);
}

inline void blend8_loop(const uint8_t* a, const uint8_t* b, int weight, uint16_t* out, int n) {
    for (int i = 0; i < n; ++i)
        out[i] = static_cast<uint16_t>(blend(a[i] << kRowBits, b[i] << kRowBits, weight));
}

inline void blend8_to_8_loop(const uint8_t* a, const uint8_t* b, int weight, uint8_t* out, int n) {
    for (int i = 0; i < n; ++i)
        out[i] = of_row(blend(a[i] << kRowBits, b[i] << kRowBits, weight));
}

inline void blend16_to_8_loop(const uint16_t* a, const uint16_t* b, int weight, uint8_t* out, int n) {
    for (int i = 0; i < n; ++i)
        out[i] = of_row(blend(a[i], b[i], weight));
}

inline void blend16_loop(const uint16_t* a, const uint16_t* b, int weight, uint16_t* out, int n) {
    for (int i = 0; i < n; ++i)
        out[i] = static_cast<uint16_t>(blend(a[i], b[i], weight));
}

inline void box_rows_loop(const BoxRows& rows, uint16_t* out, int n) {
    for (int i = 0; i < n; ++i) {
        int32_t v = rows.top ? mulhrs(rows.top[i] << kRowBits, rows.top_weight) : 0;
        if (rows.bottom)
            v += mulhrs(rows.bottom[i] << kRowBits, rows.bottom_weight);
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

template <class Out>
void fir_rows_loop(const FirRows& rows, Out* out, int n) {
    for (int i = 0; i < n; ++i) {
        int32_t sum = 0;
        for (int k = 0; k < rows.count; ++k)
            sum += rows.row[k][i] * rows.weight[k];
        out[i] = of_taps<Out>(sum);
    }
}

// ---------------------------------------------------------------------------------------------------- across

template <int C>
inline void fir_pixel(const uint16_t* p, const int16_t* w, int taps, int32_t* sum) {
#pragma GCC unroll 4
    for (int c = 0; c < C; ++c)
        sum[c] = 0;
    for (int k = 0; k < taps; ++k)
#pragma GCC unroll 4
        for (int c = 0; c < C; ++c)
            sum[c] += p[k * C + c] * w[k];
}

template <int C, class Out>
void fir_loop(const uint16_t* row, const FirTable& t, Out* out) {
    for (int i = 0; i < t.cols; ++i) {
        int32_t sum[C];
        fir_pixel<C>(row + t.start[i], t.weight + i * t.taps, t.taps, sum);
#pragma GCC unroll 4
        for (int c = 0; c < C; ++c)
            out[i * C + c] = of_taps<Out>(sum[c]);
    }
}

inline void expand_loop(const uint8_t* row, const ExpandTable& t, uint16_t* out) {
    for (int i = 0; i < 8 * t.eights; ++i) {
        const uint8_t* p = row + t.start[i / 8] + t.index[i];
        int32_t v = p[0] << kRowBits;
        if (t.weight) // else the last column has no right sample
            v += mulhrs((p[t.next] - p[0]) * (1 << (kRowBits + kBlendBits - kTapBits)), t.weight[i]);
        out[i] = static_cast<uint16_t>(v);
    }
}

template <int C, class Out>
void spans_loop(const uint16_t* row, const SpanTable& t, Out* out) {
    constexpr int kScale = sizeof(Out) == 1 ? 1 : 1 << kRowBits;
    for (int i = 0; i < t.cols; ++i) {
        const uint16_t* p = row + t.start[i];
        const uint16_t* last = p + (t.inner[i] + 1) * C;
        uint32_t sum[C] = {};
        for (const uint16_t* q = p + C; q != last; q += C)
#pragma GCC unroll 4
            for (int c = 0; c < C; ++c)
                sum[c] += q[c];
#pragma GCC unroll 4
        for (int c = 0; c < C; ++c) {
            const double total = double(1 << kSpanBits) * sum[c] + double(p[c]) * t.weight[2 * i] +
                                 double(last[c]) * t.weight[2 * i + 1];
            const auto v = static_cast<int32_t>(total * (t.scale * kScale) + 0.5);
            out[i * C + c] = static_cast<Out>(std::min(v, 255 * kScale));
        }
    }
}

template <int C, class Out>
void bilinear_loop(const uint8_t* a, const uint8_t* b, int weight, const FirTable& t, Out* out) {
    for (int i = 0; i < t.cols; ++i) {
        const uint8_t *p = a + t.start[i], *q = b + t.start[i];
        const int16_t* w = t.weight + 2 * i;
#pragma GCC unroll 4
        for (int c = 0; c < C; ++c) {
            const int32_t v0 = blend(p[c] << kRowBits, q[c] << kRowBits, weight);
            const int32_t v1 = blend(p[C + c] << kRowBits, q[C + c] << kRowBits, weight);
            out[i * C + c] = of_taps<Out>(v0 * w[0] + v1 * w[1]);
        }
    }
}

template <int C>
void halve_loop(const uint8_t* a, const uint8_t* b, uint8_t* out, int cols) {
    for (int i = 0; i < cols; ++i)
#pragma GCC unroll 4
        for (int c = 0; c < C; ++c) {
            const int at = 2 * i * C + c;
            out[i * C + c] = static_cast<uint8_t>((a[at] + a[at + C] + b[at] + b[at + C] + 2) >> 2);
        }
}

template <int C>
void halve_to_16_loop(const uint8_t* a, const uint8_t* b, uint16_t* out, int cols) {
    for (int i = 0; i < cols; ++i)
#pragma GCC unroll 4
        for (int c = 0; c < C; ++c) {
            const int at = 2 * i * C + c;
            out[i * C + c] = static_cast<uint16_t>((a[at] + a[at + C] + b[at] + b[at + C]) << (kRowBits - 2));
        }
}

template <int N>
void third_loop(const uint8_t* row, uint8_t* out, int cols) {
    for (int x = 0; x < cols; ++x)
        std::memcpy(out + x * N, row + (3 * x + 1) * N, N);
}

// -------------------------------------------------------------------------------------------- 16-bit samples

inline uint16_t wide_sample(const uint8_t* row, int i) {
    uint16_t v;
    std::memcpy(&v, row + 2 * i, sizeof v);
    return v;
}

inline void wide_rows_loop(const WideRows& rows, float* out, int n) {
    const uint8_t* last = rows.first + (rows.count - 1) * rows.pitch;
    for (int i = 0; i < n; ++i) {
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

inline void wide_fir_rows_loop(const WideFirRows& rows, float* out, int n) {
    for (int i = 0; i < n; ++i) {
        const uint8_t* p = rows.first;
        double sum = 0;
        for (int k = 0; k < rows.count; ++k, p += rows.pitch)
            sum = sum + wide_sample(p, i) * rows.weight[k];
        out[i] = static_cast<float>(sum);
    }
}

inline void wide_fir_loop(const float* row, const WideFir& t, uint8_t* out) {
    for (int i = 0; i < t.cols; ++i) {
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
        const uint16_t v = static_cast<uint16_t>(std::min(std::max(sum, 0.0f), 65535.0f));
        std::memcpy(out + 2 * i, &v, sizeof v);
    }
}

} // namespace
} // namespace tavi
