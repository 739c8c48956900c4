// SPDX-License-Identifier: MIT
#include "pixels/image_scaler.h"

#include <algorithm>

#include "pixels/even.h"

namespace tavi {
namespace {

/// One axis of a plane.
AxisMap axis_of(int src_shift, int src_extent, int first, int count, int dst_shift, int dst_extent, int method,
                int& origin) {
    AxisMap m;
    const int last = (src_extent >> src_shift) - 1; // an odd end shares the sample before it
    const int begin = std::min(first >> src_shift, last), end = std::min((first + count - 1) >> src_shift, last);
    origin = begin;
    m.src_count = end - begin + 1;
    m.dst_count = dst_extent >> dst_shift;
    m.num = count << std::max(0, dst_shift - src_shift);
    m.den = dst_extent << std::max(0, src_shift - dst_shift);
    m.offset = src_shift ? first - 2 * begin : 0;
    m.replicated = src_shift > dst_shift;
    m.filter = axis_filter(method, count, dst_extent);
    return m;
}

} // namespace

bool ImageScaler::init(Scratch& scratch, const ScaleRequest& r) {
    from_ = r.from;
    to_ = r.to;
    src_height_ = r.src_height;
    const bool deep = r.to->bits > r.from->bits;
    for (int i = 0; i < from_->planes; ++i) {
        const PlaneRule &from = from_->plane[i], &to = to_->plane[i];
        Plane& p = planes_[i];
        const AxisMap x =
            axis_of(from.xshift, r.src_width, r.box.x, r.box.width, to.xshift, r.dst_width, r.method, p.origin_x);
        const AxisMap y =
            axis_of(from.yshift, r.src_height, r.box.y, r.box.height, to.yshift, r.dst_height, r.method, p.origin_y);
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
        const int p0 = y0 >> dst_shift, p1 = y1 >> dst_shift;
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

bool ImageScaler::run_to_rgb(const ImageView& src, const ImageView& dst, const YuvToRgb& color) const {
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
        row(source(0, y), source(1, y), dst.plane[0].row(y), dst.width, color);
    return true;
}

} // namespace tavi
