// SPDX-License-Identifier: MIT
// Conversion of frames: fields are checked, the picture is laid out, and the work goes to the pixel routines.
#include <algorithm>
#include <cstdio>

#include "frames/frame_access.h"
#include "frames/lines.h"
#include "frames/placement.h"
#include "image/scratch.h"
#include "pixels/convert.h"
#include "pixels/even.h"
#include "pixels/fill.h"

#define TAVI_LOG_TAG "tavi-frame"
#include "services/log.h"

namespace tavi {
namespace {

/// A copy of a view's pixels; an empty view when there is no memory.
ImageView copy_of(const ImageView& v, Scratch& scratch, uint64_t& bytes) {
    bytes = packed_bytes(*v.format, v.width, v.height, v.chroma_up);
    uint8_t* const pixels = scratch.take<uint8_t>(static_cast<size_t>(bytes));
    if (!pixels)
        return {};
    const ImageView copy = make_view(pixels, *v.format, v.width, v.height, v.color, v.chroma_up);
    for (int i = 0; i < v.planes(); ++i)
        copy_plane(v.plane[i], copy.plane[i]);
    return copy;
}

Refusal convert(const tavi_frame_t* src, const tavi_frame_t* dst, const tavi_frame_options_t* options,
                tavi_frame_report_t& report) {
    const FrameAccess from(src, Access::read, "src"), to(dst, Access::write, "dst");
    if (!from)
        return from.refusal();
    if (!to)
        return to.refusal();
    Placement p;
    if (const Refusal no = lay_out(from.view(), to.view(), options, p))
        return no;
    const FrameAccess::Overlap overlap = from.overlap(to);
    if (overlap == FrameAccess::Overlap::partial)
        return {TAVI_RET_PARAM_ERR, "src and dst overlap: allowed are separate memory, or the same planes"};
    Scratch scratch;
    ImageView source = from.view();
    if (overlap == FrameAccess::Overlap::same_planes) {
        source = copy_of(source, scratch, report.bytes_copied);
        if (!source)
            return {TAVI_RET_FAIL, "no memory for a copy of %llu bytes",
                    static_cast<unsigned long long>(report.bytes_copied)};
    }
    const tavi_image_transform_mode mode = options ? options->transform : TAVI_IMAGE_TRANSFORM_NONE;
    const int filter = options ? options->filter : TAVI_FILTER_DEFAULT;
    const ImageView picture = crop(to.view(), p.picture);
    const Conversion conversion(source, p.crop, picture, mode, filter);
    const auto make = [&](int first, int end) {
        return ConversionRun(conversion).make(first, end, lines_of(picture, conversion.by_columns, first, end));
    };
    const int64_t pixels = std::max(int64_t{p.crop.width} * p.crop.height, int64_t{picture.width} * picture.height);
    const tavi_executor_t* const executor = options && conversion.divisible ? options->executor : nullptr;
    if (!share_lines(executor, conversion.lines, pixels, make))
        return no_memory_for(source, picture);
    if (p.padded()) {
        const Box inner{p.picture.x - p.place.x, p.picture.y - p.place.y, p.picture.width, p.picture.height};
        paint_padding(crop(to.view(), p.place), inner, options->pad_color);
    }
    report_placement(p, mode, report);
    std::snprintf(report.plan, sizeof report.plan, "%s", PlanText(conversion.plan, *source.format).text);
    return {};
}

} // namespace
} // namespace tavi

int tavi_frame_convert(const tavi_frame_t* src, const tavi_frame_t* dst, const tavi_frame_options_t* options,
                       tavi_frame_report_t* report) {
    tavi_frame_report_t done = {};
    if (const tavi::Refusal no = tavi::convert(src, dst, options, done)) {
        LOG_ERROR("%s", no.text);
        return no.code;
    }
    LOG_DEBUG("fmt=%u %ux%u -> fmt=%u %ux%u at (%d %d) %dx%d by software: %s", src->format, src->width, src->height,
              dst->format, dst->width, dst->height, done.placement.x, done.placement.y, done.placement.width,
              done.placement.height, done.plan);
    if (report)
        *report = done;
    return TAVI_RET_SUCCESS;
}
