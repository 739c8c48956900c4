// SPDX-License-Identifier: MIT
#include "image/paint.h"

#include <algorithm>
#include <cstring>

#include "image/kernels.h"

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
    const uint8_t pair[6] = {uint8_t(red), uint8_t(green), uint8_t(blue),
                             uint8_t(red), uint8_t(green), uint8_t(blue)};
    const Format& f = *view.format;
    Ink ink = {};
    if (f.family == Family::rgb) {
        ink.bytes[0][0] = pair[f.swapped ? 2 : 0];
        ink.bytes[0][1] = pair[1];
        ink.bytes[0][2] = pair[f.swapped ? 0 : 2];
        ink.bytes[0][3] = 255;
        return ink;
    }
    const Kernels& k = plain_kernels();
    if (f.family == Family::gray) {
        k.rgb_to_gray[kRGB](pair, ink.bytes[0], 1);
        ink.bytes[0][1] = ink.bytes[0][0]; // 16 bits: times 257
        return ink;
    }
    uint8_t luma[2], u, v;
    k.rgb_to_yuv422[kPlanar][kRGB](pair, luma, &u, &v, 2);
    if (f.planes == 1) {
        const bool luma_first = view.id() == TAVI_PIXEL_FORMAT_YUV422_YUYV;
        const uint8_t yuyv[4] = {luma[0], u, luma[0], v}, uyvy[4] = {u, luma[0], v, luma[0]};
        std::memcpy(ink.bytes[0], luma_first ? yuyv : uyvy, 4);
        return ink;
    }
    ink.bytes[0][0] = luma[0];
    ink.bytes[1][0] = f.planes == 2 && f.swapped ? v : u;
    ink.bytes[1][1] = f.planes == 2 && f.swapped ? u : v;
    ink.bytes[2][0] = v;
    return ink;
}

void fill_box(const ImageView& view, const Box& box, const Ink& ink) {
    if (box.width <= 0 || box.height <= 0)
        return;
    if (view.planes() == 1 && view.format->family == Family::yuv422) {
        // Pairs of pixels; an odd last column holds its luma and a neutral 128.
        PlaneView pairs = view.plane[0];
        pairs.step = 4;
        const int pair_count = (box.width + (box.x + box.width < view.width)) / 2;
        fill_plane(pairs, box.x / 2, box.y, pair_count, box.height, ink.bytes[0], 4);
        if (2 * pair_count < box.width) {
            const bool luma_first = view.id() == TAVI_PIXEL_FORMAT_YUV422_YUYV;
            const uint8_t last[2] = {luma_first ? ink.bytes[0][0] : uint8_t{128},
                                     luma_first ? uint8_t{128} : ink.bytes[0][1]};
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
