// SPDX-License-Identifier: MIT
// Geometry of regions: alignment, expansion, fitting to an aspect ratio. No pixels, no memory; the same results on
// every machine, at the ends of the int range too.
#include <algorithm>
#include <cmath>

#include "image/numbers.h"
#include "utils/image_checks.h"
#include "utils/log_args.h"

namespace {

using tavi::inclusive_span;
using tavi::to_int;
using tavi::wrapping_add;
using tavi::wrapping_mul;
using tavi::wrapping_sub;

struct Extent {
    int32_t first;
    int32_t size;
};

// INT_MIN % -1 is 0 too, but the processor traps on it.
bool is_multiple(int32_t value, int32_t step) { return step == -1 || value % step == 0; }

int32_t round_up(int32_t value, int32_t step) {
    return wrapping_mul(step, to_int(ceilf(static_cast<float>(value) / static_cast<float>(step))));
}

int32_t round_down(int32_t value, int32_t step) {
    return wrapping_mul(step, to_int(floorf(static_cast<float>(value) / static_cast<float>(step))));
}

// One axis of the alignment. Whether the grown size fits is judged from the edge before it moves.
Extent align_axis(Extent e, int32_t image_side, int32_t size_step, int32_t first_step) {
    if (!is_multiple(e.size, size_step)) {
        int32_t size = round_up(e.size, size_step);
        if (wrapping_add(e.first, size) > image_side)
            size = round_down(e.size, size_step);
        e.first = wrapping_sub(e.first, wrapping_sub(size, e.size) / 2);
        e.size = size;
    }
    e.first = std::max(e.first, 0);
    if (!is_multiple(e.first, first_step))
        e.first = round_up(e.first, first_step); // may push the far edge out of the image; callers test that
    return e;
}

int32_t last_of(Extent e) { return wrapping_sub(wrapping_add(e.first, e.size), 1); }

} // namespace

int tavi_image_rect_align(int img_width, int img_height, tavi_rect_t* src_rect, int align_width, int align_other,
                          tavi_rect_t* dst_rect) {
    if (align_width == 0 || align_other == 0) {
        LOG_ERROR("params error align_width=%d align_other=%d, neither may be 0", align_width, align_other);
        return TAVI_RET_PARAM_ERR;
    }
    const tavi_rect_t src = *src_rect;
    // Width and height share one granularity, left and top the other.
    const Extent x = align_axis({src.left, inclusive_span(src.left, src.right)}, img_width, align_width, align_other);
    const Extent y = align_axis({src.top, inclusive_span(src.top, src.bottom)}, img_height, align_width, align_other);
    dst_rect->left = x.first;
    dst_rect->top = y.first;
    dst_rect->right = last_of(x);
    dst_rect->bottom = last_of(y);
    // Read again from src_rect: in place, the line shows the aligned values on both sides.
    LOG_INFO("src roi=(%d %d %d %d) size=(%dx%d) ==> aligned roi=(%d %d %d %d) size=(%dx%d) align_width=%d "
             "align_other=%d",
             LTRB(*src_rect), RECT_WH(*src_rect), LTRB(*dst_rect), RECT_WH(*dst_rect), align_width, align_other);
    return TAVI_RET_SUCCESS;
}

int tavi_image_rect_expand(tavi_image_t* img, tavi_rect_t* roi, tavi_rect_t* expand_roi, float* expand_area) {
    if (!img || !roi || !expand_roi || !expand_area) {
        LOG_ERROR("params error (img=%p img->data=%p roi=%p expand_roi=%p expand_area=%p", img,
                  img ? img->data : nullptr, roi, expand_roi, expand_area);
        return TAVI_RET_PARAM_ERR;
    }
    const auto w = static_cast<float>(inclusive_span(roi->left, roi->right));
    const auto h = static_cast<float>(inclusive_span(roi->top, roi->bottom));
    const int32_t right = to_int(static_cast<float>(roi->right) + w * expand_area[2]);
    const int32_t bottom = to_int(static_cast<float>(roi->bottom) + h * expand_area[3]);
    const int32_t left = to_int(static_cast<float>(roi->left) - w * expand_area[0]);
    const int32_t top = to_int(static_cast<float>(roi->top) - h * expand_area[1]);
    expand_roi->right = std::min(right, static_cast<int32_t>(img->width - 1));
    expand_roi->bottom = std::min(bottom, static_cast<int32_t>(img->height - 1));
    expand_roi->left = std::max(left, 0);
    expand_roi->top = std::max(top, 0);
    return TAVI_RET_SUCCESS;
}

int tavi_image_rect_keep_ratio(tavi_image_t* img, tavi_rect_t* src_rect, tavi_rect_t* dst_rect, float dst_ratio) {
    if (!img || !src_rect || !dst_rect || dst_ratio <= 0) { // not-a-number passes
        // Five values for four conversions: every value after the first shows one place late. People grep for this
        // line as it is, so it stays, and the compiler's objection is silenced just here.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat"
#pragma GCC diagnostic ignored "-Wformat-extra-args"
        LOG_ERROR("params error (img=%p src_roi=%p dst_roi=%p dst_ratio=%f)", img, img ? img->data : nullptr,
                  src_rect, dst_rect, static_cast<double>(dst_ratio));
#pragma GCC diagnostic pop
        return TAVI_RET_PARAM_ERR;
    }
    if (!tavi::has_data_or_fd(*img)) {
        LOG_ERROR("params error img->data=%p img->fd=%d", img->data, img->fd);
        return TAVI_RET_PARAM_ERR;
    }
    const tavi_rect_t src = *src_rect;
    // Without the + 1 of inclusive edges, unlike everywhere else: a side that does not grow comes out one smaller.
    const int32_t w = wrapping_sub(src.right, src.left);
    const int32_t h = wrapping_sub(src.bottom, src.top);
    const float ratio = static_cast<float>(w) / static_cast<float>(h); // infinite or not a number when h is 0
    int32_t new_w = w;
    int32_t new_h = h;
    double dx = 0;
    double dy = 0;
    if (dst_ratio > ratio) {
        new_w = to_int(static_cast<float>(h) * dst_ratio);
        dx = wrapping_sub(new_w, w) * 0.5;
    } else if (dst_ratio < ratio) {
        new_h = to_int(static_cast<float>(w) / dst_ratio);
        dy = wrapping_sub(new_h, h) * 0.5;
    }
    // Past the left or top edge the box is shifted back whole; past the right or bottom edge it is cut. The minimum
    // is unsigned, so an edge of -1 becomes the image's last pixel.
    dst_rect->left = std::max(to_int(src.left - dx), 0);
    dst_rect->top = std::max(to_int(src.top - dy), 0);
    const auto right = static_cast<uint32_t>(last_of({dst_rect->left, new_w}));
    const auto bottom = static_cast<uint32_t>(last_of({dst_rect->top, new_h}));
    dst_rect->right = static_cast<int32_t>(std::min(right, img->width - 1));
    dst_rect->bottom = static_cast<int32_t>(std::min(bottom, img->height - 1));
    LOG_INFO("src_rect LTRB=(%d %d %d %d) wxh=(%dx%d) dst_ratio=%f img wxh=(%dx%d) => dst_roi LTRB=(%d %d %d %d) "
             "wxh=(%dx%d)",
             LTRB(src), w, h, static_cast<double>(dst_ratio), WH(*img), LTRB(*dst_rect), new_w, new_h);
    return TAVI_RET_SUCCESS;
}
