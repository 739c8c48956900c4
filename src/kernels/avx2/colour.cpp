// SPDX-License-Identifier: MIT
// Colour for AVX2. Every kernel gives the bytes of its plain loop. Rows shorter than a block are done as one block,
// of copies: small pictures have them.
#if defined(__AVX2__)

#include "kernels/avx2/pixels.h"
#include "kernels/fixed.h"
#include "kernels/kinds.h"

namespace tavi::avx2 {
namespace {

// ---------------------------------------------------------------------------------------------- YUV to RGB

/// 32 pixels in words: 0 to 7 and 16 to 23, then 8 to 15 and 24 to 31, which is the order that packing puts right.
struct YuvBlock {
    V luma[2];          ///< without the bias
    V r[2], g[2], b[2]; ///< what chroma adds (to g: takes away)
};

/// The constants of a conversion, in every lane.
struct YuvVectors {
    explicit YuvVectors(const YuvToRgb& k)
        : luma_257(set16(k.luma_257)), luma_128(set16(k.luma * 128)), bias(set16(k.bias)), v_to_r(set16(k.v_to_r)),
          u_to_g(set16(k.u_to_g)), v_to_g(set16(k.v_to_g)), u_to_b(set16(k.u_to_b)),
          packed_br(_mm256_set1_epi32(k.v_to_r << 16 | k.u_to_b)),
          packed_g(_mm256_set1_epi32(k.v_to_g << 16 | k.u_to_g)) {}

    V luma_257, luma_128, bias, v_to_r, u_to_g, v_to_g, u_to_b;
    V packed_br, packed_g; ///< for words of U and V in turn
};

/// Luma of bytes that stand twice in a word, which is times 257.
inline V luma_of_twice(V twice, const YuvVectors& k) { return _mm256_mulhi_epu16(twice, k.luma_257); }

/// From neutral, of words whose upper bytes are the samples.
inline V from_neutral(V v) { return _mm256_xor_si256(v, set16(-32768)); }

inline V green_terms(V us, V vs, const YuvVectors& k) {
    return _mm256_add_epi16(_mm256_mulhrs_epi16(us, k.u_to_g), _mm256_mulhrs_epi16(vs, k.v_to_g));
}

template <int Chroma, class Place>
inline YuvBlock load_yuv(const uint8_t* y, const uint8_t* u, const uint8_t* v, Place at, const YuvVectors& k) {
    const V luma = load_block(y, at);
    V us, vs; // a word for two pixels
    if constexpr (Chroma == kPlanar) {
        us = _mm256_slli_epi16(load_words(u + (at.i >> 1), u + (at.j >> 1)), 8);
        vs = _mm256_slli_epi16(load_words(v + (at.i >> 1), v + (at.j >> 1)), 8);
    } else {
        const V pairs = load_block(u, at);
        us = _mm256_slli_epi16(pairs, 8);
        vs = _mm256_and_si256(pairs, set16(-256));
        if (Chroma == kPairsVU)
            std::swap(us, vs);
    }
    us = from_neutral(us);
    vs = from_neutral(vs);
    const V r = _mm256_mulhrs_epi16(vs, k.v_to_r), b = _mm256_mulhrs_epi16(us, k.u_to_b), g = green_terms(us, vs, k);
    return {{luma_of_twice(_mm256_unpacklo_epi8(luma, luma), k), luma_of_twice(_mm256_unpackhi_epi8(luma, luma), k)},
            {_mm256_unpacklo_epi16(r, r), _mm256_unpackhi_epi16(r, r)},
            {_mm256_unpacklo_epi16(g, g), _mm256_unpackhi_epi16(g, g)},
            {_mm256_unpacklo_epi16(b, b), _mm256_unpackhi_epi16(b, b)}};
}

template <int N, class Place>
inline void store_rgb(uint8_t* rgb, Place at, YuvBlock block, const YuvVectors& k) {
    for (int i = 0; i < 2; ++i) {
        const V luma = _mm256_add_epi16(block.luma[i], k.bias);
        block.r[i] = _mm256_srai_epi16(_mm256_adds_epi16(luma, block.r[i]), kRgbBits);
        block.g[i] = _mm256_srai_epi16(_mm256_subs_epi16(luma, block.g[i]), kRgbBits);
        block.b[i] = _mm256_srai_epi16(_mm256_adds_epi16(luma, block.b[i]), kRgbBits);
    }
    store_pixels<N>(rgb, at, _mm256_packus_epi16(block.r[0], block.r[1]), _mm256_packus_epi16(block.g[0], block.g[1]),
                    _mm256_packus_epi16(block.b[0], block.b[1]));
}

// Orders of red and blue share their bodies: where the constants are exchanged, the first channel stored is blue.

template <int Chroma, int N>
__attribute__((noinline)) bool planes_to_rgb(const uint8_t* y, const uint8_t* u, const uint8_t* v, uint8_t* rgb,
                                             int width, const YuvToRgb& constants) {
    const YuvVectors k(constants);
    return by_blocks_or_halves(width, [&](auto at) { store_rgb<N>(rgb, at, load_yuv<Chroma>(y, u, v, at, k), k); });
}

/// Packed 4:2:2 without unpacking: the words of a pixel pair hold U and V, and one multiplication serves both.
template <int Luma, int N> // the byte of luma
__attribute__((noinline)) bool packed_to_rgb(bool swapped, const uint8_t* yuv, uint8_t* rgb, int width,
                                             const YuvToRgb& constants) {
    constexpr Shuffle kTwice = {{Luma, Luma, Luma + 2, Luma + 2, Luma + 4, Luma + 4, Luma + 6, Luma + 6, Luma + 8,
                                 Luma + 8, Luma + 10, Luma + 10, Luma + 12, Luma + 12, Luma + 14, Luma + 14}};
    constexpr Shuffle kOf[2] = {{{0, 1, 0, 1, 4, 5, 4, 5, 8, 9, 8, 9, 12, 13, 12, 13}},
                                {{2, 3, 2, 3, 6, 7, 6, 7, 10, 11, 10, 11, 14, 15, 14, 15}}};
    constexpr Shuffle kOther = {{2, 3, 0, 1, 6, 7, 4, 5, 10, 11, 8, 9, 14, 15, 12, 13}};
    const YuvVectors k(constants);
    const V first = kOf[!swapped].full(), last = kOf[swapped].full();
    return by_blocks_or_halves(width, [&](auto at) {
        YuvBlock block;
        for (int i = 0; i < 2; ++i) {
            const V pixels = load_block(yuv + 16 * i, Halves{2 * at.i, 2 * at.j});
            const V uv =
                from_neutral(Luma == 0 ? _mm256_and_si256(pixels, set16(-256)) : _mm256_slli_epi16(pixels, 8));
            const V b_r = _mm256_mulhrs_epi16(uv, k.packed_br), g = _mm256_mulhrs_epi16(uv, k.packed_g);
            block.luma[i] = luma_of_twice(_mm256_shuffle_epi8(pixels, kTwice.full()), k);
            block.r[i] = _mm256_shuffle_epi8(b_r, first);
            block.g[i] = _mm256_add_epi16(g, _mm256_shuffle_epi8(g, kOther.full()));
            block.b[i] = _mm256_shuffle_epi8(b_r, last);
        }
        store_rgb<N>(rgb, at, block, k);
    });
}

template <int Chroma, int Kind>
void yuv_to_rgb(const uint8_t* y, const uint8_t* u, const uint8_t* v, uint8_t* rgb, int width, const YuvToRgb& k) {
    constexpr int n = rgb_bytes(Kind);
    constexpr bool swapped = is_swapped(Kind);
    bool done;
    if constexpr (Chroma == kPackedYUYV || Chroma == kPackedUYVY)
        done = packed_to_rgb<Chroma == kPackedUYVY, n>(swapped, y, rgb, width, k);
    else if constexpr (!swapped)
        done = planes_to_rgb<Chroma, n>(y, u, v, rgb, width, k);
    else if constexpr (Chroma == kPlanar)
        done = planes_to_rgb<kPlanar, n>(y, v, u, rgb, width, exchanged(k));
    else
        done = planes_to_rgb<other_pairs(Chroma), n>(y, u, v, rgb, width, exchanged(k));
    if (!done)
        plain_kernels().yuv_to_rgb[Chroma][Kind](y, u, v, rgb, width, k);
}

/// Samples of rows between the axes, of which kKeptBits of the fraction count.
inline V kept(V v) {
    return _mm256_and_si256(_mm256_add_epi16(v, set16(1 << kDroppedBits >> 1)), set16(-(1 << kDroppedBits)));
}

/// The lower and the upper words of pairs, which are at most 14 bits, shifted up by two. Lanes keep to themselves.
struct Apart {
    V lower, upper;
};
inline Apart apart(V a, V b) {
    const auto lower = [](V v) { return _mm256_srli_epi32(_mm256_slli_epi32(v, 16), 14); };
    const auto upper = [](V v) { return _mm256_slli_epi32(_mm256_srli_epi32(v, 16), 2); };
    return {_mm256_packus_epi32(lower(a), lower(b)), _mm256_packus_epi32(upper(a), upper(b))};
}

template <int Chroma, int N>
__attribute__((noinline)) bool planes444_to_rgb(const uint16_t* y, const uint16_t* u, const uint16_t* v, uint8_t* rgb,
                                                int width, const YuvToRgb& constants) {
    const YuvVectors k(constants);
    return by_blocks_or_halves(width, [&](auto at) {
        // Samples keep kRowBits of fraction: two bits up they fill a word.
        const auto words = [=](const uint16_t* p) {
            return _mm256_slli_epi16(kept(join(load16(p + at.i), load16(p + at.j))), 2);
        };
        YuvBlock block;
        for (int i = 0; i < 2; ++i) {
            V us, vs;
            if (Chroma == kPlanar) {
                us = words(u + 8 * i), vs = words(v + 8 * i);
            } else {
                const uint16_t *p = u + 2 * (at.i + 8 * i), *q = u + 2 * (at.j + 8 * i);
                const Apart pairs = apart(kept(join(load16(p), load16(q))), kept(join(load16(p + 8), load16(q + 8))));
                us = pairs.lower, vs = pairs.upper;
                if (Chroma == kPairsVU)
                    std::swap(us, vs);
            }
            us = from_neutral(us), vs = from_neutral(vs);
            block.luma[i] = _mm256_mulhi_epu16(words(y + 8 * i), k.luma_128);
            block.r[i] = _mm256_mulhrs_epi16(vs, k.v_to_r);
            block.g[i] = green_terms(us, vs, k);
            block.b[i] = _mm256_mulhrs_epi16(us, k.u_to_b);
        }
        store_rgb<N>(rgb, at, block, k);
    });
}

template <int Chroma, int Kind>
void yuv444_to_rgb(const uint16_t* y, const uint16_t* u, const uint16_t* v, uint8_t* rgb, int width,
                   const YuvToRgb& k) {
    constexpr int n = rgb_bytes(Kind);
    bool done;
    if constexpr (!is_swapped(Kind))
        done = planes444_to_rgb<Chroma, n>(y, u, v, rgb, width, k);
    else if constexpr (Chroma == kPlanar)
        done = planes444_to_rgb<kPlanar, n>(y, v, u, rgb, width, exchanged(k));
    else
        done = planes444_to_rgb<other_pairs(Chroma), n>(y, u, v, rgb, width, exchanged(k));
    if (!done)
        plain_kernels().yuv444_to_rgb[Chroma][Kind](y, u, v, rgb, width, k);
}

/// Of rows three times as wide, sixteen bytes of either half.
inline V load_both(const uint8_t* p, Halves at) { return join(load16(p + 3 * at.i), load16(p + 3 * at.j)); }

// The lanes of a vector hold 8 pixels of the result each, as above: luma from 24 bytes, chroma from two times 12.
template <int Chroma, int N>
__attribute__((noinline)) void pairs_third_to_rgb(const uint8_t* y, const uint8_t* pairs, uint8_t* rgb, int width,
                                                  const YuvToRgb& constants) {
    constexpr Shuffle kLuma[2] = {{{1, 1, 4, 4, 7, 7, 10, 10, 13, 13, -1, -1, -1, -1, -1, -1}},
                                  {{-1, -1, -1, -1, -1, -1, -1, -1, -1, -1, 8, 8, 11, 11, 14, 14}}};
    constexpr Shuffle kChroma = {{-1, 0, -1, 4, -1, 6, -1, 10, -1, 1, -1, 5, -1, 7, -1, 11}};
    constexpr Shuffle kEnding = {
        {-1, 4, -1, 8, -1, 10, -1, 14, -1, 5, -1, 9, -1, 11, -1, 15}}; // ends with its pixels
    const YuvVectors k(constants);
    by_blocks_or_halves(width, [&](auto at) {
        YuvBlock block;
        for (int i = 0; i < 2; ++i) {
            const Halves part = {at.i + 8 * i, at.j + 8 * i};
            const V twice = _mm256_or_si256(_mm256_shuffle_epi8(load_both(y, part), kLuma[0].full()),
                                            _mm256_shuffle_epi8(load_both(y + 8, part), kLuma[1].full()));
            const V first = _mm256_shuffle_epi8(load_both(pairs, part), kChroma.full());
            const V last = _mm256_shuffle_epi8(load_both(pairs + 8, part), kEnding.full());
            V us = from_neutral(_mm256_unpacklo_epi64(first, last));
            V vs = from_neutral(_mm256_unpackhi_epi64(first, last));
            if (Chroma == kPairsVU)
                std::swap(us, vs);
            block.luma[i] = luma_of_twice(twice, k);
            block.r[i] = _mm256_mulhrs_epi16(vs, k.v_to_r);
            block.g[i] = green_terms(us, vs, k);
            block.b[i] = _mm256_mulhrs_epi16(us, k.u_to_b);
        }
        store_rgb<N>(rgb, at, block, k);
    });
}

template <int Chroma, int Kind>
void third_to_rgb(const uint8_t* y, const uint8_t* pairs, uint8_t* rgb, int width, const YuvToRgb& k) {
    constexpr int n = rgb_bytes(Kind);
    if constexpr (is_swapped(Kind))
        pairs_third_to_rgb<other_pairs(Chroma), n>(y, pairs, rgb, width, exchanged(k));
    else
        pairs_third_to_rgb<Chroma, n>(y, pairs, rgb, width, k);
}

// ---------------------------------------------------------------------------------------------- RGB to YUV

struct YuvWeights {
    explicit YuvWeights(const RgbToYuv& k) : y(k.y), u(k.u), v(k.v), luma_bias(_mm256_set1_epi32(k.luma_bias)) {}

    Weights y, u, v;
    V luma_bias;
};

/// Sixteen words, in groups of four as above.
inline V luma16(const Pixels16& p, const YuvWeights& w) {
    V sum[2];
    for (int i = 0; i < 2; ++i)
        sum[i] = _mm256_srai_epi32(_mm256_add_epi32(weigh(p.outer[i], p.green[i], w.y), w.luma_bias), kYuvBits);
    return _mm256_packs_epi32(sum[0], sum[1]);
}

/// Eight U and eight V of sixteen pixels which are sums of 1 << (Shift - 1) rows: 0, 1, 4, 5, then 2, 3, 6, 7.
struct Chroma8 {
    V u, v;
};

template <int Shift>
inline Chroma8 chroma8(const Pixels16& p, const YuvWeights& w) {
    const auto pairs = [](const V* words) { // sums of neighbouring pixels
        const __m256 a = _mm256_castsi256_ps(words[0]), b = _mm256_castsi256_ps(words[1]);
        return _mm256_add_epi16(_mm256_castps_si256(_mm256_shuffle_ps(a, b, 0x88)),
                                _mm256_castps_si256(_mm256_shuffle_ps(a, b, 0xDD)));
    };
    const V outer = pairs(p.outer), green = pairs(p.green);
    constexpr int kBits = kYuvBits + Shift;
    const V bias = _mm256_set1_epi32((kNeutral << kBits) + (1 << (kBits - 1)));
    const auto scaled = [&](V sum) { return _mm256_srai_epi32(_mm256_add_epi32(sum, bias), kBits); };
    return {scaled(weigh(outer, green, w.u)), scaled(weigh(outer, green, w.v))};
}

inline void store_eights(uint8_t* p, Whole at, H v) { store16(p + (at.i >> 1), v); }
inline void store_eights(uint8_t* p, Halves at, H v) {
    store8(p + (at.i >> 1), v);
    store8(p + (at.j >> 1), _mm_unpackhi_epi64(v, v));
}

/// Sixteen pairs, of which `c` holds the first and the last eight.
template <class Place>
inline void store_chroma(int chroma, uint8_t* u, uint8_t* v, Place at, const Chroma8* c) {
    constexpr Shuffle kTwos = {{0, 1, 8, 9, 2, 3, 10, 11, 4, 5, 12, 13, 6, 7, 14, 15}};
    const V mixed = _mm256_packus_epi16(_mm256_packs_epi32(c[0].u, c[1].u), _mm256_packs_epi32(c[0].v, c[1].v));
    const V planes = _mm256_shuffle_epi8(in_order(mixed), kTwos.full());
    const H us = low(planes), vs = high(planes);
    if (chroma == kPlanar) {
        store_eights(u, at, us);
        store_eights(v, at, vs);
    } else {
        const H first = chroma == kPairsUV ? us : vs, second = chroma == kPairsUV ? vs : us;
        store16(u + at.i, _mm_unpacklo_epi8(first, second));
        store16(u + at.j, _mm_unpackhi_epi8(first, second));
    }
}

/// One row or, for 4:2:0, two. The order of the channels is that of the weights.
template <int N, int Rows>
__attribute__((noinline)) bool to_yuv(int chroma, const uint8_t* a, const uint8_t* b, uint8_t* ya, uint8_t* yb,
                                      uint8_t* u, uint8_t* v, int width, const RgbToYuv& constants) {
    const YuvWeights w(constants);
    return by_blocks_or_halves(width, [&](auto at) {
        V words[Rows][2];
        Chroma8 c[2];
        for (int half = 0; half < 2; ++half) {
            const int x = half ? at.j : at.i;
            Pixels16 sum = load_pixels<N>(a + x * N);
            words[0][half] = luma16(sum, w);
            if (Rows == 2) {
                const Pixels16 p = load_pixels<N>(b + x * N);
                words[Rows - 1][half] = luma16(p, w);
                for (int k = 0; k < 2; ++k) {
                    sum.outer[k] = _mm256_add_epi16(sum.outer[k], p.outer[k]);
                    sum.green[k] = _mm256_add_epi16(sum.green[k], p.green[k]);
                }
            }
            c[half] = chroma8<Rows>(sum, w);
        }
        store_block(ya, at, fours_in_order(_mm256_packus_epi16(words[0][0], words[0][1])));
        if (Rows == 2)
            store_block(yb, at, fours_in_order(_mm256_packus_epi16(words[Rows - 1][0], words[Rows - 1][1])));
        store_chroma(chroma, u, v, at, c);
    });
}

template <int Chroma, int Kind>
void rgb_to_yuv420(const uint8_t* a, const uint8_t* b, uint8_t* ya, uint8_t* yb, uint8_t* u, uint8_t* v, int width,
                   const RgbToYuv& k) {
    const RgbToYuv w = weights_in_order(k, is_swapped(Kind));
    if (!to_yuv<rgb_bytes(Kind), 2>(Chroma, a, b, ya, yb, u, v, width, w))
        plain_kernels().rgb_to_yuv420[Chroma][Kind](a, b, ya, yb, u, v, width, k);
}

template <int Chroma, int Kind>
void rgb_to_yuv422(const uint8_t* rgb, uint8_t* y, uint8_t* u, uint8_t* v, int width, const RgbToYuv& k) {
    const RgbToYuv w = weights_in_order(k, is_swapped(Kind));
    if (!to_yuv<rgb_bytes(Kind), 1>(Chroma, rgb, nullptr, y, nullptr, u, v, width, w))
        plain_kernels().rgb_to_yuv422[Chroma][Kind](rgb, y, u, v, width, k);
}

template <int Luma>
void packed_to_nv12(const uint8_t* a, const uint8_t* b, uint8_t* ya, uint8_t* yb, uint8_t* uv, int width) {
    const auto half = [](V p, V q, bool upper) { // the lower or the upper bytes of the words
        const auto pick = [&](V v) { return upper ? _mm256_srli_epi16(v, 8) : _mm256_and_si256(v, set16(255)); };
        return in_order(_mm256_packus_epi16(pick(p), pick(q)));
    };
    if (!by_blocks_or_halves(width, [&](auto at) {
            const V p0 = load(a + 2 * at.i), p1 = load(a + 2 * at.j), q0 = load(b + 2 * at.i),
                    q1 = load(b + 2 * at.j);
            store_block(ya, at, half(p0, p1, Luma == 1));
            store_block(yb, at, half(q0, q1, Luma == 1));
            store_block(uv, at, half(_mm256_avg_epu8(p0, q0), _mm256_avg_epu8(p1, q1), Luma == 0));
        }))
        plain_kernels().packed_to_nv12[Luma](a, b, ya, yb, uv, width);
}

} // namespace

void use_colour(Kernels& k) {
    for_pairs<kChromaKinds, kRgbKinds>([&](auto c, auto rgb) { k.yuv_to_rgb[c][rgb] = yuv_to_rgb<c, rgb>; });
    for_pairs<3, kRgbKinds>([&](auto c, auto rgb) {
        k.yuv444_to_rgb[c][rgb] = yuv444_to_rgb<c, rgb>;
        if constexpr (c != kPlanar)
            k.third_to_rgb[c - kPairsUV][rgb] = third_to_rgb<c, rgb>;
        k.rgb_to_yuv420[c][rgb] = rgb_to_yuv420<c, rgb>;
        k.rgb_to_yuv422[c][rgb] = rgb_to_yuv422<c, rgb>;
    });
    k.packed_to_nv12[0] = packed_to_nv12<0>;
    k.packed_to_nv12[1] = packed_to_nv12<1>;
}

} // namespace tavi::avx2

#endif
