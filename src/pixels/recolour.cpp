// SPDX-License-Identifier: MIT
#include "pixels/recolour.h"

#include <algorithm>

#include "image/scratch.h"

namespace tavi {
namespace {

uint8_t to_byte(int32_t sum) { return static_cast<uint8_t>(std::clamp(sum >> kRecolourBits, 0, 255)); }

/// What chroma adds to the luma of a row's pixels, and the row's chroma in the other meaning.
struct ChromaRow {
    const uint8_t *u, *v;
    uint8_t *to_u, *to_v; ///< null: written with another row
    int32_t* add;         ///< for each sample
    int step;             ///< bytes from one sample to the next
    int cols;
};

void recolour_chroma(const ChromaRow& r, const YuvToYuv& k) {
    for (int i = 0; i < r.cols; ++i) {
        const int32_t u = r.u[i * r.step], v = r.v[i * r.step];
        r.add[i] = k.u_to_y * u + k.v_to_y * v + k.luma_bias;
        if (r.to_u) {
            r.to_u[i * r.step] = to_byte(k.u_to_u * u + k.v_to_u * v + k.u_bias);
            r.to_v[i * r.step] = to_byte(k.u_to_v * u + k.v_to_v * v + k.v_bias);
        }
    }
}

void recolour_luma(const uint8_t* y, const int32_t* add, uint8_t* out, int pairs, int32_t luma) {
    for (int i = 0; i < pairs; ++i) {
        out[2 * i] = to_byte(luma * y[2 * i] + add[i]);
        out[2 * i + 1] = to_byte(luma * y[2 * i + 1] + add[i]);
    }
}

} // namespace

bool recolour_image(const ImageView& src, const ImageView& dst) {
    const YuvToYuv k = make_yuv_to_yuv(src.color, dst.color);
    const Samples u = samples_of(src, 1), v = samples_of(src, 2), to_u = samples_of(dst, 1),
                  to_v = samples_of(dst, 2);
    Scratch scratch;
    auto* const add = scratch.take<int32_t>(u.cols);
    if (!add)
        return false;
    const int shift = src.format->yshift(), pairs = src.width / 2;
    for (int y = 0, last = -1; y < src.height; ++y) {
        // A row or column that has no chroma of its own uses its neighbour's; in a view of that row alone this is row
        // -1, see odd_edges.cpp.
        const int row = std::min(y >> shift, u.rows - 1);
        if (row != last || y == 0) {
            const bool writes = row < to_u.rows && row >= 0;
            recolour_chroma({u.row(row), v.row(row), writes ? to_u.row(row) : nullptr,
                             writes ? to_v.row(row) : nullptr, add, u.step, u.cols},
                            k);
        }
        last = row;
        recolour_luma(src.plane[0].row(y), add, dst.plane[0].row(y), pairs, k.luma);
        if (src.width % 2)
            dst.plane[0].row(y)[src.width - 1] =
                to_byte(k.luma * src.plane[0].row(y)[src.width - 1] + add[std::min(pairs, u.cols - 1)]);
    }
    return true;
}

} // namespace tavi
