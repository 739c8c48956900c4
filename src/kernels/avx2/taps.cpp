// SPDX-License-Identifier: MIT
// Filters across for AVX2. Every kernel gives the bytes of its plain loop, which does the rows shorter than a block.
#if defined(__AVX2__)

#include "kernels/avx2/vec.h"
#include "kernels/fixed.h"
#include "kernels/kinds.h"

namespace tavi::avx2 {
namespace {

// Two weights for every channel of a column.
H weight_pair(const int16_t* w) {
    int32_t pair;
    std::memcpy(&pair, w, sizeof pair);
    return _mm_set1_epi32(pair);
}

template <int C>
V fir_two(const uint16_t* row, const FirTable& t, int i, int k) {
    const V p = join(load16(row + t.start[i] + k * C), load16(row + t.start[i + 1] + k * C));
    const V w = join(weight_pair(t.weight + i * t.taps + k), weight_pair(t.weight + (i + 1) * t.taps + k));
    return _mm256_madd_epi16(_mm256_shuffle_epi8(p, pair_channels<C>().full()), w);
}

// Three and four channels: two columns to a vector, a pair of taps at a time.
template <int C, class Out>
void fir_wide(const uint16_t* row, const FirTable& t, Out* out) {
    constexpr int kShift = kSumShift<Out>;
    const V half = _mm256_set1_epi32(half_of(kShift));
    if (!by_blocks<4>(t.cols, [&](int i) {
            V a = half, b = half;
            for (int k = 0; k < t.taps; k += 2) {
                a = _mm256_add_epi32(a, fir_two<C>(row, t, i, k));
                b = _mm256_add_epi32(b, fir_two<C>(row, t, i + 2, k));
            }
            store_columns<C>(out + i * C, _mm256_srai_epi32(a, kShift), _mm256_srai_epi32(b, kShift));
        }))
        fir_of<C>(plain_kernels(), out)(row, t, out);
}

// Gathers are slow on many processors. Where four columns, or two, and their neighbours lie within 16 bytes, one load
// and one shuffle per four, or two, take their place.

/// Whether `reach` elements hold any `columns` of C channels and the neighbour of the last.
template <int C = 1>
bool within(const FirTable& t, int columns, int reach) {
    // The steps of a map are at most that many elements, rounded up; floors and the edge take up to two columns off
    // the whole.
    return t.cols > 1 && (columns - 1) * (t.start[t.cols - 1] - t.start[0] + 2 * C) <= (reach - 2 * C) * (t.cols - 1);
}

/// The distances of eight columns from the first of their four, or two, in both bytes of the lower word, and in the
/// upper one.
template <int Columns>
V distances(const int32_t* start) {
    const V at = load(start), d = _mm256_sub_epi32(at, _mm256_shuffle_epi32(at, Columns == 4 ? 0 : 0xA0));
    constexpr Shuffle kSpread = {{0, 0, 0, 0, 4, 4, 4, 4, 8, 8, 8, 8, 12, 12, 12, 12}};
    return _mm256_shuffle_epi8(d, kSpread.full());
}

// One and two channels: sums of eight and of four columns. The numbers of taps of small reductions are known to the
// compiler.

template <class Use>
void by_taps(int taps, Use use) {
    if (taps == 2)
        use(std::integral_constant<int, 2>());
    else if (taps == 4)
        use(std::integral_constant<int, 4>());
    else if (taps == 8)
        use(std::integral_constant<int, 8>());
    else
        use(std::integral_constant<int, 0>());
}

template <int Taps>
inline V fir1_eight(const uint16_t* row, const FirTable& t, int i, V half, bool near) {
    const int taps = Taps ? Taps : t.taps;
    if (taps == 2) {
        const V w = load(t.weight + 2 * i);
        if (!near) {
            const V pairs = _mm256_i32gather_epi32(reinterpret_cast<const int*>(row), load(t.start + i), 2);
            return _mm256_add_epi32(half, _mm256_madd_epi16(pairs, w));
        }
        const V d = distances<4>(t.start + i);
        const V index = _mm256_add_epi8(_mm256_add_epi8(d, d), _mm256_set1_epi32(0x03020100));
        const V words = join(load16(row + t.start[i]), load16(row + t.start[i + 4]));
        return _mm256_add_epi32(half, _mm256_madd_epi16(_mm256_shuffle_epi8(words, index), w));
    }
    const int32_t* start = t.start + i;
    const int16_t* w = t.weight + i * taps;
    if (taps == 4) {
        const auto four = [&](int c) {
            const auto two = [](const void* a, const void* b) { return _mm_unpacklo_epi64(load8(a), load8(b)); };
            const V p = join(two(row + start[c], row + start[c + 1]), two(row + start[c + 2], row + start[c + 3]));
            return _mm256_madd_epi16(p, load(w + 4 * c));
        };
        return _mm256_add_epi32(half, _mm256_permute4x64_epi64(_mm256_hadd_epi32(four(0), four(4)), 0xD8));
    }
    const auto pair = [&](int c) { // a column and the fourth after it, eight taps at a time
        V acc = _mm256_setzero_si256();
        for (int k = 0; k < taps; k += 8)
            acc = _mm256_add_epi32(acc,
                                   _mm256_madd_epi16(join(load16(row + start[c] + k), load16(row + start[c + 4] + k)),
                                                     join(load16(w + c * taps + k), load16(w + (c + 4) * taps + k))));
        return acc;
    };
    const V s = _mm256_hadd_epi32(_mm256_hadd_epi32(pair(0), pair(1)), _mm256_hadd_epi32(pair(2), pair(3)));
    return _mm256_add_epi32(half, s);
}

template <int Taps>
inline V fir2_four(const uint16_t* row, const FirTable& t, int i, V half) {
    const int taps = Taps ? Taps : t.taps;
    const int32_t* start = t.start + i;
    const int16_t* w = t.weight + i * taps;
    const V channels = pair_channels<2>().full();
    if (taps == 2) {
        const auto two = [&](int c) { return _mm_unpacklo_epi64(load8(row + start[c]), load8(row + start[c + 1])); };
        const H pairs = load16(w);
        const V twice = join(_mm_unpacklo_epi32(pairs, pairs), _mm_unpackhi_epi32(pairs, pairs));
        return _mm256_add_epi32(half, _mm256_madd_epi16(_mm256_shuffle_epi8(join(two(0), two(2)), channels), twice));
    }
    // Four taps of a column and of the second after it; each pair of weights stands twice, for two channels.
    const auto weigh = [&](int c, int k, V weights) {
        const V p = join(load16(row + start[c] + 2 * k), load16(row + start[c + 2] + 2 * k));
        return _mm256_madd_epi16(_mm256_shuffle_epi8(p, channels), weights);
    };
    V a, b;
    if (taps == 4) {
        const V all = load(w);
        a = weigh(0, 0, _mm256_unpacklo_epi32(all, all));
        b = weigh(1, 0, _mm256_unpackhi_epi32(all, all));
    } else {
        const auto pair = [&](int c) { // eight taps at a time; four may be left
            V acc = _mm256_setzero_si256();
            int k = 0;
            for (; k + 8 <= taps; k += 8) {
                const V q = join(load16(w + c * taps + k), load16(w + (c + 2) * taps + k));
                acc = _mm256_add_epi32(acc, weigh(c, k, _mm256_unpacklo_epi32(q, q)));
                acc = _mm256_add_epi32(acc, weigh(c, k + 4, _mm256_unpackhi_epi32(q, q)));
            }
            if (k < taps) {
                const V q = join(load8(w + c * taps + k), load8(w + (c + 2) * taps + k));
                acc = _mm256_add_epi32(acc, weigh(c, k, _mm256_unpacklo_epi32(q, q)));
            }
            return acc;
        };
        a = pair(0), b = pair(1);
    }
    return _mm256_add_epi32(half, _mm256_add_epi32(_mm256_unpacklo_epi64(a, b), _mm256_unpackhi_epi64(a, b)));
}

/// Eight sums, half included, as bytes or as words of a row.
inline void put8(uint8_t* out, V sums) {
    const V words = _mm256_srai_epi32(sums, kSumBits), packed = in_order(_mm256_packus_epi32(words, words));
    store8(out, _mm_packus_epi16(low(packed), low(packed)));
}
inline void put8(uint16_t* out, V sums) {
    const V words = _mm256_srai_epi32(sums, kTapBits);
    store16(out, low(in_order(limited_words(words, words))));
}

template <class Out>
void fir1(const uint16_t* row, const FirTable& t, Out* out) {
    const V half = _mm256_set1_epi32(half_of(kSumShift<Out>));
    const bool near = within(t, 4, 8);
    by_taps(t.taps, [&](auto taps) {
        if (!by_blocks<8>(t.cols, [&](int i) { put8(out + i, fir1_eight<taps>(row, t, i, half, near)); }))
            fir_of<1>(plain_kernels(), out)(row, t, out);
    });
}

template <class Out>
void fir2(const uint16_t* row, const FirTable& t, Out* out) {
    const V half = _mm256_set1_epi32(half_of(kSumShift<Out>));
    by_taps(t.taps, [&](auto taps) {
        if (!by_blocks<4>(t.cols, [&](int i) { put8(out + 2 * i, fir2_four<taps>(row, t, i, half)); }))
            fir_of<2>(plain_kernels(), out)(row, t, out);
    });
}

// Columns whose loads of `bytes` stay inside the row.
int safe_columns(const FirTable& t, int bytes) {
    int cols = t.cols;
    while (cols > 0 && t.start[cols - 1] + bytes > t.row_elements)
        --cols;
    return cols;
}

/// The columns from `done` on, by the plain loop.
template <int C, class Out>
void bilinear_rest(const uint8_t* a, const uint8_t* b, int weight, const FirTable& t, Out* out, int done) {
    const FirTable rest = {t.start + done, t.weight + 2 * done, t.taps, t.cols - done, t.row_elements};
    bilinear_of<C>(plain_kernels(), out)(a, b, weight, rest, out + done * C);
}

template <int C>
void bilinear_wide(const uint8_t* a, const uint8_t* b, int weight, const FirTable& t, uint8_t* out) {
    const V down = set16(weight), half = _mm256_set1_epi32(half_of(kSumBits));
    const auto two = [&](int c) {
        const int s0 = t.start[c], s1 = t.start[c + 1];
        const V p = _mm256_slli_epi16(load_words(a + s0, a + s1), kRowBits),
                q = _mm256_slli_epi16(load_words(b + s0, b + s1), kRowBits);
        const V pairs = _mm256_shuffle_epi8(mix(p, q, down), pair_channels<C>().full());
        const V w = join(weight_pair(t.weight + 2 * c), weight_pair(t.weight + 2 * c + 2));
        return _mm256_srai_epi32(_mm256_add_epi32(_mm256_madd_epi16(pairs, w), half), kSumBits);
    };
    const int safe = safe_columns(t, 8);
    const bool done = by_blocks<4>(safe, [&](int i) { store_columns<C>(out + i * C, two(i), two(i + 2)); });
    bilinear_rest<C>(a, b, weight, t, out, done ? safe : 0);
}

template <class Out>
void bilinear1(const uint8_t* a, const uint8_t* b, int weight, const FirTable& t, Out* out) {
    const V down = set16(weight), half = _mm256_set1_epi32(half_of(kSumShift<Out>));
    constexpr Shuffle kWords = {{0, -1, 1, -1, 4, -1, 5, -1, 8, -1, 9, -1, 12, -1, 13, -1}};
    const auto eight = [&](int i, auto pairs) { // words of eight columns and their neighbours
        V v = _mm256_slli_epi16(pairs(a), kRowBits);
        if (weight)
            v = mix(v, _mm256_slli_epi16(pairs(b), kRowBits), down);
        put8(out + i, _mm256_add_epi32(_mm256_madd_epi16(v, load(t.weight + 2 * i)), half));
    };
    const auto windows = [&](const uint8_t* row, int i) {
        return join(load16(row + t.start[i]), load16(row + t.start[i + 4]));
    };
    const int safe = safe_columns(t, 16);
    int done = 0;
    if (within(t, 4, 16)) {
        if (by_blocks<8>(safe, [&](int i) {
                const V index =
                    _mm256_add_epi8(distances<4>(t.start + i), _mm256_set1_epi32(static_cast<int>(0x80018000)));
                eight(i, [&](const uint8_t* row) { return _mm256_shuffle_epi8(windows(row, i), index); });
            }))
            done = safe;
    } else if (within(t, 2, 16)) {
        constexpr Shuffle kFirst = {
            {0, -128, 1, -128, 0, -128, 1, -128, -128, -128, -128, -128, -128, -128, -128, -128}};
        constexpr Shuffle kLast = {
            {-128, -128, -128, -128, -128, -128, -128, -128, 0, -128, 1, -128, 0, -128, 1, -128}};
        if (by_blocks<8>(safe, [&](int i) {
                const V d = distances<2>(t.start + i);
                const V first = _mm256_add_epi8(d, kFirst.full()), last = _mm256_add_epi8(d, kLast.full());
                eight(i, [&](const uint8_t* row) {
                    return _mm256_or_si256(_mm256_shuffle_epi8(windows(row, i), first),
                                           _mm256_shuffle_epi8(windows(row, i + 2), last));
                });
            }))
            done = safe;
    }
    for (const int most = safe_columns(t, 4); done + 8 <= most; done += 8)
        eight(done, [&](const uint8_t* row) {
            const V four = _mm256_i32gather_epi32(reinterpret_cast<const int*>(row), load(t.start + done), 1);
            return _mm256_shuffle_epi8(four, kWords.full());
        });
    bilinear_rest<1>(a, b, weight, t, out, done);
}

template <class Out>
void bilinear2(const uint8_t* a, const uint8_t* b, int weight, const FirTable& t, Out* out) {
    const V down = set16(weight), half = _mm256_set1_epi32(half_of(kSumShift<Out>));
    const auto four = [&](int i, auto pairs) { // words of four columns and their neighbours
        V v = _mm256_slli_epi16(pairs(a), kRowBits);
        if (weight)
            v = mix(v, _mm256_slli_epi16(pairs(b), kRowBits), down);
        const H w = load16(t.weight + 2 * i);
        const V twice = join(_mm_unpacklo_epi32(w, w), _mm_unpackhi_epi32(w, w));
        put8(out + 2 * i, _mm256_add_epi32(_mm256_madd_epi16(v, twice), half));
    };
    int done = 0;
    if (within<2>(t, 2, 16)) {
        const int safe = safe_columns(t, 16);
        constexpr Shuffle kPairs = {{0, -128, 2, -128, 1, -128, 3, -128, 0, -128, 2, -128, 1, -128, 3, -128}};
        const V spread = join(_mm_setr_epi32(0, 0, 0x04040404, 0x04040404),
                              _mm_setr_epi32(0x08080808, 0x08080808, 0x0C0C0C0C, 0x0C0C0C0C));
        if (by_blocks<4>(safe, [&](int i) {
                const H at = load16(t.start + i), d = _mm_sub_epi32(at, _mm_shuffle_epi32(at, 0xA0));
                const V index = _mm256_add_epi8(_mm256_shuffle_epi8(both(d), spread), kPairs.full());
                four(i, [&](const uint8_t* row) {
                    const V windows = join(load16(row + t.start[i]), load16(row + t.start[i + 2]));
                    return _mm256_shuffle_epi8(windows, index);
                });
            }))
            done = safe;
    }
    constexpr Shuffle kPairs = {{0, 2, 1, 3, 4, 6, 5, 7, 8, 10, 9, 11, 12, 14, 13, 15}};
    for (; done + 4 <= t.cols; done += 4) // four bytes are just the two columns
        four(done, [&](const uint8_t* row) {
            int32_t pair[4];
            for (int c = 0; c < 4; ++c)
                std::memcpy(pair + c, row + t.start[done + c], 4);
            const H quads = _mm_setr_epi32(pair[0], pair[1], pair[2], pair[3]);
            return _mm256_cvtepu8_epi16(_mm_shuffle_epi8(quads, kPairs.half()));
        });
    bilinear_rest<2>(a, b, weight, t, out, done);
}

} // namespace

void use_taps(Kernels& k) {
    k.fir_to_8[0] = fir1<uint8_t>;
    k.fir_to_8[1] = fir2<uint8_t>;
    k.fir_to_8[2] = fir_wide<3, uint8_t>;
    k.fir_to_8[3] = fir_wide<4, uint8_t>;
    k.bilinear_at[0] = bilinear1<uint8_t>;
    k.bilinear_at[1] = bilinear2<uint8_t>;
    k.bilinear_at[2] = bilinear_wide<3>;
    k.bilinear_at[3] = bilinear_wide<4>;
    k.fir_to_16[0] = fir1<uint16_t>;
    k.fir_to_16[1] = fir2<uint16_t>;
    k.fir_to_16[2] = fir_wide<3, uint16_t>;
    k.fir_to_16[3] = fir_wide<4, uint16_t>;
    k.bilinear_at_16[0] = bilinear1<uint16_t>;
    k.bilinear_at_16[1] = bilinear2<uint16_t>;
}

} // namespace tavi::avx2

#endif
