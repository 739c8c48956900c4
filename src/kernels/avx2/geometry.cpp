// SPDX-License-Identifier: MIT
// Warping and orientation for AVX2. Every kernel gives the bytes of its plain loop.
#if defined(__AVX2__)

#include "kernels/plain/geometry.h"
#include <algorithm>

#include "kernels/avx2/vec.h"
#include "kernels/kinds.h"

namespace tavi::avx2 {
namespace {

template <int C>
void affine_wide(const AffineSpan& s, uint8_t* out, int n) {
    // Loads of eight bytes must stay inside the plane: all but its last row lend the next row's bytes.
    const int32_t last_y = s.y + (n - 1) * s.dy;
    if ((std::max(s.y, last_y) >> kPositionBits) + 2 >= s.rows)
        return plain_kernels().affine_span[C - 1](s, out, n);
    const V step = _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7);
    const V dx = _mm256_mullo_epi32(step, _mm256_set1_epi32(s.dx)),
            dy = _mm256_mullo_epi32(step, _mm256_set1_epi32(s.dy));
    const V pitch = _mm256_set1_epi32(static_cast<int>(s.pitch)), mask = _mm256_set1_epi32((1 << kWarpBits) - 1),
            one = _mm256_set1_epi32(1 << kWarpBits);
    const V half = _mm256_set1_epi32(half_of(kWarpSumBits));
    int i = 0;
    for (; i + 8 <= n; i += 8) {
        const V x = _mm256_add_epi32(_mm256_set1_epi32(s.x + i * s.dx), dx);
        const V y = _mm256_add_epi32(_mm256_set1_epi32(s.y + i * s.dy), dy);
        const V column = _mm256_mullo_epi32(_mm256_srai_epi32(x, kPositionBits), _mm256_set1_epi32(C));
        const V at = _mm256_add_epi32(_mm256_mullo_epi32(_mm256_srai_epi32(y, kPositionBits), pitch), column);
        const V fx = _mm256_and_si256(_mm256_srli_epi32(x, kPositionBits - kWarpBits), mask),
                fy = _mm256_and_si256(_mm256_srli_epi32(y, kPositionBits - kWarpBits), mask);
        alignas(32) int32_t offset[8], across[8], down[8];
        const auto pair = [&](V f) { return _mm256_or_si256(_mm256_sub_epi32(one, f), _mm256_slli_epi32(f, 16)); };
        store(offset, at);
        store(across, pair(fx));
        store(down, pair(fy));
        const auto two = [&](int k) {
            const uint8_t *p0 = s.data + offset[k], *p1 = s.data + offset[k + 1];
            const V top = load_words(p0, p1), bottom = load_words(p0 + s.pitch, p1 + s.pitch);
            const V w = join(_mm_set1_epi32(down[k]), _mm_set1_epi32(down[k + 1])); // words: 256 - fy, fy, ...
            const V w_top = _mm256_and_si256(w, _mm256_set1_epi32(0xFFFF)), w_bottom = _mm256_srli_epi32(w, 16);
            const V weigh_top = _mm256_or_si256(w_top, _mm256_slli_epi32(w_top, 16));
            const V weigh_bottom = _mm256_or_si256(w_bottom, _mm256_slli_epi32(w_bottom, 16));
            const V sum =
                _mm256_add_epi16(_mm256_mullo_epi16(top, weigh_top), _mm256_mullo_epi16(bottom, weigh_bottom));
            const V pairs = _mm256_shuffle_epi8(_mm256_srli_epi16(sum, 1), pair_channels<C>().full());
            const V wx = join(_mm_set1_epi32(across[k]), _mm_set1_epi32(across[k + 1]));
            return _mm256_srai_epi32(_mm256_add_epi32(_mm256_madd_epi16(pairs, wx), half), kWarpSumBits);
        };
        store_columns<C>(out + i * C, two(0), two(2));
        store_columns<C>(out + (i + 4) * C, two(4), two(6));
    }
    for (; i < n; ++i)
        affine_pixel<C>(s, s.x + i * s.dx, s.y + i * s.dy, out + i * C);
}

// --------------------------------------------------------------------------------------------- orientation

template <int N>
void mirror_even(const uint8_t* row, uint8_t* out, int cols) {
    constexpr int block = 32 / N;
    if (cols < block)
        return plain_kernels().mirror[N - 1](row, out, cols);
    constexpr Shuffle kBytes = {{15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0}};
    constexpr Shuffle kWords = {{14, 15, 12, 13, 10, 11, 8, 9, 6, 7, 4, 5, 2, 3, 0, 1}};
    constexpr Shuffle kQuads = {{12, 13, 14, 15, 8, 9, 10, 11, 4, 5, 6, 7, 0, 1, 2, 3}};
    const V order = (N == 1 ? kBytes : N == 2 ? kWords : kQuads).full();
    const auto turned = [&](int x) {
        const V v = load(row + (cols - block - x) * N);
        return _mm256_permute4x64_epi64(_mm256_shuffle_epi8(v, order), 0x4E);
    };
    int x = 0;
    for (; x + 4 * block <= cols; x += 4 * block) {
        const V a = turned(x), b = turned(x + block), c = turned(x + 2 * block), d = turned(x + 3 * block);
        uint8_t* to = out + x * N;
        store(to, a), store(to + 32, b), store(to + 64, c), store(to + 96, d);
    }
    for (; x < cols; x += block) {
        x = std::min(x, cols - block);
        store(out + x * N, turned(x));
    }
}

void mirror3(const uint8_t* row, uint8_t* out, int cols) {
    // Five pixels at a time: byte 0 of a load belongs to the pixel before them, byte 15 of a store is written over.
    constexpr Shuffle kOrder = {{13, 14, 15, 10, 11, 12, 7, 8, 9, 4, 5, 6, 1, 2, 3, -1}};
    const auto turned = [&](int x) { return _mm_shuffle_epi8(load16(row + 3 * (cols - x - 5) - 1), kOrder.half()); };
    int x = 0;
    for (; x + 21 <= cols; x += 20) {
        const H a = turned(x), b = turned(x + 5), c = turned(x + 10), d = turned(x + 15);
        uint8_t* to = out + 3 * x;
        store16(to, a), store16(to + 15, b), store16(to + 30, c), store16(to + 45, d);
    }
    for (; x + 6 <= cols; x += 5)
        store16(out + 3 * x, turned(x));
    for (; x < cols; ++x)
        std::memcpy(out + 3 * x, row + 3 * (cols - 1 - x), 3);
}

/// Asks for the rows that the next sixteen will be: steps of a whole row are too long for the processor to foresee.
void prefetch_below(const uint8_t* src, ptrdiff_t src_pitch, int bytes) {
    const uintptr_t next = reinterpret_cast<uintptr_t>(src) + 16 * src_pitch;
    for (int y = 0; y < 16; ++y)
        for (int i = 0; i < bytes; i += 64)
            _mm_prefetch(reinterpret_cast<const char*>(next + y * src_pitch + i), _MM_HINT_T0);
}

void transpose_1(const uint8_t* src, ptrdiff_t src_pitch, uint8_t* dst, ptrdiff_t dst_pitch, int cols) {
    prefetch_below(src, src_pitch, cols);
    int x = 0;
    for (; x + 16 <= cols; x += 16) {
        H a[16], b[16];
        for (int i = 0; i < 16; ++i)
            a[i] = load16(src + i * src_pitch + x);
        // Four rounds of interleaving rows i and i + 8 turn 16 rows into 16 columns.
        for (int round = 0; round < 4; ++round) {
            for (int i = 0; i < 8; ++i) {
                b[2 * i] = _mm_unpacklo_epi8(a[i], a[i + 8]);
                b[2 * i + 1] = _mm_unpackhi_epi8(a[i], a[i + 8]);
            }
            std::memcpy(a, b, sizeof a);
        }
        for (int i = 0; i < 16; ++i)
            store16(dst + (x + i) * dst_pitch, a[i]);
    }
    if (x < cols)
        plain_kernels().transpose16[0](src + x, src_pitch, dst + x * dst_pitch, dst_pitch, cols - x);
}

void transpose_2(const uint8_t* src, ptrdiff_t src_pitch, uint8_t* dst, ptrdiff_t dst_pitch, int cols) {
    prefetch_below(src, src_pitch, 2 * cols);
    int x = 0;
    for (; x + 8 <= cols; x += 8)
        for (int y = 0; y < 16; y += 8) {
            H a[8], b[8];
            for (int i = 0; i < 8; ++i)
                a[i] = load16(src + (y + i) * src_pitch + 2 * x);
            for (int round = 0; round < 3; ++round) {
                for (int i = 0; i < 4; ++i) {
                    b[2 * i] = _mm_unpacklo_epi16(a[i], a[i + 4]);
                    b[2 * i + 1] = _mm_unpackhi_epi16(a[i], a[i + 4]);
                }
                std::memcpy(a, b, sizeof a);
            }
            for (int i = 0; i < 8; ++i)
                store16(dst + (x + i) * dst_pitch + 2 * y, a[i]);
        }
    if (x < cols)
        plain_kernels().transpose16[1](src + 2 * x, src_pitch, dst + x * dst_pitch, dst_pitch, cols - x);
}

void transpose_four(H* a) { // 4 x 4 quads
    const H p0 = _mm_unpacklo_epi32(a[0], a[1]), p1 = _mm_unpackhi_epi32(a[0], a[1]);
    const H p2 = _mm_unpacklo_epi32(a[2], a[3]), p3 = _mm_unpackhi_epi32(a[2], a[3]);
    a[0] = _mm_unpacklo_epi64(p0, p2), a[1] = _mm_unpackhi_epi64(p0, p2);
    a[2] = _mm_unpacklo_epi64(p1, p3), a[3] = _mm_unpackhi_epi64(p1, p3);
}

void transpose_4(const uint8_t* src, ptrdiff_t src_pitch, uint8_t* dst, ptrdiff_t dst_pitch, int cols) {
    prefetch_below(src, src_pitch, 4 * cols);
    int x = 0;
    for (; x + 4 <= cols; x += 4) {
        H a[4][4];
        for (int g = 0; g < 4; ++g) {
            for (int i = 0; i < 4; ++i)
                a[g][i] = load16(src + (4 * g + i) * src_pitch + 4 * x);
            transpose_four(a[g]);
        }
        for (int i = 0; i < 4; ++i)
            for (int g = 0; g < 4; ++g)
                store16(dst + (x + i) * dst_pitch + 16 * g, a[g][i]);
    }
    if (x < cols)
        plain_kernels().transpose16[3](src + 4 * x, src_pitch, dst + x * dst_pitch, dst_pitch, cols - x);
}

void transpose_3(const uint8_t* src, ptrdiff_t src_pitch, uint8_t* dst, ptrdiff_t dst_pitch, int cols) {
    prefetch_below(src, src_pitch, 3 * cols);
    constexpr Shuffle kSpread = {{0, 1, 2, -1, 3, 4, 5, -1, 6, 7, 8, -1, 9, 10, 11, -1}};
    constexpr Shuffle kPack = {{0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1}};
    int x = 0;
    for (; 3 * x + 16 <= 3 * cols; x += 4) {
        H a[4][4];
        for (int g = 0; g < 4; ++g) {
            for (int i = 0; i < 4; ++i)
                a[g][i] = _mm_shuffle_epi8(load16(src + (4 * g + i) * src_pitch + 3 * x), kSpread.half());
            transpose_four(a[g]);
        }
        for (int i = 0; i < 4; ++i) {
            H p[4];
            for (int g = 0; g < 4; ++g)
                p[g] = _mm_shuffle_epi8(a[g][i], kPack.half());
            uint8_t* out = dst + (x + i) * dst_pitch;
            store16(out, _mm_or_si128(p[0], _mm_slli_si128(p[1], 12)));
            store16(out + 16, _mm_or_si128(_mm_srli_si128(p[1], 4), _mm_slli_si128(p[2], 8)));
            store16(out + 32, _mm_or_si128(_mm_srli_si128(p[2], 8), _mm_slli_si128(p[3], 4)));
        }
    }
    if (x < cols)
        plain_kernels().transpose16[2](src + 3 * x, src_pitch, dst + x * dst_pitch, dst_pitch, cols - x);
}

} // namespace

void use_geometry(Kernels& k) {
    for_each<2>(
        [&](auto i) { k.affine_span[i] = affine_span_loop<i + 1>; }); // gain from the instruction set as they are
    k.affine_span[2] = affine_wide<3>;
    k.affine_span[3] = affine_wide<4>;
    k.mirror[0] = mirror_even<1>;
    k.mirror[1] = mirror_even<2>;
    k.mirror[2] = mirror3;
    k.mirror[3] = mirror_even<4>;
    k.transpose16[0] = transpose_1;
    k.transpose16[1] = transpose_2;
    k.transpose16[2] = transpose_3;
    k.transpose16[3] = transpose_4;
}

} // namespace tavi::avx2

#endif
