// SPDX-License-Identifier: MIT
// Scaling against the reference in double precision, through the operation that takes a method.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "pixels/convert.h"
#include "support/pixels.h"

namespace tavi::test {
namespace {

/// One component as numbers, 16-bit samples whole.
std::vector<double> numbers(const Samples& samples, bool wide) {
    std::vector<double> out;
    for (int y = 0; y < samples.rows; ++y)
        for (int x = 0; x < samples.cols; ++x)
            out.push_back(samples.at(x, y)[0] + (wide ? 256.0 * samples.at(x, y)[1] : 0));
    return out;
}

// The largest difference from the exact result, over all components of a same-format scale of part of an image.
double scale_error(int format, int w, int h, const Box& box, int dw, int dh, int method, unsigned seed) {
    Pixels src(format, w, h), dst(format, dw, dh);
    std::mt19937 random(seed);
    for (size_t i = 0; i < src.size(); ++i) // hard contrasts show coarse weights
        src.data()[i] = random() % 3 == 0 ? static_cast<uint8_t>(random()) : random() % 2 ? 255 : 0;
    const ImageView s = src.view(), d = dst.view();
    EXPECT_FALSE(convert_region(s, box, d, 0, method));
    EXPECT_TRUE(src.intact() && dst.intact());
    double most = 0;
    for (int i = 0; i < s.format->parts; ++i) {
        const Component& c = s.format->part[i];
        const bool wide = s.format->bits == 16;
        Samples from = samples_of(s, i);
        const Samples to = samples_of(d, i);
        const int x0 = std::min(box.x >> c.xshift, from.cols - 1), y0 = std::min(box.y >> c.yshift, from.rows - 1);
        from.data = from.at(x0, y0);
        from.cols = std::min((box.x + box.width - 1) >> c.xshift, from.cols - 1) - x0 + 1;
        from.rows = std::min((box.y + box.height - 1) >> c.yshift, from.rows - 1) - y0 + 1;
        const std::vector<double> exact =
            ref_scale(numbers(from, wide), 1, {from.cols, to.cols, box.width, dw, c.xshift && box.x % 2 ? 0.5 : 0},
                      {from.rows, to.rows, box.height, dh, c.yshift && box.y % 2 ? 0.5 : 0}, method, wide ? 0 : 255);
        const std::vector<double> got = numbers(to, wide);
        for (size_t k = 0; k < got.size(); ++k)
            most = std::max(most, std::fabs(got[k] - std::clamp(exact[k], 0.0, wide ? 65535.0 : 255.0)));
    }
    return most;
}

TEST(Scale, WithinOneOfTheExactResult) {
    constexpr int kSizes[][4] = {{2, 2, 5, 7},      {33, 17, 16, 16},  {64, 64, 21, 21}, {21, 13, 64, 40},
                                 {100, 40, 37, 40}, {100, 40, 100, 9}, {301, 7, 20, 4},  {1000, 5, 3, 3},
                                 {17, 600, 9, 2},   {40, 30, 41, 31},  {2, 40, 60, 2},   {640, 8, 224, 5},
                                 {97, 35, 48, 17},  {3000, 4, 7, 9},   {4, 3000, 9, 7}};
    for (int f = 0; f < 16; ++f)
        for (const auto& [w, h, dw, dh] : kSizes)
            for (int method : {0, 2, 3, 4, 5, 6, 7})
                ASSERT_LE(scale_error(f, w, h, {0, 0, w, h}, dw, dh, method, 3u), 1.0)
                    << find_format(f)->name << " " << w << "x" << h << " to " << dw << "x" << dh << " method "
                    << method;
}

// At ratios at which no centre lies between two samples: there it may go either way.
TEST(Scale, NearestIsExact) {
    constexpr int kSizes[][4] = {{9, 9, 3, 3}, {3, 3, 9, 9}, {50, 20, 30, 14}, {10, 10, 25, 35}};
    for (int f = 0; f < 16; ++f)
        for (const auto& [w, h, dw, dh] : kSizes)
            ASSERT_EQ(scale_error(f, w, h, {0, 0, w, h}, dw, dh, 1, 9u), 0) << f << " " << w;
}

// Down to the last column and row, which share their neighbours' chroma where the size is odd; copies are exact.
TEST(Scale, PartsOfAnImageAtAnyPosition) {
    std::mt19937 random(20261122);
    for (int f = 0; f < 16; ++f)
        for (int i = 0; i < 80; ++i) {
            const int w = 4 + random() % 60, h = 4 + random() % 40;
            const int x = i % 8 ? random() % w : w - 1, y = i % 16 ? random() % h : h - 1, method = 2 + i % 5;
            const Box box{x, y, int(1 + random() % (w - x)), int(1 + random() % (h - y))};
            const bool copies = i % 6 == 0 && box.width > 1 && box.height > 1;
            const int dw = copies ? box.width : int(2 + random() % 70),
                      dh = copies ? box.height : int(2 + random() % 50);
            ASSERT_LE(scale_error(f, w, h, box, dw, dh, method, i), copies && x % 2 == 0 && y % 2 == 0 ? 1e-9 : 1.0)
                << find_format(f)->name << " " << w << "x" << h << " box " << x << "," << y << " " << box.width << "x"
                << box.height << " to " << dw << "x" << dh << " method " << method;
        }
}

TEST(Scale, FlatStaysFlat) {
    for (int f = 0; f < 16; ++f)
        for (int value : {0, 1, 77, 127, 200, 254, 255})
            for (int method = 0; method <= 6; ++method)
                for (const auto& [w, h, to] :
                     {std::array{90, 90, 31}, {31, 31, 90}, {400, 400, 3}, {64, 64, 64}, {16383, 4, 2}}) {
                    Pixels src(f, w, h), dst(f, to, to);
                    memset(src.data(), value, src.size());
                    ASSERT_FALSE(convert_views(src.view(), dst.view(), 0, method));
                    for (int i = 0; i < dst.view().format->parts; ++i)
                        for (const double v : numbers(samples_of(dst.view(), i), false))
                            ASSERT_EQ(v, value) << find_format(f)->name << " method " << method;
                }
}

} // namespace
} // namespace tavi::test
