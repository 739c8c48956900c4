// SPDX-License-Identifier: MIT
// Scaling against the reference in double precision, through the operation that takes a method.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "backends/software/convert.h"
#include "backends/software/tavi_image_libyuv.h"
#include "support/fence_buffer.h"
#include "support/reference.h"

namespace tavi::test {
namespace {

// The largest difference from the exact result, over all planes of a same-format scale of part of an image.
double scale_error(int format, int w, int h, const Box& box, int dw, int dh, int method, unsigned seed) {
    FenceBuffer src(ref_bytes(format, w, h)), dst(ref_bytes(format, dw, dh));
    std::mt19937 random(seed);
    for (size_t i = 0; i < src.size(); ++i) // hard contrasts show coarse weights
        src.data()[i] = random() % 3 == 0 ? static_cast<uint8_t>(random()) : random() % 2 ? 255 : 0;
    const ImageView s = make_view(src.data(), static_cast<tavi_pixel_format>(format), w, h);
    const ImageView d = make_view(dst.data(), static_cast<tavi_pixel_format>(format), dw, dh);
    EXPECT_EQ(convert_region(s, box, d, 0, method), 0);
    EXPECT_TRUE(src.intact() && dst.intact());
    double most = 0;
    for (int i = 0; i < d.planes(); ++i) {
        const PlaneRule& grid = s.format->plane[i];
        const int x0 = box.x >> grid.xshift, y0 = box.y >> grid.yshift;
        const int x1 = std::min((box.x + box.width - 1) >> grid.xshift, s.plane[i].cols - 1);
        const int y1 = std::min((box.y + box.height - 1) >> grid.yshift, s.plane[i].rows - 1);
        const bool wide = format == 15;
        const int step = wide ? 1 : grid.step, cols = x1 - x0 + 1, rows = y1 - y0 + 1;
        std::vector<double> plane(static_cast<size_t>(cols) * rows * step);
        for (int y = 0; y < rows; ++y)
            for (int k = 0; k < cols * step; ++k) {
                const uint8_t* p = s.plane[i].at(x0, y0 + y);
                plane[static_cast<size_t>(y) * cols * step + k] = wide ? p[2 * k] + 256.0 * p[2 * k + 1] : p[k];
            }
        const std::vector<double> exact =
            ref_scale(plane, cols, rows, step, d.plane[i].cols, d.plane[i].rows, box.width, dw,
                      grid.xshift && box.x % 2 ? 0.5 : 0, box.height, dh, grid.yshift && box.y % 2 ? 0.5 : 0, method);
        for (int y = 0; y < d.plane[i].rows; ++y)
            for (int k = 0; k < d.plane[i].cols * step; ++k) {
                const uint8_t* p = d.plane[i].row(y);
                const double got = wide ? p[2 * k] + 256.0 * p[2 * k + 1] : p[k];
                most = std::max(most, std::fabs(got - exact[static_cast<size_t>(y) * d.plane[i].cols * step + k]));
            }
    }
    return most;
}

constexpr int kScalable[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 15};

TEST(Scale, WithinOneOfTheExactResult) {
    constexpr int kSizes[][4] = {{2, 2, 5, 7},      {33, 17, 16, 16},  {64, 64, 21, 21}, {21, 13, 64, 40},
                                 {100, 40, 37, 40}, {100, 40, 100, 9}, {301, 7, 20, 4},  {1000, 5, 3, 3},
                                 {17, 600, 9, 2},   {40, 30, 41, 31},  {2, 40, 60, 2},   {640, 8, 224, 5},
                                 {97, 35, 48, 17}};
    for (int f : kScalable)
        for (const auto& z : kSizes)
            for (int method = 0; method < 4; ++method) {
                const double error = scale_error(f, z[0], z[1], {0, 0, z[0], z[1]}, z[2], z[3], method, 3u);
                // Nearest may round a centre that lies between two samples either way.
                if (method == 1 && z[0] * z[3] != 0)
                    continue;
                ASSERT_LE(error, 1.0) << find_format(f)->name << " " << z[0] << "x" << z[1] << " to " << z[2] << "x"
                                      << z[3] << " method " << method;
            }
}

TEST(Scale, NearestIsExact) {
    constexpr int kSizes[][4] = {{9, 9, 3, 3}, {3, 3, 9, 9}, {50, 20, 30, 14}, {10, 10, 25, 35}};
    for (int f : kScalable)
        for (const auto& z : kSizes)
            ASSERT_EQ(scale_error(f, z[0], z[1], {0, 0, z[0], z[1]}, z[2], z[3], 1, 9u), 0) << f << " " << z[0];
}

TEST(Scale, PartsOfAnImageAtAnyPosition) {
    std::mt19937 random(20261122);
    for (int f : kScalable)
        for (int i = 0; i < 60; ++i) {
            const int w = 4 + random() % 60, h = 4 + random() % 40;
            const int x = random() % (w - 2), y = random() % (h - 2);
            const Box box{x, y, int(2 + random() % (w - x - 1)), int(2 + random() % (h - y - 1))};
            const int dw = i % 5 ? int(2 + random() % 70) : box.width,
                      dh = i % 5 ? int(2 + random() % 50) : box.height;
            ASSERT_LE(scale_error(f, w, h, box, dw, dh, i % 2 ? 2 : 3, i), 1.0)
                << find_format(f)->name << " " << w << "x" << h << " box " << box.x << "," << box.y << " "
                << box.width << "x" << box.height << " to " << dw << "x" << dh << " method " << (i % 2 ? 2 : 3);
        }
}

// Without the bytes that odd sizes leave behind the last plane.
size_t planes_bytes(int f, int w, int h) {
    const size_t luma = static_cast<size_t>(w) * h, chroma = static_cast<size_t>(w / 2) * (f <= 8 ? h / 2 : h);
    return f >= 5 && f <= 12 ? luma + 2 * chroma : ref_bytes(f, w, h);
}

TEST(Scale, FlatStaysFlat) {
    for (int f : kScalable)
        for (int value : {0, 1, 77, 127, 200, 254, 255})
            for (int method = 0; method < 4; ++method)
                for (const auto& z : {std::pair{90, 31}, std::pair{31, 90}, std::pair{400, 3}, std::pair{64, 64}}) {
                    FenceBuffer src(ref_bytes(f, z.first, z.first)), dst(ref_bytes(f, z.second, z.second));
                    memset(src.data(), value, src.size());
                    tavi_image_t from = {}, to = {};
                    from.pixel_format = to.pixel_format = static_cast<tavi_pixel_format>(f);
                    from.width = from.height = z.first, to.width = to.height = z.second;
                    from.data = src.data(), to.data = dst.data();
                    ASSERT_EQ(
                        tavi_image_convert2_libyuv(&from, &to, 0, 0, 0, nullptr, nullptr, nullptr, nullptr, method),
                        0);
                    const size_t used = planes_bytes(f, z.second, z.second);
                    for (size_t i = 0; i < used; ++i)
                        ASSERT_EQ(dst.data()[i], value) << find_format(f)->name << " method " << method;
                }
}

} // namespace
} // namespace tavi::test
