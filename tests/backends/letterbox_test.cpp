// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <vector>

#include "backends/software/tavi_image_libyuv.h"
#include "image/letterbox.h"
#include "support/fence_buffer.h"
#include "support/reference.h"
#include "tavi_letterbox.h"

namespace tavi::test {
namespace {

tavi_image_t record(const FenceBuffer& b, int format, int w, int h) {
    tavi_image_t r = {};
    r.data = b.data();
    r.pixel_format = static_cast<tavi_pixel_format>(format);
    r.width = w;
    r.height = h;
    return r;
}

// Every source side from 1 to 4096 against the usual inputs: a source column mapped into the picture and back is the
// same column, and the corners of the picture are the corners of the source.
TEST(Letterbox, MapsThereAndBackExactly) {
    constexpr int kInputs[][2] = {{224, 224}, {300, 300}, {320, 320}, {416, 416},
                                  {512, 512}, {640, 640}, {640, 384}, {1280, 736}};
    for (const auto& input : kInputs)
        for (int grid : {1, 2})
            for (int side = 1; side <= 4096; ++side)
                for (int other : {side, std::max(1, side * 9 / 16), std::min(4096, side * 4 / 3)}) {
                    const Letterbox g =
                        letterbox_geometry(side, other, input[0], input[1], {grid, grid}, LetterboxPosition::centre);
                    ASSERT_TRUE(g.x >= 0 && g.y >= 0 && g.x + g.width <= input[0] && g.y + g.height <= input[1]);
                    ASSERT_TRUE(g.width == input[0] || g.height == input[1]);
                    ASSERT_TRUE(g.x % grid == 0 && g.y % grid == 0 && g.width % grid == 0 && g.height % grid == 0);
                    const tavi_letterbox_t box = {g.scale_x, g.scale_y, float(g.x), float(g.y)};
                    for (int x : {0, 1, side / 3, side / 2, side - 1}) {
                        const float there = tavi_letterbox_x_to_picture(&box, float(x));
                        ASSERT_EQ(tavi_letterbox_round(tavi_letterbox_x_to_source(&box, there), side), x) << side;
                    }
                    const tavi_rect_t all = {g.x, g.y, g.x + g.width - 1, g.y + g.height - 1};
                    const tavi_rect_t r = tavi_letterbox_rect_to_source(&box, all, side, other);
                    ASSERT_TRUE(r.left == 0 && r.top == 0 && r.right == side - 1 && r.bottom == other - 1)
                        << side << "x" << other;
                }
}

TEST(Letterbox, ReportsWhatItPainted) {
    for (int s : {1, 7, 13, 15})
        for (int d = 0; d < 16; ++d)
            for (int position = 0; position < 3; ++position)
                for (const auto& z :
                     {std::array<int, 4>{64, 36, 40, 40}, {30, 60, 41, 33}, {9, 9, 33, 17}, {200, 10, 20, 31}}) {
                    FenceBuffer src(ref_bytes(s, z[0], z[1])), dst(ref_bytes(d, z[2], z[3]));
                    RefImage white;
                    white.model = Model::rgb;
                    white.width = z[0], white.height = z[1];
                    white.pixel.assign(static_cast<size_t>(z[0]) * z[1], {255, 255, 255});
                    const std::vector<double> samples = ref_samples(ref_convert(white, s), s);
                    for (size_t i = 0; i < samples.size(); ++i)
                        src.data()[i] = static_cast<uint8_t>(samples[i] + 0.5);
                    for (size_t i = 0; s == 15 && i < src.size(); ++i)
                        src.data()[i] = 255;
                    tavi_image_t from = record(src, s, z[0], z[1]), to = record(dst, d, z[2], z[3]);
                    float sx, sy, left, top;
                    ASSERT_EQ(tavi_image_convert2_libyuv(&from, &to, 1, 0x204080, position, &sx, &sy, &left, &top, 0),
                              0);
                    ASSERT_TRUE(dst.intact());
                    const int x0 = int(left), y0 = int(top), x1 = x0 + int(sx * z[0] + 0.5f),
                              y1 = y0 + int(sy * z[1] + 0.5f);
                    RefImage expected;
                    expected.model = Model::rgb;
                    expected.width = z[2], expected.height = z[3];
                    const RefImage back = ref_convert(ref_read(src.data(), s, z[0], z[1]), d);
                    expected.pixel.assign(static_cast<size_t>(z[2]) * z[3], {0x20, 0x40, 0x80});
                    expected = ref_convert(expected, d);
                    for (int y = y0; y < y1; ++y)
                        for (int x = x0; x < x1; ++x)
                            expected.at(x, y) = back.at(0, 0);
                    ASSERT_LE(ref_difference(ref_samples(expected, d), dst.data(), d), 1.01)
                        << "format " << s << " to " << d << " " << z[2] << "x" << z[3] << " position " << position;
                }
}

} // namespace
} // namespace tavi::test
