// SPDX-License-Identifier: MIT
// The plain loops of warping, orientation and drawing: the oracle of every build.
#pragma once

#include <cstring>

#include "kernels/fixed.h"
#include "kernels/kernels.h"

namespace tavi {
namespace { // whoever includes this compiles its own

// Bilinear: down first, then across with one bit less.
template <int C>
inline void affine_pixel(const AffineSpan& s, int32_t x, int32_t y, uint8_t* out) {
    constexpr int kOne = 1 << kWarpBits, kRest = kPositionBits - kWarpBits;
    const uint8_t* p = s.data + (y >> kPositionBits) * s.pitch + (x >> kPositionBits) * C;
    const uint8_t* q = p + s.pitch;
    const int fx = (x >> kRest) & (kOne - 1), fy = (y >> kRest) & (kOne - 1);
#pragma GCC unroll 4
    for (int c = 0; c < C; ++c) {
        const int left = (p[c] * (kOne - fy) + q[c] * fy) >> 1;
        const int right = (p[C + c] * (kOne - fy) + q[C + c] * fy) >> 1;
        out[c] = static_cast<uint8_t>((left * (kOne - fx) + right * fx + half_of(kWarpSumBits)) >> kWarpSumBits);
    }
}

template <int C>
void affine_span_loop(const AffineSpan& s, uint8_t* out, int n) {
    for (int i = 0; i < n; ++i)
        affine_pixel<C>(s, s.x + i * s.dx, s.y + i * s.dy, out + i * C);
}

// The last 48 bytes of a run of `size` may overlap those before: what stands at an offset is right for it modulo 12.
inline void repeat12_end(uint8_t* to, size_t size, const uint8_t* pattern) {
    std::memcpy(to + size - 48, pattern + (size - 48) % 12, 48);
}

inline void repeat12_loop(uint8_t* to, size_t size, const uint8_t* pattern) {
    for (size_t at = 0; at + 48 < size; at += 48)
        std::memcpy(to + at, pattern, 48);
    repeat12_end(to, size, pattern);
}

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

} // namespace
} // namespace tavi
