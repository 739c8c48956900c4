// SPDX-License-Identifier: MIT
// The rows of the benchmark: one request each, and whoever can serve it.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tavi_image.h"

namespace tavi::bench {

/// Short names of the formats, by number.
enum : int { GRAY8, RGB, BGR, RGBA, BGRA, YU12, YV12, NV12, NV21, YU16, YV16, NV16, NV61, YUYV, UYVY, GRAY16 };

/// An image in memory of its own.
struct Picture {
    tavi_image_t image = {};
    std::vector<uint8_t> pixels;

    Picture() = default;
    Picture(int format, int width, int height);
};

enum class Kind { convert, resize, letterbox, crop, transform, affine, draw, tensor };

/// One row. `run` of a candidate does the request once, from `src` into `dst`.
struct Row {
    std::string name;
    Kind kind = Kind::convert;
    int mode = 0;            ///< transform
    int method = 0;          ///< resize method
    tavi_rect_t region = {}; ///< crop
    float matrix[6] = {};    ///< affine
    int element = 0;         ///< tensor: letterboxed into one of the size of `dst`
    int shape = 0;           ///< draw: 0 rectangles, 1 lines, 2 circles, 3 filled circles, 4 texts
    std::shared_ptr<Picture> src, dst;
};

using Run = std::function<void()>;

std::vector<Row> all_rows();

// What each candidate does with a row; empty when it has no way to do it.
Run ours(const Row& row);
Run tensor_by_frames(const Row& row); ///< ours, of a tensor
Run by_frames(const Row& row);        ///< ours, of an image
Run by_two_threads(const Row& row);   ///< ours, on two threads
Run by_copying(const Row& row);       ///< memcpy of as many bytes: the limit
Run by_libyuv(const Row& row);
Run by_opencv(const Row& row);
Run by_swscale(const Row& row);

/// Points of shape `i` of a drawing row.
struct Shape {
    int x0, y0, x1, y1, radius;
};
Shape shape_of(int i, int width, int height);

} // namespace tavi::bench
