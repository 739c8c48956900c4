// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <algorithm>
#include <array>

#include "backends/software/tavi_image_libyuv.h"
#include "image/letterbox.h"
#include "support/pixels.h"
#include "tavi_letterbox.h"

namespace tavi::test {
namespace {

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

TEST(Letterbox, RoundsToPixelsAndWholeChromaSamples) {
    constexpr auto kCentre = LetterboxPosition::centre, kTopLeft = LetterboxPosition::top_left,
                   kBottomRight = LetterboxPosition::bottom_right;
    const struct {
        int width, height, dst_width, dst_height, grid;
        LetterboxPosition position;
        std::array<int, 4> picture;
    } rows[] = {
        {1000, 333, 100, 100, 1, kCentre, {0, 33, 100, 33}},
        {1000, 336, 100, 100, 1, kCentre, {0, 33, 100, 34}},
        {1000, 345, 100, 100, 1, kCentre, {0, 32, 100, 35}},
        {345, 1000, 100, 100, 1, kCentre, {32, 0, 35, 100}},
        {1000, 345, 100, 100, 2, kCentre, {0, 32, 100, 36}},
        {1000, 1, 100, 100, 1, kCentre, {0, 49, 100, 1}},
        {1, 1000, 100, 100, 2, kCentre, {48, 0, 2, 100}},
        {101, 100, 101, 101, 2, kCentre, {0, 0, 101, 100}},
        // nothing below or beside it, at odd sides either
        {1000, 345, 100, 100, 2, kBottomRight, {0, 64, 100, 36}},
        {1000, 345, 100, 101, 2, kBottomRight, {0, 66, 100, 35}},
        {345, 1000, 101, 100, 1, kBottomRight, {66, 0, 35, 100}},
        {1000, 1, 100, 101, 2, kBottomRight, {0, 98, 100, 3}},
        {1000, 345, 100, 101, 2, kTopLeft, {0, 0, 100, 36}},
    };
    for (const auto& [width, height, dst_width, dst_height, grid, position, picture] : rows) {
        const Letterbox g = letterbox_geometry(width, height, dst_width, dst_height, {grid, grid}, position);
        EXPECT_EQ((std::array{g.x, g.y, g.width, g.height}), picture) << width << "x" << height << " grid " << grid;
    }
}

TEST(Letterbox, ReportsWhatItPainted) {
    for (int s : {1, 7, 13, 15})
        for (int d = 0; d < 16; ++d)
            for (int position = 0; position < 3; ++position)
                for (const auto& z :
                     {std::array<int, 4>{64, 36, 40, 40}, {30, 60, 41, 33}, {9, 9, 33, 17}, {200, 10, 20, 31}}) {
                    Pixels src(s, z[0], z[1]), dst(d, z[2], z[3]);
                    src.flat({255, 255, 255});
                    float f[4];
                    ASSERT_EQ(tavi_image_convert2_libyuv(&src.img, &dst.img, 1, 0x204080, position, &f[0], &f[1],
                                                         &f[2], &f[3], 0),
                              0);
                    ASSERT_TRUE(dst.intact());
                    RefImage expected = ref_convert(RefImage(Model::rgb, z[2], z[3], {0x20, 0x40, 0x80}), d);
                    const Color picture = ref_convert(src.colors(), d).at(0, 0);
                    for (int y = 0; y < int(f[1] * z[1] + 0.5f); ++y)
                        for (int x = 0; x < int(f[0] * z[0] + 0.5f); ++x)
                            expected.at(int(f[2]) + x, int(f[3]) + y) = picture;
                    ASSERT_LE(dst.error(expected), 1.01)
                        << "format " << s << " to " << d << " " << z[2] << "x" << z[3] << " position " << position;
                }
}

} // namespace
} // namespace tavi::test
