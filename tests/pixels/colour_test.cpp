// SPDX-License-Identifier: MIT
// Every colour space against the standards' formulas in double precision, by the tables and, with TAVI_YUV, through
// the image functions.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <ostream>

#include "backends/software/tavi_image_libyuv.h"
#include "kernels/kernels.h"
#include "support/pixels.h"

namespace tavi::test {
namespace {

/// The formulas of BT.601, BT.709 and BT.2020 themselves.
struct Exact {
    const char* name;
    ColorSpace color;
    double kr, kb;

    friend void PrintTo(const Exact& e, std::ostream* out) { *out << e.name; }

    double luma_scale() const { return color.full_range ? 1 : 219 / 255.0; }
    double chroma_scale() const { return color.full_range ? 1 : 224 / 255.0; }
    double black() const { return color.full_range ? 0 : 16; }

    Color to_rgb(double y, double u, double v) const {
        const double luma = (y - black()) / luma_scale(), cb = (u - 128) / chroma_scale(),
                     cr = (v - 128) / chroma_scale();
        const double r = luma + 2 * (1 - kr) * cr, b = luma + 2 * (1 - kb) * cb;
        const double g = (luma - kr * r - kb * b) / (1 - kr - kb);
        return {std::clamp(r, 0., 255.), std::clamp(g, 0., 255.), std::clamp(b, 0., 255.)};
    }
    Color to_yuv(const Color& p) const {
        const double luma = kr * p[0] + (1 - kr - kb) * p[1] + kb * p[2];
        return {black() + luma * luma_scale(), 128 + (p[2] - luma) / (2 * (1 - kb)) * chroma_scale(),
                128 + (p[0] - luma) / (2 * (1 - kr)) * chroma_scale()};
    }
};

class Colour : public testing::TestWithParam<Exact> {};

// Red depends on Y and V alone and blue on Y and U, so all of them are tried; of green every fifth Y.
TEST_P(Colour, YuvToRgbWithinSixTenths) {
    const Exact& exact = GetParam();
    std::vector<uint8_t> luma, u(128), v(128), rgb;
    double most = 0;
    for (int cu = 0; cu < 256; ++cu)
        for (int cv = 0; cv < 256; ++cv) {
            luma.clear();
            for (int y = 0; y < 256; y += cu == 128 || cv == 128 ? 1 : 5)
                luma.push_back(static_cast<uint8_t>(y));
            std::fill(u.begin(), u.end(), static_cast<uint8_t>(cu));
            std::fill(v.begin(), v.end(), static_cast<uint8_t>(cv));
            rgb.resize(3 * luma.size());
            kernels().yuv_to_rgb[kPlanar][kRGB](luma.data(), u.data(), v.data(), rgb.data(),
                                                static_cast<int>(luma.size()), yuv_to_rgb_constants(exact.color));
            for (size_t i = 0; i < luma.size(); ++i) {
                const Color want = exact.to_rgb(luma[i], cu, cv);
                for (int c = 0; c < 3; ++c)
                    most = std::max(most, std::fabs(rgb[3 * i + c] - want[c]));
            }
        }
    EXPECT_LE(most, 0.6);
}

TEST_P(Colour, OneColourAsYuv) {
    const Exact& exact = GetParam();
    for (int r = 0; r < 256; r += 5)
        for (int g = 0; g < 256; g += 5)
            for (int b = 0; b < 256; b += 5) {
                const Yuv got = yuv_of({r, g, b}, exact.color);
                const Color want = exact.to_yuv({double(r), double(g), double(b)});
                ASSERT_LE(std::fabs(got.y - want[0]), 0.51);
                ASSERT_LE(std::fabs(got.u - std::min(want[1], 255.0)), 0.51);
                ASSERT_LE(std::fabs(got.v - std::min(want[2], 255.0)), 0.51);
                if (r == g && g == b) {
                    ASSERT_TRUE(got.u == 128 && got.v == 128);
                }
            }
}

// The setting reaches conversion, scaling, odd edges and padding; grey is luma as it is stored.
TEST_P(Colour, TheSettingSaysWhatYuvImagesAre) {
    const Exact& exact = GetParam();
    ASSERT_EQ(setenv("TAVI_YUV", exact.name, 1), 0);
    const Color flat = {200, 60, 30}, want = exact.to_yuv(flat);
    for (int f = 5; f <= 14; ++f)
        for (const auto& [w, h] : {std::pair{16, 8}, {17, 9}, {40, 30}}) {
            Pixels rgb(1, 16, 8), yuv(f, w, h), back(3, 7, 5), same(2, w, h), gray(0, w, h), box(f, 32, 32),
                turned(f, 8, 16);
            rgb.flat(flat);
            ASSERT_EQ(tavi_image_convert_libyuv(&rgb.img, &yuv.img, 0), 0);
            ASSERT_EQ(tavi_image_convert_libyuv(&rgb.img, &turned.img, 8), 0);
            ASSERT_EQ(tavi_image_convert_libyuv(&yuv.img, &back.img, 0), 0);
            ASSERT_EQ(tavi_image_convert_libyuv(&yuv.img, &same.img, 0), 0);
            ASSERT_EQ(tavi_image_convert_libyuv(&yuv.img, &gray.img, 0), 0);
            ASSERT_EQ(
                tavi_image_convert2_libyuv(&yuv.img, &box.img, 1, 0xC83C1E, 0, nullptr, nullptr, nullptr, nullptr, 0),
                0);
            for (const Pixels* p : {&yuv, &box, &turned})
                for (int i = 0; i < 3; ++i) {
                    const Samples s = samples_of(p->view(), i);
                    for (int y = 0; y < s.rows; ++y)
                        for (int x = 0; x < s.cols; ++x)
                            ASSERT_LE(std::fabs(*s.at(x, y) - want[i]), 0.51) << f << " part " << i;
                }
            for (const Pixels* p : {&back, &same})
                for (const Color& c : p->colors().pixel)
                    for (int i = 0; i < 3; ++i)
                        ASSERT_LE(std::fabs(c[i] - flat[i]), 2) << f; // 8 bits of chroma are coarser than RGB
            ASSERT_EQ(gray.data()[0], *samples_of(yuv.view(), 0).data);
        }
}

INSTANTIATE_TEST_SUITE_P(Spaces, Colour,
                         testing::Values(Exact{"bt601", {Matrix::bt601, false}, 0.299, 0.114},
                                         Exact{"bt601-full", {Matrix::bt601, true}, 0.299, 0.114},
                                         Exact{"bt709", {Matrix::bt709, false}, 0.2126, 0.0722},
                                         Exact{"bt709-full", {Matrix::bt709, true}, 0.2126, 0.0722},
                                         Exact{"bt2020", {Matrix::bt2020, false}, 0.2627, 0.0593},
                                         Exact{"bt2020-full", {Matrix::bt2020, true}, 0.2627, 0.0593}),
                         [](const auto& row) {
                             std::string name = row.param.name;
                             name.erase(std::remove(name.begin(), name.end(), '-'), name.end());
                             return name;
                         });

} // namespace
} // namespace tavi::test
