// SPDX-License-Identifier: MIT
// roi: several regions of one picture into files of their own.
#include "picture.h"

namespace tool {
namespace {

struct RoiOptions {
    Input in;
    std::string pattern;
    std::vector<std::string> rects;
    int align = 1;
    bool exact = false;
    std::optional<tavi_pixel_format> format;
};

// picture.png with 3 is picture-3.png.
std::string numbered(const std::string& pattern, size_t number) {
    const size_t slash = pattern.rfind('/');
    size_t dot = pattern.rfind('.');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash))
        dot = pattern.size();
    return pattern.substr(0, dot) + "-" + std::to_string(number) + pattern.substr(dot);
}

void run_roi(RoiOptions& o) {
    std::vector<tavi_rect_t> rects;
    for (const std::string& text : o.rects)
        rects.push_back(parse_rect("--rect", text));
    if (o.exact && o.format)
        throw Error(kUsage, "--exact copies pixels as they are: leave out --format");
    Picture src = load(o.in);
    for (size_t i = 0; i < rects.size(); ++i) {
        Picture cut;
        const std::string what = "cannot cut " + o.rects[i] + " out of " + src.describe();
        if (o.exact)
            check(tavi_image_roi_cpu(src.get(), &rects[i], cut.get()), kFailed, what);
        else
            check(tavi_image_roi_with_align_cvt(src.get(), &rects[i], cut.get(), o.align,
                                                static_cast<int>(o.format.value_or(src->pixel_format))),
                  kFailed, what);
        cut.get()->size = static_cast<uint32_t>(tavi_image_get_size(cut.get())); // the exact copy leaves it unset
        const Output out{numbered(o.pattern, i + 1)};
        save(cut, out);
        printf("%s %s\n", out.path.c_str(), cut.describe().c_str());
    }
}

} // namespace

void add_roi(CLI::App& app, Run& run) {
    const auto o = std::make_shared<RoiOptions>();
    CLI::App* sub = app.add_subcommand("roi", "Cut several regions of one picture out into files");
    add_input(sub, o->in);
    sub->add_option("OUT", o->pattern, "name of the files; face.png makes face-1.png, face-2.png ...")->required();
    sub->add_option("--rect", o->rects, "LEFT,TOP,RIGHT,BOTTOM, all inclusive; once for each region")
        ->required()
        ->allow_extra_args(false);
    sub->add_option("--align", o->align,
                    "make sides multiples of this, at least 4 (8 for YUV); the region is scaled to fit")
        ->check(CLI::Range(1, 4096))
        ->capture_default_str();
    sub->add_flag("--exact", o->exact, "copy exactly the region instead; not for YUV");
    add_parsed(sub, "--format", o->format, parse_format, "pixel format of the results");
    sub->footer("Example:\n  tavi-image roi group.jpg face.png --rect 10,20,109,139 --rect 300,40,399,159");
    sub->callback([o, &run] { run = [o] { run_roi(*o); }; });
}

} // namespace tool
