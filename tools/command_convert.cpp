// SPDX-License-Identifier: MIT
// convert and letterbox: format, size, region and orientation of a whole picture.
#include <chrono>

#include "backends/software/tavi_image_libyuv.h"
#include "image/format.h"
#include "picture.h"

namespace tool {
namespace {

struct ConvertOptions {
    Input in;
    Output out;
    std::optional<Size> size;
    std::optional<tavi_pixel_format> format;
    tavi_image_transform_mode transform = TAVI_IMAGE_TRANSFORM_NONE;
    std::optional<tavi_image_resize_method_t> filter;
    std::optional<tavi_rect_t> crop;
    std::vector<float> expand;
    std::vector<float> fit_ratio;
    bool explained = false;
};

Size turned(Size size, tavi_image_transform_mode mode) {
    return tavi::exchanges_sides(mode) ? Size{size.height, size.width} : size;
}

// The part of the source that is wanted: cropped, then grown, then fitted; nothing when all of it is.
std::optional<tavi_rect_t> region_of(Picture& src, ConvertOptions& o) {
    if (!o.crop && o.expand.empty() && o.fit_ratio.empty())
        return {};
    tavi_rect_t r{0, 0, static_cast<int>(src->width) - 1, static_cast<int>(src->height) - 1};
    if (o.crop)
        r = *o.crop;
    if (!o.expand.empty())
        check(tavi_image_rect_expand(src.get(), &r, &r, o.expand.data()), kFailed, "cannot expand the region");
    if (!o.fit_ratio.empty())
        check(tavi_image_rect_keep_ratio(src.get(), &r, &r, o.fit_ratio[0]), kFailed, "cannot fit the region");
    if (r.left < 0 || r.top < 0 || r.right < r.left || r.bottom < r.top ||
        static_cast<uint32_t>(r.right) >= src->width || static_cast<uint32_t>(r.bottom) >= src->height)
        throw Error(kFailed, "the region " + std::to_string(r.left) + "," + std::to_string(r.top) + "," +
                                 std::to_string(r.right) + "," + std::to_string(r.bottom) +
                                 " is empty or not inside the picture of " + src.describe());
    return r;
}

// A chosen filter is software's: cut out, scale and convert with it, then turn.
void convert_filtered(Picture& src, std::optional<tavi_rect_t> region, Picture& dst, const ConvertOptions& o) {
    Picture cut;
    if (region) {
        const Size size{static_cast<uint32_t>(region->right - region->left + 1),
                        static_cast<uint32_t>(region->bottom - region->top + 1)};
        cut = Picture(src->pixel_format, size, false);
        check(tavi_image_crop_and_resize_cpu(src.get(), &*region, cut.get(), TAVI_IMAGE_TRANSFORM_NONE), kFailed,
              "cannot cut the region out");
    }
    Picture upright;
    if (o.transform != TAVI_IMAGE_TRANSFORM_NONE)
        upright = Picture(dst->pixel_format, turned(dst.size(), o.transform), false);
    Picture& scaled = upright->data ? upright : dst;
    check(tavi_image_convert2_libyuv((region ? cut : src).get(), scaled.get(), 0, 0, 0, nullptr, nullptr, nullptr,
                                     nullptr, *o.filter),
          kFailed, "cannot convert to " + scaled.describe());
    if (upright->data)
        check(tavi_image_convert(upright.get(), dst.get(), o.transform), kFailed, "cannot turn the picture");
}

void run_convert(ConvertOptions& o) {
    if (o.explained)
        explain_log();
    Picture src = load(o.in);
    std::optional<tavi_rect_t> region = region_of(src, o);
    Size natural = src.size();
    if (region)
        natural = {static_cast<uint32_t>(region->right - region->left + 1),
                   static_cast<uint32_t>(region->bottom - region->top + 1)};
    Picture dst(o.format.value_or(src->pixel_format), o.size.value_or(turned(natural, o.transform)), o.in.device);

    explain("request     %s -> %s", src.describe().c_str(), dst.describe().c_str());
    const auto start = std::chrono::steady_clock::now();
    if (o.filter)
        convert_filtered(src, region, dst, o);
    else if (region)
        check(tavi_image_convert_with_crop(src.get(), &*region, dst.get(), nullptr, o.transform), kFailed,
              "cannot convert the region to " + dst.describe());
    else
        check(tavi_image_convert(src.get(), dst.get(), o.transform), kFailed,
              "cannot convert " + src.describe() + " to " + dst.describe());
    const std::chrono::duration<double, std::milli> took = std::chrono::steady_clock::now() - start;
    explain("took        %.2f ms", took.count());
    save(dst, o.out);
}

struct LetterboxOptions {
    Input in;
    Output out;
    Size size;
    std::optional<tavi_pixel_format> format;
    uint32_t color = 0x727272;
    std::string position = "center";
    tavi_image_resize_method_t filter = TAVI_IMAGE_RESIZE_DEFAULT;
};

void run_letterbox(LetterboxOptions& o) {
    Picture src = load(o.in);
    Picture dst(o.format.value_or(src->pixel_format), o.size, o.in.device);
    const int position = o.position == "center" ? 0 : o.position == "top-left" ? 1 : 2;
    float scale_x = 0, scale_y = 0, left = 0, top = 0;
    check(tavi_image_convert_keep_ratio_by_method(src.get(), dst.get(), static_cast<int>(o.color), position, &scale_x,
                                                  &scale_y, &left, &top, o.filter, 0),
          kFailed, "cannot letterbox " + src.describe() + " into " + dst.describe());
    save(dst, o.out);
    fprintf(results(o.out), "scale %.7g %.7g padding %g %g\n", static_cast<double>(scale_x),
            static_cast<double>(scale_y), static_cast<double>(left), static_cast<double>(top));
}

std::vector<float> parse_expand(const std::string& option, const std::string& text) {
    std::vector<float> f = parse_floats(option, text);
    if (f.size() == 1)
        f.assign(4, f[0]);
    if (f.size() != 4)
        throw CLI::ValidationError(option,
                                   "\"" + text + "\" is not allowed here: 1 or 4 fractions, LEFT,TOP,RIGHT,BOTTOM");
    return f;
}

std::vector<float> parse_ratio(const std::string& option, const std::string& text) {
    std::vector<float> f = parse_floats(option, text);
    if (f.size() != 1 || f[0] <= 0)
        throw CLI::ValidationError(option, "\"" + text + "\" is not allowed here: width divided by height, above 0");
    return f;
}

} // namespace

void add_convert(CLI::App& app, Run& run) {
    const auto o = std::make_shared<ConvertOptions>();
    CLI::App* sub = app.add_subcommand("convert", "Convert a picture to another format, size, region or orientation");
    add_input(sub, o->in);
    add_output(sub, o->out);
    add_parsed(sub, "--size", o->size, parse_size, "WIDTHxHEIGHT of the result");
    add_parsed(sub, "--format", o->format, parse_format,
               "pixel format of the result (tavi-image formats lists them)");
    add_parsed(sub, "--transform", o->transform, parse_transform,
               "none, flip-h, flip-v, rotate-90, rotate-180, rotate-270 or transpose");
    add_parsed(sub, "--filter", o->filter, parse_filter, "default, nearest, bilinear or box; always in software");
    add_parsed(sub, "--crop", o->crop, parse_rect, "LEFT,TOP,RIGHT,BOTTOM of the part wanted, all inclusive");
    add_parsed(sub, "--expand", o->expand, parse_expand,
               "grow that part by these fractions of its size: LEFT,TOP,RIGHT,BOTTOM, or one for all");
    add_parsed(sub, "--fit-ratio", o->fit_ratio, parse_ratio, "then widen or heighten it to this width / height");
    sub->add_flag("--explain", o->explained, "tell on standard error which way the request took");
    sub->footer("Examples:\n"
                "  tavi-image convert photo.jpg small.png --size 320x240\n"
                "  tavi-image convert photo.jpg frame.nv12 --format nv12\n"
                "  tavi-image convert --raw-format nv12 --raw-size 640x480 frame.nv12 face.png \\\n"
                "      --crop 100,80,219,239 --expand 0.2 --fit-ratio 1\n"
                "  tavi-image convert photo.jpg - --transform rotate-90 --type jpg >turned.jpg");
    sub->callback([o, &run] { run = [o] { run_convert(*o); }; });
}

void add_letterbox(CLI::App& app, Run& run) {
    const auto o = std::make_shared<LetterboxOptions>();
    CLI::App* sub = app.add_subcommand("letterbox", "Fit a picture into a size, keep its aspect ratio, pad the rest");
    add_input(sub, o->in);
    add_output(sub, o->out);
    add_parsed(sub, "--size", o->size, parse_size, "WIDTHxHEIGHT of the result")->required();
    add_parsed(sub, "--format", o->format, parse_format, "pixel format of the result");
    add_parsed(sub, "--color", o->color, parse_color, "RRGGBB of the padding (default 727272)");
    sub->add_option("--position", o->position, "where the picture stands")
        ->check(CLI::IsMember({"center", "top-left", "bottom-right"}))
        ->capture_default_str();
    add_parsed(sub, "--filter", o->filter, parse_filter, "default, nearest, bilinear or box");
    sub->footer("Prints scale and padding: x_result = x_source * scale + padding.\n"
                "Example:\n"
                "  tavi-image letterbox photo.jpg input.rgb --size 640x640 --format rgb");
    sub->callback([o, &run] { run = [o] { run_letterbox(*o); }; });
}

} // namespace tool
