// SPDX-License-Identifier: MIT
#include "pixels/warp.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "image/scratch.h"
#include "kernels/kernels.h"
#include "pixels/fill.h"
#include "pixels/odd_edges.h"

namespace tavi {
namespace {

// The same map for a plane whose samples stand every 2^shift pixels, in the middle of the pixels they cover.
Affine for_plane(const Affine& m, const PlaneRule& grid) {
    const double kx = 1 << grid.xshift, ky = 1 << grid.yshift, ox = (kx - 1) / 2, oy = (ky - 1) / 2;
    return {m.a,           m.b * ky / kx, (m.a * ox + m.b * oy + m.c - ox) / kx,
            m.d * kx / ky, m.e,           (m.d * ox + m.e * oy + m.f - oy) / ky};
}

struct Range {
    int begin;
    int end;
};

// The columns x of [range) with lo <= start + slope * x <= hi.
Range columns_within(Range range, double start, double slope, double lo, double hi) {
    double first = range.begin, last = range.end - 1.0;
    if (!(lo <= hi))
        return {range.begin, range.begin};

    if (slope == 0) {
        if (!(start >= lo && start <= hi))
            return {range.begin, range.begin};
    } else {
        const double at_lo = (lo - start) / slope, at_hi = (hi - start) / slope;
        first = std::max(first, std::ceil(std::min(at_lo, at_hi)));
        last = std::min(last, std::floor(std::max(at_lo, at_hi)));
    }
    if (!(first <= last))
        return {range.begin, range.begin};
    return {static_cast<int>(first), static_cast<int>(last) + 1};
}

constexpr int kBlock = 64;            // columns between exact positions: the 16.16 steps drift by less than 1/1000
constexpr double kMargin = 1.0 / 256; // keeps drift and rounding inside the source

class PlaneWarp {
public:
    PlaneWarp(const PlaneView& src, const PlaneView& dst, const Affine& map, const uint8_t* black, bool wide)
        : src_(src), dst_(dst), map_(map), dx_(step(map.a)), dy_(step(map.d)), wide_(wide),
          channels_(wide ? 1 : dst.step) {
        std::memcpy(black_, black, 4);
    }

    void run() {
        for (int y = 0; y < dst_.rows; ++y)
            row(y);
    }

private:
    // A run of more than one column has steps smaller than an image's side.
    static int32_t step(double v) {
        return static_cast<int32_t>(std::floor(std::clamp<double>(v, -kMaxSide, kMaxSide) * 65536 + 0.5));
    }

    void row(int y) {
        const double sx = map_.b * y + map_.c, sy = map_.e * y + map_.f;
        // Where any of the four samples is inside, and where all are.
        const Range all{0, dst_.cols};
        Range outer = columns_within(all, sx, map_.a, -1, src_.cols);
        outer = columns_within(outer, sy, map_.d, -1, src_.rows);
        Range inner = columns_within(outer, sx, map_.a, kMargin, src_.cols - 1 - kMargin);
        inner = columns_within(inner, sy, map_.d, kMargin, src_.rows - 1 - kMargin);
        // Solving for columns and evaluating positions round differently when the map is nearly singular: what counts
        // is the position that will be used.
        const auto inside = [&](int x) {
            const double at_x = sx + map_.a * x, at_y = sy + map_.d * x;
            return at_x >= kMargin && at_x <= src_.cols - 1 - kMargin && at_y >= kMargin &&
                   at_y <= src_.rows - 1 - kMargin;
        };
        while (inner.begin < inner.end && !inside(inner.begin))
            ++inner.begin;
        while (inner.begin < inner.end && !inside(inner.end - 1))
            --inner.end;
        if (wide_ || inner.begin >= inner.end)
            inner = {outer.end, outer.end};
        fill(y, 0, outer.begin);
        slow(y, sx, sy, outer.begin, inner.begin);
        fast(y, sx, sy, inner);
        slow(y, sx, sy, inner.end, outer.end);
        fill(y, outer.end, dst_.cols);
    }

    void fill(int y, int begin, int end) {
        for (int x = begin; x < end; ++x)
            std::memcpy(dst_.at(x, y), black_, dst_.step);
    }

    void fast(int y, double sx, double sy, Range range) {
        const auto span = kernels().affine_span[channels_ - 1];
        const bool single = range.end - range.begin == 1;
        const auto inside = [](double v) { return static_cast<int32_t>(v * 65536 + 0.5); }; // never negative
        for (int x = range.begin; x < range.end; x += kBlock) {
            const AffineSpan s = {src_.data,
                                  src_.pitch,
                                  src_.cols,
                                  src_.rows,
                                  inside(sx + map_.a * x),
                                  inside(sy + map_.d * x),
                                  single ? 0 : dx_,
                                  single ? 0 : dy_};
            span(s, dst_.at(x, y), std::min(kBlock, range.end - x));
        }
    }

    float sample(int x, int y, int c) const {
        const bool inside = x >= 0 && y >= 0 && x < src_.cols && y < src_.rows;
        if (wide_) {
            uint16_t v = 0; // black
            if (inside)
                std::memcpy(&v, src_.at(x, y), sizeof v);
            return v;
        }
        return inside ? src_.at(x, y)[c] : black_[c];
    }

    void slow(int y, double sx, double sy, int begin, int end) {
        for (int x = begin; x < end; ++x) {
            const double at_x = sx + map_.a * x, at_y = sy + map_.d * x;
            if (!(at_x > -1 && at_x < src_.cols && at_y > -1 && at_y < src_.rows)) {
                std::memcpy(dst_.at(x, y), black_, dst_.step);
                continue;
            }
            const int ix = static_cast<int>(std::floor(at_x)), iy = static_cast<int>(std::floor(at_y));
            const float fx = static_cast<float>(at_x - ix), fy = static_cast<float>(at_y - iy);
            for (int c = 0; c < channels_; ++c) {
                const float top = sample(ix, iy, c) * (1 - fx) + sample(ix + 1, iy, c) * fx;
                const float bottom = sample(ix, iy + 1, c) * (1 - fx) + sample(ix + 1, iy + 1, c) * fx;
                const float v = top * (1 - fy) + bottom * fy + 0.5f;
                if (wide_) {
                    const uint16_t out = static_cast<uint16_t>(v);
                    std::memcpy(dst_.at(x, y), &out, sizeof out);
                } else {
                    dst_.at(x, y)[c] = static_cast<uint8_t>(v);
                }
            }
        }
    }

    const PlaneView& src_;
    const PlaneView& dst_;
    const Affine map_;
    const int32_t dx_, dy_; ///< 16.16
    const bool wide_;
    const int channels_;
    uint8_t black_[4];
};

} // namespace

bool warp_image(const ImageView& src, const ImageView& dst, const Affine& to_source) {
    if (src.format->packed()) { // packed chroma has no plane of its own to sample
        Scratch scratch;
        const Format& planar = *find_yuv(3, src.format->xshift(), src.format->yshift(), false);
        uint8_t* from = scratch.take<uint8_t>(byte_count(planar, src.width, src.height));
        uint8_t* to = scratch.take<uint8_t>(byte_count(planar, dst.width, dst.height));
        if (!from || !to)
            return false;
        const ImageView s = make_view(from, planar, src.width, src.height, src.color),
                        d = make_view(to, planar, dst.width, dst.height, dst.color);
        return convert_image(src, s) && warp_image(s, d, to_source) && convert_image(d, dst);
    }
    const Ink black = ink_of(dst, 0, 0, 0);
    for (int i = 0; i < dst.planes(); ++i)
        PlaneWarp(src.plane[i], dst.plane[i], for_plane(to_source, dst.format->plane[i]), black.bytes[i],
                  dst.format->sample_bytes() == 2)
            .run();
    return true;
}

} // namespace tavi
