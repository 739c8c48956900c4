// SPDX-License-Identifier: MIT
// Pixels in the vectors of the AVX2 build: 32 of them, sixteen a lane.
#pragma once

#include <array>

#include "kernels/avx2/vec.h"

namespace tavi::avx2 {
namespace {

// Byte j of 48 comes from channel j % 3 of pixel j / 3. 3 and 16 have no common factor: one shuffle a channel puts
// all its bytes where they stand in the three parts of 16, and what is left is to choose between the channels.
constexpr std::array<Shuffle, 3> make_spread3() {
    std::array<Shuffle, 3> t = {};
    for (int j = 0; j < 48; ++j)
        t[j % 3].index[j % 16] = static_cast<int8_t>(j / 3);
    return t;
}
constexpr auto kSpread3 = make_spread3();

/// Bytes `at`, `at` + 3, ... of each 16.
inline V mask3(int at) {
    constexpr Shuffle kMask[3] = {{{-1, 0, 0, -1, 0, 0, -1, 0, 0, -1, 0, 0, -1, 0, 0, -1}},
                                  {{0, -1, 0, 0, -1, 0, 0, -1, 0, 0, -1, 0, 0, -1, 0, 0}},
                                  {{0, 0, -1, 0, 0, -1, 0, 0, -1, 0, 0, -1, 0, 0, -1, 0}}};
    return kMask[at].full();
}

/// Three parts of 16 bytes, in each lane those of one half.
inline void store_parts(uint8_t* out, Whole at, V a, V b, V c) {
    out += 3 * at.i;
    store(out, _mm256_permute2x128_si256(a, b, 0x20));
    store(out + 32, _mm256_permute2x128_si256(c, a, 0x30));
    store(out + 64, _mm256_permute2x128_si256(b, c, 0x31));
}
inline void store_parts(uint8_t* out, Halves at, V a, V b, V c) {
    const Halves bytes = {3 * at.i, 3 * at.j};
    store_block(out, bytes, a);
    store_block(out + 16, bytes, b);
    store_block(out + 32, bytes, c);
}

/// The same of four.
inline void store_parts(uint8_t* out, Whole at, V a, V b, V c, V d) {
    out += 4 * at.i;
    store(out, _mm256_permute2x128_si256(a, b, 0x20));
    store(out + 32, _mm256_permute2x128_si256(c, d, 0x20));
    store(out + 64, _mm256_permute2x128_si256(a, b, 0x31));
    store(out + 96, _mm256_permute2x128_si256(c, d, 0x31));
}
inline void store_parts(uint8_t* out, Halves at, V a, V b, V c, V d) {
    const Halves bytes = {4 * at.i, 4 * at.j};
    store_block(out, bytes, a);
    store_block(out + 16, bytes, b);
    store_block(out + 32, bytes, c);
    store_block(out + 48, bytes, d);
}

/// N bytes a pixel.
template <int N, class Place>
inline void store_pixels(uint8_t* out, Place at, V r, V g, V b) {
    if (N == 3) {
        r = _mm256_shuffle_epi8(r, kSpread3[0].full());
        g = _mm256_shuffle_epi8(g, kSpread3[1].full());
        b = _mm256_shuffle_epi8(b, kSpread3[2].full());
        const V second = mask3(1), third = mask3(2); // bytes 1, 4, .. and 2, 5, ..
        const auto part = [&](V x, V y, V z) {
            return _mm256_blendv_epi8(_mm256_blendv_epi8(x, y, second), z, third);
        };
        return store_parts(out, at, part(r, g, b), part(g, b, r), part(b, r, g)); // 16 is 1 more than 5 pixels
    }
    const V alpha = _mm256_set1_epi8(-1);
    const V rg0 = _mm256_unpacklo_epi8(r, g), rg1 = _mm256_unpackhi_epi8(r, g);
    const V ba0 = _mm256_unpacklo_epi8(b, alpha), ba1 = _mm256_unpackhi_epi8(b, alpha);
    store_parts(out, at, _mm256_unpacklo_epi16(rg0, ba0), _mm256_unpackhi_epi16(rg0, ba0),
                _mm256_unpacklo_epi16(rg1, ba1), _mm256_unpackhi_epi16(rg1, ba1));
}

/// Sixteen pixels, eight a vector, as pairs of words: the first and the third channel, and the second with nothing or
/// alpha.
struct Pixels16 {
    V outer[2];
    V green[2];
};

// Four pixels a lane, from the first or the eighth of sixteen. Of three channels the last lane's load ends with the
// last pixel: its bytes stand kLate further.
template <int N>
inline V load_quads(const uint8_t* p, int i) {
    if (N == 4)
        return load(p + 32 * i);
    return i == 0 ? join(load16(p), load16(p + 12)) : join(load16(p + 24), load16(p + 32));
}

constexpr int kLate = 4;

/// A shuffle of such pixels.
template <int N>
inline V quads_order(const Shuffle& s, int i) {
    if (N == 4 || i == 0)
        return s.full();
    return join(s.half(), _mm_add_epi8(s.half(), _mm_and_si128(_mm_cmpgt_epi8(s.half(), _mm_set1_epi8(-1)),
                                                               _mm_set1_epi8(kLate))));
}

template <int N>
inline Pixels16 load_pixels(const uint8_t* p) {
    constexpr Shuffle kOuter = {{0, -1, 2, -1, 3, -1, 5, -1, 6, -1, 8, -1, 9, -1, 11, -1}};
    constexpr Shuffle kGreen = {{1, -1, -1, -1, 4, -1, -1, -1, 7, -1, -1, -1, 10, -1, -1, -1}};
    Pixels16 out;
    for (int i = 0; i < 2; ++i) {
        const V v = load_quads<N>(p, i);
        out.outer[i] = N == 4 ? _mm256_and_si256(v, set16(255)) : _mm256_shuffle_epi8(v, quads_order<N>(kOuter, i));
        out.green[i] = N == 4 ? _mm256_srli_epi16(v, 8) : _mm256_shuffle_epi8(v, quads_order<N>(kGreen, i));
    }
    return out;
}

/// The weights of one sum, as pairs of words: those of the first and the third channel, and of the second.
struct Weights {
    explicit Weights(const int16_t* w)
        : outer(_mm256_set1_epi32(static_cast<int>(uint16_t(w[0]) | uint32_t{uint16_t(w[2])} << 16))),
          green(_mm256_set1_epi32(uint16_t(w[1]))) {}

    V outer, green;
};

/// Weighted sums of eight pixels.
inline V weigh(V outer, V green, const Weights& w) {
    return _mm256_add_epi32(_mm256_madd_epi16(outer, w.outer), _mm256_madd_epi16(green, w.green));
}

/// Bytes that stand in groups of four: 0 to 3, 8 to 11, ... in the lower lane, 4 to 7, ... in the upper one.
inline V fours_in_order(V bytes) {
    return _mm256_permutevar8x32_epi32(bytes, _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7));
}

} // namespace
} // namespace tavi::avx2
