// SPDX-License-Identifier: MIT
#include "pixels/fill.h"

#include <algorithm>
#include <cstring>

#include "pixels/one_pixel.h"

namespace tavi {
namespace {

// Repeats `step` bytes of `unit` over a row.
void fill_row(uint8_t* row, const uint8_t* unit, int step, int cols) {
    const bool flat = std::all_of(unit, unit + step, [&](uint8_t b) { return b == unit[0]; });
    if (flat) {
        std::memset(row, unit[0], static_cast<size_t>(cols) * step);
        return;
    }
    const size_t bytes = static_cast<size_t>(cols) * step;
    std::memcpy(row, unit, step);
    for (size_t done = step; done < bytes; done *= 2) // doubling copies: memcpy does the rest
        std::memcpy(row + done, row, std::min(done, bytes - done));
}

void fill_plane(const PlaneView& p, int x, int y, int cols, int rows, const uint8_t* unit, int step) {
    if (cols <= 0 || rows <= 0)
        return;
    uint8_t* first = p.at(x, y);
    fill_row(first, unit, step, cols);
    for (int i = 1; i < rows; ++i)
        std::memcpy(first + i * p.pitch, first, static_cast<size_t>(cols) * step);
}

} // namespace

Ink ink_of(const ImageView& view, int red, int green, int blue) {
    const Format& f = *view.format;
    const Pixel rgba = {{static_cast<uint16_t>(red), static_cast<uint16_t>(green), static_cast<uint16_t>(blue), 255}};
    const Pixel pixel = convert_pixel(rgba, kFormats[TAVI_PIXEL_FORMAT_RGBA8888], f, view.color);
    Ink ink = {};
    for (int i = 0; i < f.parts; ++i) {
        const Component& c = f.part[i];
        uint8_t* column = ink.bytes[f.planes == 3 ? i : c.plane];
        // A packed column is a pair of pixels: luma stands in it twice.
        for (int at = c.byte; at < (f.packed() ? 4 : c.step); at += c.step)
            std::memcpy(column + at, &pixel.part[i], f.sample_bytes());
    }
    return ink;
}

void fill_box(const ImageView& view, const Box& box, const Ink& ink) {
    if (box.width <= 0 || box.height <= 0)
        return;
    if (view.format->packed()) {
        // Pairs of pixels; an odd last column holds its luma and a neutral 128.
        PlaneView pairs = view.plane[0];
        pairs.step = 4;
        const int pair_count = (box.width + (view.chroma_up || box.x + box.width < view.width)) / 2;
        fill_plane(pairs, box.x / 2, box.y, pair_count, box.height, ink.bytes[0], 4);
        if (2 * pair_count < box.width) {
            uint8_t last[2] = {kNeutral, kNeutral};
            const int luma = view.format->part[0].byte;
            last[luma] = ink.bytes[0][luma];
            fill_plane(view.plane[0], view.width - 1, box.y, 1, box.height, last, 2);
        }
        return;
    }
    for (int i = 0; i < view.planes(); ++i) {
        const PlaneView& p = view.plane[i];
        const PlaneRule& grid = view.format->plane[i];
        const int x = box.x >> grid.xshift, y = box.y >> grid.yshift;
        const int end_x = std::min((box.x + box.width + (1 << grid.xshift) - 1) >> grid.xshift, p.cols);
        const int end_y = std::min((box.y + box.height + (1 << grid.yshift) - 1) >> grid.yshift, p.rows);
        fill_plane(p, x, y, end_x - x, end_y - y, ink.bytes[i], p.step);
    }
}

void paint_padding(const ImageView& view, const Box& picture, uint32_t rgb) {
    const Ink ink = ink_of(view, rgb >> 16 & 255, rgb >> 8 & 255, rgb & 255);
    const int right = picture.x + picture.width, bottom = picture.y + picture.height;
    fill_box(view, {0, 0, view.width, picture.y}, ink);
    fill_box(view, {0, picture.y, picture.x, picture.height}, ink);
    fill_box(view, {right, picture.y, view.width - right, picture.height}, ink);
    fill_box(view, {0, bottom, view.width, view.height - bottom}, ink);
}

} // namespace tavi
