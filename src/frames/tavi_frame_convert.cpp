// SPDX-License-Identifier: MIT
// Conversion of frames: fields are checked, the picture is laid out, and the work goes to the engine or
// to the pixel routines.
#include <algorithm>
#include <cstdio>
#include <utility>

#include "backends/blit/blit_frame.h"
#include "frames/frame_access.h"
#include "frames/lines.h"
#include "frames/placement.h"
#include "image/scratch.h"
#include "os/locks.h"
#include "pixels/convert.h"
#include "pixels/even.h"
#include "pixels/fill.h"
#include "services/tavi_env.h"

#define TAVI_LOG_TAG "tavi-frame"
#include "services/log.h"

namespace tavi {
namespace {

constexpr char kConvert[] = "tavi_frame_convert";

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

void paint_around(const ImageView& dst, const Placement& p, uint32_t color) {
    if (!p.padded())
        return;
    const Box inner{p.picture.x - p.place.x, p.picture.y - p.place.y, p.picture.width, p.picture.height};
    paint_padding(crop(dst, p.place), inner, color);
}

Refusal by_software(FrameAccess& from, FrameAccess& to, const Placement& p, const tavi_frame_options_t& o, bool words,
                    tavi_frame_report_t& report) {
    if (const Refusal no = from.open())
        return no;
    if (const Refusal no = to.open())
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
    const ImageView picture = crop(to.view(), p.picture);
    const Conversion conversion(source, p.crop, picture, o.transform, o.filter);
    const auto make = [&](int first, int end) {
        return ConversionRun(conversion).make(first, end, lines_of(picture, conversion.by_columns, first, end));
    };
    const int64_t pixels = std::max(int64_t{p.crop.width} * p.crop.height, int64_t{picture.width} * picture.height);
    if (!share_lines(conversion.divisible ? o.executor : nullptr, conversion.lines, pixels, make))
        return no_memory_for(source, picture);
    paint_around(to.view(), p, o.pad_color);
    if (words)
        std::snprintf(report.plan, sizeof report.plan, "%s", PlanText(conversion.plan, *source.format).text);
    return {};
}

/// The setting of the images: 0 keeps every request in software.
bool engine_allowed() {
    static FirstUse<int> use_blit;
    return use_blit.get([] {
        int value = 1;
        tavi_env_get_int("use_blit", &value, 1);
        return value;
    }) != 0;
}

FramePart part_of(const tavi_frame_t& frame, const char* name, const Box& box) {
    FramePart part{name, frame.format, frame.width, frame.height, color_of(frame), {}, box};
    for (int i = 0; i < find_format(frame.format)->planes; ++i) {
        const tavi_plane_t& p = frame.plane[i];
        part.plane[i] = {p.data, p.fd, p.offset, p.pitch};
    }
    return part;
}

bool has_descriptors(const tavi_frame_t& frame) {
    return std::all_of(frame.plane, frame.plane + find_format(frame.format)->planes,
                       [](const tavi_plane_t& p) { return p.fd > 0; });
}

/// Why the engine does not do it; nothing when it did.
Refusal by_engine(const tavi_frame_t& src, const tavi_frame_t& dst, FrameAccess& to, const Placement& p,
                  const tavi_frame_options_t& o, tavi_frame_report_t& report) {
    constexpr int kNo = TAVI_RET_UNSUPPORTED;
    if (o.engine == TAVI_ENGINE_NEVER)
        return {kNo, "options.engine=2 (never)"};
    if (o.filter != TAVI_FILTER_DEFAULT)
        return {kNo, "options.filter=%d: engines have filters of their own, 0 leaves the choice to them", o.filter};
    for (const auto& [frame, name] : {std::pair{&src, "src"}, {&dst, "dst"}}) // nobody need look for an engine
        for (int i = 0; i < find_format(frame->format)->planes; ++i)
            if (frame->plane[i].fd <= 0)
                return {kNo, "%s.plane[%d].fd=%d: an engine needs descriptors", name, i, frame->plane[i].fd};
    if (!engine_allowed())
        return {kNo, "the setting use_blit is 0"};
    const bool everything =
        p.place.width == static_cast<int>(dst.width) && p.place.height == static_cast<int>(dst.height);
    if (const Refusal no = blit_frame(part_of(src, "src", p.crop), part_of(dst, "dst", p.picture), o.transform,
                                      !everything, report.engine))
        return no;
    if (p.padded()) { // after the job: the import of a buffer throws away what the processor wrote before it
        to.begin();
        paint_around(to.view(), p, o.pad_color);
    }
    report.by_engine = 1;
    std::snprintf(report.plan, sizeof report.plan, "engine");
    return {};
}

/// With `words` the report's texts are wanted: for a small picture they would take as long as the pixels.
Refusal convert(const tavi_frame_t* src, const tavi_frame_t* dst, const tavi_frame_options_t* options, bool words,
                tavi_frame_report_t& report) {
    FrameAccess from(src, Access::read, "src"), to(dst, Access::write, "dst");
    if (from.refusal())
        return from.refusal();
    if (to.refusal())
        return to.refusal();
    Placement p;
    if (const Refusal no = lay_out(from.view(), to.view(), options, p))
        return no;
    const tavi_frame_options_t o = options ? *options : tavi_frame_options_t{};
    // Padding is the processor's, and once an engine's job has run nothing may fail any more.
    if (const Refusal no = p.padded() ? to.map() : Refusal())
        return no;
    report_placement(p, o.transform, report);
    const bool memory_alone = o.engine == TAVI_ENGINE_MAY && (!has_descriptors(*src) || !has_descriptors(*dst));
    if (words || !memory_alone) {
        const Refusal why = by_engine(*src, *dst, to, p, o, report);
        if (!why)
            return {};
        if (o.engine == TAVI_ENGINE_MUST)
            return {TAVI_RET_UNSUPPORTED, "options.engine=1 (must): %.280s", why.text};
        if (why.code == TAVI_RET_FAIL)
            LOG_AS(kConvert, TAVI_LOG_WARN, "the engine failed, software does it: %s", why.text);
        std::snprintf(report.why_software, sizeof report.why_software, "%.127s", why.text);
    }
    return by_software(from, to, p, o, words, report);
}

} // namespace
} // namespace tavi

int tavi_frame_convert(const tavi_frame_t* src, const tavi_frame_t* dst, const tavi_frame_options_t* options,
                       tavi_frame_report_t* report) {
    tavi_frame_report_t done = {};
    const bool words = report || TaviLogger::GetInstance()->level.load(std::memory_order_relaxed) >= TAVI_LOG_DEBUG;
    if (const tavi::Refusal no = tavi::convert(src, dst, options, words, done)) {
        LOG_ERROR("%s", no.text);
        return no.code;
    }
    LOG_DEBUG("fmt=%u %ux%u -> fmt=%u %ux%u at (%d %d) %dx%d by %s: %s", src->format, src->width, src->height,
              dst->format, dst->width, dst->height, done.placement.x, done.placement.y, done.placement.width,
              done.placement.height, done.by_engine ? done.engine : "software", done.plan);
    if (report)
        *report = done;
    return TAVI_RET_SUCCESS;
}
