// SPDX-License-Identifier: MIT
// The geometry of a letterboxed picture, in whole destination pixels. One place for software and engine.
#pragma once

#include <algorithm>
#include <cstdint>

#include "image/format.h"

namespace tavi {

/// Where the picture stands in the destination, and its scale as it comes out: destination pixels per source pixel.
struct Letterbox {
    int x;
    int y;
    int width;
    int height;
    float scale_x;
    float scale_y;
};

enum class LetterboxPosition : int { centre = 0, top_left = 1, bottom_right = 2 };

/// Pixels per chroma sample of a format, across and down: 1 or 2.
struct ChromaGrid {
    int x;
    int y;
};

inline ChromaGrid chroma_grid(const Format& f) { return {1 << f.xshift(), 1 << f.yshift()}; }

namespace letterbox_detail {

struct Side {
    int start;
    int length;
};

/// One side of the picture, shorter than the destination's: it begins and ends on whole chroma samples, or ends where
/// the destination does.
inline Side side(int64_t source, int64_t other_source, int64_t other_extent, int extent, int grid,
                 LetterboxPosition position) {
    const int64_t fitted = (2 * source * other_extent + other_source) / (2 * other_source); // rounded
    if (fitted >= extent)
        return {0, extent};
    if (position == LetterboxPosition::bottom_right) {
        const int at = (extent - static_cast<int>(fitted)) / grid * grid;
        const int start = std::max(0, extent - at < grid ? at - grid : at);
        return {start, extent - start};
    }
    const int whole = static_cast<int>((fitted + grid / 2) / grid * grid);
    const int length = std::min(std::max(whole, grid), extent);
    return {position == LetterboxPosition::centre ? (extent - length) / 2 / grid * grid : 0, length};
}

} // namespace letterbox_detail

/// Fits a source into a destination: the largest picture of the source's aspect ratio, rounded to pixels.
inline Letterbox letterbox_geometry(int src_width, int src_height, int dst_width, int dst_height, ChromaGrid grid,
                                    LetterboxPosition position) {
    using letterbox_detail::side;
    const bool by_width = int64_t{src_width} * dst_height >= int64_t{src_height} * dst_width;
    const auto across = by_width ? letterbox_detail::Side{0, dst_width}
                                 : side(src_width, src_height, dst_height, dst_width, grid.x, position);
    const auto down = by_width ? side(src_height, src_width, dst_width, dst_height, grid.y, position)
                               : letterbox_detail::Side{0, dst_height};
    Letterbox box = {};
    box.x = across.start, box.width = across.length;
    box.y = down.start, box.height = down.length;
    box.scale_x = static_cast<float>(box.width) / static_cast<float>(src_width);
    box.scale_y = static_cast<float>(box.height) / static_cast<float>(src_height);
    return box;
}

} // namespace tavi
