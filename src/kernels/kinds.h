// SPDX-License-Identifier: MIT
// What the kinds of pixels and chroma mean for the code of a kernel, so that one body serves several of them.
#pragma once

#include <type_traits>
#include <utility>

#include "kernels/kernels.h"

namespace tavi {
namespace { // each build compiles its own

constexpr int rgb_bytes(int kind) { return kind == kRGBA || kind == kBGRA ? 4 : 3; }
constexpr bool is_swapped(int kind) { return kind == kBGR || kind == kBGRA; }

constexpr int other_pairs(int chroma) { return chroma == kPairsUV ? kPairsVU : kPairsUV; }

/// The constants for red and blue exchanged, which is U and V exchanged: VU to RGB is UV to BGR with these.
inline YuvToRgb exchanged(YuvToRgb k) {
    std::swap(k.v_to_r, k.u_to_b);
    std::swap(k.v_to_g, k.u_to_g);
    return k;
}

/// The weights in the order in which the channels lie.
inline RgbToYuv weights_in_order(RgbToYuv k, bool swapped) {
    if (swapped)
        for (int16_t* w : {k.y, k.u, k.v})
            std::swap(w[0], w[2]);
    return k;
}

/// The entries of scaling by what they write, for C channels.
template <int C>
auto fir_of(const Kernels& k, const uint8_t*) {
    return k.fir_to_8[C - 1];
}
template <int C>
auto fir_of(const Kernels& k, const uint16_t*) {
    return k.fir_to_16[C - 1];
}
inline auto fir_rows_of(const Kernels& k, const uint8_t*) { return k.fir_rows_to_8; }
inline auto fir_rows_of(const Kernels& k, const uint16_t*) { return k.fir_rows_to_16; }
template <int C>
auto bilinear_of(const Kernels& k, const uint8_t*) {
    return k.bilinear_at[C - 1];
}
template <int C>
auto bilinear_of(const Kernels& k, const uint16_t*) {
    return k.bilinear_at_16[C - 1];
}

template <int... I, class Use>
void for_numbers(std::integer_sequence<int, I...>, Use use) {
    (use(std::integral_constant<int, I>()), ...);
}

/// Calls use() with 0 to N - 1, each as a constant.
template <int N, class Use>
void for_each(Use use) {
    for_numbers(std::make_integer_sequence<int, N>(), use);
}

/// Calls use() with each pair of numbers below A and B.
template <int A, int B, class Use>
void for_pairs(Use use) {
    for_each<A>([&](auto a) { for_each<B>([&](auto b) { use(a, b); }); });
}

} // namespace
} // namespace tavi
