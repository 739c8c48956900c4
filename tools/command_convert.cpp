// SPDX-License-Identifier: MIT
// convert and letterbox: format, size, region and orientation of a whole picture.
#include <chrono>

#include "image/format.h"
#include "image/letterbox.h"
#include "picture.h"
#include "pixels/fill.h"
#include "services/yuv_setting.h"
#include "tavi_letterbox.h"
#include "thread_pool.h"

namespace tool {
namespace {

struct ConvertOptions {
    Input in;
    Output out;
    std::optional<Size> size;
    std::optional<tavi_pixel_format> format;
    tavi_image_transform_mode transform = TAVI_IMAGE_TRANSFORM_NONE;
    std::optional<tavi_filter_t> filter;
    std::optional<tavi_color_space_t> in_color, out_color;
    bool cover = false;
    int threads = 1;
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

tavi_frame_t frame_of(Picture& picture, const std::optional<tavi_color_space_t>& color) {
    tavi_frame_t frame{};
    check(tavi_frame_from_image(picture.get(), &frame), kFailed, "cannot use " + picture.describe());
    if (color)
        frame.color = *color;
    return frame;
}

// Runs a request of frames, on as many threads as were asked for.
void convert_frame(const tavi_frame_t& src, const tavi_frame_t& dst, tavi_frame_options_t options, int threads,
                   const std::string& what) {
    ThreadPool pool(threads);
    tavi_frame_report_t report{};
    if (threads > 1)
        options.executor = &pool.executor;
    check(tavi_frame_convert(&src, &dst, &options, &report), kFailed, "cannot convert " + what);
    explain("steps       %s", report.plan);
}

// What images cannot say: a filter, a colour space of either side, a picture cut to the size's ratio, threads.
bool wants_frames(const ConvertOptions& o) {
    return o.filter || o.in_color || o.out_color || o.cover || o.threads > 1;
}

void convert_as_frames(Picture& src, const std::optional<tavi_rect_t>& region, Picture& dst,
                       const ConvertOptions& o) {
    tavi_frame_options_t options{};
    options.transform = o.transform;
    options.filter = o.filter.value_or(TAVI_FILTER_DEFAULT);
    options.fit = o.cover ? TAVI_FIT_COVER : TAVI_FIT_STRETCH;
    if (region)
        options.crop = {region->left, region->top, region->right - region->left + 1,
                        region->bottom - region->top + 1};
    convert_frame(frame_of(src, o.in_color), frame_of(dst, o.out_color), options, o.threads,
                  src.describe() + " to " + dst.describe());
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
    if (wants_frames(o))
        convert_as_frames(src, region, dst, o);
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
    tavi_filter_t filter = TAVI_FILTER_DEFAULT;
    int threads = 1;
};

// With a filter or threads that images do not have. The padding goes where the picture does not stand.
void letterbox_as_frames(Picture& src, Picture& dst, int position, const LetterboxOptions& o, tavi_letterbox_t& box) {
    const tavi::Format& format = *tavi::find_format(dst->pixel_format);
    const tavi::Letterbox l = tavi::letterbox_geometry(
        static_cast<int>(src->width), static_cast<int>(src->height), static_cast<int>(dst->width),
        static_cast<int>(dst->height), tavi::chroma_grid(format), static_cast<tavi::LetterboxPosition>(position));
    tavi_frame_options_t options{};
    options.filter = o.filter;
    options.place = {l.x, l.y, l.width, l.height};
    convert_frame(frame_of(src, {}), frame_of(dst, {}), options, o.threads, src.describe() + " to " + dst.describe());
    tavi::paint_padding(tavi::make_view(dst->data, format, static_cast<int>(dst->width),
                                        static_cast<int>(dst->height), tavi::yuv_setting()),
                        {l.x, l.y, l.width, l.height}, o.color);
    box = {l.scale_x, l.scale_y, static_cast<float>(l.x), static_cast<float>(l.y)};
}

void run_letterbox(LetterboxOptions& o) {
    Picture src = load(o.in);
    Picture dst(o.format.value_or(src->pixel_format), o.size, o.in.device);
    const int position = o.position == "center" ? 0 : o.position == "top-left" ? 1 : 2;
    tavi_letterbox_t box{};
    if (o.filter > TAVI_FILTER_BOX || o.threads > 1)
        letterbox_as_frames(src, dst, position, o, box);
    else
        check(tavi_image_convert_keep_ratio_by_method(src.get(), dst.get(), static_cast<int>(o.color), position,
                                                      &box.scale_x, &box.scale_y, &box.left, &box.top, o.filter, 0),
              kFailed, "cannot letterbox " + src.describe() + " into " + dst.describe());
    save(dst, o.out);
    fprintf(results(o.out), "scale %.7g %.7g padding %g %g\n", static_cast<double>(box.scale_x),
            static_cast<double>(box.scale_y), static_cast<double>(box.left), static_cast<double>(box.top));
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

void add_threads(CLI::App* sub, int& threads) {
    sub->add_option("--threads", threads, "software works on so many threads; the result is the same")
        ->check(CLI::Range(1, 64))
        ->capture_default_str();
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
    add_parsed(sub, "--filter", o->filter, parse_filter,
               "default, nearest, bilinear, box, bicubic, lanczos, triangle or mean; always in software");
    add_parsed(sub, "--in-color", o->in_color, parse_color_space,
               "what a YUV source means: bt601, bt709 or bt2020, each with -full or without");
    add_parsed(sub, "--out-color", o->out_color, parse_color_space, "what a YUV result is to mean, likewise");
    sub->add_flag("--cover", o->cover, "keep the aspect ratio and cut off what is too much for the size");
    add_threads(sub, o->threads);
    add_parsed(sub, "--crop", o->crop, parse_rect, "LEFT,TOP,RIGHT,BOTTOM of the part wanted, all inclusive");
    add_parsed(sub, "--expand", o->expand, parse_expand,
               "grow that part by these fractions of its size: LEFT,TOP,RIGHT,BOTTOM, or one for all");
    add_parsed(sub, "--fit-ratio", o->fit_ratio, parse_ratio, "then widen or heighten it to this width / height");
    sub->add_flag("--explain", o->explained, "tell on standard error which way the request took");
    sub->footer("Examples:\n"
                "  tavi-image convert photo.jpg small.png --size 320x240\n"
                "  tavi-image convert photo.jpg frame.nv12 --format nv12 --out-color bt709\n"
                "  tavi-image convert photo.jpg square.png --size 224x224 --cover --filter lanczos --threads 2\n"
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
    add_parsed(sub, "--filter", o->filter, parse_filter,
               "default, nearest, bilinear, box, bicubic, lanczos, triangle or mean");
    add_threads(sub, o->threads);
    sub->footer("Prints scale and padding: x_result = x_source * scale + padding.\n"
                "Example:\n"
                "  tavi-image letterbox photo.jpg input.rgb --size 640x640 --format rgb");
    sub->callback([o, &run] { run = [o] { run_letterbox(*o); }; });
}

} // namespace tool
