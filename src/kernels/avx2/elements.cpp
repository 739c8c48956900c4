// SPDX-License-Identifier: MIT
// Elements of tensors on AVX2.
#if defined(__AVX2__) && TAVI_WITH_FRAMES

#include "kernels/plain/elements.h"
#include "kernels/avx2/pixels.h"
#include "kernels/walk.h"

namespace tavi::avx2 {
namespace {

// Sixteen pixels a lane in three parts of 16 bytes. Of a channel no two bytes stand at the same place modulo 16: they
// are chosen from the parts first, and ordered by one shuffle.
constexpr std::array<Shuffle, 3> make_gather3() {
    std::array<Shuffle, 3> t = {};
    for (int c = 0; c < 3; ++c)
        for (int i = 0; i < 16; ++i)
            t[c].index[i] = static_cast<int8_t>((3 * i + c) % 16);
    return t;
}
constexpr auto kGather3 = make_gather3();

void split3(const uint8_t* pixels, uint8_t* const rows[3], int n) {
    const bool done = by_blocks<32>(n, [&](int i) {
        const uint8_t* const p = pixels + 3 * i;
        const V a = join(load16(p), load16(p + 48)), b = join(load16(p + 16), load16(p + 64)),
                c = join(load16(p + 32), load16(p + 80));
        const V second = mask3(1), third = mask3(2);
        const auto choose = [&](V x, V y, V z) { // bytes 0, 3, .. of x, 1, 4, .. of y, 2, 5, .. of z
            return _mm256_blendv_epi8(_mm256_blendv_epi8(x, y, second), z, third);
        };
        store(rows[0] + i, _mm256_shuffle_epi8(choose(a, c, b), kGather3[0].full()));
        store(rows[1] + i, _mm256_shuffle_epi8(choose(b, a, c), kGather3[1].full()));
        store(rows[2] + i, _mm256_shuffle_epi8(choose(c, b, a), kGather3[2].full()));
    });
    if (!done)
        split3_loop(pixels, rows, n);
}

void to_float(const uint8_t* bytes, float* out, int n, float mean, float scale) {
    const __m256 m = _mm256_set1_ps(mean), s = _mm256_set1_ps(scale);
    const bool done = by_blocks<8>(n, [&](int i) {
        const V v = _mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(bytes + i)));
        _mm256_storeu_ps(out + i, _mm256_mul_ps(_mm256_sub_ps(_mm256_cvtepi32_ps(v), m), s));
    });
    if (!done)
        to_float_loop(bytes, out, n, mean, scale);
}

} // namespace

void use_elements(Kernels& k) {
    k.split3 = split3;
    k.to_float = to_float;
}

} // namespace tavi::avx2

#endif
