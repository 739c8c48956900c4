// SPDX-License-Identifier: MIT
// Scaling for NEON. Every kernel gives the bytes of its plain loop, which does the rows shorter than a block.
#if defined(__ARM_NEON)

#include "kernels/neon/vec.h"
#include <algorithm>

#include "kernels/kinds.h"

namespace tavi::neon {
namespace {

// Rows are read and written with the loads and stores of pairs, which move 32 bytes at once: what is done to each
// element does not care that evens and odds are apart.

/// Calls `wide` for blocks of 32 elements and `block` for what is left, in blocks of 16 of which the last may
/// overlap. False, and nothing is done, for a row shorter than that.
template <class Wide, class Block>
inline bool along_row(int n, Wide wide, Block block) {
    if (n < 16)
        return false;
    int i = 0;
    for (; i + 32 <= n; i += 32)
        wide(i);
    for (; i < n; i += 16)
        block(std::min(i, n - 16));
    return true;
}

void widen(const uint8_t* row, uint16_t* out, int n) {
    const auto up = [](uint8x8_t v) { return vshll_n_u8(v, kRowBits); };
    if (!along_row(
            n,
            [=](int i) {
                const uint8x16x2_t p = vld2q_u8(row + i);
                vst2q_u16(out + i, {{up(vget_low_u8(p.val[0])), up(vget_low_u8(p.val[1]))}});
                vst2q_u16(out + i + 16, {{up(vget_high_u8(p.val[0])), up(vget_high_u8(p.val[1]))}});
            },
            [=](int i) {
                const uint8x8x2_t p = vld2_u8(row + i);
                vst2q_u16(out + i, {{up(p.val[0]), up(p.val[1])}});
            }))
        plain_kernels().widen(row, out, n);
}

void narrow(const uint16_t* row, uint8_t* out, int n) {
    if (!by_blocks<16>(n, [=](int i) {
            const uint16x8x2_t v = vld2q_u16(row + i);
            vst2_u8(out + i, {{vqrshrn_n_u16(v.val[0], kRowBits), vqrshrn_n_u16(v.val[1], kRowBits)}});
        }))
        plain_kernels().narrow(row, out, n);
}

void blend8(const uint8_t* a, const uint8_t* b, int weight, uint16_t* out, int n) {
    const int16x8_t w = weights8(weight);
    const auto mix = [w](uint8x8_t p, uint8x8_t q) { return words(mix8(p, q, w)); };
    if (!along_row(
            n,
            [=](int i) {
                const uint8x16x2_t p = vld2q_u8(a + i), q = vld2q_u8(b + i);
                vst2q_u16(out + i, {{mix(vget_low_u8(p.val[0]), vget_low_u8(q.val[0])),
                                     mix(vget_low_u8(p.val[1]), vget_low_u8(q.val[1]))}});
                vst2q_u16(out + i + 16, {{mix(vget_high_u8(p.val[0]), vget_high_u8(q.val[0])),
                                          mix(vget_high_u8(p.val[1]), vget_high_u8(q.val[1]))}});
            },
            [=](int i) {
                const uint8x8x2_t p = vld2_u8(a + i), q = vld2_u8(b + i);
                vst2q_u16(out + i, {{mix(p.val[0], q.val[0]), mix(p.val[1], q.val[1])}});
            }))
        plain_kernels().blend8(a, b, weight, out, n);
}

void blend8_to_8(const uint8_t* a, const uint8_t* b, int weight, uint8_t* out, int n) {
    const int16x8_t w = weights8(weight);
    if (!by_blocks<16>(n, [=](int i) {
            const uint8x8x2_t p = vld2_u8(a + i), q = vld2_u8(b + i);
            vst2_u8(out + i, {{vqrshrun_n_s16(mix8(p.val[0], q.val[0], w), kRowBits),
                               vqrshrun_n_s16(mix8(p.val[1], q.val[1], w), kRowBits)}});
        }))
        plain_kernels().blend8_to_8(a, b, weight, out, n);
}

void blend16_to_8(const uint16_t* a, const uint16_t* b, int weight, uint8_t* out, int n) {
    const int16x8_t w = weights8(weight);
    const auto mix = [w](uint16x8_t first, uint16x8_t second) {
        const int16x8_t p = vreinterpretq_s16_u16(first), q = vreinterpretq_s16_u16(second);
        return vqrshrun_n_s16(vaddq_s16(p, vqrdmulhq_s16(vsubq_s16(q, p), w)), kRowBits);
    };
    if (!by_blocks<16>(n, [=](int i) {
            const uint16x8x2_t p = vld2q_u16(a + i), q = vld2q_u16(b + i);
            vst2_u8(out + i, {{mix(p.val[0], q.val[0]), mix(p.val[1], q.val[1])}});
        }))
        plain_kernels().blend16_to_8(a, b, weight, out, n);
}

void blend16(const uint16_t* a, const uint16_t* b, int weight, uint16_t* out, int n) {
    const int16x8_t w = weights8(weight);
    if (!by_blocks<8>(n, [=](int i) {
            const int16x8_t p = vreinterpretq_s16_u16(vld1q_u16(a + i)), q = vreinterpretq_s16_u16(vld1q_u16(b + i));
            vst1q_u16(out + i, words(vaddq_s16(p, vqrdmulhq_s16(vsubq_s16(q, p), w))));
        }))
        plain_kernels().blend16(a, b, weight, out, n);
}

/// 32 elements as words: evens and odds of the first half, then of the second.
struct Words32 {
    uint16x8_t a, b, c, d;
};

void box_rows(const BoxRows& table, uint16_t* out, int n) {
    const BoxRows rows = table; // which stores to `out` cannot change
    const int16x8_t shift = vdupq_n_s16(rows.inner_shift), inner_weight = weights8(rows.inner_weight);
    const int16x8_t top_weight = weights8(rows.top_weight), bottom_weight = weights8(rows.bottom_weight);
    const auto of_sum = [&](uint16x8_t v) {
        return words(vqrdmulhq_s16(vreinterpretq_s16_u16(vshlq_u16(v, shift)), inner_weight));
    };
    const auto cut_row = [](Words32& v, const uint8_t* row, int16x8_t weight) {
        const uint8x16x2_t p = vld2q_u8(row);
        const auto add = [&](uint16x8_t sum, uint8x8_t bytes) {
            return vaddq_u16(sum, words(vqrdmulhq_s16(scaled(bytes), weight)));
        };
        v = {add(v.a, vget_low_u8(p.val[0])), add(v.b, vget_low_u8(p.val[1])), add(v.c, vget_high_u8(p.val[0])),
             add(v.d, vget_high_u8(p.val[1]))};
    };
    const auto block = [&](int i) {
        Words32 v = {vdupq_n_u16(0), vdupq_n_u16(0), vdupq_n_u16(0), vdupq_n_u16(0)};
        if (rows.count > 0) {
            const uint8_t* row = rows.inner + i;
            for (int k = rows.count; k > 0; --k, row += rows.pitch) {
                const uint8x16x2_t p = vld2q_u8(row);
                v.a = vaddw_u8(v.a, vget_low_u8(p.val[0]));
                v.b = vaddw_u8(v.b, vget_low_u8(p.val[1]));
                v.c = vaddw_u8(v.c, vget_high_u8(p.val[0]));
                v.d = vaddw_u8(v.d, vget_high_u8(p.val[1]));
            }
            v = {of_sum(v.a), of_sum(v.b), of_sum(v.c), of_sum(v.d)};
        }
        if (rows.top)
            cut_row(v, rows.top + i, top_weight);
        if (rows.bottom)
            cut_row(v, rows.bottom + i, bottom_weight);
        vst2q_u16(out + i, {{v.a, v.b}});
        vst2q_u16(out + i + 16, {{v.c, v.d}});
    };
    if (rows.count > kBoxRowsIn16Bits || !by_blocks<32>(n, block))
        plain_kernels().box_rows(table, out, n);
}

template <int N>
void third(const uint8_t* row, uint8_t* out, int cols) {
    constexpr int kBlock = N == 1 ? 16 : N == 4 ? 4 : 8;
    if (!by_blocks<kBlock>(cols, [=](int x) {
            const uint8_t* p = row + 3 * x * N;
            uint8_t* o = out + x * N;
            if (N == 1) {
                vst1q_u8(o, vld3q_u8(p).val[1]);
            } else if (N == 2) {
                vst1q_u8(o, vreinterpretq_u8_u16(vld3q_u16(reinterpret_cast<const uint16_t*>(p)).val[1]));
            } else if (N == 4) {
                vst1q_u8(o, vreinterpretq_u8_u32(vld3q_u32(reinterpret_cast<const uint32_t*>(p)).val[1]));
            } else { // each channel of 24 columns, of which a table takes eight
                const uint8x8x3_t a = vld3_u8(p), b = vld3_u8(p + 24), c = vld3_u8(p + 48);
                const uint8x8_t index = vcreate_u8(0x1613100D0A070401u);
                const auto take = [&](int k) { return vtbl3_u8({{a.val[k], b.val[k], c.val[k]}}, index); };
                vst3_u8(o, {{take(0), take(1), take(2)}});
            }
        }))
        plain_kernels().third[N - 1](row, out, cols);
}

template <int C>
void halve(const uint8_t* a, const uint8_t* b, uint8_t* out, int cols) {
    const auto mean = [](uint8x16_t p, uint8x16_t q) { return vrshrn_n_u16(vpadalq_u8(vpaddlq_u8(p), q), 2); };
    if (!by_blocks<8>(cols, [=](int x) {
            const uint8_t *p = a + 2 * x * C, *q = b + 2 * x * C;
            uint8_t* o = out + x * C;
            if (C == 1) {
                vst1_u8(o, mean(vld1q_u8(p), vld1q_u8(q)));
            } else if (C == 2) {
                const uint8x16x2_t v = vld2q_u8(p), w = vld2q_u8(q);
                vst2_u8(o, {{mean(v.val[0], w.val[0]), mean(v.val[1], w.val[1])}});
            } else if (C == 3) {
                const uint8x16x3_t v = vld3q_u8(p), w = vld3q_u8(q);
                vst3_u8(o, {{mean(v.val[0], w.val[0]), mean(v.val[1], w.val[1]), mean(v.val[2], w.val[2])}});
            } else {
                const uint8x16x4_t v = vld4q_u8(p), w = vld4q_u8(q);
                vst4_u8(o, {{mean(v.val[0], w.val[0]), mean(v.val[1], w.val[1]), mean(v.val[2], w.val[2]),
                             mean(v.val[3], w.val[3])}});
            }
        }))
        plain_kernels().halve[C - 1](a, b, out, cols);
}

template <int C>
void halve_to_16(const uint8_t* a, const uint8_t* b, uint16_t* out, int cols) {
    const auto mean = [](uint8x16_t p, uint8x16_t q) {
        return vshlq_n_u16(vpadalq_u8(vpaddlq_u8(p), q), kRowBits - 2);
    };
    if (!by_blocks<8>(cols, [=](int x) {
            const uint8_t *p = a + 2 * x * C, *q = b + 2 * x * C;
            if (C == 1) {
                vst1q_u16(out + x, mean(vld1q_u8(p), vld1q_u8(q)));
            } else {
                const uint8x16x2_t v = vld2q_u8(p), w = vld2q_u8(q);
                vst2q_u16(out + 2 * x, {{mean(v.val[0], w.val[0]), mean(v.val[1], w.val[1])}});
            }
        }))
        plain_kernels().halve_to_16[C - 1](a, b, out, cols);
}

/// The left samples alone, where there are no weights.
void pick(const uint8_t* row, const ExpandTable& t, uint16_t* out) {
    for (int i = 0; i < t.eights; ++i) {
        const uint8x16_t bytes = vld1q_u8(row + t.start[i]);
        const uint8x8x2_t window = {{vget_low_u8(bytes), vget_high_u8(bytes)}};
        vst1q_u16(out + 8 * i, vshll_n_u8(vtbl2_u8(window, vld1_u8(t.index + 8 * i)), kRowBits));
    }
}

void expand(const uint8_t* row, const ExpandTable& table, uint16_t* out) {
    const ExpandTable t = table;
    if (!t.by_16)
        return plain_kernels().expand(row, table, out);
    if (!t.weight)
        return pick(row, t, out);
    const uint8x8_t next = vdup_n_u8(static_cast<uint8_t>(t.next));
    for (int i = 0; i < t.eights; ++i, out += 8) {
        const uint8x16_t bytes = vld1q_u8(row + t.start[i]);
        const uint8x8x2_t window = {{vget_low_u8(bytes), vget_high_u8(bytes)}};
        const uint8x8_t index = vld1_u8(t.index + 8 * i);
        const uint8x8_t left = vtbl2_u8(window, index), right = vtbl2_u8(window, vadd_u8(index, next));
        const int16x8_t d =
            vshlq_n_s16(vreinterpretq_s16_u16(vsubl_u8(right, left)), kRowBits + kBlendBits - kTapBits);
        vst1q_u16(out, words(vaddq_s16(scaled(left), vqrdmulhq_s16(d, vld1q_s16(t.weight + 8 * i)))));
    }
}

// 16-bit samples. NEON adds and multiplies single precision as the plain loops do: none of these numbers is too small
// for it.

void wide_rows(const WideRows& table, float* out, int n) {
    const WideRows rows = table;
    const uint8_t* last = rows.first + (rows.count - 1) * rows.pitch;
    const auto load = [](const uint8_t* row, int i) { return vreinterpretq_u16_u8(vld1q_u8(row + 2 * i)); };
    const auto floats = [](uint16x4_t v) { return vcvtq_f32_u32(vmovl_u16(v)); };
    const auto block = [&](int i) {
        const uint16x8_t first = load(rows.first, i);
        float32x4_t lo = floats(vget_low_u16(first)), hi = floats(vget_high_u16(first));
        const auto add = [&](float32x4_t l, float32x4_t h, float weight) {
            lo = vaddq_f32(lo, vmulq_n_f32(l, weight));
            hi = vaddq_f32(hi, vmulq_n_f32(h, weight));
        };
        if (rows.count > 1) {
            const uint16x8_t end = load(last, i);
            lo = vmulq_n_f32(lo, rows.first_weight), hi = vmulq_n_f32(hi, rows.first_weight);
            add(floats(vget_low_u16(end)), floats(vget_high_u16(end)), rows.last_weight);
        }
        if (rows.count > 2) {
            uint32x4_t sum_lo = vdupq_n_u32(0), sum_hi = sum_lo;
            const uint8_t* p = rows.first;
            for (int k = rows.count - 2; k > 0; --k) {
                const uint16x8_t v = load(p += rows.pitch, i);
                sum_lo = vaddw_u16(sum_lo, vget_low_u16(v));
                sum_hi = vaddw_u16(sum_hi, vget_high_u16(v));
            }
            add(vcvtq_f32_u32(sum_lo), vcvtq_f32_u32(sum_hi), rows.inner_weight);
        }
        vst1q_f32(out + i, lo);
        vst1q_f32(out + i + 4, hi);
    };
    if (!by_blocks<8>(n, block))
        plain_kernels().wide_rows(table, out, n);
}

void wide_fir(const float* row, const WideFir& table, uint8_t* out) {
    const WideFir t = table;
    const auto block = [&](int i) {
        const int32_t* start = t.start + i;
        const float *a = row + start[0], *b = row + start[1], *c = row + start[2], *d = row + start[3];
        const float* w = t.weight + i;
        float32x4_t sum = vdupq_n_f32(0);
        for (int k = 0; k < t.taps; ++k, w += t.cols) {
            const float32x2_t ab = vld1_lane_f32(b++, vld1_dup_f32(a++), 1),
                              cd = vld1_lane_f32(d++, vld1_dup_f32(c++), 1);
            sum = vaddq_f32(sum, vmulq_f32(vcombine_f32(ab, cd), vld1q_f32(w)));
        }
        const uint32x4_t v = vcvtq_u32_f32(vaddq_f32(sum, vdupq_n_f32(0.5f)));
        vst1_u8(out + 2 * i, vreinterpret_u8_u16(vqmovn_u32(v)));
    };
    if (t.taps > kWideTapsInSingle || !by_blocks<4>(t.cols, block))
        plain_kernels().wide_fir(row, table, out);
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
    k.expand = expand;
    k.wide_rows = wide_rows;
    k.wide_fir = wide_fir;
    for_each<4>([&](auto i) {
        k.third[i] = third<i + 1>;
        k.halve[i] = halve<i + 1>;
    });
    for_each<2>([&](auto i) { k.halve_to_16[i] = halve_to_16<i + 1>; });
}

} // namespace tavi::neon

#endif
