// SPDX-License-Identifier: MIT
// The AVX2 build: the loops compiled for AVX2, and those that compilers do not vectorise well written out. Every
// kernel here gives the bytes of its loop. What is left of a row after whole blocks is done by a last block that
// overlaps the one before, or by the loop where a row is shorter than a block.
#include "kernels/kernels_loops.h"

#if defined(__AVX2__)

#include <immintrin.h>

#include <array>

namespace tavi {

const Kernels& avx2_kernels();

namespace {

using V = __m256i;
using H = __m128i; // half a vector

V load(const void* p) { return _mm256_loadu_si256(static_cast<const V*>(p)); }
H load16(const void* p) { return _mm_loadu_si128(static_cast<const H*>(p)); }
H load8(const void* p) { return _mm_loadl_epi64(static_cast<const H*>(p)); }
void store(void* p, V v) { _mm256_storeu_si256(static_cast<V*>(p), v); }
void store16(void* p, H v) { _mm_storeu_si128(static_cast<H*>(p), v); }
void store8(void* p, H v) { _mm_storel_epi64(static_cast<H*>(p), v); }
H low(V v) { return _mm256_castsi256_si128(v); }
H high(V v) { return _mm256_extracti128_si256(v, 1); }
V join(H lo, H hi) { return _mm256_inserti128_si256(_mm256_castsi128_si256(lo), hi, 1); }
V both(H h) { return _mm256_broadcastsi128_si256(h); }
V set16(int v) { return _mm256_set1_epi16(static_cast<short>(v)); }
V widen_lo(V v) { return _mm256_unpacklo_epi8(v, _mm256_setzero_si256()); }
V widen_hi(V v) { return _mm256_unpackhi_epi8(v, _mm256_setzero_si256()); }

/// For the copies in which narrow rows are done: any number of bytes, few of them.
uint8_t* copy_row(uint8_t* to, const uint8_t* from, int n) {
    int i = 0;
    for (; i + 16 <= n; i += 16)
        store16(to + i, load16(from + i));
    if (n < 16)
        std::memcpy(to, from, n);
    else if (i < n)
        store16(to + n - 16, load16(from + n - 16));
    return to;
}

/// Two loads of eight bytes as words, one in each lane.
V load_words(const void* a, const void* b) {
    return _mm256_cvtepu8_epi16(
        _mm_castpd_si128(_mm_loadh_pd(_mm_castsi128_pd(load8(a)), static_cast<const double*>(b))));
}

/// A shuffle of bytes within 16; -1 gives zero.
struct Shuffle {
    alignas(16) int8_t index[16];
    H half() const { return _mm_load_si128(reinterpret_cast<const H*>(index)); }
    V full() const { return both(half()); }
};

// ---------------------------------------------------------------------------------------------- storing RGB

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
V mask3(int at) {
    constexpr Shuffle kMask[3] = {{{-1, 0, 0, -1, 0, 0, -1, 0, 0, -1, 0, 0, -1, 0, 0, -1}},
                                  {{0, -1, 0, 0, -1, 0, 0, -1, 0, 0, -1, 0, 0, -1, 0, 0}},
                                  {{0, 0, -1, 0, 0, -1, 0, 0, -1, 0, 0, -1, 0, 0, -1, 0}}};
    return kMask[at].full();
}

template <int Kind>
void store_pixels(uint8_t* out, V r, V g, V b) {
    if (Kind == kBGR || Kind == kBGRA)
        std::swap(r, b);
    if (Kind == kRGB || Kind == kBGR) {
        r = _mm256_shuffle_epi8(r, kSpread3[0].full());
        g = _mm256_shuffle_epi8(g, kSpread3[1].full());
        b = _mm256_shuffle_epi8(b, kSpread3[2].full());
        const V second = mask3(1), third = mask3(2); // bytes 1, 4, .. and 2, 5, ..
        const auto part = [&](V x, V y, V z) {
            return _mm256_blendv_epi8(_mm256_blendv_epi8(x, y, second), z, third);
        };
        const V part0 = part(r, g, b), part1 = part(g, b, r), part2 = part(b, r, g); // 16 is 1 more than 5 pixels
        store(out, _mm256_permute2x128_si256(part0, part1, 0x20));
        store(out + 32, _mm256_permute2x128_si256(part2, part0, 0x30));
        store(out + 64, _mm256_permute2x128_si256(part1, part2, 0x31));
        return;
    }
    const V alpha = _mm256_set1_epi8(-1);
    const V rg0 = _mm256_unpacklo_epi8(r, g), rg1 = _mm256_unpackhi_epi8(r, g);
    const V ba0 = _mm256_unpacklo_epi8(b, alpha), ba1 = _mm256_unpackhi_epi8(b, alpha);
    const V p0 = _mm256_unpacklo_epi16(rg0, ba0), p1 = _mm256_unpackhi_epi16(rg0, ba0);
    const V p2 = _mm256_unpacklo_epi16(rg1, ba1), p3 = _mm256_unpackhi_epi16(rg1, ba1);
    store(out, _mm256_permute2x128_si256(p0, p1, 0x20));
    store(out + 32, _mm256_permute2x128_si256(p2, p3, 0x20));
    store(out + 64, _mm256_permute2x128_si256(p0, p1, 0x31));
    store(out + 96, _mm256_permute2x128_si256(p2, p3, 0x31));
}

// ---------------------------------------------------------------------------------------------- YUV to RGB

/// 32 pixels in words: 0 to 7 and 16 to 23, then 8 to 15 and 24 to 31, which is the order that packing puts right.
struct YuvBlock {
    V y[2];             ///< times 257
    V r[2], g[2], b[2]; ///< what chroma adds (to g: takes away), without the bias
};

/// The constants of a conversion, in every lane.
struct YuvVectors {
    explicit YuvVectors(const YuvToRgb& k)
        : luma(set16(k.luma_257)), bias(set16(k.bias)), v_to_r(set16(k.v_to_r)), u_to_g(set16(k.u_to_g)),
          v_to_g(set16(k.v_to_g)), u_to_b(set16(k.u_to_b)), packed_br(_mm256_set1_epi32(k.v_to_r << 16 | k.u_to_b)),
          packed_g(_mm256_set1_epi32(k.v_to_g << 16 | k.u_to_g)) {}

    V luma, bias, v_to_r, u_to_g, v_to_g, u_to_b;
    V packed_br, packed_g; ///< for words of U and V in turn
};

template <int Chroma>
YuvBlock load_yuv(const uint8_t* y, const uint8_t* u, const uint8_t* v, int x, const YuvVectors& k) {
    const V luma = load(y + x), sign = set16(-32768);
    V us, vs; // a word for two pixels
    if constexpr (Chroma == kPlanar) {
        us = _mm256_slli_epi16(_mm256_cvtepu8_epi16(load16(u + x / 2)), 8);
        vs = _mm256_slli_epi16(_mm256_cvtepu8_epi16(load16(v + x / 2)), 8);
    } else {
        const V pairs = load(u + x);
        us = _mm256_slli_epi16(pairs, 8);
        vs = _mm256_and_si256(pairs, set16(-256));
        if (Chroma == kPairsVU)
            std::swap(us, vs);
    }
    us = _mm256_xor_si256(us, sign);
    vs = _mm256_xor_si256(vs, sign);
    const V r = _mm256_mulhrs_epi16(vs, k.v_to_r), b = _mm256_mulhrs_epi16(us, k.u_to_b);
    const V g = _mm256_add_epi16(_mm256_mulhrs_epi16(us, k.u_to_g), _mm256_mulhrs_epi16(vs, k.v_to_g));
    return {{_mm256_unpacklo_epi8(luma, luma), _mm256_unpackhi_epi8(luma, luma)},
            {_mm256_unpacklo_epi16(r, r), _mm256_unpackhi_epi16(r, r)},
            {_mm256_unpacklo_epi16(g, g), _mm256_unpackhi_epi16(g, g)},
            {_mm256_unpacklo_epi16(b, b), _mm256_unpackhi_epi16(b, b)}};
}

/// Packed 4:2:2 without unpacking: the words of a pixel pair hold U and V, and one multiplication serves both.
template <int Chroma>
YuvBlock load_packed(const uint8_t* p, const YuvVectors& k) {
    constexpr int8_t at = Chroma == kPackedYUYV ? 0 : 1; // of luma
    constexpr Shuffle kTwice = {{at, at, at + 2, at + 2, at + 4, at + 4, at + 6, at + 6, at + 8, at + 8, at + 10,
                                 at + 10, at + 12, at + 12, at + 14, at + 14}};
    constexpr Shuffle kFirst = {{0, 1, 0, 1, 4, 5, 4, 5, 8, 9, 8, 9, 12, 13, 12, 13}};
    constexpr Shuffle kSecond = {{2, 3, 2, 3, 6, 7, 6, 7, 10, 11, 10, 11, 14, 15, 14, 15}};
    constexpr Shuffle kOther = {{2, 3, 0, 1, 6, 7, 4, 5, 10, 11, 8, 9, 14, 15, 12, 13}};
    YuvBlock block;
    for (int i = 0; i < 2; ++i) {
        const V pixels = join(load16(p + 16 * i), load16(p + 16 * i + 32));
        const V chroma = at == 0 ? _mm256_and_si256(pixels, set16(-256)) : _mm256_slli_epi16(pixels, 8);
        const V uv = _mm256_xor_si256(chroma, set16(-32768));
        const V b_r = _mm256_mulhrs_epi16(uv, k.packed_br);
        const V g = _mm256_mulhrs_epi16(uv, k.packed_g);
        block.y[i] = _mm256_shuffle_epi8(pixels, kTwice.full());
        block.r[i] = _mm256_shuffle_epi8(b_r, kSecond.full());
        block.g[i] = _mm256_add_epi16(g, _mm256_shuffle_epi8(g, kOther.full()));
        block.b[i] = _mm256_shuffle_epi8(b_r, kFirst.full());
    }
    return block;
}

template <int Chroma, int Kind>
void block_to_rgb(const uint8_t* y, const uint8_t* u, const uint8_t* v, int x, uint8_t* out, const YuvVectors& k) {
    YuvBlock block;
    if constexpr (Chroma == kPackedYUYV || Chroma == kPackedUYVY)
        block = load_packed<Chroma>(y + 2 * x, k);
    else
        block = load_yuv<Chroma>(y, u, v, x, k);
    for (int i = 0; i < 2; ++i) {
        const V luma = _mm256_add_epi16(_mm256_mulhi_epu16(block.y[i], k.luma), k.bias);
        block.r[i] = _mm256_srai_epi16(_mm256_adds_epi16(luma, block.r[i]), 6);
        block.g[i] = _mm256_srai_epi16(_mm256_subs_epi16(luma, block.g[i]), 6);
        block.b[i] = _mm256_srai_epi16(_mm256_adds_epi16(luma, block.b[i]), 6);
    }
    store_pixels<Kind>(out, _mm256_packus_epi16(block.r[0], block.r[1]), _mm256_packus_epi16(block.g[0], block.g[1]),
                       _mm256_packus_epi16(block.b[0], block.b[1]));
}

template <int Chroma, int Kind>
void yuv_to_rgb(const uint8_t* y, const uint8_t* u, const uint8_t* v, uint8_t* rgb, int width,
                const YuvToRgb& constants) {
    constexpr int n = rgb_bytes<Kind>();
    const YuvVectors k(constants);
    uint8_t ys[64], us[32], vs[32], out[128], *to = rgb;
    const int count = std::max(width, 32);
    if (width < 32) { // one block, of copies
        constexpr bool packed = Chroma == kPackedYUYV || Chroma == kPackedUYVY;
        y = copy_row(ys, y, packed ? 2 * width : width);
        if (!packed)
            u = copy_row(us, u, Chroma == kPlanar ? width / 2 : width);
        if (Chroma == kPlanar)
            v = copy_row(vs, v, width / 2);
        to = out;
    }
    for (int x = 0;; x = std::min(x + 32, count - 32)) {
        block_to_rgb<Chroma, Kind>(y, u, v, x, to + x * n, k);
        if (x == count - 32)
            break;
    }
    if (to == out)
        copy_row(rgb, out, width * n);
}

// ---------------------------------------------------------------------------------------------- RGB to YUV

/// Sixteen pixels, eight a vector, as pairs of words: the first and the third channel, and the second with nothing or
/// alpha.
struct Pixels16 {
    V outer[2];
    V green[2];
};

// Four pixels of three channels a lane; the last lane ends with the last pixel, and is shifted down. `last`: nothing
// of the row follows the sixteen pixels.
template <int Kind>
V load_quads(const uint8_t* p, int i, bool last) {
    if (rgb_bytes<Kind>() == 4)
        return load(p + 32 * i);
    p += 24 * i;
    return join(load16(p), i && last ? _mm_srli_si128(load16(p + 8), 4) : load16(p + 12));
}

template <int Kind>
Pixels16 load_pixels(const uint8_t* p, bool last) {
    constexpr Shuffle kOuter = {{0, -1, 2, -1, 3, -1, 5, -1, 6, -1, 8, -1, 9, -1, 11, -1}};
    constexpr Shuffle kGreen = {{1, -1, -1, -1, 4, -1, -1, -1, 7, -1, -1, -1, 10, -1, -1, -1}};
    Pixels16 out;
    for (int i = 0; i < 2; ++i) {
        const V v = load_quads<Kind>(p, i, last);
        constexpr bool four = rgb_bytes<Kind>() == 4;
        out.outer[i] = four ? _mm256_and_si256(v, set16(255)) : _mm256_shuffle_epi8(v, kOuter.full());
        out.green[i] = four ? _mm256_srli_epi16(v, 8) : _mm256_shuffle_epi8(v, kGreen.full());
    }
    return out;
}

/// The weights of one sum, as pairs of words: those of the first and the third channel, and of the second.
struct Weights {
    V outer, green;

    template <int Kind>
    static Weights of(const int16_t* rgb) {
        constexpr bool swapped = Kind == kBGR || Kind == kBGRA;
        const auto first = static_cast<uint16_t>(rgb[swapped ? 2 : 0]),
                   last = static_cast<uint16_t>(rgb[swapped ? 0 : 2]);
        return {_mm256_set1_epi32(static_cast<int>(first | uint32_t{last} << 16)),
                _mm256_set1_epi32(static_cast<uint16_t>(rgb[1]))};
    }
};

struct YuvWeights {
    Weights y, u, v;
    V luma_bias;
};

/// Weighted sums of eight pixels.
V weigh(V outer, V green, const Weights& w) {
    return _mm256_add_epi32(_mm256_madd_epi16(outer, w.outer), _mm256_madd_epi16(green, w.green));
}

/// Bytes that stand in groups of four: 0 to 3, 8 to 11, ... in the lower lane, 4 to 7, ... in the upper one.
V fours_in_order(V bytes) { return _mm256_permutevar8x32_epi32(bytes, _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7)); }

/// Sixteen words, in groups of four as above.
V luma16(const Pixels16& p, const YuvWeights& w) {
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
Chroma8 chroma8(const Pixels16& p, const YuvWeights& w) {
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

/// Sixteen pairs, of which `c` holds the first and the last eight.
template <int Chroma>
void store_chroma(uint8_t* u, uint8_t* v, int x, const Chroma8* c) {
    constexpr Shuffle kTwos = {{0, 1, 8, 9, 2, 3, 10, 11, 4, 5, 12, 13, 6, 7, 14, 15}};
    const V mixed = _mm256_packus_epi16(_mm256_packs_epi32(c[0].u, c[1].u), _mm256_packs_epi32(c[0].v, c[1].v));
    const V planes = _mm256_shuffle_epi8(_mm256_permute4x64_epi64(mixed, 0xD8), kTwos.full());
    const H us = low(planes), vs = high(planes);
    if (Chroma == kPlanar) {
        store16(u + x / 2, us);
        store16(v + x / 2, vs);
    } else {
        const H first = Chroma == kPairsUV ? us : vs, second = Chroma == kPairsUV ? vs : us;
        store16(u + x, _mm_unpacklo_epi8(first, second));
        store16(u + x + 16, _mm_unpackhi_epi8(first, second));
    }
}

/// One row or, for 4:2:0, two. Narrow rows are done in copies of 32 pixels.
template <int Chroma, int Kind, int Rows>
void rgb_to_yuv(const uint8_t* const* rgb, uint8_t* const* luma, uint8_t* u, uint8_t* v, int width,
                const RgbToYuv& c) {
    constexpr int n = rgb_bytes<Kind>();
    if (width < 32) {
        uint8_t pixels[Rows][128], ys[Rows][32], us[32], vs[16];
        const uint8_t* from[Rows];
        uint8_t* to[Rows];
        for (int k = 0; k < Rows; ++k) {
            from[k] = copy_row(pixels[k], rgb[k], width * n);
            to[k] = ys[k];
        }
        rgb_to_yuv<Chroma, Kind, Rows>(from, to, us, vs, 32, c);
        for (int k = 0; k < Rows; ++k)
            copy_row(luma[k], ys[k], width);
        copy_row(u, us, Chroma == kPlanar ? width / 2 : width);
        if (Chroma == kPlanar)
            copy_row(v, vs, width / 2);
        return;
    }
    const YuvWeights w = {Weights::of<Kind>(c.y), Weights::of<Kind>(c.u), Weights::of<Kind>(c.v),
                          _mm256_set1_epi32(c.luma_bias)};
    for (int x = 0;; x = std::min(x + 32, width - 32)) {
        V words[Rows][2];
        Chroma8 chroma[2];
        for (int half = 0; half < 2; ++half) {
            Pixels16 sum = load_pixels<Kind>(rgb[0] + (x + 16 * half) * n, half == 1);
            words[0][half] = luma16(sum, w);
            if (Rows == 2) {
                const Pixels16 p = load_pixels<Kind>(rgb[Rows - 1] + (x + 16 * half) * n, half == 1);
                words[Rows - 1][half] = luma16(p, w);
                for (int i = 0; i < 2; ++i) {
                    sum.outer[i] = _mm256_add_epi16(sum.outer[i], p.outer[i]);
                    sum.green[i] = _mm256_add_epi16(sum.green[i], p.green[i]);
                }
            }
            chroma[half] = chroma8<Rows>(sum, w);
        }
        for (int k = 0; k < Rows; ++k)
            store(luma[k] + x, fours_in_order(_mm256_packus_epi16(words[k][0], words[k][1])));
        store_chroma<Chroma>(u, v, x, chroma);
        if (x == width - 32)
            return;
    }
}

template <int Chroma, int Kind>
void rgb_to_yuv420(const uint8_t* a, const uint8_t* b, uint8_t* ya, uint8_t* yb, uint8_t* u, uint8_t* v, int width,
                   const RgbToYuv& k) {
    const uint8_t* const rgb[2] = {a, b};
    uint8_t* const luma[2] = {ya, yb};
    rgb_to_yuv<Chroma, Kind, 2>(rgb, luma, u, v, width, k);
}

template <int Chroma, int Kind>
void rgb_to_yuv422(const uint8_t* rgb, uint8_t* y, uint8_t* u, uint8_t* v, int width, const RgbToYuv& k) {
    rgb_to_yuv<Chroma, Kind, 1>(&rgb, &y, u, v, width, k);
}

template <int Luma>
void packed_to_nv12(const uint8_t* a, const uint8_t* b, uint8_t* ya, uint8_t* yb, uint8_t* uv, int width) {
    if (width < 32)
        return packed_to_nv12_loop<Luma>(a, b, ya, yb, uv, width);
    const auto half = [](V p, V q, bool upper) { // the lower or the upper bytes of the words
        const auto pick = [&](V v) { return upper ? _mm256_srli_epi16(v, 8) : _mm256_and_si256(v, set16(255)); };
        return _mm256_permute4x64_epi64(_mm256_packus_epi16(pick(p), pick(q)), 0xD8);
    };
    for (int x = 0;; x = std::min(x + 32, width - 32)) {
        const V p0 = load(a + 2 * x), p1 = load(a + 2 * x + 32), q0 = load(b + 2 * x), q1 = load(b + 2 * x + 32);
        store(ya + x, half(p0, p1, Luma == 1));
        store(yb + x, half(q0, q1, Luma == 1));
        store(uv + x, half(_mm256_avg_epu8(p0, q0), _mm256_avg_epu8(p1, q1), Luma == 0));
        if (x == width - 32)
            return;
    }
}

/// The loop's weights as sums of bytes: 299 = 8 * 32 + 43, 587 = 8 * 72 + 11, 114 = 8 * 8 + 50. The eighths of both
/// parts fit in words.
template <int Kind>
void rgb_to_gray(const uint8_t* rgb, uint8_t* gray, int width) {
    constexpr int n = rgb_bytes<Kind>();
    constexpr bool swapped = Kind == kBGR || Kind == kBGRA;
    if (width < 32)
        return rgb_to_gray_loop<Kind>(rgb, gray, width);
    constexpr Shuffle kPairs = {{0, 1, n, n + 1, 2 * n, 2 * n + 1, 3 * n, 3 * n + 1, 2, -1, n + 2, -1, 2 * n + 2, -1,
                                 3 * n + 2,
                                 -1}}; // the first two channels of four pixels, then the third with nothing
    const auto sixteen = [&](const uint8_t* p, bool last) {
        const V a = _mm256_shuffle_epi8(load_quads<Kind>(p, 0, last), kPairs.full());
        const V b = _mm256_shuffle_epi8(load_quads<Kind>(p, 1, last), kPairs.full());
        const V two = _mm256_unpacklo_epi64(a, b), third = _mm256_unpackhi_epi64(a, b);
        const auto sums = [&](int red, int green, int blue) {
            return _mm256_add_epi16(_mm256_maddubs_epi16(two, set16((swapped ? blue : red) | green << 8)),
                                    _mm256_maddubs_epi16(third, set16(swapped ? red : blue)));
        };
        const V rest = _mm256_srli_epi16(_mm256_add_epi16(sums(43, 11, 50), set16(500)), 3);
        const V eighths = _mm256_add_epi16(sums(32, 72, 8), rest);
        return _mm256_srli_epi16(_mm256_mulhi_epu16(eighths, set16(33555)), 6);
    };
    for (int x = 0;; x = std::min(x + 32, width - 32)) {
        const uint8_t* p = rgb + x * n;
        store(gray + x, fours_in_order(_mm256_packus_epi16(sixteen(p, false), sixteen(p + 16 * n, true))));
        if (x == width - 32)
            return;
    }
}

template <int N>
void gray_to_rgb(const uint8_t* gray, uint8_t* rgb, int width) {
    if (width < 32)
        return gray_to_rgb_loop<N>(gray, rgb, width);
    constexpr Shuffle kPart[3] = {{{0, 0, 0, 1, 1, 1, 2, 2, 2, 3, 3, 3, 4, 4, 4, 5}},
                                  {{5, 5, 6, 6, 6, 7, 7, 7, 8, 8, 8, 9, 9, 9, 10, 10}},
                                  {{10, 11, 11, 11, 12, 12, 12, 13, 13, 13, 14, 14, 14, 15, 15, 15}}};
    for (int x = 0;; x = std::min(x + 32, width - 32)) {
        const V g = load(gray + x);
        if (N == 4) {
            store_pixels<kRGBA>(rgb + x * N, g, g, g);
        } else { // every part of 16 bytes comes from one half
            const V first = both(load16(gray + x)), second = both(load16(gray + x + 16));
            uint8_t* out = rgb + x * N;
            store(out, _mm256_shuffle_epi8(first, join(kPart[0].half(), kPart[1].half())));
            store(out + 32, _mm256_shuffle_epi8(g, join(kPart[2].half(), kPart[0].half())));
            store(out + 64, _mm256_shuffle_epi8(second, join(kPart[1].half(), kPart[2].half())));
        }
        if (x == width - 32)
            return;
    }
}

/// Four pixels of one kind as four of another; -1 where alpha is new or there is no byte.
template <int From, int To>
constexpr Shuffle reorder() {
    constexpr int from = rgb_bytes<From>(), to = rgb_bytes<To>();
    constexpr bool swapped = (From == kBGR || From == kBGRA) != (To == kBGR || To == kBGRA);
    Shuffle s = {};
    for (int j = 0; j < 16; ++j) {
        const int c = j % to;
        s.index[j] =
            static_cast<int8_t>(j / to >= 4 || c >= from ? -1 : j / to * from + (swapped && c < 3 ? 2 - c : c));
    }
    return s;
}

template <int From, int To>
void rgb_to_rgb(const uint8_t* from, uint8_t* to, int width) {
    constexpr int n = rgb_bytes<From>(), m = rgb_bytes<To>();
    int x = 0;
    if (n == 3 && m == 3) { // five pixels at a time: byte 15 of a store is written over
        constexpr Shuffle kSwap = {{2, 1, 0, 5, 4, 3, 8, 7, 6, 11, 10, 9, 14, 13, 12, 15}};
        const auto five = [&](int i) { return _mm_shuffle_epi8(load16(from + 3 * i), kSwap.half()); };
        for (; x + 21 <= width; x += 20) {
            const H a = five(x), b = five(x + 5), c = five(x + 10), d = five(x + 15);
            uint8_t* out = to + 3 * x;
            store16(out, a), store16(out + 15, b), store16(out + 30, c), store16(out + 45, d);
        }
        for (; x + 6 <= width; x += 5)
            store16(to + 3 * x, five(x));
    } else { // four pixels a lane; loads or stores of three channels run four bytes over
        constexpr Shuffle kOrder = reorder<From, To>();
        const V alpha = n == 3 ? _mm256_set1_epi32(static_cast<int>(0xFF000000)) : _mm256_setzero_si256();
        const auto eight = [&](int i) {
            const V v = n == 3 ? join(load16(from + 3 * i), load16(from + 3 * i + 12)) : load(from + 4 * i);
            return _mm256_or_si256(_mm256_shuffle_epi8(v, kOrder.full()), alpha);
        };
        const auto put = [&](int i, V v) {
            if (m == 4)
                return store(to + 4 * i, v);
            store16(to + 3 * i, low(v));
            store16(to + 3 * i + 12, high(v));
        };
        for (; x + 18 <= width; x += 16) {
            const V a = eight(x), b = eight(x + 8);
            put(x, a);
            put(x + 8, b);
        }
        for (; x + 10 <= width; x += 8)
            put(x, eight(x));
    }
    rgb_to_rgb_loop<From, To>(from + x * n, to + x * m, width - x);
}

void gray16_to_8(const uint8_t* gray16, uint8_t* gray8, int width) {
    if (width < 32)
        return gray16_to_8_loop(gray16, gray8, width);
    // (v + 128) / 257 is v / 257 rounded, and 65281 / 2^24 divides by 257; the saturation changes no result.
    const auto divide = [](V v) {
        return _mm256_srli_epi16(_mm256_mulhi_epu16(_mm256_adds_epu16(v, set16(128)), set16(65281)), 8);
    };
    for (int x = 0;; x = std::min(x + 32, width - 32)) {
        const V words = _mm256_packus_epi16(divide(load(gray16 + 2 * x)), divide(load(gray16 + 2 * x + 32)));
        store(gray8 + x, _mm256_permute4x64_epi64(words, 0xD8));
        if (x == width - 32)
            return;
    }
}

// ------------------------------------------------------------------------------------------------- scaling

V mix(V a, V b, V weight) { return _mm256_add_epi16(a, _mm256_mulhrs_epi16(_mm256_sub_epi16(b, a), weight)); }
V rounded6(V v) { return _mm256_srai_epi16(_mm256_add_epi16(v, set16(32)), 6); }
V load_scaled(const uint8_t* p) { return _mm256_slli_epi16(_mm256_cvtepu8_epi16(load16(p)), 6); }

void widen(const uint8_t* row, uint16_t* out, int n) {
    if (n < 16)
        return widen_loop(row, out, n);
    for (int i = 0;; i = i + 32 <= n ? i + 16 : n - 16) {
        store(out + i, load_scaled(row + i));
        if (i + 16 >= n)
            return;
    }
}

void narrow(const uint16_t* row, uint8_t* out, int n) {
    if (n < 32)
        return narrow_loop(row, out, n);
    for (int i = 0;; i = i + 64 <= n ? i + 32 : n - 32) {
        const V bytes = _mm256_packus_epi16(rounded6(load(row + i)), rounded6(load(row + i + 16)));
        store(out + i, _mm256_permute4x64_epi64(bytes, 0xD8));
        if (i + 32 >= n)
            return;
    }
}

void blend8(const uint8_t* a, const uint8_t* b, int weight, uint16_t* out, int n) {
    if (n < 16)
        return blend8_loop(a, b, weight, out, n);
    const V w = set16(weight);
    for (int i = 0;; i = i + 32 <= n ? i + 16 : n - 16) {
        store(out + i, mix(load_scaled(a + i), load_scaled(b + i), w));
        if (i + 16 >= n)
            return;
    }
}

void blend8_to_8(const uint8_t* a, const uint8_t* b, int weight, uint8_t* out, int n) {
    if (n < 32)
        return blend8_to_8_loop(a, b, weight, out, n);
    const V w = set16(weight);
    for (int i = 0;; i = i + 64 <= n ? i + 32 : n - 32) {
        const V p = load(a + i), q = load(b + i);
        const V lo = mix(_mm256_slli_epi16(widen_lo(p), 6), _mm256_slli_epi16(widen_lo(q), 6), w);
        const V hi = mix(_mm256_slli_epi16(widen_hi(p), 6), _mm256_slli_epi16(widen_hi(q), 6), w);
        store(out + i, _mm256_packus_epi16(rounded6(lo), rounded6(hi)));
        if (i + 32 >= n)
            return;
    }
}

void blend16_to_8(const uint16_t* a, const uint16_t* b, int weight, uint8_t* out, int n) {
    if (n < 32)
        return blend16_to_8_loop(a, b, weight, out, n);
    const V w = set16(weight);
    for (int i = 0;; i = i + 64 <= n ? i + 32 : n - 32) {
        const V lo = mix(load(a + i), load(b + i), w), hi = mix(load(a + i + 16), load(b + i + 16), w);
        store(out + i, _mm256_permute4x64_epi64(_mm256_packus_epi16(rounded6(lo), rounded6(hi)), 0xD8));
        if (i + 32 >= n)
            return;
    }
}

void box_rows(const BoxRows& rows, uint16_t* out, int n) {
    if (n < 32 || rows.count > kBoxRowsIn16Bits)
        return box_rows_loop(rows, out, n);
    const V top_weight = set16(rows.top_weight), bottom_weight = set16(rows.bottom_weight);
    const V inner_weight = set16(rows.inner_weight);
    const H shift = _mm_cvtsi32_si128(rows.inner_shift);
    for (int i = 0;; i = i + 64 <= n ? i + 32 : n - 32) {
        V lo = _mm256_setzero_si256(), hi = lo;
        if (rows.count > 0) {
            const uint8_t* p = rows.inner + i;
            for (int k = rows.count; k > 0; --k, p += rows.pitch) {
                const V row = load(p);
                lo = _mm256_add_epi16(lo, widen_lo(row));
                hi = _mm256_add_epi16(hi, widen_hi(row));
            }
            lo = _mm256_mulhrs_epi16(_mm256_sll_epi16(lo, shift), inner_weight);
            hi = _mm256_mulhrs_epi16(_mm256_sll_epi16(hi, shift), inner_weight);
        }
        const auto cut_row = [&](const uint8_t* p, V weight) {
            const V row = load(p + i);
            lo = _mm256_add_epi16(lo, _mm256_mulhrs_epi16(_mm256_slli_epi16(widen_lo(row), 6), weight));
            hi = _mm256_add_epi16(hi, _mm256_mulhrs_epi16(_mm256_slli_epi16(widen_hi(row), 6), weight));
        };
        if (rows.top)
            cut_row(rows.top, top_weight);
        if (rows.bottom)
            cut_row(rows.bottom, bottom_weight);
        store(out + i, _mm256_permute2x128_si256(lo, hi, 0x20));
        store(out + i + 16, _mm256_permute2x128_si256(lo, hi, 0x31));
        if (i + 32 >= n)
            return;
    }
}

void expand(const uint8_t* row, const ExpandTable& t, uint16_t* out) {
    if (!t.by_16)
        return expand_loop(row, t, out);
    const V only_low = set16(-0x8000), next = set16(t.next); // a set sign bit makes a zero
    for (int i = 0; i < t.eights; i += 2, out += 16) {
        const V window = join(load16(row + t.start[i]), load16(row + t.start[i + 1]));
        const V index = _mm256_or_si256(_mm256_cvtepu8_epi16(load16(t.index + 8 * i)), only_low);
        const V left = _mm256_shuffle_epi8(window, index);
        const V right = _mm256_shuffle_epi8(window, _mm256_add_epi16(index, next));
        const V d = _mm256_slli_epi16(_mm256_sub_epi16(right, left), 7);
        store(out, _mm256_add_epi16(_mm256_slli_epi16(left, 6), _mm256_mulhrs_epi16(d, load(t.weight + 8 * i))));
    }
}

// 16-bit samples.

void wide_rows(const WideRows& rows, float* out, int n) {
    const uint8_t* last = rows.first + (rows.count - 1) * rows.pitch;
    const auto load8 = [](const uint8_t* row, int i) { return _mm256_cvtepu16_epi32(load16(row + 2 * i)); };
    int i = 0;
    for (; i + 8 <= n; i += 8) {
        __m256 v = _mm256_cvtepi32_ps(load8(rows.first, i));
        const auto add = [&](V samples, float weight) {
            v = _mm256_add_ps(v, _mm256_mul_ps(_mm256_cvtepi32_ps(samples), _mm256_set1_ps(weight)));
        };
        if (rows.count > 1) {
            v = _mm256_mul_ps(v, _mm256_set1_ps(rows.first_weight));
            add(load8(last, i), rows.last_weight);
        }
        if (rows.count > 2) {
            V sum = _mm256_setzero_si256();
            const uint8_t* p = rows.first;
            for (int k = rows.count - 2; k > 0; --k)
                sum = _mm256_add_epi32(sum, load8(p += rows.pitch, i));
            add(sum, rows.inner_weight);
        }
        _mm256_storeu_ps(out + i, v);
    }
    wide_rows_loop(rows, out, n, i);
}

void wide_fir(const float* row, const WideFir& t, uint8_t* out) {
    if (t.taps > kWideTapsInSingle)
        return wide_fir_loop(row, t, out);
    int i = 0;
    for (; i + 8 <= t.cols; i += 8) {
        const V start = load(t.start + i);
        __m256 sum = _mm256_setzero_ps();
        for (int k = 0; k < t.taps; ++k) {
            const __m256 p = _mm256_i32gather_ps(row + k, start, 4), w = _mm256_loadu_ps(t.weight + k * t.cols + i);
            sum = _mm256_add_ps(sum, _mm256_mul_ps(p, w));
        }
        sum = _mm256_min_ps(_mm256_add_ps(sum, _mm256_set1_ps(0.5f)), _mm256_set1_ps(65535.0f));
        const V v = _mm256_cvttps_epi32(sum);
        store16(out + 2 * i, low(_mm256_permute4x64_epi64(_mm256_packus_epi32(v, v), 0xD8)));
    }
    wide_fir_loop(row, t, out, i);
}

// Words c0 c1 .. of two neighbouring columns to pairs (c0 of the first, c0 of the second) ..., by channels.
template <int C>
constexpr Shuffle pair_channels() {
    if (C == 2)
        return {{0, 1, 4, 5, 2, 3, 6, 7, 8, 9, 12, 13, 10, 11, 14, 15}};
    if (C == 3)
        return {{0, 1, 6, 7, 2, 3, 8, 9, 4, 5, 10, 11, -1, -1, -1, -1}};
    return {{0, 1, 8, 9, 2, 3, 10, 11, 4, 5, 12, 13, 6, 7, 14, 15}};
}

// Two weights for every channel of a column.
H weight_pair(const int16_t* w) {
    int32_t pair;
    std::memcpy(&pair, w, sizeof pair);
    return _mm_set1_epi32(pair);
}

/// Sums of four columns of three or four channels: columns 0 and 1 in the lanes of a, 2 and 3 in those of b.
template <int C>
void store_columns(uint8_t* out, V a, V b) {
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
V fir_two(const uint16_t* row, const FirTable& t, int i, int k) {
    const V p = join(load16(row + t.start[i] + k * C), load16(row + t.start[i + 1] + k * C));
    const V w = join(weight_pair(t.weight + i * t.taps + k), weight_pair(t.weight + (i + 1) * t.taps + k));
    return _mm256_madd_epi16(_mm256_shuffle_epi8(p, pair_channels<C>().full()), w);
}

// Three and four channels: two columns to a vector, a pair of taps at a time.
template <int C>
void fir_wide(const uint16_t* row, const FirTable& t, uint8_t* out) {
    const V half = _mm256_set1_epi32(1 << 19);
    int i = 0;
    for (; i + 4 <= t.cols; i += 4) {
        V a = half, b = half;
        for (int k = 0; k < t.taps; k += 2) {
            a = _mm256_add_epi32(a, fir_two<C>(row, t, i, k));
            b = _mm256_add_epi32(b, fir_two<C>(row, t, i + 2, k));
        }
        store_columns<C>(out + i * C, _mm256_srai_epi32(a, 20), _mm256_srai_epi32(b, 20));
    }
    fir_to_8_loop<C>(row, t, out, i);
}

// Gathers are slow on many processors. Where four columns and their neighbours lie within 16 bytes, one load and one
// shuffle per four take their place.

/// Whether `reach` elements hold any four columns and the neighbour of the last.
bool within(const FirTable& t, int reach) {
    // Three steps of a map are at most that many elements, rounded up; floors and the edge take up to two off the
    // whole.
    return t.cols > 1 && 3 * (t.start[t.cols - 1] - t.start[0] + 2) <= (reach - 2) * (t.cols - 1);
}

/// The distances of eight columns from the first of their four, in both bytes of the lower word, and in the upper
/// one.
V distances(const int32_t* start) {
    const V at = load(start), d = _mm256_sub_epi32(at, _mm256_shuffle_epi32(at, 0));
    constexpr Shuffle kSpread = {{0, 0, 0, 0, 4, 4, 4, 4, 8, 8, 8, 8, 12, 12, 12, 12}};
    return _mm256_shuffle_epi8(d, kSpread.full());
}

// One and two channels: sums of eight and of four columns.
V fir1_eight(const uint16_t* row, const FirTable& t, int i, V half, bool near) {
    if (t.taps == 2) {
        const V w = load(t.weight + 2 * i);
        if (!near) {
            const V pairs = _mm256_i32gather_epi32(reinterpret_cast<const int*>(row), load(t.start + i), 2);
            return _mm256_add_epi32(half, _mm256_madd_epi16(pairs, w));
        }
        const V d = distances(t.start + i);
        const V index = _mm256_add_epi8(_mm256_add_epi8(d, d), _mm256_set1_epi32(0x03020100));
        const V words = join(load16(row + t.start[i]), load16(row + t.start[i + 4]));
        return _mm256_add_epi32(half, _mm256_madd_epi16(_mm256_shuffle_epi8(words, index), w));
    }
    const int32_t* start = t.start + i;
    const int16_t* w = t.weight + i * t.taps;
    if (t.taps == 4) {
        const auto four = [&](int c) {
            const auto two = [](const void* a, const void* b) { return _mm_unpacklo_epi64(load8(a), load8(b)); };
            const V p = join(two(row + start[c], row + start[c + 1]), two(row + start[c + 2], row + start[c + 3]));
            return _mm256_madd_epi16(p, load(w + 4 * c));
        };
        return _mm256_add_epi32(half, _mm256_permute4x64_epi64(_mm256_hadd_epi32(four(0), four(4)), 0xD8));
    }
    const auto pair = [&](int c) { // a column and the fourth after it, eight taps at a time
        V acc = _mm256_setzero_si256();
        for (int k = 0; k < t.taps; k += 8)
            acc = _mm256_add_epi32(
                acc, _mm256_madd_epi16(join(load16(row + start[c] + k), load16(row + start[c + 4] + k)),
                                       join(load16(w + c * t.taps + k), load16(w + (c + 4) * t.taps + k))));
        return acc;
    };
    const V s = _mm256_hadd_epi32(_mm256_hadd_epi32(pair(0), pair(1)), _mm256_hadd_epi32(pair(2), pair(3)));
    return _mm256_add_epi32(half, s);
}

V fir2_four(const uint16_t* row, const FirTable& t, int i, V half) {
    const int32_t* start = t.start + i;
    const int16_t* w = t.weight + i * t.taps;
    const V channels = pair_channels<2>().full();
    if (t.taps == 2) {
        const auto two = [&](int c) { return _mm_unpacklo_epi64(load8(row + start[c]), load8(row + start[c + 1])); };
        const H pairs = load16(w);
        const V twice = join(_mm_unpacklo_epi32(pairs, pairs), _mm_unpackhi_epi32(pairs, pairs));
        return _mm256_add_epi32(half, _mm256_madd_epi16(_mm256_shuffle_epi8(join(two(0), two(2)), channels), twice));
    }
    const auto pair = [&](int c) { // a column and the second after it, four taps at a time
        V acc = _mm256_setzero_si256();
        for (int k = 0; k < t.taps; k += 4) {
            const V p = join(load16(row + start[c] + 2 * k), load16(row + start[c + 2] + 2 * k));
            const V q = join(load8(w + c * t.taps + k), load8(w + (c + 2) * t.taps + k));
            acc = _mm256_add_epi32(
                acc, _mm256_madd_epi16(_mm256_shuffle_epi8(p, channels), _mm256_shuffle_epi32(q, 0x50)));
        }
        return acc;
    };
    const V a = pair(0), b = pair(1);
    return _mm256_add_epi32(half, _mm256_add_epi32(_mm256_unpacklo_epi64(a, b), _mm256_unpackhi_epi64(a, b)));
}

H narrow8(V sums) { // eight sums to eight bytes
    const V words = _mm256_permute4x64_epi64(_mm256_packus_epi32(sums, sums), 0xD8);
    return _mm_packus_epi16(low(words), low(words));
}

void fir1(const uint16_t* row, const FirTable& t, uint8_t* out) {
    const V half = _mm256_set1_epi32(1 << 19);
    const bool near = within(t, 8);
    int i = 0;
    for (; i + 8 <= t.cols; i += 8)
        store8(out + i, narrow8(_mm256_srai_epi32(fir1_eight(row, t, i, half, near), 20)));
    fir_to_8_loop<1>(row, t, out, i);
}

void fir2(const uint16_t* row, const FirTable& t, uint8_t* out) {
    const V half = _mm256_set1_epi32(1 << 19);
    int i = 0;
    for (; i + 4 <= t.cols; i += 4)
        store8(out + 2 * i, narrow8(_mm256_srai_epi32(fir2_four(row, t, i, half), 20)));
    fir_to_8_loop<2>(row, t, out, i);
}

// Columns whose loads of `bytes` stay inside the row.
int safe_columns(const FirTable& t, int bytes) {
    int cols = t.cols;
    while (cols > 0 && t.start[cols - 1] + bytes > t.row_elements)
        --cols;
    return cols;
}

template <int C>
void bilinear_wide(const uint8_t* a, const uint8_t* b, int weight, const FirTable& t, uint8_t* out) {
    const V down = set16(weight), half = _mm256_set1_epi32(1 << 19);
    const int safe = safe_columns(t, 8);
    int i = 0;
    const auto two = [&](int c) {
        const int s0 = t.start[c], s1 = t.start[c + 1];
        const V p = _mm256_slli_epi16(load_words(a + s0, a + s1), 6),
                q = _mm256_slli_epi16(load_words(b + s0, b + s1), 6);
        const V pairs = _mm256_shuffle_epi8(mix(p, q, down), pair_channels<C>().full());
        const V w = join(weight_pair(t.weight + 2 * c), weight_pair(t.weight + 2 * c + 2));
        return _mm256_srai_epi32(_mm256_add_epi32(_mm256_madd_epi16(pairs, w), half), 20);
    };
    for (; i + 4 <= safe; i += 4)
        store_columns<C>(out + i * C, two(i), two(i + 2));
    bilinear_at_loop<C>(a, b, weight, t, out, i);
}

void bilinear1(const uint8_t* a, const uint8_t* b, int weight, const FirTable& t, uint8_t* out) {
    const V down = set16(weight), half = _mm256_set1_epi32(1 << 19);
    constexpr Shuffle kWords = {{0, -1, 1, -1, 4, -1, 5, -1, 8, -1, 9, -1, 12, -1, 13, -1}};
    const auto eight = [&](int i, auto pairs) { // words of eight columns and their neighbours
        const V v = mix(_mm256_slli_epi16(pairs(a), 6), _mm256_slli_epi16(pairs(b), 6), down);
        const V sums = _mm256_add_epi32(_mm256_madd_epi16(v, load(t.weight + 2 * i)), half);
        store8(out + i, narrow8(_mm256_srai_epi32(sums, 20)));
    };
    int i = 0;
    if (within(t, 16))
        for (const int safe = safe_columns(t, 16); i + 8 <= safe; i += 8) {
            const V index = _mm256_add_epi8(distances(t.start + i), _mm256_set1_epi32(static_cast<int>(0x80018000)));
            eight(i, [&](const uint8_t* row) {
                return _mm256_shuffle_epi8(join(load16(row + t.start[i]), load16(row + t.start[i + 4])), index);
            });
        }
    for (const int safe = safe_columns(t, 4); i + 8 <= safe; i += 8)
        eight(i, [&](const uint8_t* row) {
            const V four = _mm256_i32gather_epi32(reinterpret_cast<const int*>(row), load(t.start + i), 1);
            return _mm256_shuffle_epi8(four, kWords.full());
        });
    bilinear_at_loop<1>(a, b, weight, t, out, i);
}

void bilinear2(const uint8_t* a, const uint8_t* b, int weight, const FirTable& t, uint8_t* out) {
    const V down = set16(weight), half = _mm256_set1_epi32(1 << 19);
    constexpr Shuffle kPairs = {{0, 2, 1, 3, 4, 6, 5, 7, 8, 10, 9, 11, 12, 14, 13, 15}};
    int i = 0;
    for (; i + 4 <= t.cols; i += 4) { // four bytes are just the two columns
        const auto gather = [&](const uint8_t* row) {
            int32_t pair[4];
            for (int c = 0; c < 4; ++c)
                std::memcpy(pair + c, row + t.start[i + c], 4);
            const H four = _mm_setr_epi32(pair[0], pair[1], pair[2], pair[3]);
            return _mm256_slli_epi16(_mm256_cvtepu8_epi16(_mm_shuffle_epi8(four, kPairs.half())), 6);
        };
        const H w = load16(t.weight + 2 * i);
        const V twice = join(_mm_unpacklo_epi32(w, w), _mm_unpackhi_epi32(w, w));
        const V sums = _mm256_add_epi32(_mm256_madd_epi16(mix(gather(a), gather(b), down), twice), half);
        store8(out + 2 * i, narrow8(_mm256_srai_epi32(sums, 20)));
    }
    bilinear_at_loop<2>(a, b, weight, t, out, i);
}

// 16 bytes of middle columns from 48, by the shuffle of each 16.
template <int N>
constexpr std::array<Shuffle, 3> make_thirds() {
    std::array<Shuffle, 3> t = {};
    for (int j = 0; j < 16; ++j) {
        const int from = (3 * (j / N) + 1) * N + j % N;
        for (int part = 0; part < 3; ++part)
            t[part].index[j] = static_cast<int8_t>(from / 16 == part ? from % 16 : -1);
    }
    return t;
}

template <int N>
void third(const uint8_t* row, uint8_t* out, int cols) {
    constexpr int kBlock = 16 / N;
    static constexpr std::array<Shuffle, 3> kThirds = make_thirds<N>();
    if (cols < kBlock)
        return third_loop<N>(row, out, cols);
    const H a = kThirds[0].half(), b = kThirds[1].half(), c = kThirds[2].half();
    for (int at = 0; at < cols; at += kBlock) {
        const int x = std::min(at, cols - kBlock);
        const uint8_t* p = row + 3 * x * N;
        const H ab = _mm_or_si128(_mm_shuffle_epi8(load16(p), a), _mm_shuffle_epi8(load16(p + 16), b));
        store16(out + x * N, _mm_or_si128(ab, _mm_shuffle_epi8(load16(p + 32), c)));
    }
}

template <int C>
void halve(const uint8_t* a, const uint8_t* b, uint8_t* out, int cols) {
    // Bytes of two neighbouring columns side by side, to be added by one multiplication with ones.
    constexpr Shuffle kBytes = {{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15}};
    constexpr Shuffle kPairs = {{0, 2, 1, 3, 4, 6, 5, 7, 8, 10, 9, 11, 12, 14, 13, 15}};
    constexpr Shuffle kQuads = {{0, 4, 1, 5, 2, 6, 3, 7, 8, 12, 9, 13, 10, 14, 11, 15}};
    constexpr Shuffle kShuffle = C == 1 ? kBytes : C == 2 ? kPairs : kQuads;
    const int n = cols * C;
    if (n < 32)
        return halve_loop<C>(a, b, out, cols);
    const auto sixteen = [&](int i) {
        const auto sums = [&](const uint8_t* p) {
            const V v = load(p + 2 * i);
            return _mm256_maddubs_epi16(C == 1 ? v : _mm256_shuffle_epi8(v, kShuffle.full()), _mm256_set1_epi8(1));
        };
        return _mm256_srli_epi16(_mm256_add_epi16(_mm256_add_epi16(sums(a), sums(b)), set16(2)), 2);
    };
    for (int i = 0;; i = i + 64 <= n ? i + 32 : n - 32) {
        store(out + i, _mm256_permute4x64_epi64(_mm256_packus_epi16(sixteen(i), sixteen(i + 16)), 0xD8));
        if (i + 32 >= n)
            return;
    }
}

void halve3(const uint8_t* a, const uint8_t* b, uint8_t* out, int cols) {
    // Four pixels of each row to two; loads run four bytes over and stores two.
    constexpr Shuffle kPairs = {{0, 3, 1, 4, 2, 5, 6, 9, 7, 10, 8, 11, -1, -1, -1, -1}};
    const H ones = _mm_set1_epi8(1);
    int i = 0;
    for (; i + 3 <= cols; i += 2) {
        const auto sums = [&](const uint8_t* p) {
            return _mm_maddubs_epi16(_mm_shuffle_epi8(load16(p + 6 * i), kPairs.half()), ones);
        };
        const H mean = _mm_srli_epi16(_mm_add_epi16(_mm_add_epi16(sums(a), sums(b)), _mm_set1_epi16(2)), 2);
        store8(out + 3 * i, _mm_packus_epi16(mean, mean));
    }
    halve_loop<3>(a + 6 * i, b + 6 * i, out + 3 * i, cols - i);
}

// -------------------------------------------------------------------------------------------------- affine

template <int C>
void affine_wide(const AffineSpan& s, uint8_t* out, int n) {
    // Loads of eight bytes must stay inside the plane: all but its last row lend the next row's bytes.
    const int32_t last_y = s.y + (n - 1) * s.dy;
    if ((std::max(s.y, last_y) >> 16) + 2 >= s.rows)
        return affine_span_loop<C>(s, out, n);
    const V step = _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7);
    const V dx = _mm256_mullo_epi32(step, _mm256_set1_epi32(s.dx)),
            dy = _mm256_mullo_epi32(step, _mm256_set1_epi32(s.dy));
    const V pitch = _mm256_set1_epi32(static_cast<int>(s.pitch)), mask = _mm256_set1_epi32(255),
            one = _mm256_set1_epi32(256);
    const V half = _mm256_set1_epi32(1 << 14);
    int i = 0;
    for (; i + 8 <= n; i += 8) {
        const V x = _mm256_add_epi32(_mm256_set1_epi32(s.x + i * s.dx), dx);
        const V y = _mm256_add_epi32(_mm256_set1_epi32(s.y + i * s.dy), dy);
        const V column = _mm256_mullo_epi32(_mm256_srai_epi32(x, 16), _mm256_set1_epi32(C));
        const V at = _mm256_add_epi32(_mm256_mullo_epi32(_mm256_srai_epi32(y, 16), pitch), column);
        const V fx = _mm256_and_si256(_mm256_srli_epi32(x, 8), mask),
                fy = _mm256_and_si256(_mm256_srli_epi32(y, 8), mask);
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
            return _mm256_srai_epi32(_mm256_add_epi32(_mm256_madd_epi16(pairs, wx), half), 15);
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
        return mirror_loop<N>(row, out, cols);
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
    transpose16_loop<1>(src + x, src_pitch, dst + x * dst_pitch, dst_pitch, cols - x);
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
    transpose16_loop<2>(src + 2 * x, src_pitch, dst + x * dst_pitch, dst_pitch, cols - x);
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
    transpose16_loop<4>(src + 4 * x, src_pitch, dst + x * dst_pitch, dst_pitch, cols - x);
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
    transpose16_loop<3>(src + 3 * x, src_pitch, dst + x * dst_pitch, dst_pitch, cols - x);
}

// --------------------------------------------------------------------------------------------------- table

template <int Chroma>
void use_yuv_to_rgb(Kernels& k) {
    k.yuv_to_rgb[Chroma][kRGB] = yuv_to_rgb<Chroma, kRGB>;
    k.yuv_to_rgb[Chroma][kBGR] = yuv_to_rgb<Chroma, kBGR>;
    k.yuv_to_rgb[Chroma][kRGBA] = yuv_to_rgb<Chroma, kRGBA>;
    k.yuv_to_rgb[Chroma][kBGRA] = yuv_to_rgb<Chroma, kBGRA>;
}

template <int Chroma, int Kind>
void use_rgb_to_yuv(Kernels& k) {
    k.rgb_to_yuv420[Chroma][Kind] = rgb_to_yuv420<Chroma, Kind>;
    k.rgb_to_yuv422[Chroma][Kind] = rgb_to_yuv422<Chroma, Kind>;
}

template <int Kind>
void use_rgb(Kernels& k) {
    use_rgb_to_yuv<kPlanar, Kind>(k);
    use_rgb_to_yuv<kPairsUV, Kind>(k);
    use_rgb_to_yuv<kPairsVU, Kind>(k);
    k.rgb_to_gray[Kind] = rgb_to_gray<Kind>;
}

Kernels make_table() {
    Kernels k = loop_kernels("avx2");
    use_yuv_to_rgb<kPlanar>(k);
    use_yuv_to_rgb<kPairsUV>(k);
    use_yuv_to_rgb<kPairsVU>(k);
    use_yuv_to_rgb<kPackedYUYV>(k);
    use_yuv_to_rgb<kPackedUYVY>(k);
    use_rgb<kRGB>(k);
    use_rgb<kBGR>(k);
    use_rgb<kRGBA>(k);
    use_rgb<kBGRA>(k);
    k.packed_to_nv12[0] = packed_to_nv12<0>;
    k.packed_to_nv12[1] = packed_to_nv12<1>;
    for_rgb_pairs([&](auto from, auto to) { k.rgb_to_rgb[from][to] = rgb_to_rgb<from, to>; });
    k.gray_to_rgb[0] = gray_to_rgb<3>;
    k.gray_to_rgb[1] = gray_to_rgb<4>;
    k.gray16_to_8 = gray16_to_8;
    k.widen = widen;
    k.narrow = narrow;
    k.blend8 = blend8;
    k.blend8_to_8 = blend8_to_8;
    k.blend16_to_8 = blend16_to_8;
    k.box_rows = box_rows;
    k.expand = expand;
    k.wide_rows = wide_rows;
    k.wide_fir = wide_fir;
    k.fir_to_8[0] = fir1;
    k.fir_to_8[1] = fir2;
    k.fir_to_8[2] = fir_wide<3>;
    k.fir_to_8[3] = fir_wide<4>;
    k.bilinear_at[0] = bilinear1;
    k.bilinear_at[1] = bilinear2;
    k.bilinear_at[2] = bilinear_wide<3>;
    k.bilinear_at[3] = bilinear_wide<4>;
    k.third[0] = third<1>;
    k.third[1] = third<2>;
    k.third[3] = third<4>;
    k.halve[0] = halve<1>;
    k.halve[1] = halve<2>;
    k.halve[2] = halve3;
    k.halve[3] = halve<4>;
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
    return k;
}

} // namespace

const Kernels& avx2_kernels() {
    static const Kernels table = make_table();
    return table;
}

} // namespace tavi

#endif
