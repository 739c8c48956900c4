// SPDX-License-Identifier: MIT
// Plans as text: what --explain prints is what runs.
#include <gtest/gtest.h>

#include <array>

#include "pixels/even.h"
#include "pixels/plan.h"

namespace tavi {
namespace {

Plan plan_of(int from, int w, int h, int to, int dw, int dh, int mode) {
    return make_plan({&kFormats[from], w, h, {0, 0, w, h}, &kFormats[to], dw, dh, mode});
}

TEST(Plan, SaysEachStep) {
    constexpr struct {
        int src_format, src_width, src_height, dst_format, dst_width, dst_height, mode;
        const char* plan;
    } kCases[] = {
        {7, 1920, 1080, 7, 1920, 1080, 0, "copy"},
        {7, 1920, 1080, 1, 1920, 1080, 0, "nv12>rgb"},
        // scaling: chroma goes straight to the grid of the result, and is made after it
        {7, 1920, 1080, 1, 640, 360, 0, "scale nv12>nv24 640x360; nv24>rgb"},
        {6, 1920, 1080, 1, 640, 360, 0, "scale yv12>yu24 640x360; yu24>rgb"},
        {13, 1280, 720, 2, 640, 360, 0, "yuyv>nv16; scale nv16>nv24 640x360; nv24>bgr"},
        {7, 640, 360, 1, 1920, 1080, 0, "nv12>rgb; scale rgb 1920x1080"},
        {8, 640, 360, 11, 1280, 100, 0, "scale nv21>nv61 1280x100; nv61>nv16"},
        {1, 640, 360, 7, 1280, 720, 0, "scale rgb 1280x720; rgb>nv12"},
        {7, 640, 360, 0, 320, 180, 0, "luma of nv12; scale gray8 320x180"},
        {0, 320, 180, 3, 640, 360, 0, "scale gray8 640x360; gray8>rgba"},
        {1, 640, 480, 15, 320, 240, 0, "rgb>gray16; scale gray16 320x240"},
        {15, 640, 480, 1, 320, 240, 0, "scale gray16 320x240; gray16>gray8; gray8>rgb"},
        {13, 64, 64, 14, 32, 32, 1, "yuyv>nv16; scale nv16 32x32; mirror nv16; nv16>uyvy"},
        // every hop
        {15, 640, 480, 7, 640, 480, 0, "gray16>gray8; gray8>nv12"},
        {7, 640, 480, 15, 640, 480, 0, "nv12>gray8; gray8>gray16"},
        {13, 640, 480, 8, 640, 480, 0, "yuyv>nv12; nv12>nv21"},
        {14, 640, 480, 12, 640, 480, 0, "uyvy>nv16; nv16>nv61"},
        {8, 640, 480, 13, 640, 480, 0, "nv21>nv12; nv12>yuyv"},
        // moves: where no chroma moves, and then where fewer bytes do
        {1, 100, 50, 1, 100, 50, 2, "flip rgb"},
        {1, 100, 50, 1, 100, 50, 3, "mirror rgb; flip rgb"},
        {1, 100, 50, 1, 50, 100, 4, "flip rgb; transpose rgb"},
        {7, 100, 50, 1, 50, 100, 7, "transpose nv12; flip nv12; nv12>rgb"},
        {7, 101, 51, 1, 101, 51, 1, "nv12>rgb; mirror rgb"},
        {7, 101, 51, 1, 51, 101, 8, "transpose nv12; nv12>rgb"},
        {11, 100, 50, 1, 50, 100, 8, "nv16>rgb; transpose rgb"},
        {1, 100, 50, 7, 50, 100, 8, "rgb>nv12; transpose nv12"},
        {1, 101, 50, 7, 101, 50, 1, "mirror rgb; rgb>nv12"},
        {1, 100, 51, 7, 100, 51, 2, "flip rgb; rgb>nv12"},
        {13, 100, 50, 14, 50, 100, 8, "yuyv>nv16; transpose nv16; nv16>uyvy"},
        {13, 100, 50, 7, 50, 100, 4, "yuyv>nv12; flip nv12; transpose nv12"},
        {1, 100, 50, 0, 25, 50, 8, "scale rgb 50x25; rgb>gray8; transpose gray8"},
        {11, 4, 4, 11, 2, 1, 4, "scale nv16>nv24 1x2; flip nv24; transpose nv24; nv24>rgb; rgb>nv16"},
    };
    for (const auto& [from, w, h, to, dw, dh, mode, text] : kCases)
        EXPECT_STREQ(PlanText(plan_of(from, w, h, to, dw, dh, mode), kFormats[from]).text, text);
}

// No step hides another, for any pair, mode, and direction of scaling; and the last one ends in what was asked for.
TEST(Plan, EveryStepIsOneConversionOfTheTable) {
    for (int from = 0; from < 16; ++from)
        for (int to = 0; to < 16; ++to)
            for (int mode : {0, 1, 2, 3, 4, 7, 8})
                for (const auto& [sw, sh, w, h] : {std::array{40, 30, 40, 30},
                                                   {40, 30, 41, 31},
                                                   {40, 30, 20, 90},
                                                   {40, 30, 80, 60},
                                                   {100, 1, 10, 2},
                                                   {2, 2, 9, 1},
                                                   {1, 50, 3, 3}}) {
                    const bool turned = exchanges_sides(mode);
                    const int dw = turned ? h : w, dh = turned ? w : h;
                    if (why_not_viewable(from, sw, sh) || why_not_viewable(to, dw, dh))
                        continue;
                    const Plan plan = plan_of(from, sw, sh, to, dw, dh, mode);
                    const Format* at = &kFormats[from];
                    SCOPED_TRACE(PlanText(plan, *at).text);
                    for (int i = 0; i < plan.count; ++i) {
                        const Step& s = plan.step[i];
                        if (s.kind == StepKind::convert) {
                            ASSERT_TRUE(converts_directly(*at, *s.format));
                        } else if (s.kind == StepKind::scale || s.kind == StepKind::mirror ||
                                   s.kind == StepKind::transpose) {
                            ASSERT_FALSE(s.format->packed());
                            ASSERT_EQ(at->planes, s.format->planes);
                        }
                        at = s.format;
                        ASSERT_TRUE(s.width >> at->xshift() > 0 && s.height >> at->yshift() > 0);
                    }
                    ASSERT_EQ(at, &kFormats[to]);
                }
}

} // namespace
} // namespace tavi
