// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include "pixels/plan.h"

namespace tavi {
namespace {

TEST(Plan, ShrinksFirstAndEnlargesLast) {
    constexpr struct {
        int src_format, src_width, src_height, dst_format, dst_width, dst_height, mode;
        const char* plan;
    } kCases[] = {
        {7, 1920, 1080, 7, 1920, 1080, 0, "copy"},
        {7, 1920, 1080, 1, 1920, 1080, 0, "nv12>rgb"},
        {7, 1920, 1080, 1, 640, 360, 0, "scale nv12 640x360; nv12>rgb"},
        {7, 640, 360, 1, 1920, 1080, 0, "nv12>rgb; scale rgb 1920x1080"},
        {13, 1280, 720, 2, 640, 360, 0, "scale yuyv 640x360; yuyv>bgr"},
        {13, 64, 64, 14, 32, 32, 1, "scale yuyv 32x32; yuyv>yu16; mirror yu16; yu16>uyvy"},
        {1, 100, 50, 1, 100, 50, 2, "copy; upturned"},
        {1, 100, 50, 1, 100, 50, 3, "mirror rgb; upturned"},
        {1, 100, 50, 1, 50, 100, 4, "transpose upturned rgb"},
        {7, 100, 50, 1, 50, 100, 7, "transpose nv12; nv12>rgb; upturned"},
        {1, 100, 50, 7, 50, 100, 8, "rgb>nv12; transpose nv12"},
        {13, 100, 50, 14, 50, 100, 8, "yuyv>yu16; transpose yu16; yu16>uyvy"},
        {1, 100, 50, 0, 25, 50, 8, "scale rgb 50x25; rgb>gray8; transpose gray8"},
    };
    const auto format = [](int f) { return static_cast<tavi_pixel_format>(f); };
    for (const auto& [from, w, h, to, dw, dh, mode, text] : kCases) {
        const Plan plan = make_plan({format(from), w, h, {0, 0, w, h}, format(to), dw, dh, mode});
        EXPECT_EQ(describe(plan, format(from)), text);
    }
}

} // namespace
} // namespace tavi
