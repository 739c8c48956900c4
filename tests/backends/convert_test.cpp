// SPDX-License-Identifier: MIT
// The software backend against the reference: all pairs, sizes, modes and alignments in exact buffers.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <string>

#include "backends/software/tavi_image_libyuv.h"
#include "image/format.h"
#include "support/fence_buffer.h"
#include "support/reference.h"

namespace tavi::test {
namespace {

constexpr int kFormatCount = 16;

tavi_image_t record(const FenceBuffer& b, int format, int w, int h) {
    tavi_image_t r = {};
    r.data = b.data();
    r.pixel_format = static_cast<tavi_pixel_format>(format);
    r.width = w;
    r.height = h;
    return r;
}

std::string label(int s, int d, int w, int h, int mode = 0) {
    return std::string(find_format(s)->name) + " to " + std::string(find_format(d)->name) + " " + std::to_string(w) +
           "x" + std::to_string(h) + " mode " + std::to_string(mode);
}

bool has_samples(int f, int w, int h) { return !(f >= 5 && f <= 14 && w < 2) && !(f >= 5 && f <= 8 && h < 2); }

bool is_yuv(int f) { return f >= 5 && f <= 14; }
bool is_rgb(int f) { return f >= 1 && f <= 4; }

// Rounding included: half a step, and what the arithmetic of the pair may add.
double tolerance(int s, int d) {
    if (is_yuv(s) && is_rgb(d))
        return 1.0;
    if (is_rgb(s) && is_yuv(d))
        return 1.0;
    return 0.5001;
}

// Noise in every sample, and 128 in the bytes that odd sizes leave unused.
void fill_noise(const FenceBuffer& b, int format, int w, int h, unsigned seed) {
    std::mt19937 random(seed);
    for (size_t i = 0; i < b.size(); ++i)
        b.data()[i] = static_cast<uint8_t>(random());
    if (!is_yuv(format) || !has_samples(format, w, h))
        return;
    const std::vector<double> samples = ref_samples(ref_read(b.data(), format, w, h), format);
    for (size_t i = 0; i < b.size(); ++i)
        b.data()[i] = static_cast<uint8_t>(samples[i]);
}

// Smooth in both directions and different in every channel, so that resampled chroma stays close and mixed channels
// or shifted pixels show.
void fill_smooth(uint8_t* p, int format, int w, int h) {
    RefImage rgb;
    rgb.model = Model::rgb;
    rgb.width = w, rgb.height = h;
    rgb.pixel.resize(static_cast<size_t>(w) * h);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            rgb.at(x, y) = {70.0 + 2 * x + y, 180.0 - 2 * y, 60.0 + x + 2.0 * y};
    const std::vector<double> s = ref_samples(ref_convert(rgb, format), format);
    for (size_t i = 0; i < s.size(); ++i)
        p[i] = static_cast<uint8_t>(s[i] + 0.5);
}

TEST(Convert, AllPairsAgainstTheReferenceInExactBuffers) {
    constexpr int kSizes[][2] = {{1, 1},   {2, 1},  {1, 2},  {2, 2},  {3, 3},  {5, 4},
                                 {16, 16}, {17, 5}, {33, 7}, {64, 6}, {70, 3}, {98, 2}};
    for (int s = 0; s < kFormatCount; ++s)
        for (int d = 0; d < kFormatCount; ++d)
            for (const auto& size : kSizes)
                for (int align : {0, 3}) {
                    const int w = size[0], h = size[1];
                    FenceBuffer src(ref_bytes(s, w, h), align), dst(ref_bytes(d, w, h), align);
                    fill_noise(src, s, w, h, 7u * s + d);
                    tavi_image_t from = record(src, s, w, h), to = record(dst, d, w, h);
                    const int result = tavi_image_convert_libyuv(&from, &to, 0);
                    if (!has_samples(s, w, h) || !has_samples(d, w, h)) {
                        ASSERT_EQ(result, TAVI_RET_UNSUPPORTED) << label(s, d, w, h);
                        continue;
                    }
                    ASSERT_EQ(result, 0) << label(s, d, w, h);
                    ASSERT_TRUE(src.intact() && dst.intact()) << label(s, d, w, h);
                    if (s == d) {
                        ASSERT_EQ(0, memcmp(src.data(), dst.data(), src.size())) << label(s, d, w, h);
                        continue;
                    }
                    // Clamped colours do not average like unclamped ones, so the reference converts after averaging
                    // RGB and before it elsewhere: both are linear.
                    const RefImage exact = ref_convert(ref_read(src.data(), s, w, h), d);
                    std::vector<double> samples = ref_samples(exact, d);
                    if (s == 3 || s == 4) // alpha is kept between formats that have it
                        for (size_t i = 3; (d == 3 || d == 4) && i < samples.size(); i += 4)
                            samples[i] = src.data()[i];
                    ASSERT_LE(ref_difference(samples, dst.data(), d), tolerance(s, d)) << label(s, d, w, h);
                }
}

TEST(Convert, AllModesAgainstTheReference) {
    constexpr int kModes[] = {1, 2, 3, 4, 7, 8};
    constexpr int kSizes[][2] = {{2, 2}, {16, 18}, {40, 34}, {33, 7}, {8, 35}, {17, 17}};
    for (int s = 0; s < kFormatCount; ++s)
        for (int d = 0; d < kFormatCount; ++d)
            for (const auto& size : kSizes)
                for (int mode : kModes) {
                    const int w = size[0], h = size[1];
                    const bool turned = mode >= 4;
                    const int dw = turned ? h : w, dh = turned ? w : h;
                    FenceBuffer src(ref_bytes(s, w, h)), dst(ref_bytes(d, dw, dh));
                    fill_smooth(src.data(), s, w, h);
                    tavi_image_t from = record(src, s, w, h), to = record(dst, d, dw, dh);
                    ASSERT_EQ(tavi_image_convert_libyuv(&from, &to, mode), 0) << label(s, d, w, h, mode);
                    ASSERT_TRUE(src.intact() && dst.intact());
                    const RefImage exact = ref_transform(ref_convert(ref_read(src.data(), s, w, h), d), mode);
                    // Odd sizes shift chroma by a pixel, resampled chroma by half a one: a step or two of the ramp.
                    const bool resampled = is_yuv(s) || is_yuv(d);
                    ASSERT_LE(ref_difference(ref_samples(exact, d), dst.data(), d), resampled ? 9 : 0.5001)
                        << label(s, d, w, h, mode);
                }
}

TEST(Convert, FlipsAndTurnsUndoThemselves) {
    constexpr int kPairs[][2] = {{1, 1}, {2, 2}, {3, 3}, {4, 7}, {8, 8}};
    for (int f = 0; f < kFormatCount; ++f)
        for (const auto& pair : kPairs)
            for (int w : {2, 33, 96}) {
                const int h = 35;
                const bool turned = pair[0] >= 4;
                if (turned && f >= 9 && f <= 14)
                    continue; // 4:2:2 chroma is resampled on the way
                FenceBuffer a(ref_bytes(f, w, h)), b(a.size()), c(a.size());
                fill_noise(a, f, w, h, f);
                tavi_image_t ra = record(a, f, w, h), rc = record(c, f, w, h);
                tavi_image_t rb = record(b, f, turned ? h : w, turned ? w : h);
                ASSERT_EQ(tavi_image_convert_libyuv(&ra, &rb, pair[0]), 0);
                ASSERT_EQ(tavi_image_convert_libyuv(&rb, &rc, pair[1]), 0);
                ASSERT_EQ(0, memcmp(a.data(), c.data(), a.size())) << label(f, f, w, h, pair[0]);
            }
}

TEST(Convert, LosslessRoundTrips) {
    constexpr int kPairs[][2] = {{0, 15}, {0, 1},  {1, 2},   {1, 3},   {2, 4},  {3, 4},  {5, 7}, {6, 8}, {5, 6},
                                 {9, 11}, {9, 13}, {12, 14}, {10, 13}, {7, 11}, {5, 13}, {0, 7}, {0, 14}};
    for (const auto& pair : kPairs)
        for (int w : {2, 37, 64}) {
            const int h = 10;
            FenceBuffer a(ref_bytes(pair[0], w, h)), b(ref_bytes(pair[1], w, h)), c(a.size());
            fill_noise(a, pair[0], w, h, w);
            tavi_image_t ra = record(a, pair[0], w, h), rb = record(b, pair[1], w, h), rc = record(c, pair[0], w, h);
            ASSERT_EQ(tavi_image_convert_libyuv(&ra, &rb, 0), 0);
            ASSERT_EQ(tavi_image_convert_libyuv(&rb, &rc, 0), 0);
            ASSERT_EQ(0, memcmp(a.data(), c.data(), a.size())) << label(pair[0], pair[1], w, h);
        }
}

TEST(Convert, Gray16DividesBy257Rounded) {
    FenceBuffer src(65536 * 2), dst(65536);
    for (int i = 0; i < 65536; ++i)
        src.data()[2 * i] = static_cast<uint8_t>(i), src.data()[2 * i + 1] = static_cast<uint8_t>(i >> 8);
    tavi_image_t from = record(src, 15, 256, 256), to = record(dst, 0, 256, 256);
    ASSERT_EQ(tavi_image_convert_libyuv(&from, &to, 0), 0);
    for (int i = 0; i < 65536; ++i)
        ASSERT_EQ(dst.data()[i], (2 * i + 257) / 514) << i;
}

TEST(Convert, InPlaceWhereBytesPerPixelAreEqual) {
    for (int s = 0; s < kFormatCount; ++s)
        for (int d = 0; d < kFormatCount; ++d)
            for (const auto& [mode, side] :
                 {std::pair{0, 34}, {0, 5}, {1, 34}, {3, 3}, {8, 34}}) { // square: turning keeps the size
                FenceBuffer a(ref_bytes(s, side, side)), b(ref_bytes(d, side, side));
                fill_noise(a, s, side, side, 5);
                tavi_image_t from = record(a, s, side, side), to = record(b, d, side, side);
                ASSERT_EQ(tavi_image_convert_libyuv(&from, &to, mode), 0);
                tavi_image_t same = record(a, d, side, side);
                const int result = tavi_image_convert_libyuv(&from, &same, mode);
                if (a.size() != b.size()) {
                    ASSERT_EQ(result, TAVI_RET_UNSUPPORTED);
                    continue;
                }
                ASSERT_EQ(result, 0) << label(s, d, side, side, mode);
                ASSERT_EQ(0, memcmp(a.data(), b.data(), a.size())) << label(s, d, side, side, mode);
            }
}

TEST(Convert, ScalesAndConvertsAtOnce) {
    constexpr int kSizes[][4] = {{40, 30, 20, 16}, {20, 16, 40, 30}, {41, 31, 13, 9}, {13, 9, 41, 31},
                                 {64, 48, 64, 20}, {200, 3, 9, 40},  {1, 4, 6, 8},    {4, 1, 8, 6},
                                 {4, 3, 4, 1},     {3, 4, 1, 4},     {64, 4, 32, 1},  {2, 2, 1, 3},
                                 {3, 3, 2, 2}};
    for (int s = 0; s < kFormatCount; ++s)
        for (int d = 0; d < kFormatCount; ++d)
            for (const auto& z : kSizes)
                for (int mode : {0, 1, 4, 7, 8}) {
                    const int w = z[0], h = z[1], dw = mode >= 4 ? z[3] : z[2], dh = mode >= 4 ? z[2] : z[3];
                    if (!has_samples(s, w, h) || !has_samples(d, dw, dh))
                        continue;
                    FenceBuffer src(ref_bytes(s, w, h)), dst(ref_bytes(d, dw, dh));
                    // Flat: stays flat through every filter, format and mode. The neutral byte of odd rows is no
                    // chroma.
                    RefImage flat;
                    flat.model = Model::rgb;
                    flat.width = w, flat.height = h;
                    flat.pixel.assign(static_cast<size_t>(w) * h, {200, 90, 40});
                    const std::vector<double> samples = ref_samples(ref_convert(flat, s), s);
                    for (size_t i = 0; i < samples.size(); ++i)
                        src.data()[i] = static_cast<uint8_t>(samples[i] + 0.5);
                    tavi_image_t from = record(src, s, w, h), to = record(dst, d, dw, dh);
                    ASSERT_EQ(tavi_image_convert_libyuv(&from, &to, mode), 0);
                    ASSERT_TRUE(dst.intact());
                    RefImage small = ref_convert(ref_read(src.data(), s, w, h), d);
                    small.pixel.assign(static_cast<size_t>(dw) * dh, small.at(0, 0));
                    small.width = dw, small.height = dh;
                    ASSERT_LE(ref_difference(ref_samples(small, d), dst.data(), d), tolerance(s, d))
                        << label(s, d, w, h, mode) << " to " << dw << "x" << dh;
                }
}

TEST(Convert, RefusesWhatItCannotDo) {
    FenceBuffer src(64 * 64 * 3), dst(64 * 64 * 3);
    const tavi_image_t good = record(src, 1, 64, 64), out = record(dst, 2, 64, 64);
    struct Case {
        const char* name;
        void (*spoil)(tavi_image_t& s, tavi_image_t& d);
        int mode;
        int result;
    };
    const Case cases[] = {
        {"unknown mode", [](tavi_image_t&, tavi_image_t&) {}, 5, TAVI_RET_UNSUPPORTED},
        {"negative mode", [](tavi_image_t&, tavi_image_t&) {}, -1, TAVI_RET_UNSUPPORTED},
        {"no destination memory", [](tavi_image_t&, tavi_image_t& d) { d.data = nullptr; }, 0, TAVI_RET_PARAM_ERR},
        {"no source memory", [](tavi_image_t& s, tavi_image_t&) { s.data = nullptr; }, 0, TAVI_RET_PARAM_ERR},
        {"physical only", [](tavi_image_t& s, tavi_image_t&) { s.data_phy = s.data, s.data = nullptr; }, 0,
         TAVI_RET_UNSUPPORTED},
        {"bad descriptor", [](tavi_image_t& s, tavi_image_t&) { s.fd = 9999, s.data = nullptr; }, 0, TAVI_RET_FAIL},
        {"unknown format",
         [](tavi_image_t& s, tavi_image_t&) { s.pixel_format = static_cast<tavi_pixel_format>(16); }, 0,
         TAVI_RET_UNSUPPORTED},
        {"no width", [](tavi_image_t&, tavi_image_t& d) { d.width = 0; }, 0, TAVI_RET_UNSUPPORTED},
        {"too wide", [](tavi_image_t& s, tavi_image_t&) { s.width = 16385, s.height = 1; }, 0, TAVI_RET_UNSUPPORTED},
        {"partial overlap", [](tavi_image_t& s, tavi_image_t& d) { d.data = s.data + 3; }, 0, TAVI_RET_PARAM_ERR},
    };
    for (const Case& c : cases) {
        tavi_image_t s = good, d = out;
        c.spoil(s, d);
        EXPECT_EQ(tavi_image_convert_libyuv(&s, &d, c.mode), c.result) << c.name;
    }
    tavi_image_t s = good, d = out;
    EXPECT_EQ(tavi_image_convert_libyuv(nullptr, &d, 0), TAVI_RET_PARAM_ERR);
    EXPECT_EQ(tavi_image_convert_libyuv(&s, nullptr, 0), TAVI_RET_PARAM_ERR);
    EXPECT_EQ(tavi_image_convert2_libyuv(&s, &d, 1, 0, 3, nullptr, nullptr, nullptr, nullptr, 0), TAVI_RET_PARAM_ERR);
    EXPECT_EQ(tavi_image_convert2_libyuv(&s, &d, 1, 0, 0, nullptr, nullptr, nullptr, nullptr, 4), TAVI_RET_PARAM_ERR);
}

} // namespace
} // namespace tavi::test
