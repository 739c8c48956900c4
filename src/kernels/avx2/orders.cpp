// SPDX-License-Identifier: MIT
// Grey, and other orders of RGB, for AVX2. Every kernel gives the bytes of its plain loop.
#if defined(__AVX2__)

#include "kernels/avx2/pixels.h"
#include "kernels/kinds.h"

namespace tavi::avx2 {
namespace {

/// Weights of the first two channels, and of the third.
struct GrayWeights {
    GrayWeights(bool swapped, int red, int green, int blue)
        : two(set16((swapped ? blue : red) | green << 8)), third(set16(swapped ? red : blue)) {}

    V two, third;
};

/// The loop's weights as sums of bytes: 299 = 8 * 32 + 43, 587 = 8 * 72 + 11, 114 = 8 * 8 + 50. The eighths of both
/// parts fit in words.
template <int N>
__attribute__((noinline)) bool to_gray(bool swapped, const uint8_t* rgb, uint8_t* gray, int width) {
    constexpr Shuffle kPairs = {{0, 1, N, N + 1, 2 * N, 2 * N + 1, 3 * N, 3 * N + 1, 2, -1, N + 2, -1, 2 * N + 2, -1,
                                 3 * N + 2,
                                 -1}}; // the first two channels of four pixels, then the third with nothing
    const GrayWeights fine(swapped, 43, 11, 50), coarse(swapped, 32, 72, 8);
    const auto sixteen = [&](const uint8_t* p) {
        const V a = _mm256_shuffle_epi8(load_quads<N>(p, 0), quads_order<N>(kPairs, 0));
        const V b = _mm256_shuffle_epi8(load_quads<N>(p, 1), quads_order<N>(kPairs, 1));
        const V two = _mm256_unpacklo_epi64(a, b), third = _mm256_unpackhi_epi64(a, b);
        const auto sums = [&](const GrayWeights& w) {
            return _mm256_add_epi16(_mm256_maddubs_epi16(two, w.two), _mm256_maddubs_epi16(third, w.third));
        };
        const V rest = _mm256_srli_epi16(_mm256_add_epi16(sums(fine), set16(500)), 3);
        return _mm256_srli_epi16(_mm256_mulhi_epu16(_mm256_add_epi16(sums(coarse), rest), set16(33555)), 6);
    };
    return by_blocks_or_halves(width, [&](auto at) {
        store_block(gray, at, fours_in_order(_mm256_packus_epi16(sixteen(rgb + at.i * N), sixteen(rgb + at.j * N))));
    });
}

template <int Kind>
void rgb_to_gray(const uint8_t* rgb, uint8_t* gray, int width) {
    if (!to_gray<rgb_bytes(Kind)>(is_swapped(Kind), rgb, gray, width))
        plain_kernels().rgb_to_gray[Kind](rgb, gray, width);
}

/// n * 274877907 >> 38 of each of eight, which is n / 1000.
inline V thousandths(V n) {
    const V factor = _mm256_set1_epi32(274877907);
    const V even = _mm256_srli_epi64(_mm256_mul_epu32(n, factor), 38);
    const V odd = _mm256_srli_epi64(_mm256_mul_epu32(_mm256_srli_epi64(n, 32), factor), 6);
    return _mm256_blend_epi16(even, odd, 0xCC); // below 65536: bits 32 and up of odd, and what is under them goes
}

template <int N>
__attribute__((noinline)) bool to_gray16(bool swapped, const uint8_t* rgb, uint8_t* gray16, int width) {
    const int16_t weights[3] = {swapped ? int16_t{114} : int16_t{299}, 587, swapped ? int16_t{299} : int16_t{114}};
    const Weights w(weights);
    return by_blocks<16>(width, [&](int x) {
        const Pixels16 p = load_pixels<N>(rgb + x * N);
        V out[2];
        for (int i = 0; i < 2; ++i) {
            const V sum = weigh(p.outer[i], p.green[i], w);
            out[i] = thousandths(
                _mm256_add_epi32(_mm256_add_epi32(_mm256_slli_epi32(sum, 8), sum), _mm256_set1_epi32(500)));
        }
        store(gray16 + 2 * x, in_order(_mm256_packus_epi32(out[0], out[1])));
    });
}

template <int Kind>
void rgb_to_gray16(const uint8_t* rgb, uint8_t* gray16, int width) {
    if (!to_gray16<rgb_bytes(Kind)>(is_swapped(Kind), rgb, gray16, width))
        plain_kernels().rgb_to_gray16[Kind](rgb, gray16, width);
}

template <int N>
void gray_to_rgb(const uint8_t* gray, uint8_t* rgb, int width) {
    constexpr Shuffle kPart[3] = {{{0, 0, 0, 1, 1, 1, 2, 2, 2, 3, 3, 3, 4, 4, 4, 5}},
                                  {{5, 5, 6, 6, 6, 7, 7, 7, 8, 8, 8, 9, 9, 9, 10, 10}},
                                  {{10, 11, 11, 11, 12, 12, 12, 13, 13, 13, 14, 14, 14, 15, 15, 15}}};
    if (!by_blocks_or_halves(width, [&](auto at) {
            const V g = load_block(gray, at);
            if (N == 4)
                return store_pixels<4>(rgb, at, g, g, g);
            const auto part = [=](int i) { return _mm256_shuffle_epi8(g, kPart[i].full()); };
            store_parts(rgb, at, part(0), part(1), part(2));
        }))
        plain_kernels().gray_to_rgb[N - 3](gray, rgb, width);
}

/// Five pixels of three bytes with the first and the third exchanged; byte 15 of each store is written over.
int swap_fives(const uint8_t* from, uint8_t* to, int width) {
    constexpr Shuffle kSwap = {{2, 1, 0, 5, 4, 3, 8, 7, 6, 11, 10, 9, 14, 13, 12, 15}};
    const auto five = [&](int i) { return _mm_shuffle_epi8(load16(from + 3 * i), kSwap.half()); };
    int x = 0;
    for (; x + 21 <= width; x += 20) {
        const H a = five(x), b = five(x + 5), c = five(x + 10), d = five(x + 15);
        uint8_t* out = to + 3 * x;
        store16(out, a), store16(out + 15, b), store16(out + 30, c), store16(out + 45, d);
    }
    for (; x + 6 <= width; x += 5)
        store16(to + 3 * x, five(x));
    return x;
}

/// Four pixels of N bytes as four of M; -1 where alpha is new or there is no byte.
template <int N, int M>
constexpr Shuffle reorder(bool swapped) {
    Shuffle s = {};
    for (int j = 0; j < 16; ++j) {
        const int c = j % M;
        s.index[j] = static_cast<int8_t>(j / M >= 4 || c >= N ? -1 : j / M * N + (swapped && c < 3 ? 2 - c : c));
    }
    return s;
}

/// Four pixels a lane; loads or stores of three channels run four bytes over.
template <int N, int M>
__attribute__((noinline)) int reorder_fours(bool swapped, const uint8_t* from, uint8_t* to, int width) {
    static constexpr Shuffle kOrder[2] = {reorder<N, M>(false), reorder<N, M>(true)};
    const V order = kOrder[swapped].full();
    const V alpha = N == 3 ? _mm256_set1_epi32(static_cast<int>(0xFF000000)) : _mm256_setzero_si256();
    const auto eight = [&](int i) {
        const V v = N == 3 ? join(load16(from + 3 * i), load16(from + 3 * i + 12)) : load(from + 4 * i);
        return _mm256_or_si256(_mm256_shuffle_epi8(v, order), alpha);
    };
    const auto put = [&](int i, V v) {
        if (M == 4)
            return store(to + 4 * i, v);
        store16(to + 3 * i, low(v));
        store16(to + 3 * i + 12, high(v));
    };
    int x = 0;
    for (; x + 18 <= width; x += 16) {
        const V a = eight(x), b = eight(x + 8);
        put(x, a);
        put(x + 8, b);
    }
    for (; x + 10 <= width; x += 8)
        put(x, eight(x));
    return x;
}

// Blocks that overlap would read and write most bytes again here: short ones, and the plain loop for the last pixels.
template <int From, int To>
void rgb_to_rgb(const uint8_t* from, uint8_t* to, int width) {
    constexpr int n = rgb_bytes(From), m = rgb_bytes(To);
    int x;
    if constexpr (n == 3 && m == 3)
        x = swap_fives(from, to, width);
    else
        x = reorder_fours<n, m>(is_swapped(From) != is_swapped(To), from, to, width);
    plain_kernels().rgb_to_rgb[From][To](from + x * n, to + x * m, width - x);
}

void gray16_to_8(const uint8_t* gray16, uint8_t* gray8, int width) {
    // (v + 128) / 257 is v / 257 rounded, and 65281 / 2^24 divides by 257; the saturation changes no result.
    const auto divide = [](V v) {
        return _mm256_srli_epi16(_mm256_mulhi_epu16(_mm256_adds_epu16(v, set16(128)), set16(65281)), 8);
    };
    if (!by_blocks_or_halves(width, [&](auto at) {
            const V words = _mm256_packus_epi16(divide(load(gray16 + 2 * at.i)), divide(load(gray16 + 2 * at.j)));
            store_block(gray8, at, in_order(words));
        }))
        plain_kernels().gray16_to_8(gray16, gray8, width);
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

} // namespace tavi::avx2

#endif
