// SPDX-License-Identifier: MIT
// One pixel's components in the terms of another format, by the arithmetic of whole rows.
#pragma once

#include "image/view.h"
#include "kernels/fixed.h"
#include "kernels/kernels.h"
#include "pixels/even.h"

namespace tavi {

/// The components in the order of the format's row. Those of 8 bits, or of 16 for 16-bit grey.
struct Pixel {
    uint16_t part[4];
};

inline Pixel convert_pixel(const Pixel& p, const Format& from, const Format& to, ColorSpace color) {
    const bool deep = to.bits == 16;
    const Rgb rgb{p.part[0], p.part[1], p.part[2]};
    if (from.model == to.model)
        return p;
    if (to.model == Model::gray)
        return {{from.is_yuv() ? p.part[0] : static_cast<uint16_t>((gray_sum(rgb) * (deep ? 257 : 1) + 500) / 1000)}};
    if (to.is_yuv()) {
        const Yuv yuv = from.model == Model::rgb ? yuv_of(rgb, color) : Yuv{uint8_t(p.part[0]), kNeutral, kNeutral};
        return {{yuv.y, yuv.u, yuv.v}};
    }
    if (!from.is_yuv())
        return {{p.part[0], p.part[0], p.part[0], 255}};
    const auto whole = [](int v) { return static_cast<uint16_t>(v << kRowBits); };
    const uint16_t y = whole(p.part[0]), u = whole(p.part[1]), v = whole(p.part[2]);
    uint8_t out[4];
    plain_kernels().yuv444_to_rgb[kPlanar][kRGBA](&y, &u, &v, out, 1, yuv_to_rgb_constants(color));
    return {{out[0], out[1], out[2], out[3]}};
}

} // namespace tavi
