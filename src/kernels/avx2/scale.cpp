// SPDX-License-Identifier: MIT
// Scaling for AVX2. Every kernel gives the bytes of its plain loop, which does the rows shorter than a block.
#if defined(__AVX2__)

#include <array>

#include "kernels/avx2/vec.h"
#include "kernels/kinds.h"
#include "kernels/plain/scale.h"

namespace tavi::avx2 {
namespace {

inline V rounded(V row) { return _mm256_srai_epi16(_mm256_add_epi16(row, set16(half_of(kRowBits))), kRowBits); }
inline V as_row(V words) { return _mm256_slli_epi16(words, kRowBits); }
inline V load_row(const uint8_t* p) { return as_row(_mm256_cvtepu8_epi16(load16(p))); }
inline V rounded_bytes(V a, V b) { return in_order(_mm256_packus_epi16(rounded(a), rounded(b))); }

void widen(const uint8_t* row, uint16_t* out, int n) {
    if (!by_blocks<16>(n, [=](int i) { store(out + i, load_row(row + i)); }))
        plain_kernels().widen(row, out, n);
}

void narrow(const uint16_t* row, uint8_t* out, int n) {
    if (!by_blocks_or_halves(
            n, [=](auto at) { store_block(out, at, rounded_bytes(load(row + at.i), load(row + at.j))); }))
        plain_kernels().narrow(row, out, n);
}

void blend8(const uint8_t* a, const uint8_t* b, int weight, uint16_t* out, int n) {
    const V w = set16(weight);
    if (!by_blocks<16>(n, [=](int i) { store(out + i, mix(load_row(a + i), load_row(b + i), w)); }))
        plain_kernels().blend8(a, b, weight, out, n);
}

void blend8_to_8(const uint8_t* a, const uint8_t* b, int weight, uint8_t* out, int n) {
    const V w = set16(weight);
    if (!by_blocks_or_halves(n, [=](auto at) {
            const V p = load_block(a, at), q = load_block(b, at);
            const V lo = mix(as_row(widen_lo(p)), as_row(widen_lo(q)), w);
            const V hi = mix(as_row(widen_hi(p)), as_row(widen_hi(q)), w);
            store_block(out, at, _mm256_packus_epi16(rounded(lo), rounded(hi)));
        }))
        plain_kernels().blend8_to_8(a, b, weight, out, n);
}

void blend16_to_8(const uint16_t* a, const uint16_t* b, int weight, uint8_t* out, int n) {
    const V w = set16(weight);
    if (!by_blocks_or_halves(n, [=](auto at) {
            const V lo = mix(load(a + at.i), load(b + at.i), w), hi = mix(load(a + at.j), load(b + at.j), w);
            store_block(out, at, rounded_bytes(lo, hi));
        }))
        plain_kernels().blend16_to_8(a, b, weight, out, n);
}

void blend16(const uint16_t* a, const uint16_t* b, int weight, uint16_t* out, int n) {
    const V w = set16(weight);
    if (!by_blocks<16>(n, [=](int i) { store(out + i, mix(load(a + i), load(b + i), w)); }))
        plain_kernels().blend16(a, b, weight, out, n);
}

void box_rows(const BoxRows& rows, uint16_t* out, int n) {
    const V top_weight = set16(rows.top_weight), bottom_weight = set16(rows.bottom_weight);
    const V inner_weight = set16(rows.inner_weight);
    const H shift = _mm_cvtsi32_si128(rows.inner_shift);
    const auto block = [&](auto at) {
        V lo = _mm256_setzero_si256(), hi = lo;
        if (rows.count > 0) {
            const uint8_t* p = rows.inner;
            for (int k = rows.count; k > 0; --k, p += rows.pitch) {
                const V row = load_block(p, at);
                lo = _mm256_add_epi16(lo, widen_lo(row));
                hi = _mm256_add_epi16(hi, widen_hi(row));
            }
            lo = _mm256_mulhrs_epi16(_mm256_sll_epi16(lo, shift), inner_weight);
            hi = _mm256_mulhrs_epi16(_mm256_sll_epi16(hi, shift), inner_weight);
        }
        const auto cut_row = [&](const uint8_t* p, V weight) {
            const V row = load_block(p, at);
            lo = _mm256_add_epi16(lo, _mm256_mulhrs_epi16(as_row(widen_lo(row)), weight));
            hi = _mm256_add_epi16(hi, _mm256_mulhrs_epi16(as_row(widen_hi(row)), weight));
        };
        if (rows.top)
            cut_row(rows.top, top_weight);
        if (rows.bottom)
            cut_row(rows.bottom, bottom_weight);
        store(out + at.i, _mm256_permute2x128_si256(lo, hi, 0x20));
        store(out + at.j, _mm256_permute2x128_si256(lo, hi, 0x31));
    };
    if (rows.count > kBoxRowsIn16Bits || !by_blocks_or_halves(n, block))
        plain_kernels().box_rows(rows, out, n);
}

template <class Out>
void fir_rows(const FirRows& rows, Out* out, int n) {
    constexpr int kShift = kSumShift<Out>;
    const V half = _mm256_set1_epi32(half_of(kShift));
    const auto block = [&](auto at) {
        V a = half, b = half, c = half, d = half;
        for (int k = 0; k < rows.count; k += 2) {
            int32_t pair;
            std::memcpy(&pair, rows.weight + k, sizeof pair);
            const V w = _mm256_set1_epi32(pair);
            const uint16_t *p = rows.row[k], *q = k + 1 < rows.count ? rows.row[k + 1] : p; // which weighs nothing
            const V x = load(p + at.i), y = load(q + at.i), z = load(p + at.j), t = load(q + at.j);
            a = _mm256_add_epi32(a, _mm256_madd_epi16(_mm256_unpacklo_epi16(x, y), w));
            b = _mm256_add_epi32(b, _mm256_madd_epi16(_mm256_unpackhi_epi16(x, y), w));
            c = _mm256_add_epi32(c, _mm256_madd_epi16(_mm256_unpacklo_epi16(z, t), w));
            d = _mm256_add_epi32(d, _mm256_madd_epi16(_mm256_unpackhi_epi16(z, t), w));
        }
        a = _mm256_srai_epi32(a, kShift), b = _mm256_srai_epi32(b, kShift);
        c = _mm256_srai_epi32(c, kShift), d = _mm256_srai_epi32(d, kShift);
        if constexpr (sizeof(Out) == 1) {
            const V bytes = _mm256_packus_epi16(_mm256_packs_epi32(a, b), _mm256_packs_epi32(c, d));
            store_block(out, at, in_order(bytes));
        } else {
            store(out + at.i, limited_words(a, b));
            store(out + at.j, limited_words(c, d));
        }
    };
    if (!by_blocks_or_halves(n, block))
        fir_rows_of(plain_kernels(), out)(rows, out, n);
}

void expand(const uint8_t* row, const ExpandTable& t, uint16_t* out) {
    if (!t.by_16)
        return plain_kernels().expand(row, t, out);
    const V only_low = set16(-0x8000), next = set16(t.next); // a set sign bit makes a zero
    for (int i = 0; i < t.eights; i += 2, out += 16) {
        const V window = join(load16(row + t.start[i]), load16(row + t.start[i + 1]));
        const V index = _mm256_or_si256(_mm256_cvtepu8_epi16(load16(t.index + 8 * i)), only_low);
        const V left = _mm256_shuffle_epi8(window, index);
        if (!t.weight) {
            store(out, as_row(left));
            continue;
        }
        const V right = _mm256_shuffle_epi8(window, _mm256_add_epi16(index, next));
        const V d = _mm256_slli_epi16(_mm256_sub_epi16(right, left), kRowBits + kBlendBits - kTapBits);
        store(out, _mm256_add_epi16(as_row(left), _mm256_mulhrs_epi16(d, load(t.weight + 8 * i))));
    }
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
    static constexpr std::array<Shuffle, 3> kThirds = make_thirds<N>();
    const H a = kThirds[0].half(), b = kThirds[1].half(), c = kThirds[2].half();
    if (!by_blocks<16 / N>(cols, [=](int x) {
            const uint8_t* p = row + 3 * x * N;
            const H ab = _mm_or_si128(_mm_shuffle_epi8(load16(p), a), _mm_shuffle_epi8(load16(p + 16), b));
            store16(out + x * N, _mm_or_si128(ab, _mm_shuffle_epi8(load16(p + 32), c)));
        }))
        plain_kernels().third[N - 1](row, out, cols);
}

/// Sixteen sums of four, from element i of the result on.
template <int C>
inline V sums_of_four(const uint8_t* a, const uint8_t* b, int i) {
    // Bytes of two neighbouring columns side by side, to be added by one multiplication with ones.
    constexpr Shuffle kBytes = {{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15}};
    constexpr Shuffle kPairs = {{0, 2, 1, 3, 4, 6, 5, 7, 8, 10, 9, 11, 12, 14, 13, 15}};
    constexpr Shuffle kQuads = {{0, 4, 1, 5, 2, 6, 3, 7, 8, 12, 9, 13, 10, 14, 11, 15}};
    constexpr Shuffle kShuffle = C == 1 ? kBytes : C == 2 ? kPairs : kQuads;
    const auto sums = [&](const uint8_t* p) {
        const V v = load(p + 2 * i);
        return _mm256_maddubs_epi16(C == 1 ? v : _mm256_shuffle_epi8(v, kShuffle.full()), _mm256_set1_epi8(1));
    };
    return _mm256_add_epi16(sums(a), sums(b));
}

template <int C>
void halve(const uint8_t* a, const uint8_t* b, uint8_t* out, int cols) {
    const auto mean = [&](int i) {
        return _mm256_srli_epi16(_mm256_add_epi16(sums_of_four<C>(a, b, i), set16(2)), 2);
    };
    if (!by_blocks_or_halves(
            cols * C, [&](auto at) { store_block(out, at, in_order(_mm256_packus_epi16(mean(at.i), mean(at.j)))); }))
        plain_kernels().halve[C - 1](a, b, out, cols);
}

template <int C>
void halve_to_16(const uint8_t* a, const uint8_t* b, uint16_t* out, int cols) {
    if (!by_blocks<16>(cols * C,
                       [&](int i) { store(out + i, _mm256_slli_epi16(sums_of_four<C>(a, b, i), kRowBits - 2)); }))
        plain_kernels().halve_to_16[C - 1](a, b, out, cols);
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
    plain_kernels().halve[2](a + 6 * i, b + 6 * i, out + 3 * i, cols - i);
}

// -------------------------------------------------------------------------------------------- 16-bit samples

void wide_rows(const WideRows& rows, float* out, int n) {
    const uint8_t* last = rows.first + (rows.count - 1) * rows.pitch;
    const auto load_wide = [](const uint8_t* row, int i) { return _mm256_cvtepu16_epi32(load16(row + 2 * i)); };
    const auto block = [&](int i) {
        __m256 v = _mm256_cvtepi32_ps(load_wide(rows.first, i));
        const auto add = [&](V samples, float weight) {
            v = _mm256_add_ps(v, _mm256_mul_ps(_mm256_cvtepi32_ps(samples), _mm256_set1_ps(weight)));
        };
        if (rows.count > 1) {
            v = _mm256_mul_ps(v, _mm256_set1_ps(rows.first_weight));
            add(load_wide(last, i), rows.last_weight);
        }
        if (rows.count > 2) {
            V sum = _mm256_setzero_si256();
            const uint8_t* p = rows.first;
            for (int k = rows.count - 2; k > 0; --k)
                sum = _mm256_add_epi32(sum, load_wide(p += rows.pitch, i));
            add(sum, rows.inner_weight);
        }
        _mm256_storeu_ps(out + i, v);
    };
    if (!by_blocks<8>(n, block))
        plain_kernels().wide_rows(rows, out, n);
}

void wide_fir(const float* row, const WideFir& t, uint8_t* out) {
    const auto block = [&](int i) {
        const V start = load(t.start + i);
        __m256 sum = _mm256_setzero_ps();
        for (int k = 0; k < t.taps; ++k) {
            const __m256 p = _mm256_i32gather_ps(row + k, start, 4), w = _mm256_loadu_ps(t.weight + k * t.cols + i);
            sum = _mm256_add_ps(sum, _mm256_mul_ps(p, w));
        }
        sum = _mm256_min_ps(_mm256_add_ps(sum, _mm256_set1_ps(0.5f)), _mm256_set1_ps(65535.0f));
        const V v = _mm256_cvttps_epi32(sum);
        store16(out + 2 * i, low(in_order(_mm256_packus_epi32(v, v))));
    };
    if (t.taps > kWideTapsInSingle || !by_blocks<8>(t.cols, block))
        plain_kernels().wide_fir(row, t, out);
}

} // namespace

void use_scale(Kernels& k) {
    k.widen = widen;
    k.narrow = narrow;
    k.blend8 = blend8;
    k.blend8_to_8 = blend8_to_8;
    k.blend16_to_8 = blend16_to_8;
    k.blend16 = blend16;
    k.box_rows = box_rows;
    k.fir_rows_to_8 = fir_rows<uint8_t>;
    k.fir_rows_to_16 = fir_rows<uint16_t>;
    k.expand = expand;
    k.wide_rows = wide_rows;
    k.wide_fir = wide_fir;
    k.third[0] = third<1>;
    k.third[1] = third<2>;
    k.third[3] = third<4>;
    k.halve[0] = halve<1>;
    k.halve[1] = halve<2>;
    k.halve[2] = halve3;
    k.halve[3] = halve<4>;
    // Plain loops that gain from the instruction set as they are.
    k.wide_fir_rows = wide_fir_rows_loop;
    for_each<4>([&](auto i) { k.spans_to_8[i] = spans_loop<i + 1, uint8_t>; });
    for_each<2>([&](auto i) {
        k.spans_to_16[i] = spans_loop<i + 1, uint16_t>;
        k.halve_to_16[i] = halve_to_16<i + 1>;
    });
}

} // namespace tavi::avx2

#endif
