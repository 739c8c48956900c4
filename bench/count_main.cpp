// SPDX-License-Identifier: MIT
// Does one request a number of times and nothing else, for a tool that counts what the processor executes:
// tavi_count ROW CANDIDATE TIMES. Without arguments it lists the rows and their output pixels.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "rows.h"

namespace tavi::bench {
namespace {

struct Request {
    const char* name;
    Kind kind;
    int from, sw, sh, to, dw, dh, option; ///< mode of a transform, method of a resize
};

// Small pictures: instructions per pixel hardly depend on the size, and counting is slow.
constexpr Request kRequests[] = {
    {"nv12-to-rgb", Kind::convert, NV12, 320, 240, RGB, 320, 240, 0},
    {"yuyv-to-rgb", Kind::convert, YUYV, 320, 240, RGB, 320, 240, 0},
    {"nv12-to-half-rgb", Kind::resize, NV12, 480, 360, RGB, 320, 240, TAVI_IMAGE_RESIZE_BILINEAR},
    {"rgba-bilinear", Kind::resize, RGBA, 480, 360, RGBA, 320, 240, TAVI_IMAGE_RESIZE_BILINEAR},
    {"rgb-bilinear", Kind::resize, RGB, 480, 360, RGB, 320, 240, TAVI_IMAGE_RESIZE_BILINEAR},
    {"rgba-box", Kind::resize, RGBA, 960, 720, RGBA, 320, 240, TAVI_IMAGE_RESIZE_BOX},
    {"rgb-box", Kind::resize, RGB, 960, 720, RGB, 320, 240, TAVI_IMAGE_RESIZE_BOX},
    {"nv12-region-to-rgb", Kind::crop, NV12, 640, 480, RGB, 224, 224, 0},
    {"rgb-affine", Kind::affine, RGB, 640, 480, RGB, 112, 112, 0},
    {"rgb-rotate-90", Kind::transform, RGB, 320, 240, RGB, 240, 320, TAVI_IMAGE_TRANSFORM_ROTATE_90},
    {"rgba-rotate-90", Kind::transform, RGBA, 320, 240, RGBA, 240, 320, TAVI_IMAGE_TRANSFORM_ROTATE_90},
};

Row row_of(const Request& q) {
    Row row;
    row.name = q.name;
    row.kind = q.kind;
    row.mode = row.method = q.option;
    row.src = std::make_shared<Picture>(q.from, q.sw, q.sh);
    row.dst = std::make_shared<Picture>(q.to, q.dw, q.dh);
    row.region = {100, 100, 499, 399};
    const float c = std::cos(0.2f) * 0.35f, s = std::sin(0.2f) * 0.35f;
    const float m[6] = {c, -s, 56 - c * 320 + s * 240, s, c, 56 - s * 320 - c * 240};
    std::memcpy(row.matrix, m, sizeof m);
    return row;
}

} // namespace
} // namespace tavi::bench

int main(int argc, char** argv) {
    using namespace tavi::bench;
    for (const Request& q : kRequests) {
        if (argc < 4) {
            std::printf("%s %d\n", q.name, q.dw * q.dh);
        } else if (std::strcmp(q.name, argv[1]) == 0) {
            const Row row = row_of(q);
            const Run run = std::strcmp(argv[2], "ours") == 0     ? ours(row)
                            : std::strcmp(argv[2], "libyuv") == 0 ? by_libyuv(row)
                            : std::strcmp(argv[2], "opencv") == 0 ? by_opencv(row)
                                                                  : by_swscale(row);
            if (!run)
                return 3; // this candidate has no way to do it
            for (int i = std::atoi(argv[3]); i > 0; --i)
                run();
            return 0;
        }
    }
    return argc < 4 ? 0 : 2;
}
