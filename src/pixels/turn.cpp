// SPDX-License-Identifier: MIT
#include "pixels/turn.h"

#include <algorithm>
#include <cstring>

#include "image/scratch.h"
#include "kernels/kernels.h"
#include "pixels/even.h"

namespace tavi {

void mirror_image(const ImageView& src, const ImageView& dst) {
    for (int i = 0; i < dst.planes(); ++i) {
        const PlaneView &s = src.plane[i], &d = dst.plane[i];
        const auto row = kernels().mirror[d.step - 1];
        if (s.pitch == static_cast<ptrdiff_t>(s.cols) * s.step && d.pitch == -s.pitch) {
            row(s.data, d.row(d.rows - 1), d.cols * d.rows); // half a turn of a whole plane is one long row mirrored
            continue;
        }
        for (int y = 0; y < d.rows; ++y)
            row(s.row(y), d.row(y), d.cols);
    }
}

namespace {

// Tiles of columns first: the rows written to are few, and each is written in one run before the next tile.
void transpose_plane(const PlaneView& s, const PlaneView& d) {
    constexpr int kTile = 64;
    const int step = d.step;
    const auto rows16 = kernels().transpose16[step - 1];
    for (int x = 0; x < s.cols; x += kTile) {
        const int cols = std::min(kTile, s.cols - x);
        int y = 0;
        for (; y + 16 <= s.rows; y += 16)
            rows16(s.at(x, y), s.pitch, d.at(y, x), d.pitch, cols);
        for (; y < s.rows; ++y)
            for (int i = x; i < x + cols; ++i)
                std::memcpy(d.at(y, i), s.at(i, y), step);
    }
}

// 4:2:2 chroma turned: averaged in pairs of rows, which become columns, and doubled across, which becomes down. So
// many pairs at a time as the transposition takes at once.
bool transpose_chroma_422(const PlaneView& s, const PlaneView& d) {
    constexpr int kPairs = 16;
    Scratch scratch;
    PlaneView mean;
    mean.cols = s.cols;
    mean.step = s.step;
    mean.pitch = static_cast<ptrdiff_t>(s.cols) * s.step;
    mean.data = scratch.take<uint8_t>(static_cast<size_t>(mean.pitch) * kPairs);
    if (!mean.data)
        return false;
    for (int x = 0; x < d.cols; x += kPairs) {
        mean.rows = std::min(kPairs, d.cols - x);
        PlaneView even = s, odd = s;
        even.pitch = odd.pitch = 2 * s.pitch;
        even.data = s.row(2 * x);
        odd.data = s.row(2 * x + 1);
        const bool alone = 2 * (x + mean.rows) > s.rows; // the last row, of chroma that rounds up
        PlaneView pairs = mean;
        pairs.rows -= alone;
        average_rows(even, odd, pairs);
        if (alone)
            std::memcpy(mean.row(mean.rows - 1), s.row(s.rows - 1), static_cast<size_t>(s.cols) * s.step);
        for (int first = 0; first < 2; ++first) {
            PlaneView half = d;
            half.data = d.at(x, first);
            half.pitch *= 2;
            mean.cols = std::min(s.cols, (d.rows + 1 - first) / 2);
            transpose_plane(mean, half);
        }
        mean.cols = s.cols;
    }
    if (d.rows > 2 * s.cols)
        std::memcpy(d.row(d.rows - 1), d.row(d.rows - 2), static_cast<size_t>(d.cols) * d.step);
    return true;
}

} // namespace

bool transpose_image(const ImageView& src, const ImageView& dst) {
    transpose_plane(src.plane[0], dst.plane[0]);
    for (int i = 1; i < dst.planes(); ++i) {
        if (dst.format->xshift() != dst.format->yshift()) {
            if (!transpose_chroma_422(src.plane[i], dst.plane[i]))
                return false;
        } else {
            transpose_plane(src.plane[i], dst.plane[i]);
        }
    }
    return true;
}

} // namespace tavi
