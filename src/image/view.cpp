// SPDX-License-Identifier: MIT
#include "image/view.h"

#include <utility>

namespace tavi {

const char* why_not_viewable(uint32_t pixel_format, uint32_t width, uint32_t height) {
    const Format* f = find_format(pixel_format);
    if (!f)
        return "allowed formats are 0 to 15";
    if (width < 1 || height < 1 || width > kMaxSide || height > kMaxSide)
        return "allowed sides are 1 to 16384";
    if (width >> f->xshift() == 0 || height >> f->yshift() == 0)
        return "too small to have a chroma sample: 4:2:0 needs 2x2 and 4:2:2 needs 2x1";
    return nullptr;
}

ImageView make_view(uint8_t* data, tavi_pixel_format format, int width, int height) {
    return make_view(data, *find_format(format), width, height, {});
}

ImageView make_view(uint8_t* data, const Format& format, int width, int height, ColorSpace color) {
    ImageView v;
    v.format = &format;
    v.color = color;
    v.width = width;
    v.height = height;
    for (int i = 0; i < v.format->planes; ++i) {
        const PlaneRule& grid = v.format->plane[i];
        PlaneView& p = v.plane[i];
        p.data = data;
        p.cols = width >> grid.xshift;
        p.rows = height >> grid.yshift;
        p.step = grid.step;
        p.pitch = static_cast<ptrdiff_t>(p.cols) * p.step;
        data += p.pitch * p.rows;
    }
    if (v.format->planes == 3 && v.format->swapped())
        std::swap(v.plane[1], v.plane[2]);
    return v;
}

ImageView crop(const ImageView& view, const Box& box) {
    ImageView v = view;
    v.width = box.width;
    v.height = box.height;
    for (int i = 0; i < v.format->planes; ++i) {
        const PlaneRule& grid = v.format->plane[i];
        PlaneView& p = v.plane[i];
        p.data += (box.y >> grid.yshift) * p.pitch + static_cast<ptrdiff_t>(box.x >> grid.xshift) * p.step;
        p.cols = box.width >> grid.xshift;
        p.rows = box.height >> grid.yshift;
    }
    return v;
}

ImageView flip_rows(const ImageView& view) {
    ImageView v = view;
    for (int i = 0; i < v.format->planes; ++i) {
        PlaneView& p = v.plane[i];
        p.data += (p.rows - 1) * p.pitch;
        p.pitch = -p.pitch;
    }
    return v;
}

} // namespace tavi
