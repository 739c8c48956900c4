// SPDX-License-Identifier: MIT
#include "pixels/image_scaler.h"

#include <algorithm>

#include "pixels/even.h"

namespace tavi {
namespace {

/// One side of source and destination, in pixels.
struct Side {
    int src_extent;
    int first, count; ///< what is scaled of it
    int dst_extent;
    bool src_sited, dst_sited; ///< chroma stands at the first of its pixels, not in their middle
};

/// One axis of a plane.
AxisMap axis_of(const Side& s, int src_shift, int dst_shift, const ScaleRequest& r, int& origin) {
    AxisMap m;
    // An odd end that is rounded down shares the sample before it.
    const int last = samples_along(s.src_extent, src_shift, r.from_up) - 1;
    const int begin = std::min(s.first >> src_shift, last),
              end = std::min((s.first + s.count - 1) >> src_shift, last);
    origin = begin;
    m.src_count = end - begin + 1;
    m.dst_count = samples_along(s.dst_extent, dst_shift, r.to_up);
    m.num = s.count << std::max(0, dst_shift - src_shift);
    m.den = s.dst_extent << std::max(0, src_shift - dst_shift);
    m.offset = src_shift ? s.first - 2 * begin : 0;
    const bool src_sited = s.src_sited && src_shift, dst_sited = s.dst_sited && dst_shift;
    m.replicated = src_shift > dst_shift && !src_sited;
    if (TAVI_WITH_FRAMES && (src_sited || dst_sited)) {
        // A source sample's centre comes a quarter of it earlier, a result's half a pixel.
        const int halves = (src_sited ? m.den : 0) - (dst_sited ? m.num : 0);
        const int finer = halves % 2 ? 2 : 1;
        m.num *= finer;
        m.den *= finer;
        m.phase = halves * finer / 2;
    }
    m.filter = axis_filter(r.method, s.count, s.dst_extent);
    return m;
}

} // namespace

bool ImageScaler::init(Scratch& scratch, const ScaleRequest& r) {
    from_ = r.from;
    to_ = r.to;
    src_height_ = r.src_height;
    to_up_ = r.to_up;
    const bool deep = r.to->bits > r.from->bits;
    for (int i = 0; i < from_->planes; ++i) {
        const PlaneRule &from = from_->plane[i], &to = to_->plane[i];
        Plane& p = planes_[i];
        const AxisMap x =
            axis_of({r.src_width, r.box.x, r.box.width, r.dst_width, r.from_siting.left, r.to_siting.left},
                    from.xshift, to.xshift, r, p.origin_x);
        const AxisMap y =
            axis_of({r.src_height, r.box.y, r.box.height, r.dst_height, r.from_siting.top, r.to_siting.top},
                    from.yshift, to.yshift, r, p.origin_y);
        const bool wide = from_->bits == 16;
        if (!p.scaler.init(scratch, wide ? 1 : from.step, wide, deep, x, y))
            return false;
    }
    return true;
}

RowRange ImageScaler::source_rows(int y0, int y1) const {
    RowRange all{src_height_, 0};
    for (int i = 0; i < from_->planes; ++i) {
        const int shift = from_->plane[i].yshift, dst_shift = to_->plane[i].yshift;
        const int p0 = y0 >> dst_shift, p1 = samples_along(y1, dst_shift, to_up_);
        if (p0 >= p1)
            continue;
        const RowRange r = planes_[i].scaler.source_rows(p0, p1);
        const int origin = planes_[i].origin_y;
        all.begin = std::min(all.begin, (r.begin + origin) << shift);
        all.end = std::max(all.end, std::min((r.end + origin) << shift, src_height_));
    }
    if (from_->yshift() == 1) {
        all.begin &= ~1;
        all.end = std::min((all.end + 1) & ~1, src_height_);
    }
    return all;
}

void ImageScaler::run(const ImageView& src, int src_first, int y0, const ImageView& dst) {
    for (int i = 0; i < from_->planes; ++i) {
        Plane& p = planes_[i];
        PlaneView from = src.plane[i];
        from.data += static_cast<ptrdiff_t>(p.origin_x) * from.step;
        p.scaler.run(from, (src_first >> from_->plane[i].yshift) - p.origin_y, y0 >> to_->plane[i].yshift,
                     dst.plane[i]);
    }
}

bool ImageScaler::run_to_rgb(const ImageView& src, int first, const ImageView& dst, const YuvToRgb& color) const {
    const Plane &luma = planes_[0], &chroma = planes_[1];
    const bool pairs = from_->planes == 2 && !to_->subsampled();
    const auto row = pairs ? kernels().third_to_rgb[from_->swapped()][rgb_kind(*dst.format)] : nullptr;
    if (!row || dst.width < 16 || dst.width % 2 || !luma.scaler.picks_thirds() || !chroma.scaler.picks_thirds())
        return false;
    const auto source = [&](int plane, int y) {
        const Plane& p = planes_[plane];
        const PlaneView& from = src.plane[plane];
        return from.row(p.scaler.source_rows(y, y + 1).begin + p.origin_y) +
               static_cast<ptrdiff_t>(p.origin_x) * from.step;
    };
    for (int y = 0; y < dst.height; ++y)
        row(source(0, first + y), source(1, first + y), dst.plane[0].row(y), dst.width, color);
    return true;
}

} // namespace tavi
