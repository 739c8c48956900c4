// SPDX-License-Identifier: MIT
// Frames as the input of a network: bands of the converted picture go straight into the tensor, and no picture stands
// in between.
#include <algorithm>
#include <cstdio>

#include "frames/frame_access.h"
#include "frames/lines.h"
#include "frames/placement.h"
#include "frames/tensor_writer.h"
#include "image/scratch.h"
#include "pixels/convert.h"
#include "pixels/fill.h"

#define TAVI_LOG_TAG "tavi-frame"
#include "services/log.h"

namespace tavi {
namespace {

constexpr int kBandPixels = 16 * 1024; // with what they are made of they stay in the second-level cache

/// Lines of a conversion, into a tensor.
bool write_lines(const Conversion& conversion, const TensorWriter& tensor, const Box& picture, int first, int end) {
    Scratch scratch;
    ConversionRun run(conversion);
    const bool columns = conversion.by_columns;
    const int across = columns ? picture.height : picture.width;
    const int most = std::max(kLinesTogether, kBandPixels / across / kLinesTogether * kLinesTogether);
    const Format& f = *tensor.shape().format;
    uint8_t* const pixels = scratch.take<uint8_t>(static_cast<size_t>(packed_bytes(f, across, most, false)));
    for (int at = first; pixels && at < end; at += most) {
        const int count = std::min(most, end - at);
        const ImageView band = make_view(pixels, f, columns ? count : across, columns ? across : count, {});
        if (!run.make(at, at + count, band))
            return false;
        tensor.write(band, picture.x + (columns ? at : 0), picture.y + (columns ? 0 : at));
    }
    return pixels != nullptr;
}

/// One colour in a part of a tensor.
bool fill_part(const TensorWriter& tensor, const Box& part, uint32_t rgb) {
    if (part.width <= 0 || part.height <= 0)
        return true;
    Scratch scratch;
    const Format& f = *tensor.shape().format;
    uint8_t* const pixels = scratch.take<uint8_t>(static_cast<size_t>(packed_bytes(f, part.width, 1, false)));
    if (!pixels)
        return false;
    const ImageView row = make_view(pixels, f, part.width, 1, {});
    paint_padding(row, {0, 0, 0, 0}, rgb);
    for (int y = 0; y < part.height; ++y)
        tensor.write(row, part.x, part.y + y);
    return true;
}

bool fill_around(const TensorWriter& tensor, const Placement& p, uint32_t rgb) {
    const Box &all = p.place, &in = p.picture;
    const int right = in.x + in.width, bottom = in.y + in.height;
    return fill_part(tensor, {all.x, all.y, all.width, in.y - all.y}, rgb) &&
           fill_part(tensor, {all.x, in.y, in.x - all.x, in.height}, rgb) &&
           fill_part(tensor, {right, in.y, all.x + all.width - right, in.height}, rgb) &&
           fill_part(tensor, {all.x, bottom, all.width, all.y + all.height - bottom}, rgb);
}

bool touches(const ImageView& view, const uint8_t* begin, const uint8_t* end) {
    for (int i = 0; i < view.planes(); ++i) {
        const PlaneView& p = view.plane[i];
        if (p.data < end && begin < p.row(p.rows - 1) + static_cast<ptrdiff_t>(p.cols) * p.step)
            return true;
    }
    return false;
}

Refusal to_tensor(const tavi_frame_t* src, const tavi_tensor_t* tensor, const tavi_frame_options_t* options,
                  tavi_frame_report_t& report) {
    Scratch scratch;
    FrameAccess from(src, Access::read, "src");
    if (const Refusal no = from.open())
        return no;
    TensorWriter writer;
    if (const Refusal no = writer.init(scratch, tensor))
        return no;
    Placement p;
    if (const Refusal no = lay_out(from.view(), writer.shape(), options, p))
        return no;
    if (options && options->engine == TAVI_ENGINE_MUST)
        return {TAVI_RET_UNSUPPORTED, "options.engine=1 (must): no engine writes tensors; allowed are 0 and 2"};
    if (touches(from.view(), writer.begin(), writer.end()))
        return {TAVI_RET_PARAM_ERR, "src and tensor overlap: allowed is separate memory"};
    ImageView picture = writer.shape();
    picture.width = p.picture.width;
    picture.height = p.picture.height;
    const tavi_image_transform_mode mode = options ? options->transform : TAVI_IMAGE_TRANSFORM_NONE;
    const Conversion conversion(from.view(), p.crop, picture, mode, options ? options->filter : TAVI_FILTER_DEFAULT);
    const auto make = [&](int first, int end) { return write_lines(conversion, writer, p.picture, first, end); };
    const int64_t pixels = std::max(int64_t{p.crop.width} * p.crop.height, int64_t{picture.width} * picture.height);
    const tavi_executor_t* const executor = options && conversion.divisible ? options->executor : nullptr;
    if (!share_lines(executor, conversion.lines, pixels, make))
        return no_memory_for(from.view(), picture);
    if (p.padded() && !fill_around(writer, p, options->pad_color))
        return no_memory_for(from.view(), picture);
    report_placement(p, mode, report);
    std::snprintf(report.why_software, sizeof report.why_software, "no engine writes tensors");
    std::snprintf(report.plan, sizeof report.plan, "%.300s; elements",
                  PlanText(conversion.plan, *from.view().format).text);
    return {};
}

} // namespace
} // namespace tavi

int tavi_frame_to_tensor(const tavi_frame_t* src, const tavi_tensor_t* tensor, const tavi_frame_options_t* options,
                         tavi_frame_report_t* report) {
    tavi_frame_report_t done = {};
    if (const tavi::Refusal no = tavi::to_tensor(src, tensor, options, done)) {
        LOG_ERROR("%s", no.text);
        return no.code;
    }
    LOG_DEBUG("fmt=%u %ux%u -> tensor %ux%u at (%d %d) %dx%d by software: %s", src->format, src->width, src->height,
              tensor->width, tensor->height, done.placement.x, done.placement.y, done.placement.width,
              done.placement.height, done.plan);
    if (report)
        *report = done;
    return TAVI_RET_SUCCESS;
}
