// SPDX-License-Identifier: MIT
// Filters across for NEON. Every kernel gives the bytes of its plain loop, which does what is left.
#if defined(__ARM_NEON)

#include "kernels/kinds.h"
#include "kernels/neon/vec.h"

namespace tavi::neon {
namespace {

struct Starts {
    int32_t a, b, c, d;
};

/// The starts of four columns.
inline Starts four_starts(const int32_t* start) {
#ifdef __thumb2__ // in two loads: the compiler takes four, and every instruction counts in these loops
    int32_t a, b, c, d;
    asm("ldrd %0, %1, [%4]\n\tldrd %2, %3, [%4, #8]"
        : "=&r"(a), "=&r"(b), "=&r"(c), "=&r"(d)
        : "r"(start), "m"(*reinterpret_cast<const int32_t(*)[4]>(start)));
    return {a, b, c, d};
#else
    return {start[0], start[1], start[2], start[3]};
#endif
}

/// The upper halves of eight sums.
inline int16x8_t upper_halves(int32x4_t a, int32x4_t b) {
    return vuzpq_s16(vreinterpretq_s16_s32(a), vreinterpretq_s16_s32(b)).val[1];
}

/// Eight sums to bytes: rounded by kSumBits, in two steps of which the second rounds.
inline uint8x8_t bytes_of(int32x4_t a, int32x4_t b) { return vqrshrun_n_s16(upper_halves(a, b), kSumBits - 16); }

/// Four sums to words of a row.
inline uint16x4_t words_of(int32x4_t sums) {
    return vmin_u16(vqrshrun_n_s32(sums, kTapBits), vdup_n_u16(255 << kRowBits));
}

/// Sums of four columns of three or four channels to bytes.
template <int C>
inline void store_columns4(uint8_t* out, int32x4_t a, int32x4_t b, int32x4_t c, int32x4_t d) {
    if (C == 4) {
        vst1q_u8(out, vcombine_u8(bytes_of(a, b), bytes_of(c, d)));
    } else {
        const uint8x8_t first = vcreate_u8(0x0908060504020100u), last = vcreate_u8(0xFFFFFFFF0E0D0C0Au);
        const uint8x8x2_t bytes = {{bytes_of(a, b), bytes_of(c, d)}};
        vst1_u8(out, vtbl2_u8(bytes, first));
        store_bytes4(out + 8, vtbl2_u8(bytes, last));
    }
}

/// Two taps of one column; Lane is that of its first weight.
template <int C, int Lane>
inline int32x4_t two_taps(const uint16_t* p, int16x4_t w) {
    const int16x8_t v = vreinterpretq_s16_u16(vld1q_u16(p));
    const int16x4_t second = C == 4 ? vget_high_s16(v) : vext_s16(vget_low_s16(v), vget_high_s16(v), C % 4);
    return vmlal_lane_s16(vmull_lane_s16(vget_low_s16(v), w, Lane), second, w, Lane + 1);
}

/// Four more taps of one column.
template <int C>
inline int32x4_t four_taps(int32x4_t acc, const uint16_t* p, const int16_t* weight) {
    const int16x4_t w = vld1_s16(weight);
    const int16x8_t a = vreinterpretq_s16_u16(vld1q_u16(p));
    const int16x8_t b = vreinterpretq_s16_u16(vld1q_u16(p + (C == 4 ? 8 : 4))); // of three channels: 4 to 11
    const int16x4_t a_low = vget_low_s16(a), a_high = vget_high_s16(a), b_low = vget_low_s16(b),
                    b_high = vget_high_s16(b);
    acc = vmlal_lane_s16(acc, a_low, w, 0);
    acc = vmlal_lane_s16(acc, C == 4 ? a_high : vext_s16(a_low, a_high, 3), w, 1);
    acc = vmlal_lane_s16(acc, C == 4 ? b_low : vext_s16(b_low, b_high, 2), w, 2);
    return vmlal_lane_s16(acc, C == 4 ? b_high : vext_s16(b_high, b_high, 1), w, 3);
}

/// Any even number of taps of one column.
template <int C>
inline int32x4_t many_taps(const uint16_t* p, const int16_t* weight, int taps) {
    int32x4_t acc = vdupq_n_s32(0);
    for (; taps >= 4; taps -= 4, p += 4 * C, weight += 4)
        acc = four_taps<C>(acc, p, weight);
    if (taps) {
        const int16x4x2_t w = vld2_dup_s16(weight);
        acc = vmlal_s16(acc, signed4(vld1_u16(p)), w.val[0]);
        acc = vmlal_s16(acc, signed4(vld1_u16(p + C)), w.val[1]);
    }
    return acc;
}

// What writes bytes and what writes words of a row share their bodies: the question costs an instruction or two for
// eight sums, and the code half as much.

template <int C>
__attribute__((noinline)) void fir_wide(const uint16_t* row, const FirTable& table, void* to, bool to_words) {
    const FirTable t = table;
    const int done = t.cols & ~3;
    const int32_t *start = t.start, *const end = start + done;
    const int16_t* w = t.weight;
    auto* out = static_cast<uint8_t*>(to);
    if (to_words) { // of windowed filters, which seldom take so few as two or four
        auto* words = static_cast<uint16_t*>(to);
        for (const int32_t* const all = start + t.cols; start != all; ++start, w += t.taps, words += C) {
            const uint16x4_t v = words_of(many_taps<C>(row + *start, w, t.taps));
            if (C == 4) {
                vst1_u16(words, v);
            } else { // no word behind the row
                store_bytes4(reinterpret_cast<uint8_t*>(words), vreinterpret_u8_u16(v));
                vst1_lane_u16(words + 2, v, 2);
            }
        }
        return;
    }
    if (t.taps == 2) {
        for (; start != end; start += 4, w += 8, out += 4 * C) {
            const int16x8_t pairs = vld1q_s16(w);
            const int16x4_t w01 = vget_low_s16(pairs), w23 = vget_high_s16(pairs);
            const Starts at = four_starts(start);
            store_columns4<C>(out, two_taps<C, 0>(row + at.a, w01), two_taps<C, 2>(row + at.b, w01),
                              two_taps<C, 0>(row + at.c, w23), two_taps<C, 2>(row + at.d, w23));
        }
    } else if (t.taps == 4) {
        const int32x4_t zero = vdupq_n_s32(0);
        for (; start != end; start += 4, w += 16, out += 4 * C) {
            const Starts at = four_starts(start);
            store_columns4<C>(out, four_taps<C>(zero, row + at.a, w), four_taps<C>(zero, row + at.b, w + 4),
                              four_taps<C>(zero, row + at.c, w + 8), four_taps<C>(zero, row + at.d, w + 12));
        }
    } else {
        for (; start != end; out += 4 * C) {
            int32x4_t sum[4];
#pragma GCC unroll 1
            for (int c = 0; c < 4; ++c, ++start, w += t.taps)
                sum[c] = many_taps<C>(row + *start, w, t.taps);
            store_columns4<C>(out, sum[0], sum[1], sum[2], sum[3]);
        }
    }
    if (done < t.cols) { // no blocks that overlap: pointers that only walk save an instruction each
        const FirTable rest = {end, t.weight + done * t.taps, t.taps, t.cols - done, t.row_elements};
        plain_kernels().fir_to_8[C - 1](row, rest, out);
    }
}

template <int C, class Out>
void fir_wide(const uint16_t* row, const FirTable& t, Out* out) {
    fir_wide<C>(row, t, out, sizeof(Out) == 2);
}

struct Sums8 {
    int32x4_t a, b;
};

/// Two taps of eight columns of one channel.
inline Sums8 fir1_two_taps(const uint16_t* row, const int32_t* start, const int16_t* weight) {
    const Starts s = four_starts(start), t = four_starts(start + 4);
    const uint32x4_t first = vcombine_u32(load_words2(row + s.a, row + s.b), load_words2(row + s.c, row + s.d));
    const uint32x4_t last = vcombine_u32(load_words2(row + t.a, row + t.b), load_words2(row + t.c, row + t.d));
    const int16x8x2_t v = vuzpq_s16(vreinterpretq_s16_u32(first), vreinterpretq_s16_u32(last));
    const int16x8x2_t w = vld2q_s16(weight);
    const int32x4_t a = vmull_s16(vget_low_s16(v.val[0]), vget_low_s16(w.val[0]));
    const int32x4_t b = vmull_s16(vget_high_s16(v.val[0]), vget_high_s16(w.val[0]));
    return {vmlal_s16(a, vget_low_s16(v.val[1]), vget_low_s16(w.val[1])),
            vmlal_s16(b, vget_high_s16(v.val[1]), vget_high_s16(w.val[1]))};
}

/// Four or more taps of four columns of one channel.
inline int32x4_t fir1_four(const uint16_t* row, const FirTable& t, int i) {
    const Starts at = four_starts(t.start + i);
    const int16_t* w = t.weight + i * t.taps;
    const auto column = [&](const uint16_t* p) {
        int32x4_t acc = vmull_s16(signed4(vld1_u16(p)), vld1_s16(w));
        for (int k = 4; k < t.taps; k += 4)
            acc = vmlal_s16(acc, signed4(vld1_u16(p + k)), vld1_s16(w + k));
        w += t.taps;
        return vpadd_s32(vget_low_s32(acc), vget_high_s32(acc));
    };
    const int32x2_t a = column(row + at.a), b = column(row + at.b), c = column(row + at.c), d = column(row + at.d);
    return vcombine_s32(vpadd_s32(a, b), vpadd_s32(c, d));
}

/// Eight sums rounded to bytes, or to words of a row; `at` counts elements.
inline void put8(void* out, bool to_words, int at, Sums8 sums) {
    if (to_words)
        vst1q_u16(static_cast<uint16_t*>(out) + at, vcombine_u16(words_of(sums.a), words_of(sums.b)));
    else
        vst1_u8(static_cast<uint8_t*>(out) + at, bytes_of(sums.a, sums.b));
}

__attribute__((noinline)) bool fir1(const uint16_t* row, const FirTable& table, void* out, bool to_words) {
    const FirTable t = table;
    const auto two = [&](int i) { put8(out, to_words, i, fir1_two_taps(row, t.start + i, t.weight + 2 * i)); };
    const auto more = [&](int i) { put8(out, to_words, i, {fir1_four(row, t, i), fir1_four(row, t, i + 4)}); };
    return t.taps == 2 ? by_blocks<8>(t.cols, two) : by_blocks<8>(t.cols, more);
}

/// Two taps of two columns of two channels, from a pair of each; the weights are those of the one and of the other.
inline int32x4_t fir2_two_taps(int32x4_t acc, const uint16_t* a, const uint16_t* b, int16x4_t first,
                               int16x4_t second) {
    const int32x2x2_t taps = vtrn_s32(vreinterpret_s32_u16(vld1_u16(a)), vreinterpret_s32_u16(vld1_u16(b)));
    return vmlal_s16(vmlal_s16(acc, vreinterpret_s16_s32(taps.val[0]), first), vreinterpret_s16_s32(taps.val[1]),
                     second);
}

/// Sums of four columns of two channels.
inline Sums8 fir2_four(const uint16_t* row, const FirTable& t, int i) {
    const Starts at = four_starts(t.start + i);
    const uint16_t *a = row + at.a, *b = row + at.b, *c = row + at.c, *d = row + at.d;
    const int16_t* w = t.weight + i * t.taps;
    Sums8 sums = {vdupq_n_s32(0), vdupq_n_s32(0)};
    const auto add = [&](int k, int16x8_t pairs) {
        const int16x8x2_t twice = vtrnq_s16(pairs, pairs); // first weight of each column twice, then the second
        sums.a = fir2_two_taps(sums.a, a + k, b + k, vget_low_s16(twice.val[0]), vget_low_s16(twice.val[1]));
        sums.b = fir2_two_taps(sums.b, c + k, d + k, vget_high_s16(twice.val[0]), vget_high_s16(twice.val[1]));
    };
    if (t.taps == 2)
        add(0, vld1q_s16(w));
    else
        for (int k = 0; k < t.taps; k += 2, w += 2)
            add(2 * k, vreinterpretq_s16_u32(
                           vcombine_u32(load_words2(w, w + t.taps), load_words2(w + 2 * t.taps, w + 3 * t.taps))));
    return sums;
}

__attribute__((noinline)) bool fir2(const uint16_t* row, const FirTable& table, void* out, bool to_words) {
    const FirTable t = table;
    return by_blocks<4>(t.cols, [&](int i) { put8(out, to_words, 2 * i, fir2_four(row, t, i)); });
}

template <int C, class Out>
void fir(const uint16_t* row, const FirTable& t, Out* out) {
    if (!(C == 1 ? fir1 : fir2)(row, t, out, sizeof(Out) == 2))
        fir_of<C>(plain_kernels(), out)(row, t, out);
}

#if TAVI_WITH_FRAMES
__attribute__((noinline)) bool fir_rows(const FirRows& table, void* out, bool to_words, int n) {
    const FirRows rows = table;
    return by_blocks<16>(n, [&](int i) {
        Sums8 first = {vdupq_n_s32(0), vdupq_n_s32(0)}, second = first;
        for (int k = 0; k < rows.count; ++k) {
            const int16_t* const p = reinterpret_cast<const int16_t*>(rows.row[k]) + i;
            const int16x8_t a = vld1q_s16(p), b = vld1q_s16(p + 8);
            const int16x4_t w = vld1_dup_s16(rows.weight + k);
            first.a = vmlal_s16(first.a, vget_low_s16(a), w);
            first.b = vmlal_s16(first.b, vget_high_s16(a), w);
            second.a = vmlal_s16(second.a, vget_low_s16(b), w);
            second.b = vmlal_s16(second.b, vget_high_s16(b), w);
        }
        put8(out, to_words, i, first);
        put8(out, to_words, i + 8, second);
    });
}

template <class Out>
void fir_rows(const FirRows& rows, Out* out, int n) {
    if (!fir_rows(rows, out, sizeof(Out) == 2, n))
        fir_rows_of(plain_kernels(), out)(rows, out, n);
}
#endif

/// Sums of neighbours.
inline int32x4_t add_pairs(int32x4_t a, int32x4_t b) {
    const int32x4x2_t apart = vuzpq_s32(a, b);
    return vaddq_s32(apart.val[0], apart.val[1]);
}

template <int C>
void bilinear_wide(const uint8_t* a, const uint8_t* b, int weight, const FirTable& table, uint8_t* out) {
    const FirTable t = table;
    const int16x8_t down = weights8(weight);
    int safe = t.cols; // loads of eight bytes stay inside the row
    while (safe > 0 && t.start[safe - 1] + 8 > t.row_elements)
        --safe;
    const auto column = [&](int i) {
        const int16x8_t v = mix8(vld1_u8(a + t.start[i]), vld1_u8(b + t.start[i]), down);
        const int16x4x2_t w = vld2_dup_s16(t.weight + 2 * i);
        return vmlal_s16(vmull_s16(vget_low_s16(v), w.val[0]), vget_low_s16(vextq_s16(v, v, C)), w.val[1]);
    };
    int i = 0;
    for (; i + 3 <= safe; i += 2)
        store_columns2<C>(out + i * C, bytes_of(column(i), column(i + 1)));
    const FirTable rest = {t.start + i, t.weight + 2 * i, t.taps, t.cols - i, t.row_elements};
    plain_kernels().bilinear_at[C - 1](a, b, weight, rest, out + i * C);
}

__attribute__((noinline)) bool bilinear1(const uint8_t* a, const uint8_t* b, int weight, const FirTable& table,
                                         void* out, bool to_words) {
    const FirTable t = table;
    const int16x8_t down = weights8(weight);
    const auto four = [](const uint8_t* row, const int32_t* start) { // two bytes of each of four columns
        uint16x4_t v = vld1_dup_u16(reinterpret_cast<const uint16_t*>(row + start[0]));
        v = vld1_lane_u16(reinterpret_cast<const uint16_t*>(row + start[1]), v, 1);
        v = vld1_lane_u16(reinterpret_cast<const uint16_t*>(row + start[2]), v, 2);
        v = vld1_lane_u16(reinterpret_cast<const uint16_t*>(row + start[3]), v, 3);
        return vreinterpret_u8_u16(v);
    };
    const auto sums = [&](int i) {
        const int16x8_t v = mix8(four(a, t.start + i), four(b, t.start + i), down);
        const int16x8_t w = vld1q_s16(t.weight + 2 * i);
        return add_pairs(vmull_s16(vget_low_s16(v), vget_low_s16(w)), vmull_s16(vget_high_s16(v), vget_high_s16(w)));
    };
    return by_blocks<8>(t.cols, [&](int i) { put8(out, to_words, i, {sums(i), sums(i + 4)}); });
}

__attribute__((noinline)) bool bilinear2(const uint8_t* a, const uint8_t* b, int weight, const FirTable& table,
                                         void* out, bool to_words) {
    const FirTable t = table;
    const int16x8_t down = weights8(weight);
    const auto two = [](const uint8_t* row, const int32_t* start) { // four bytes of each of two columns
        const uint32x2_t v = vld1_dup_u32(reinterpret_cast<const uint32_t*>(row + start[0]));
        return vreinterpret_u8_u32(vld1_lane_u32(reinterpret_cast<const uint32_t*>(row + start[1]), v, 1));
    };
    const auto sums = [&](int i) {
        const int16x8_t v = mix8(two(a, t.start + i), two(b, t.start + i), down);
        const int16x4_t w = vld1_s16(t.weight + 2 * i);
        const int16x4x2_t twice = vzip_s16(w, w);
        const int32x4_t p = vmull_s16(vget_low_s16(v), twice.val[0]), q = vmull_s16(vget_high_s16(v), twice.val[1]);
        return vcombine_s32(vadd_s32(vget_low_s32(p), vget_high_s32(p)), vadd_s32(vget_low_s32(q), vget_high_s32(q)));
    };
    return by_blocks<4>(t.cols, [&](int i) { put8(out, to_words, 2 * i, {sums(i), sums(i + 2)}); });
}

template <int C, class Out>
void bilinear(const uint8_t* a, const uint8_t* b, int weight, const FirTable& t, Out* out) {
    if (!(C == 1 ? bilinear1 : bilinear2)(a, b, weight, t, out, sizeof(Out) == 2))
        bilinear_of<C>(plain_kernels(), out)(a, b, weight, t, out);
}

} // namespace

void use_taps(Kernels& k) {
    k.fir_to_8[0] = fir<1, uint8_t>;
    k.fir_to_8[1] = fir<2, uint8_t>;
    k.fir_to_8[2] = fir_wide<3, uint8_t>;
    k.fir_to_8[3] = fir_wide<4, uint8_t>;
    k.bilinear_at[0] = bilinear<1, uint8_t>;
    k.bilinear_at[1] = bilinear<2, uint8_t>;
    k.bilinear_at[2] = bilinear_wide<3>;
    k.bilinear_at[3] = bilinear_wide<4>;
    k.fir_to_16[0] = fir<1, uint16_t>;
    k.fir_to_16[1] = fir<2, uint16_t>;
#if TAVI_WITH_FRAMES
    k.fir_to_16[2] = fir_wide<3, uint16_t>;
    k.fir_to_16[3] = fir_wide<4, uint16_t>;
    k.fir_rows_to_8 = fir_rows<uint8_t>;
    k.fir_rows_to_16 = fir_rows<uint16_t>;
#endif
    k.bilinear_at_16[0] = bilinear<1, uint16_t>;
    k.bilinear_at_16[1] = bilinear<2, uint16_t>;
}

} // namespace tavi::neon

#endif
