// SPDX-License-Identifier: MIT
// affine and transpose.
#include "picture.h"

namespace tool {
namespace {

struct TransformOptions {
    Input in;
    Output out;
    std::vector<float> from, to;
    std::optional<Size> size;
};

void run_affine(TransformOptions& o) {
    if (o.from.size() != o.to.size() || o.from.size() % 2 != 0 || o.from.size() < 4)
        throw Error(kUsage, "--from has " + std::to_string(o.from.size()) + " numbers and --to " +
                                std::to_string(o.to.size()) + ": both need X,Y of the same 2 or more points");
    float m[6];
    check(tavi_get_affine_transform(o.from.data(), o.to.data(), static_cast<int>(o.from.size() / 2), m), kFailed,
          "cannot map --from to --to");
    Picture src = load(o.in);
    Picture dst(src->pixel_format, o.size.value_or(src.size()), o.in.device);
    check(tavi_image_affine_transform(src.get(), dst.get(), m), kFailed,
          "cannot warp " + src.describe() + " to " + dst.describe());
    save(dst, o.out);
    fprintf(results(o.out), "matrix %.7g %.7g %.7g %.7g %.7g %.7g\n", static_cast<double>(m[0]),
            static_cast<double>(m[1]), static_cast<double>(m[2]), static_cast<double>(m[3]),
            static_cast<double>(m[4]), static_cast<double>(m[5]));
}

void run_transpose(TransformOptions& o) {
    Picture src = load(o.in);
    Picture dst(src->pixel_format, {src->height, src->width}, o.in.device);
    check(tavi_image_transpose(src.get(), dst.get()), kFailed, "cannot transpose " + src.describe());
    save(dst, o.out);
}

} // namespace

void add_affine(CLI::App& app, Run& run) {
    const auto o = std::make_shared<TransformOptions>();
    CLI::App* sub = app.add_subcommand("affine", "Warp a picture so that points land on points");
    add_input(sub, o->in);
    add_output(sub, o->out);
    add_parsed(sub, "--from", o->from, parse_floats, "X,Y of the points in the source, all in one list")->required();
    add_parsed(sub, "--to", o->to, parse_floats, "X,Y of the same points in the result")->required();
    add_parsed(sub, "--size", o->size, parse_size, "WIDTHxHEIGHT of the result (default: the source's)");
    sub->footer("Three points are met exactly; two, or more than three, by turning, scaling and shifting as well as\n"
                "possible. Prints the matrix that takes source to result.\n"
                "Example:\n"
                "  tavi-image affine photo.jpg face.png --size 112x112 --from 300,210,360,205,330,280 \\\n"
                "      --to 38,52,74,52,56,92");
    sub->callback([o, &run] { run = [o] { run_affine(*o); }; });
}

void add_transpose(CLI::App& app, Run& run) {
    const auto o = std::make_shared<TransformOptions>();
    CLI::App* sub = app.add_subcommand("transpose", "Exchange the rows and columns of a picture");
    add_input(sub, o->in);
    add_output(sub, o->out);
    sub->callback([o, &run] { run = [o] { run_transpose(*o); }; });
}

} // namespace tool
