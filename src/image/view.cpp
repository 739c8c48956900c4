// SPDX-License-Identifier: MIT
#include "image/view.h"

#include <utility>

namespace tavi {
namespace {

/// Sets how many columns and rows the planes of a view have.
void size_planes(ImageView& v) {
    for (int i = 0; i < v.format->planes; ++i) {
        const PlaneRule& grid = v.format->plane[i];
        v.plane[i].cols = samples_along(v.width, grid.xshift, v.chroma_up);
        v.plane[i].rows = samples_along(v.height, grid.yshift, v.chroma_up);
        v.plane[i].step = grid.step;
    }
    if (v.format->packed() && v.chroma_up) // whole pairs
        v.plane[0].cols = (v.width + 1) & ~1;
}

} // namespace

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

ImageView make_shape(const Format& format, int width, int height, ColorSpace color, bool chroma_up) {
    ImageView v;
    v.format = &format;
    v.color = color;
    v.chroma_up = chroma_up;
    v.width = width;
    v.height = height;
    size_planes(v);
    for (PlaneView& p : v.plane)
        p.pitch = static_cast<ptrdiff_t>(p.cols) * p.step;
    return v;
}

ImageView make_view(uint8_t* data, const Format& format, int width, int height, ColorSpace color, bool chroma_up) {
    ImageView v = make_shape(format, width, height, color, chroma_up);
    for (int i = 0; i < v.format->planes; ++i) {
        v.plane[i].data = data;
        data += v.plane[i].pitch * v.plane[i].rows;
    }
    if (v.format->planes == 3 && v.format->swapped())
        std::swap(v.plane[1], v.plane[2]);
    return v;
}

uint64_t packed_bytes(const Format& format, int width, int height, bool chroma_up) {
    const ImageView v = make_shape(format, width, height, {}, chroma_up);
    uint64_t bytes = 0;
    for (int i = 0; i < v.planes(); ++i)
        bytes += static_cast<uint64_t>(v.plane[i].pitch) * static_cast<uint64_t>(v.plane[i].rows);
    return bytes;
}

ImageView crop(const ImageView& view, const Box& box) {
    ImageView v = view;
    v.width = box.width;
    v.height = box.height;
    for (int i = 0; i < v.format->planes; ++i) {
        const PlaneRule& grid = v.format->plane[i];
        PlaneView& p = v.plane[i];
        p.data += (box.y >> grid.yshift) * p.pitch + static_cast<ptrdiff_t>(box.x >> grid.xshift) * p.step;
    }
    size_planes(v);
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
