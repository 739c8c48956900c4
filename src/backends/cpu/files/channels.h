// SPDX-License-Identifier: MIT
// Where the samples of each YUV component lie, whatever the layout: planes of their own, pairs, or packed rows.
#pragma once

#include "image/view.h"

namespace tavi {

/// One component: cols x rows samples, `step` bytes apart in a row.
struct Channel {
    uint8_t* data = nullptr;
    ptrdiff_t pitch = 0;
    int step = 0;
    int cols = 0;
    int rows = 0;

    uint8_t* row(int y) const { return data + y * pitch; }
};

struct YuvChannels {
    Channel y, u, v;
    int xshift = 0; ///< a chroma sample covers 1 << xshift columns of luma
    int yshift = 0;
};

/// The components of a view whose format is one of the YUV ones.
inline YuvChannels yuv_channels(const ImageView& view) {
    YuvChannels c;
    c.xshift = 1;
    c.yshift = view.format->family == Family::yuv420 ? 1 : 0;
    const PlaneView& first = view.plane[0];
    const int cols = view.width >> 1;
    const int rows = view.height >> c.yshift;
    if (view.planes() == 3) {
        c.y = {first.data, first.pitch, 1, view.width, view.height};
        c.u = {view.plane[1].data, view.plane[1].pitch, 1, cols, rows};
        c.v = {view.plane[2].data, view.plane[2].pitch, 1, cols, rows};
    } else if (view.planes() == 2) {
        const PlaneView& pair = view.plane[1];
        const int u = view.format->swapped ? 1 : 0;
        c.y = {first.data, first.pitch, 1, view.width, view.height};
        c.u = {pair.data + u, pair.pitch, 2, cols, rows};
        c.v = {pair.data + 1 - u, pair.pitch, 2, cols, rows};
    } else {
        const int luma = view.id() == TAVI_PIXEL_FORMAT_YUV422_UYVY ? 1 : 0;
        c.y = {first.data + luma, first.pitch, 2, view.width, view.height};
        c.u = {first.data + 1 - luma, first.pitch, 4, cols, rows};
        c.v = {first.data + 3 - luma, first.pitch, 4, cols, rows};
    }
    return c;
}

} // namespace tavi
