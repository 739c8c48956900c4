// SPDX-License-Identifier: MIT
#include "backends/cpu/drawing/painter.h"

#include <algorithm>
#include <cstring>

#include "kernels/kernels.h"
#include "pixels/fill.h"

namespace tavi {
namespace {

/// Copies `size` bytes of a pattern that repeats a column. A piece that ends with the run may overlap the one before
/// it: what stands at an offset of the pattern is right for that offset of the run, modulo the column.
template <int Size>
void piece(uint8_t* to, size_t offset, const uint8_t* pattern) {
    std::memcpy(to + offset, pattern + offset % 12, Size);
}

inline void fill(uint8_t* to, size_t size, const uint8_t* pattern) {
    if (size >= 48) {
        kernels().repeat12(to, size, pattern);
    } else if (size >= 16) {
        piece<16>(to, 0, pattern);
        if (size > 32)
            piece<16>(to, 16, pattern);
        piece<16>(to, size - 16, pattern);
    } else if (size >= 8) {
        piece<8>(to, 0, pattern);
        piece<8>(to, size - 8, pattern);
    } else if (size >= 4) {
        piece<4>(to, 0, pattern);
        piece<4>(to, size - 4, pattern);
    } else {
        for (size_t i = 0; i < size; ++i)
            to[i] = pattern[i];
    }
}

} // namespace

Painter::Painter(const ImageView& view, tavi_color_t color) : view_(view) {
    const Format& f = *view.format;
    const Ink ink = ink_of(view, color.r, color.g, color.b);
    const bool pairs = f.subsampled() && f.planes == 1; // two pixels at a time
    paint_ = pairs ? &Painter::paint_packed : f.subsampled() ? &Painter::paint_subsampled : &Painter::paint_plane;
    for (int i = 0; i < f.planes; ++i) {
        const int step = pairs ? 4 : view.plane[i].step;
        for (int b = 0; b < 12; b += step)
            std::memcpy(pattern_[i] + b, ink.bytes[i], static_cast<size_t>(step));
        for (int b = 12; b < kPattern; b += 12)
            std::memcpy(pattern_[i] + b, pattern_[i], 12);
    }
}

Painter::~Painter() {
    for (const ChromaRun& run : pending_)
        paint_chroma(run);
}

void Painter::block(int y0, int y1, double x0, double x1) {
    const int left = column(x0);
    const int right = column(x1);
    if (left >= right || y0 >= y1)
        return;
    for (int i = 0; i < view_.format->planes; ++i) {
        if (paint_ == &Painter::paint_packed) {
            for (int y = y0; y < y1; ++y)
                paint_packed(y, left, right);
            continue;
        }
        const PlaneView& p = view_.plane[i];
        const PlaneRule& rule = view_.format->plane[i];
        // The last column or row of an odd size has its neighbour's chroma.
        const int first = std::min(left >> rule.xshift, p.cols - 1);
        const int end = std::min((right + rule.xshift) >> rule.xshift, p.cols);
        const int last_row = std::min((y1 - 1) >> rule.yshift, p.rows - 1);
        const auto size = static_cast<size_t>(end - first) * p.step;
        for (int row = std::min(y0 >> rule.yshift, p.rows - 1); row <= last_row; ++row)
            fill(p.at(first, row), size, pattern_[i]);
    }
}

void Painter::paint_plane(int y, int x0, int x1) {
    const PlaneView& p = view_.plane[0];
    fill(p.at(x0, y), static_cast<size_t>(x1 - x0) * p.step, pattern_[0]);
}

void Painter::paint_chroma(const ChromaRun& run) {
    for (int i = 1; i < view_.format->planes && run.first < run.end; ++i) {
        const PlaneView& p = view_.plane[i];
        fill(p.at(run.first, run.row), static_cast<size_t>(run.end - run.first) * p.step, pattern_[i]);
    }
}

void Painter::paint_subsampled(int y, int x0, int x1) {
    paint_plane(y, x0, x1);
    // The last column or row of an odd size has its neighbour's chroma.
    const PlaneView& chroma = view_.plane[1];
    const ChromaRun run{std::min(y >> view_.format->plane[1].yshift, chroma.rows - 1),
                        std::min(x0 >> 1, chroma.cols - 1), std::min((x1 + 1) >> 1, chroma.cols)};
    for (ChromaRun& last : pending_) {
        if (last.row == run.row && last.first <= run.end && run.first <= last.end) {
            last.first = std::min(last.first, run.first);
            last.end = std::max(last.end, run.end);
            return;
        }
    }
    paint_chroma(pending_[0]);
    pending_[0] = pending_[1];
    pending_[1] = run;
}

void Painter::paint_packed(int y, int x0, int x1) {
    uint8_t* const row = view_.plane[0].row(y);
    const uint8_t* const pair = pattern_[0];
    const int luma = view_.format->part[0].byte;
    const auto half = [&](int x) { // one pixel, and the chroma that it shares
        row[2 * x + luma] = pair[luma];
        uint8_t* const chroma = row + 4 * std::min(x >> 1, (view_.width >> 1) - 1) + 1 - luma;
        chroma[0] = pair[1 - luma];
        chroma[2] = pair[3 - luma];
    };
    if (x0 & 1)
        half(x0++);
    if (x0 < x1 && (x1 & 1))
        half(--x1);
    if (x0 < x1)
        fill(row + 2 * x0, static_cast<size_t>(x1 - x0) * 2, pair);
}

} // namespace tavi
