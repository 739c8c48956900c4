// SPDX-License-Identifier: MIT
// What becomes of chroma: scaling into RGB against converting first and scaling then, in double precision, and modes
// against mode 0 turned.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <random>
#include <string>

#include "pixels/convert.h"
#include "support/pixels.h"

namespace tavi::test {
namespace {

constexpr int kYuvFormats[] = {5, 6, 7, 8, 9, 10, 11, 12, 13, 14};

/// Colours that stay inside the gamut, with detail in chroma as fine as a sample.
RefImage detailed(int w, int h) {
    RefImage rgb(Model::rgb, w, h);
    std::mt19937 random(11);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const double u = x / 7.0, v = y / 5.0, noise = random() % 16;
            rgb.at(x, y) = {120 + 60 * std::sin(u) + noise, 120 + 50 * std::cos(u + v) + noise,
                            120 + 70 * std::sin(v * 1.3) + noise};
        }
    return rgb;
}

/// Each channel scaled in double precision.
RefImage scaled(const RefImage& in, int w, int h, int method) {
    RefImage out(in.model, w, h);
    for (int c = 0; c < 3; ++c) {
        std::vector<double> plane;
        for (const Color& p : in.pixel)
            plane.push_back(p[c]);
        const std::vector<double> result =
            ref_scale(plane, 1, {in.width, w, in.width, w, 0}, {in.height, h, in.height, h, 0}, method);
        for (size_t i = 0; i < result.size(); ++i)
            out.pixel[i][c] = result[i];
    }
    return out;
}

double psnr(const Pixels& got, const RefImage& exact) {
    const RefImage have = got.colors();
    double sum = 0;
    for (size_t i = 0; i < exact.pixel.size(); ++i)
        for (int c = 0; c < 3; ++c)
            sum += std::pow(have.pixel[i][c] - exact.pixel[i][c], 2);
    return 10 * std::log10(255 * 255 / (sum / (3.0 * exact.pixel.size()) + 1e-9));
}

constexpr int kSizes[][4] = {{96, 64, 48, 32}, {96, 66, 32, 22}, {96, 64, 24, 16}, {90, 60, 60, 40},
                             {97, 63, 48, 31}, {95, 61, 90, 60}, {64, 48, 64, 20}, {64, 48, 40, 48},
                             {50, 40, 75, 60}, {201, 99, 9, 7},  {64, 48, 96, 20}};

TEST(Chroma, ScaledIntoRgbLikeConvertingFirst) {
    for (int f : kYuvFormats)
        for (const auto& [w, h, dw, dh] : kSizes)
            for (int method = 0; method <= 6; ++method) {
                Pixels src(f, w, h), whole(1, w, h), at_once(1, dw, dh), two_steps(1, dw, dh);
                src.set(detailed(w, h));
                ASSERT_FALSE(convert_views(src.view(), at_once.view(), 0, method));
                ASSERT_FALSE(convert_views(src.view(), whole.view(), 0, 0));
                ASSERT_FALSE(convert_views(whole.view(), two_steps.view(), 0, method));
                const RefImage exact = scaled(ref_convert(src.colors(), 1), dw, dh, method);
                const double ours = psnr(at_once, exact), theirs = psnr(two_steps, exact);
                EXPECT_GT(ours, theirs - 0.5) << find_format(f)->name << " " << w << "x" << h << " to " << dw << "x"
                                              << dh << " method " << method << ": " << ours << " against " << theirs;
            }
}

// Averages of flat rows are a little off between the axes; it must not show.
TEST(Chroma, FlatStaysFlatAndIsTheColourOfAnUnscaledConversion) {
    std::mt19937 random(5);
    for (const auto& [w, h, dw, dh] :
         {std::array{320, 240, 64, 64}, {320, 240, 100, 100}, {320, 240, 227, 227}, {97, 300, 33, 7}})
        for (int f : kYuvFormats)
            for (int i = 0; i < 20; ++i) {
                Pixels src(f, w, h), small(f, 2, 2), out(1, dw, dh), unscaled(1, 2, 2);
                RefImage flat(Model::yuv, w, h,
                              {60.0 + random() % 140, 100.0 + random() % 56, 100.0 + random() % 56});
                src.set(flat);
                small.set(RefImage(Model::yuv, 2, 2, flat.at(0, 0)));
                ASSERT_FALSE(convert_views(small.view(), unscaled.view(), 0, 0));
                ASSERT_FALSE(convert_views(src.view(), out.view(), 0, i % 4));
                for (size_t k = 0; k < out.size(); ++k)
                    ASSERT_EQ(out.data()[k], unscaled.data()[k % 3])
                        << find_format(f)->name << " to " << dw << "x" << dh;
            }
}

/// Bytes of a picture's colours, turned by the reference.
std::vector<uint8_t> turned(const Pixels& p, int mode) {
    const RefImage image = ref_transform(p.colors(), mode);
    return Pixels(p.img.pixel_format, image.width, image.height).set(image).bytes();
}

constexpr int kModes[] = {1, 2, 3, 4, 7, 8};

// At even and odd sizes, scaled and not: a mode moves no chroma.
TEST(Chroma, ModesIntoRgbAndGreyAreModeZeroTurned) {
    constexpr int kShapes[][4] = {{34, 20, 34, 20}, {35, 21, 35, 21}, {34, 21, 34, 21}, {35, 20, 35, 20},
                                  {60, 40, 11, 11}, {61, 41, 20, 13}, {20, 14, 41, 31}, {99, 67, 98, 66}};
    for (int f : kYuvFormats)
        for (int to : {0, 1, 4})
            for (const auto& [w, h, dw, dh] : kShapes) {
                Pixels src(f, w, h), straight(to, dw, dh);
                src.noise(f);
                ASSERT_FALSE(convert_views(src.view(), straight.view(), 0, 0));
                for (int mode : kModes) {
                    Pixels out(to, mode >= 4 ? dh : dw, mode >= 4 ? dw : dh);
                    ASSERT_FALSE(convert_views(src.view(), out.view(), mode, 0));
                    ASSERT_EQ(out.bytes(), turned(straight, mode))
                        << find_format(f)->name << " " << w << "x" << h << " to " << to << " " << dw << "x" << dh
                        << " mode " << mode;
                }
            }
}

// Chroma is made of RGB that is turned and scaled already.
TEST(Chroma, OfRgbIsMadeLast) {
    constexpr int kShapes[][4] = {
        {34, 20, 34, 20}, {35, 21, 35, 21}, {34, 20, 50, 33}, {35, 21, 70, 42}, {64, 48, 31, 21}};
    for (int f : kYuvFormats)
        for (const auto& [w, h, dw, dh] : kShapes)
            for (int mode : {0, 1, 2, 3, 4, 7, 8}) {
                const int ow = mode >= 4 ? dh : dw, oh = mode >= 4 ? dw : dh;
                Pixels src(1, w, h), rgb(1, ow, oh), first(f, ow, oh), at_once(f, ow, oh);
                src.noise(f);
                ASSERT_FALSE(convert_views(src.view(), rgb.view(), mode, 0));
                ASSERT_FALSE(convert_views(rgb.view(), first.view(), 0, 0));
                ASSERT_FALSE(convert_views(src.view(), at_once.view(), mode, 0));
                ASSERT_EQ(at_once.bytes(), first.bytes())
                    << find_format(f)->name << " " << w << "x" << h << " to " << ow << "x" << oh << " mode " << mode;
            }
}

} // namespace
} // namespace tavi::test
