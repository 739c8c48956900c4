// SPDX-License-Identifier: MIT
// The plain build, from which the others start.
#include "kernels/plain/colour.h"
#include "kernels/plain/elements.h"
#include "kernels/plain/geometry.h"
#include "kernels/plain/scale.h"
#include "os/locks.h"

namespace tavi {
namespace {

void use_colour(Kernels& k) {
    for_pairs<kChromaKinds, kRgbKinds>([&](auto c, auto rgb) { k.yuv_to_rgb[c][rgb] = yuv_to_rgb_loop<c, rgb>; });
    for_pairs<3, kRgbKinds>([&](auto c, auto rgb) {
        k.yuv444_to_rgb[c][rgb] = yuv444_to_rgb_loop<c, rgb>;
        k.rgb_to_yuv420[c][rgb] = rgb_to_yuv420_loop<c, rgb>;
        k.rgb_to_yuv422[c][rgb] = rgb_to_yuv422_loop<c, rgb>;
    });
    for_each<kRgbKinds>([&](auto rgb) {
        k.rgb_to_gray[rgb] = rgb_to_gray_loop<rgb>;
        k.rgb_to_gray16[rgb] = rgb_to_gray16_loop<rgb>;
    });
    for_pairs<kRgbKinds, kRgbKinds>([&](auto a, auto b) {
        if constexpr (a != b)
            k.rgb_to_rgb[a][b] = rgb_to_rgb_loop<rgb_bytes(a), rgb_bytes(b), is_swapped(a) != is_swapped(b)>;
    });
    k.packed_to_nv12[0] = packed_to_nv12_loop<0>;
    k.packed_to_nv12[1] = packed_to_nv12_loop<1>;
    k.gray_to_rgb[0] = gray_to_rgb_loop<3>;
    k.gray_to_rgb[1] = gray_to_rgb_loop<4>;
    k.gray16_to_8 = gray16_to_8_loop;
}

void use_scale(Kernels& k) {
    k.widen = widen_loop;
    k.narrow = narrow_loop;
    k.blend8 = blend8_loop;
    k.blend8_to_8 = blend8_to_8_loop;
    k.blend16_to_8 = blend16_to_8_loop;
    k.blend16 = blend16_loop;
    k.box_rows = box_rows_loop;
    k.expand = expand_loop;
    k.wide_rows = wide_rows_loop;
    k.wide_fir = wide_fir_loop;
    for_each<4>([&](auto i) {
        k.fir_to_8[i] = fir_loop<i + 1, uint8_t>;
        k.spans_to_8[i] = spans_loop<i + 1, uint8_t>;
        k.bilinear_at[i] = bilinear_loop<i + 1, uint8_t>;
        k.halve[i] = halve_loop<i + 1>;
        k.third[i] = third_loop<i + 1>;
    });
    for_each<TAVI_WITH_FRAMES ? 4 : 2>([&](auto i) { k.fir_to_16[i] = fir_loop<i + 1, uint16_t>; });
#if TAVI_WITH_FRAMES // the windowed filters
    k.fir_rows_to_8 = fir_rows_loop<uint8_t>;
    k.fir_rows_to_16 = fir_rows_loop<uint16_t>;
    k.wide_fir_rows = wide_fir_rows_loop;
#endif
    for_each<2>([&](auto i) {
        k.spans_to_16[i] = spans_loop<i + 1, uint16_t>;
        k.bilinear_at_16[i] = bilinear_loop<i + 1, uint16_t>;
        k.halve_to_16[i] = halve_to_16_loop<i + 1>;
    });
}

void use_geometry(Kernels& k) {
    k.repeat12 = repeat12_loop;
#if TAVI_WITH_FRAMES
    k.split3 = split3_loop;
    k.to_float = to_float_loop;
#endif
    for_each<4>([&](auto i) {
        k.affine_span[i] = affine_span_loop<i + 1>;
        k.mirror[i] = mirror_loop<i + 1>;
        k.transpose16[i] = transpose16_loop<i + 1>;
    });
}

} // namespace

const Kernels& plain_kernels() {
    static FirstUse<Kernels> table;
    return table.get([] {
        Kernels k = {};
        k.name = "plain";
        use_colour(k);
        use_scale(k);
        use_geometry(k);
        return k;
    });
}

} // namespace tavi
