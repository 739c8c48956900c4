// SPDX-License-Identifier: MIT
// The software backend against the reference: all pairs, sizes, modes and alignments in exact buffers.
#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "backends/software/tavi_image_libyuv.h"
#include "image/format.h"
#include "support/pixels.h"

namespace tavi::test {
namespace {

constexpr int kFormatCount = 16;

std::string label(const Pixels& s, const Pixels& d, int mode = 0) {
    const auto text = [](const Pixels& p) {
        return std::string(find_format(p.img.pixel_format)->name) + " " + std::to_string(p.img.width) + "x" +
               std::to_string(p.img.height);
    };
    return text(s) + " to " + text(d) + " mode " + std::to_string(mode);
}

int convert(Pixels& s, Pixels& d, int mode = 0) { return tavi_image_convert_libyuv(&s.img, &d.img, mode); }

bool is_rgb(int f) { return f >= 1 && f <= 4; }

// Rounding included: half a step, and what the arithmetic of the pair may add.
double tolerance(int s, int d) { return (is_yuv(s) && is_rgb(d)) || (is_rgb(s) && is_yuv(d)) ? 1.0 : 0.5001; }

// Smooth in both directions and different in every channel, so that resampled chroma stays close and mixed channels
// or shifted pixels show.
RefImage smooth(int w, int h) {
    RefImage rgb(Model::rgb, w, h);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            rgb.at(x, y) = {70.0 + 2 * x + y, 180.0 - 2 * y, 60.0 + x + 2.0 * y};
    return rgb;
}

TEST(Convert, AllPairsAgainstTheReferenceInExactBuffers) {
    constexpr int kSizes[][2] = {{1, 1},   {2, 1},  {1, 2},  {2, 2},  {3, 3},  {5, 4},
                                 {16, 16}, {17, 5}, {33, 7}, {64, 6}, {90, 3}, {98, 2}};
    for (int s = 0; s < kFormatCount; ++s)
        for (int d = 0; d < kFormatCount; ++d)
            for (const auto& [w, h] : kSizes)
                for (int align : {0, 3}) {
                    Pixels src(s, w, h, align), dst(d, w, h, align);
                    src.noise(7u * s + d);
                    SCOPED_TRACE(label(src, dst));
                    const int result = convert(src, dst);
                    if (!src.viewable() || !dst.viewable()) {
                        ASSERT_EQ(result, TAVI_RET_UNSUPPORTED);
                        continue;
                    }
                    ASSERT_EQ(result, 0);
                    ASSERT_TRUE(src.intact() && dst.intact());
                    if (s == d) {
                        ASSERT_EQ(src.bytes(), dst.bytes());
                        continue;
                    }
                    // Clamped colours do not average like unclamped ones, so the reference converts after averaging
                    // RGB and before it elsewhere: both are linear.
                    std::vector<double> samples = ref_samples(ref_convert(src.colors(), d), d);
                    if (s == 3 || s == 4) // alpha is kept between formats that have it
                        for (size_t i = 3; (d == 3 || d == 4) && i < samples.size(); i += 4)
                            samples[i] = src.data()[i];
                    ASSERT_LE(ref_difference(samples, dst.data(), d), tolerance(s, d));
                }
}

TEST(Convert, AllModesAgainstTheReference) {
    constexpr int kSizes[][2] = {{2, 2}, {16, 18}, {40, 34}, {33, 7}, {8, 35}, {17, 17}};
    for (int s = 0; s < kFormatCount; ++s)
        for (int d = 0; d < kFormatCount; ++d)
            for (const auto& [w, h] : kSizes)
                for (int mode : {1, 2, 3, 4, 7, 8}) {
                    Pixels src(s, w, h), dst(d, mode >= 4 ? h : w, mode >= 4 ? w : h);
                    src.set(smooth(w, h));
                    ASSERT_EQ(convert(src, dst, mode), 0) << label(src, dst, mode);
                    ASSERT_TRUE(src.intact() && dst.intact());
                    // Odd sizes shift chroma by a pixel, resampled chroma by half a one: a step or two of the ramp.
                    const bool resampled = is_yuv(s) || is_yuv(d);
                    ASSERT_LE(dst.error(ref_transform(ref_convert(src.colors(), d), mode)), resampled ? 9 : 0.5001)
                        << label(src, dst, mode);
                }
}

TEST(Convert, FlipsAndTurnsUndoThemselves) {
    constexpr int kPairs[][2] = {{1, 1}, {2, 2}, {3, 3}, {4, 7}, {8, 8}};
    for (int f = 0; f < kFormatCount; ++f)
        for (const auto& [there, back] : kPairs)
            for (int w : {2, 33, 96}) {
                const int h = 35;
                const bool turned = there >= 4;
                if (turned && f >= 9 && f <= 14)
                    continue; // 4:2:2 chroma is resampled on the way
                Pixels a(f, w, h), b(f, turned ? h : w, turned ? w : h), c(f, w, h);
                a.noise(f);
                ASSERT_EQ(convert(a, b, there), 0);
                ASSERT_EQ(convert(b, c, back), 0);
                ASSERT_EQ(a.bytes(), c.bytes()) << label(a, b, there);
            }
}

TEST(Convert, Gray16DividesBy257Rounded) {
    Pixels src(15, 256, 256), dst(0, 256, 256);
    for (int i = 0; i < 65536; ++i)
        src.data()[2 * i] = static_cast<uint8_t>(i), src.data()[2 * i + 1] = static_cast<uint8_t>(i >> 8);
    ASSERT_EQ(convert(src, dst), 0);
    for (int i = 0; i < 65536; ++i)
        ASSERT_EQ(dst.data()[i], (2 * i + 257) / 514) << i;
}

TEST(Convert, InPlaceWhereBytesPerPixelAreEqual) {
    for (int s = 0; s < kFormatCount; ++s)
        for (int d = 0; d < kFormatCount; ++d)
            for (const auto& [mode, side] :
                 {std::pair{0, 34}, {0, 5}, {1, 34}, {3, 3}, {8, 34}}) { // square: turning keeps the size
                Pixels a(s, side, side), b(d, side, side);
                a.noise(5);
                ASSERT_EQ(convert(a, b, mode), 0);
                tavi_image_t same = b.img;
                same.data = a.data();
                const bool fits = a.size() == b.size();
                ASSERT_EQ(tavi_image_convert_libyuv(&a.img, &same, mode), fits ? 0 : TAVI_RET_UNSUPPORTED);
                if (fits) {
                    ASSERT_EQ(a.bytes(), b.bytes()) << label(a, b, mode);
                }
            }
}

TEST(Convert, ScalesAndConvertsAtOnce) {
    constexpr int kSizes[][4] = {{40, 30, 20, 16}, {20, 16, 40, 30}, {41, 31, 13, 9}, {13, 9, 41, 31},
                                 {64, 48, 64, 20}, {200, 3, 9, 40},  {1, 4, 6, 8},    {4, 1, 8, 6},
                                 {4, 3, 4, 1},     {3, 4, 1, 4},     {64, 4, 32, 1},  {2, 2, 1, 3},
                                 {3, 3, 2, 2}};
    for (int s = 0; s < kFormatCount; ++s)
        for (int d = 0; d < kFormatCount; ++d)
            for (const auto& [w, h, dw, dh] : kSizes)
                for (int mode : {0, 1, 4, 7, 8}) {
                    Pixels src(s, w, h), dst(d, mode >= 4 ? dh : dw, mode >= 4 ? dw : dh);
                    if (!src.viewable() || !dst.viewable())
                        continue;
                    // Flat: stays flat through every filter, format and mode. The neutral byte of odd rows is no
                    // chroma.
                    src.flat({200, 90, 40});
                    ASSERT_EQ(convert(src, dst, mode), 0);
                    ASSERT_TRUE(dst.intact());
                    const RefImage exact = ref_convert(src.colors(), d);
                    ASSERT_LE(dst.error({exact.model, int(dst.img.width), int(dst.img.height), exact.at(0, 0)}),
                              tolerance(s, d))
                        << label(src, dst, mode);
                }
}

TEST(Convert, RefusesWhatItCannotDo) {
    const Pixels src(1, 64, 64), dst(2, 64, 64);
    using Image = tavi_image_t;
    constexpr int kNo = TAVI_RET_UNSUPPORTED, kParam = TAVI_RET_PARAM_ERR;
    const struct {
        const char* name;
        void (*spoil)(Image& s, Image& d);
        int mode, result;
    } rows[] = {
        {"unknown mode", [](Image&, Image&) {}, 5, kNo},
        {"negative mode", [](Image&, Image&) {}, -1, kNo},
        {"no destination memory", [](Image&, Image& d) { d.data = nullptr; }, 0, kParam},
        {"no source memory", [](Image& s, Image&) { s.data = nullptr; }, 0, kParam},
        {"physical only", [](Image& s, Image&) { s.data_phy = s.data, s.data = nullptr; }, 0, kNo},
        {"bad descriptor", [](Image& s, Image&) { s.fd = 9999, s.data = nullptr; }, 0, TAVI_RET_FAIL},
        {"unknown format", [](Image& s, Image&) { s.pixel_format = tavi_pixel_format(16); }, 0, kNo},
        {"no width", [](Image&, Image& d) { d.width = 0; }, 0, kNo},
        {"too wide", [](Image& s, Image&) { s.width = 16385, s.height = 1; }, 0, kNo},
        {"in place, narrower", [](Image& s, Image& d) { d.data = s.data, d.width = 32; }, 0, kNo},
        {"partial overlap", [](Image& s, Image& d) { d.data = s.data + 3; }, 0, kParam},
    };
    tavi_image_t s, d;
    for (const auto& row : rows) {
        s = src.img, d = dst.img;
        row.spoil(s, d);
        EXPECT_EQ(tavi_image_convert_libyuv(&s, &d, row.mode), row.result) << row.name;
    }
    s = src.img, d = dst.img;
    EXPECT_EQ(tavi_image_convert_libyuv(nullptr, &d, 0), TAVI_RET_PARAM_ERR);
    EXPECT_EQ(tavi_image_convert_libyuv(&s, nullptr, 0), TAVI_RET_PARAM_ERR);
    EXPECT_EQ(tavi_image_convert2_libyuv(&s, &d, 1, 0, 3, nullptr, nullptr, nullptr, nullptr, 0), TAVI_RET_PARAM_ERR);
    EXPECT_EQ(tavi_image_convert2_libyuv(&s, &d, 1, 0, 0, nullptr, nullptr, nullptr, nullptr, 4), TAVI_RET_PARAM_ERR);
}

} // namespace
} // namespace tavi::test
