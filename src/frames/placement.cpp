// SPDX-License-Identifier: MIT
#include "frames/placement.h"

#include <algorithm>

#include "frames/frame_access.h"
#include "image/letterbox.h"
#include "pixels/plan.h"

namespace tavi {
namespace {

constexpr int kMostFilter = TAVI_FILTER_MEAN;

/// A rectangle of the options in a picture; all of it where the rectangle is all zero.
Refusal take_box(const tavi_box_t& given, const ImageView& of, const char* field, Box& box) {
    box = {0, 0, of.width, of.height};
    if (!given.x && !given.y && !given.width && !given.height)
        return {};
    if (given.x < 0 || given.y < 0 || given.width < 1 || given.height < 1 || given.width > of.width ||
        given.height > of.height || given.x > of.width - given.width || given.y > of.height - given.height)
        return Refusal(TAVI_RET_PARAM_ERR, "options.%s=(%d %d) %dx%d: allowed is what lies inside %dx%d", field,
                       given.x, given.y, given.width, given.height, of.width, of.height);
    box = {given.x, given.y, given.width, given.height};
    return {};
}

/// Whether an interval of a side begins and ends on whole chroma samples, or with the side.
bool on_grid(int start, int length, int side, int grid) {
    return start % grid == 0 && ((start + length) % grid == 0 || start + length == side);
}

Refusal check_values(const tavi_frame_options_t& o) {
    if (!is_transform_mode(o.transform))
        return {TAVI_RET_UNSUPPORTED, "options.transform=%d: allowed are 0, 1, 2, 3, 4, 7 and 8", o.transform};
    if (o.filter < TAVI_FILTER_DEFAULT || o.filter > kMostFilter)
        return {TAVI_RET_PARAM_ERR, "options.filter=%d: allowed are 0 to %d", o.filter, kMostFilter};
    if (o.fit < TAVI_FIT_STRETCH || o.fit > TAVI_FIT_COVER)
        return {TAVI_RET_PARAM_ERR, "options.fit=%d: allowed are 0 (stretch), 1 (contain) and 2 (cover)", o.fit};
    if (o.pad_color > 0xFFFFFF)
        return {TAVI_RET_PARAM_ERR, "options.pad_color=%#x: allowed are 0 to 0xffffff", o.pad_color};
    if (o.engine < TAVI_ENGINE_MAY || o.engine > TAVI_ENGINE_NEVER)
        return {TAVI_RET_PARAM_ERR, "options.engine=%d: allowed are 0 (may), 1 (must) and 2 (never)", o.engine};
    if (o.executor && (!o.executor->run || o.executor->concurrency < 0))
        return {TAVI_RET_PARAM_ERR, "options.executor: run=%s, concurrency=%d: allowed are a function and 0 or more",
                o.executor->run ? "a function" : "null", o.executor->concurrency};
    if (!all_zero(o.reserved))
        return {TAVI_RET_PARAM_ERR, "options.reserved is not zero"};
    return {};
}

/// The middle of a box, of the ratio width:height.
Box cut_to_ratio(const Box& box, int64_t width, int64_t height) {
    Box cut = box;
    const auto fitted = [](int64_t other, int64_t num, int64_t den, int most) { // rounded
        return static_cast<int>(std::clamp<int64_t>((2 * other * num + den) / (2 * den), 1, most));
    };
    if (box.width * height > box.height * width)
        cut.width = fitted(box.height, width, height, box.width);
    else
        cut.height = fitted(box.width, height, width, box.height);
    cut.x += (box.width - cut.width) / 2;
    cut.y += (box.height - cut.height) / 2;
    return cut;
}

} // namespace

Refusal lay_out(const ImageView& src, const ImageView& dst, const tavi_frame_options_t* options, Placement& out) {
    const tavi_frame_options_t o = options ? *options : tavi_frame_options_t{};
    if (const Refusal no = check_values(o))
        return no;
    if (const Refusal no = take_box(o.crop, src, "crop", out.crop))
        return no;
    if (const Refusal no = take_box(o.place, dst, "place", out.place))
        return no;
    const ChromaGrid grid = chroma_grid(*dst.format);
    const Box& place = out.place;
    if (!on_grid(place.x, place.width, dst.width, grid.x) || !on_grid(place.y, place.height, dst.height, grid.y) ||
        (!dst.chroma_up && (place.width < grid.x || place.height < grid.y)))
        return Refusal(
            TAVI_RET_PARAM_ERR,
            "options.place=(%d %d) %dx%d: allowed in %s are multiples of %dx%d, or what ends with the frame", place.x,
            place.y, place.width, place.height, dst.format->name.data(), grid.x, grid.y);
    const bool turned = exchanges_sides(o.transform);
    out.picture = place;
    if (o.fit == TAVI_FIT_CONTAIN) {
        const int width = turned ? out.crop.height : out.crop.width,
                  height = turned ? out.crop.width : out.crop.height;
        const Letterbox l =
            letterbox_geometry(width, height, place.width, place.height, grid, LetterboxPosition::centre);
        out.picture = {place.x + l.x, place.y + l.y, l.width, l.height};
    } else if (o.fit == TAVI_FIT_COVER) {
        out.crop = turned ? cut_to_ratio(out.crop, place.height, place.width)
                          : cut_to_ratio(out.crop, place.width, place.height);
    }
    return {};
}

void report_placement(const Placement& p, tavi_image_transform_mode mode, tavi_frame_report_t& report) {
    const auto box = [](const Box& b) { return tavi_box_t{b.x, b.y, b.width, b.height}; };
    const bool turned = exchanges_sides(mode);
    report.crop = box(p.crop);
    report.placement = box(p.picture);
    report.scale_x = static_cast<float>(p.picture.width) / static_cast<float>(turned ? p.crop.height : p.crop.width);
    report.scale_y = static_cast<float>(p.picture.height) / static_cast<float>(turned ? p.crop.width : p.crop.height);
}

} // namespace tavi
