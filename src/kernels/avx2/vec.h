// SPDX-License-Identifier: MIT
// Vectors of the AVX2 build: names for loads, stores and the shuffles that several kernels share.
#pragma once

#include <immintrin.h>

#include <cstdint>
#include <cstring>

#include "kernels/fixed.h"
#include "kernels/kernels.h"
#include "kernels/walk.h"

namespace tavi::avx2 {

void use_colour(Kernels& k);
void use_orders(Kernels& k);
void use_scale(Kernels& k);
void use_taps(Kernels& k);
void use_geometry(Kernels& k);
void use_elements(Kernels& k);

namespace {

using V = __m256i;
using H = __m128i; // half a vector

inline V load(const void* p) { return _mm256_loadu_si256(static_cast<const V*>(p)); }
inline H load16(const void* p) { return _mm_loadu_si128(static_cast<const H*>(p)); }
inline H load8(const void* p) { return _mm_loadl_epi64(static_cast<const H*>(p)); }
inline void store(void* p, V v) { _mm256_storeu_si256(static_cast<V*>(p), v); }
inline void store16(void* p, H v) { _mm_storeu_si128(static_cast<H*>(p), v); }
inline void store8(void* p, H v) { _mm_storel_epi64(static_cast<H*>(p), v); }
inline H low(V v) { return _mm256_castsi256_si128(v); }
inline H high(V v) { return _mm256_extracti128_si256(v, 1); }
inline V join(H lo, H hi) { return _mm256_inserti128_si256(_mm256_castsi128_si256(lo), hi, 1); }
inline V both(H h) { return _mm256_broadcastsi128_si256(h); }
inline V set16(int v) { return _mm256_set1_epi16(static_cast<short>(v)); }
inline V widen_lo(V v) { return _mm256_unpacklo_epi8(v, _mm256_setzero_si256()); }
inline V widen_hi(V v) { return _mm256_unpackhi_epi8(v, _mm256_setzero_si256()); }

/// Where the two halves of a block of 32 elements begin: side by side, or two that may overlap.
struct Whole {
    explicit Whole(int first) : i(first), j(first + 16) {}
    int i, j;
};
struct Halves {
    int i, j;
};

inline V load_block(const uint8_t* p, Whole at) { return load(p + at.i); }
inline V load_block(const uint8_t* p, Halves at) { return join(load16(p + at.i), load16(p + at.j)); }
inline void store_block(uint8_t* p, Whole at, V v) { store(p + at.i, v); }
inline void store_block(uint8_t* p, Halves at, V v) {
    store16(p + at.i, low(v));
    store16(p + at.j, high(v));
}

/// Calls `block` with blocks of 32 elements, or once with halves where there are 16 and more. False, and nothing is
/// done, for a row shorter than that. So pictures of 16 columns are fast too.
template <class Block>
inline bool by_blocks_or_halves(int n, Block block) {
    if (by_blocks<32>(n, [&](int i) { block(Whole(i)); }))
        return true;
    if (n >= 16)
        block(Halves{0, n - 16});
    return n >= 16;
}

/// Bytes or words of two vectors, of which packing left every other eight bytes in the other lane.
inline V in_order(V packed) { return _mm256_permute4x64_epi64(packed, 0xD8); }

/// a to b by a weight in Q15.
inline V mix(V a, V b, V weight) { return _mm256_add_epi16(a, _mm256_mulhrs_epi16(_mm256_sub_epi16(b, a), weight)); }

/// Two loads of eight bytes as words, one in each lane.
inline V load_words(const void* a, const void* b) {
    return _mm256_cvtepu8_epi16(
        _mm_castpd_si128(_mm_loadh_pd(_mm_castsi128_pd(load8(a)), static_cast<const double*>(b))));
}

/// A shuffle of bytes within 16; -1 gives zero.
struct Shuffle {
    alignas(16) int8_t index[16];
    H half() const { return _mm_load_si128(reinterpret_cast<const H*>(index)); }
    V full() const { return both(half()); }
};

/// Words c0 c1 .. of two neighbouring columns to pairs (c0 of the first, c0 of the second) ..., by channels.
template <int C>
constexpr Shuffle pair_channels() {
    if (C == 2)
        return {{0, 1, 4, 5, 2, 3, 6, 7, 8, 9, 12, 13, 10, 11, 14, 15}};
    if (C == 3)
        return {{0, 1, 6, 7, 2, 3, 8, 9, 4, 5, 10, 11, -1, -1, -1, -1}};
    return {{0, 1, 8, 9, 2, 3, 10, 11, 4, 5, 12, 13, 6, 7, 14, 15}};
}

/// Words of two vectors of sums, limited to the range of the rows.
inline V limited_words(V a, V b) { return _mm256_min_epu16(_mm256_packus_epi32(a, b), set16(255 << kRowBits)); }

/// Sums of four columns of three or four channels: columns 0 and 1 in the lanes of a, 2 and 3 in those of b.
template <int C>
inline void store_columns(uint8_t* out, V a, V b) {
    const V words = _mm256_packs_epi32(a, b), bytes = _mm256_packus_epi16(words, words);
    const H four = _mm_unpacklo_epi32(low(bytes), high(bytes));
    if (C == 4) {
        store16(out, four);
    } else {
        constexpr Shuffle kPack = {{0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1}};
        const H packed = _mm_shuffle_epi8(four, kPack.half());
        store8(out, packed);
        const int rest = _mm_extract_epi32(packed, 2);
        std::memcpy(out + 8, &rest, sizeof rest);
    }
}
template <int C>
inline void store_columns(uint16_t* out, V a, V b) {
    const V words = in_order(limited_words(a, b));
    if (C == 4) {
        store(out, words);
    } else {
        constexpr Shuffle kPack = {{0, 1, 2, 3, 4, 5, 8, 9, 10, 11, 12, 13, -1, -1, -1, -1}};
        const V packed = _mm256_shuffle_epi8(words, kPack.full());
        store16(out, low(packed));
        store8(out + 6, high(packed));
        const int rest = _mm_extract_epi32(high(packed), 2);
        std::memcpy(out + 10, &rest, sizeof rest);
    }
}

} // namespace
} // namespace tavi::avx2
