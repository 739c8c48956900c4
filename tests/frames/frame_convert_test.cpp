// SPDX-License-Identifier: MIT
// Conversion of frames: against the image functions where both can say a request, against itself at even sizes where
// chroma rounds up, against the standards' formulas between colours.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <thread>
#include <vector>

#include "backends/software/tavi_image_libyuv.h"
#include "frames/frame_memory.h"
#include "support/pixels.h"

namespace tavi::test {
namespace {

constexpr int kFormatCount = 16;
constexpr int kModes[] = {0, 1, 2, 3, 4, 7, 8};

std::string label(const FrameMemory& s, const FrameMemory& d, int mode = 0) {
    return name_of(s) + " to " + name_of(d) + " mode " + std::to_string(mode);
}

tavi_frame_options_t mode_of(int mode) {
    tavi_frame_options_t options{};
    options.transform = mode;
    return options;
}

int convert(const FrameMemory& s, FrameMemory& d, const tavi_frame_options_t& options = {}) {
    return tavi_frame_convert(&s.frame, &d.frame, &options, nullptr);
}

TEST(Frames, EqualImagesWhateverThePitch) {
    constexpr int kSizes[][4] = {{17, 9, 17, 9}, {34, 18, 16, 8}, {13, 11, 29, 23}};
    for (int s = 0; s < kFormatCount; ++s)
        for (int d = 0; d < kFormatCount; ++d)
            for (const auto& [w, h, dw, dh] : kSizes)
                for (const int mode : kModes) {
                    const bool turned = exchanges_sides(mode);
                    const unsigned slack = (s + d + mode) % 3 * 31;
                    FrameMemory src(s, w, h, slack, TAVI_CHROMA_ROUNDS_DOWN);
                    FrameMemory dst(d, turned ? dh : dw, turned ? dw : dh, slack, TAVI_CHROMA_ROUNDS_DOWN);
                    SCOPED_TRACE(label(src, dst, mode));
                    Pixels image(s, w, h), result(d, dst.view.width, dst.view.height);
                    image.noise(s + 16 * d);
                    src.fill([from = image.data()](uint8_t& byte) mutable { byte = *from++; });
                    ASSERT_EQ(tavi_image_convert_libyuv(&image.img, &result.img, mode), 0);
                    ASSERT_EQ(convert(src, dst, mode_of(mode)), 0);
                    ASSERT_TRUE(src.intact() && dst.intact());
                    const std::string made = dst.pixels();
                    ASSERT_EQ(made, std::string(result.data(), result.data() + made.size()));
                }
}

// A picture of even sides whose last two columns and rows are equal holds what an odd one has that rounds up.
TEST(Frames, ChromaThatRoundsUpIsThatOfTheEvenPicture) {
    for (int s = 0; s < kFormatCount; ++s)
        for (int d = 0; d < kFormatCount; ++d)
            for (const int w : {1, 3, 21}) {
                const int h = w == 21 ? 7 : w;
                FrameMemory rgb(TAVI_PIXEL_FORMAT_RGB888, w + 1, h + 1), even(s, w + 1, h + 1),
                    wanted(d, w + 1, h + 1);
                rgb.noise(5);
                PlaneView& p = rgb.view.plane[0];
                for (int y = 0; y <= h; ++y)
                    std::memcpy(p.at(w, y), p.at(w - 1, y), 3);
                std::memcpy(p.row(h), p.row(h - 1), rgb.row_bytes(0));
                ASSERT_EQ(convert(rgb, even), 0);
                ASSERT_EQ(convert(even, wanted), 0);
                FrameMemory odd(d, w, h, 7);
                tavi_frame_t cut = even.frame;
                cut.width = w, cut.height = h;
                ASSERT_EQ(tavi_frame_convert(&cut, &odd.frame, nullptr, nullptr), 0);
                SCOPED_TRACE(label(even, odd));
                ASSERT_TRUE(odd.intact());
                for (int i = 0; i < odd.view.planes(); ++i)
                    for (int y = 0; y < odd.view.plane[i].rows; ++y)
                        ASSERT_EQ(
                            std::memcmp(odd.view.plane[i].row(y), wanted.view.plane[i].row(y), odd.row_bytes(i)), 0)
                            << "plane " << i << " row " << y;
            }
}

// Both ways of rounding meet, at odd sizes, in every mode, scaled and not: fences hold, and RGB comes out turned.
TEST(Frames, OddSizesOfBothRoundingsStayInTheirPlanes) {
    constexpr int kSizes[][4] = {{5, 3, 5, 3}, {21, 35, 21, 35}, {35, 19, 9, 5}, {7, 5, 23, 41}, {3, 3, 1, 1}};
    for (int s = 0; s < kFormatCount; ++s)
        for (int d = 0; d < kFormatCount; ++d)
            for (const auto& [w, h, dw, dh] : kSizes)
                for (const int mode : kModes) {
                    const int up = (s + d + mode + w) % 3;
                    const bool turned = exchanges_sides(mode);
                    FrameMemory src(s, w, h, 2, up == 1), plain(d, dw, dh, 3, up == 2 && dw > 1);
                    FrameMemory dst(d, turned ? dh : dw, turned ? dw : dh, 5, up == 2 && dw > 1);
                    SCOPED_TRACE(label(src, dst, mode) + " rounding " + std::to_string(up));
                    src.noise(s);
                    ASSERT_EQ(convert(src, dst, mode_of(mode)), 0);
                    ASSERT_TRUE(src.intact() && dst.intact());
                    if (is_yuv(d))
                        continue;
                    ASSERT_EQ(convert(src, plain), 0);
                    FrameMemory again(d, dst.view.width, dst.view.height, 1);
                    ASSERT_EQ(convert(plain, again, mode_of(mode)), 0);
                    ASSERT_EQ(dst.pixels(), again.pixels());
                }
}

// Chroma of odd sides has a sample more or less than whole steps of the picture take, on either side. What is of one
// value stays so: nothing beside the samples is read, and there is no pixel without a weight.
TEST(Frames, OddResultsOfWholeStepsAreOfTheirSamples) {
    constexpr int kSources[] = {5, 7, 9, 12, 13}, kResults[] = {1, 5, 8, 9, 14};
    for (const int s : kSources)
        for (const int d : kResults)
            for (const auto& [w, h, dw, dh] : {std::array{6, 6, 3, 3},
                                               {66, 10, 33, 5},
                                               {9, 9, 3, 3},
                                               {93, 15, 31, 5},
                                               {5, 5, 5, 10},
                                               {7, 5, 14, 5},
                                               {3, 3, 9, 9}})
                for (int options_of = 0; options_of < 7 * 4 * 3; ++options_of) {
                    const int rounding = options_of / 7 % 4;
                    const tavi_color_space_t color{0, 1, options_of / 28};
                    FrameMemory src(s, w, h, 0, rounding % 2, color), dst(d, dw, dh, 0, rounding / 2, color);
                    src.fill([](uint8_t& byte) { byte = 128; });
                    tavi_frame_options_t options{};
                    options.filter = options_of % 7;
                    SCOPED_TRACE(label(src, dst) + " options " + std::to_string(options_of));
                    ASSERT_EQ(convert(src, dst, options), 0);
                    ASSERT_TRUE(dst.intact());
                    ASSERT_EQ(dst.pixels(), std::string(dst.pixels().size(), '\x80'));
                }
}

// Where chroma rounds down, too, the last column and row of a part have the sample that covers them.
TEST(Frames, CropsOfOddSidesKeepTheirChroma) {
    for (int f = 5; f <= 14; ++f) {
        FrameMemory src(f, 7, 5, 3, TAVI_CHROMA_ROUNDS_DOWN), whole(TAVI_PIXEL_FORMAT_RGB888, 7, 5);
        src.noise(f);
        ASSERT_EQ(convert(src, whole), 0);
        for (const auto& [x, y, w, h] : {std::array{0, 0, 1, 1},
                                         {0, 2, 1, 2},
                                         {2, 0, 1, 5},
                                         {2, 2, 3, 3},
                                         {4, 0, 3, 1},
                                         {0, 0, 5, 5},
                                         {6, 4, 1, 1}}) {
            FrameMemory part(TAVI_PIXEL_FORMAT_RGB888, w, h, 1);
            tavi_frame_options_t options{};
            options.crop = {x, y, w, h};
            ASSERT_EQ(convert(src, part, options), 0);
            for (int row = 0; row < h; ++row)
                for (int i = 0; i < 3 * w; ++i)
                    ASSERT_NEAR(part.view.plane[0].row(row)[i], whole.view.plane[0].at(x, y + row)[i], 1)
                        << label(src, part) << " at " << x << " " << y << ", byte " << i << " of row " << row;
        }
    }
}

// The field is of subsampled formats: in others it says nothing.
TEST(Frames, RoundingOfRgbIsNotLookedAt) {
    for (int f = 5; f <= 14; ++f)
        for (int options_of = 0; options_of < 7 * 2 * 2; ++options_of) {
            const int rounding = options_of / 7 % 2;
            const tavi_color_space_t color{0, 0, TAVI_SITING_TOP_LEFT};
            tavi_frame_options_t options = mode_of(options_of / 14 ? TAVI_IMAGE_TRANSFORM_ROTATE_90 : 0);
            options.filter = options_of % 7;
            FrameMemory yuv(f, 33, 15, 0, rounding, color), up(1, 13, 11), down(1, 13, 11, 0, 1);
            yuv.noise(options_of);
            ASSERT_EQ(convert(yuv, up, options), 0);
            ASSERT_EQ(convert(yuv, down, options), 0);
            ASSERT_EQ(up.pixels(), down.pixels()) << label(yuv, up) << " options " << options_of;
            FrameMemory of_up(f, 15, 9, 0, rounding, color), of_down(f, 15, 9, 0, rounding, color);
            ASSERT_EQ(convert(up, of_up, options), 0);
            ASSERT_EQ(convert(down, of_down, options), 0);
            ASSERT_EQ(of_up.pixels(), of_down.pixels()) << label(up, of_up) << " options " << options_of;
        }
}

TEST(Frames, CropPlaceContainAndCover) {
    FrameMemory src(TAVI_PIXEL_FORMAT_RGB888, 60, 40), dst(TAVI_PIXEL_FORMAT_YUV420SP_NV12, 41, 37, 3);
    src.noise(1);
    tavi_frame_options_t options{};
    options.crop = {7, 5, 20, 30};
    options.place = {4, 6, 37, 20};
    options.fit = TAVI_FIT_CONTAIN;
    options.pad_color = 0xFF0000;
    tavi_frame_report_t report{};
    ASSERT_EQ(tavi_frame_convert(&src.frame, &dst.frame, &options, &report), 0);
    ASSERT_TRUE(dst.intact());
    EXPECT_EQ(report.placement.x, 4 + 10);
    EXPECT_EQ(report.placement.width, 14); // 13.3 on whole chroma samples
    EXPECT_EQ(report.placement.height, 20);
    EXPECT_FLOAT_EQ(report.scale_x, 14 / 20.f);
    const PlaneView &luma = dst.view.plane[0], &chroma = dst.view.plane[1];
    EXPECT_EQ(*luma.at(4, 6), 81);
    EXPECT_EQ(*luma.at(40, 25), 81);
    EXPECT_EQ(*chroma.at(20, 12), 90); // the odd last column has chroma of its own
    for (const auto& [x, y] : {std::pair{3, 6}, {4, 5}, {4, 26}})
        EXPECT_EQ(*luma.at(x, y), 0xA5) << "outside the place";

    FrameMemory picture(TAVI_PIXEL_FORMAT_YUV420SP_NV12, 14, 20);
    tavi_frame_t part = src.frame;
    part.plane[0].data += 5 * part.plane[0].pitch + 7 * 3;
    part.width = 20, part.height = 30;
    ASSERT_EQ(tavi_frame_convert(&part, &picture.frame, nullptr, nullptr), 0);
    for (int y = 0; y < 20; ++y)
        EXPECT_EQ(std::memcmp(luma.at(14, 6 + y), picture.view.plane[0].row(y), 14), 0) << y;

    // A quarter turn of 60x40 that covers 10x10 is its middle, turned.
    FrameMemory covered(TAVI_PIXEL_FORMAT_RGB888, 10, 10), cropped(TAVI_PIXEL_FORMAT_RGB888, 10, 10);
    options = mode_of(TAVI_IMAGE_TRANSFORM_ROTATE_90);
    options.fit = TAVI_FIT_COVER;
    ASSERT_EQ(tavi_frame_convert(&src.frame, &covered.frame, &options, &report), 0);
    EXPECT_EQ(report.crop.x, 10);
    EXPECT_EQ(report.crop.width, 40);
    options.fit = TAVI_FIT_STRETCH;
    options.crop = {10, 0, 40, 40};
    ASSERT_EQ(convert(src, cropped, options), 0);
    EXPECT_EQ(covered.pixels(), cropped.pixels());
}

// A slope of chroma over the pixels stays where it is, wherever its samples stand on either side.
TEST(Frames, ChromaStandsWhereItsSitingSays) {
    constexpr int kSides[][2] = {{120, 76}, {120, 62}, {60, 90}, {64, 23}};
    const auto centre = [](int sample, bool first) { return 2 * sample + (first ? 0.5 : 1.0); };
    for (const auto& [from, to] : kSides)
        for (int sitings = 0; sitings < 9; ++sitings)
            for (const int filter :
                 {TAVI_FILTER_BILINEAR, TAVI_FILTER_BOX, TAVI_FILTER_TRIANGLE, TAVI_FILTER_LANCZOS3}) {
                const tavi_color_space_t has{0, 0, sitings % 3}, gets{0, 0, sitings / 3};
                FrameMemory src(TAVI_PIXEL_FORMAT_YUV420SP_NV12, from, from, 0, 0, has);
                FrameMemory dst(TAVI_PIXEL_FORMAT_YUV420P_YU12, to, to, 0, 0, gets);
                const double rise = 200.0 / from, ratio = double(from) / to;
                const Samples u = samples_of(src.view, 1), v = samples_of(src.view, 2);
                for (int y = 0; y < u.rows; ++y)
                    for (int x = 0; x < u.cols; ++x) {
                        *u.at(x, y) = static_cast<uint8_t>(20.5 + rise * centre(x, has.siting > 0));
                        *v.at(x, y) = static_cast<uint8_t>(20.5 + rise * centre(y, has.siting > 1));
                    }
                std::memset(src.memory[0]->data(), 128, src.memory[0]->size());
                tavi_frame_options_t options{};
                options.filter = filter;
                FrameMemory rgb(TAVI_PIXEL_FORMAT_RGB888, to, to);
                ASSERT_EQ(convert(src, rgb, options), 0);
                ASSERT_EQ(convert(src, dst, options), 0);
                const int edge = static_cast<int>(3 * std::max(1.0, 1 / ratio)) + 1, last = to / 2 - edge;
                for (int i = edge; i < last; ++i) {
                    const double across = 20 + rise * ratio * centre(i, gets.siting > 0);
                    const double u_at_pixel = 20 + rise * ratio * (2 * i + 0.5);
                    const double blue = (128 - 16) * 255 / 219. + 2 * (1 - 0.114) * 255 / 224 * (u_at_pixel - 128);
                    ASSERT_NEAR(rgb.view.plane[0].at(2 * i, to / 2)[2], std::clamp(blue, 0., 255.),
                                filter == TAVI_FILTER_BOX || has.siting == 0 ? 3.5 * rise * std::max(1.0, ratio)
                                                                             : 2.5)
                        << from << " to " << to << " sitings " << sitings << " filter " << filter;
                    const double down = 20 + rise * ratio * centre(i, gets.siting > 1);
                    ASSERT_NEAR(*samples_of(dst.view, 1).at(i, last), across, filter == TAVI_FILTER_BOX ? 2 : 1.1)
                        << from << " to " << to << " sitings " << sitings << " filter " << filter;
                    ASSERT_NEAR(*samples_of(dst.view, 2).at(edge, i), down, filter == TAVI_FILTER_BOX ? 2 : 1.1);
                }
            }
}

/// The formulas of the standards.
struct Exact {
    explicit Exact(tavi_color_space_t c) : full(c.range == TAVI_RANGE_FULL) {
        constexpr double kKr[] = {0.299, 0.2126, 0.2627}, kKb[] = {0.114, 0.0722, 0.0593};
        kr = kKr[c.matrix], kb = kKb[c.matrix];
    }
    bool full;
    double kr, kb;
    Color to_rgb(const Color& c) const {
        const double y = full ? c[0] / 255 : (c[0] - 16) / 219, u = (c[1] - 128) / (full ? 255 : 224),
                     v = (c[2] - 128) / (full ? 255 : 224);
        const double r = y + 2 * (1 - kr) * v, b = y + 2 * (1 - kb) * u;
        return {r, (y - kr * r - kb * b) / (1 - kr - kb), b};
    }
    Color to_yuv(const Color& c) const {
        const double y = kr * c[0] + (1 - kr - kb) * c[1] + kb * c[2];
        const double u = (c[2] - y) / (2 * (1 - kb)), v = (c[0] - y) / (2 * (1 - kr));
        return full ? Color{255 * y, 128 + 255 * u, 128 + 255 * v}
                    : Color{16 + 219 * y, 128 + 224 * u, 128 + 224 * v};
    }
};

TEST(Frames, ColoursOfBothSides) {
    constexpr int kPairs[][2] = {{TAVI_PIXEL_FORMAT_YUV420SP_NV12, TAVI_PIXEL_FORMAT_YUV420P_YV12},
                                 {TAVI_PIXEL_FORMAT_YUV422_UYVY, TAVI_PIXEL_FORMAT_YUV422_YUYV},
                                 {TAVI_PIXEL_FORMAT_YUV422SP_NV61, TAVI_PIXEL_FORMAT_BGR888},
                                 {TAVI_PIXEL_FORMAT_RGBA8888, TAVI_PIXEL_FORMAT_YUV420P_YU12}};
    for (int colors = 0; colors < 36; ++colors)
        for (const auto& [s, d] : kPairs) {
            const tavi_color_space_t from{colors % 3, colors / 3 % 2, 0}, to{colors / 6 % 3, colors / 18, 0};
            std::mt19937 random(colors);
            for (int n = 0; n < 40; ++n) {
                FrameMemory src(s, 3, 3, 1, 0, from), dst(d, 3, 3, 0, 0, to);
                const Color given{double(random() % 256), double(random() % 256), double(random() % 256)};
                const auto fill = [&](int part) {
                    const Samples at = samples_of(src.view, part);
                    for (int y = 0; y < at.rows; ++y)
                        for (int x = 0; x < at.cols; ++x)
                            *at.at(x, y) = static_cast<uint8_t>(given[part]);
                };
                if (src.view.planes() == 3 && src.view.format->swapped())
                    std::swap(src.view.plane[1], src.view.plane[2]);
                for (int part = 0; part < 3; ++part)
                    fill(part);
                ASSERT_EQ(convert(src, dst), 0);
                if (dst.view.planes() == 3 && dst.view.format->swapped())
                    std::swap(dst.view.plane[1], dst.view.plane[2]);
                Color rgb =
                    is_yuv(s) ? Exact(from).to_rgb(given) : Color{given[0] / 255, given[1] / 255, given[2] / 255};
                const Color wanted = from.matrix == to.matrix && from.range == to.range && is_yuv(s) && is_yuv(d)
                                         ? given
                                     : is_yuv(d) ? Exact(to).to_yuv(rgb)
                                                 : Color{255 * rgb[0], 255 * rgb[1], 255 * rgb[2]};
                for (int part = 0; part < 3; ++part) {
                    const Samples at = samples_of(dst.view, part);
                    const double exact = std::clamp(wanted[part], 0., 255.);
                    ASSERT_LE(std::fabs(*at.at(at.cols - 1, at.rows - 1) - exact),
                              is_yuv(s) && is_yuv(d) ? 0.52 : 1.1)
                        << label(src, dst) << " colours " << colors << " part " << part;
                    ASSERT_EQ(*at.at(0, 0), *at.at(at.cols - 1, at.rows - 1));
                }
            }
        }
}

/// Runs jobs on two threads, the last first.
void run_backwards(void* runs, void (*job)(void*, int32_t), void* context, int32_t count) {
    *static_cast<int*>(runs) += count;
    std::thread other([&] {
        for (int i = count - 1; i >= 0; i -= 2)
            job(context, i);
    });
    for (int i = count - 2; i >= 0; i -= 2)
        job(context, i);
    other.join();
}

TEST(Frames, ThreadsGiveTheSameBytes) {
    constexpr int kPairs[][2] = {{7, 1}, {13, 6}, {1, 7}, {3, 4}, {15, 10}};
    for (const auto& [s, d] : kPairs)
        for (const int mode : kModes)
            for (const bool scaled : {false, true}) {
                const int w = 643, h = 487, dw = scaled ? 401 : w, dh = scaled ? 333 : h;
                const bool turned = exchanges_sides(mode);
                FrameMemory src(s, w + mode % 2, h), one(d, turned ? dh : dw + mode % 2, turned ? dw + mode % 2 : dh);
                FrameMemory many(d, one.view.width, one.view.height);
                src.noise(3);
                int runs = 0;
                const tavi_executor_t executor{run_backwards, &runs, 3};
                tavi_frame_options_t options = mode_of(mode);
                ASSERT_EQ(convert(src, one, options), 0);
                options.executor = &executor;
                ASSERT_EQ(convert(src, many, options), 0);
                ASSERT_EQ(one.pixels(), many.pixels()) << label(src, one, mode);
                ASSERT_TRUE(many.intact());
                EXPECT_TRUE(mode || runs > 2);
            }
    FrameMemory src(TAVI_PIXEL_FORMAT_RGB888, 640, 480), dst(TAVI_PIXEL_FORMAT_BGR888, 640, 480);
    int runs = 0;
    const tavi_executor_t executor{run_backwards, &runs, INT32_MAX};
    tavi_frame_options_t options{};
    options.executor = &executor;
    ASSERT_EQ(convert(src, dst, options), 0);
    EXPECT_GT(runs, 2);
}

} // namespace
} // namespace tavi::test
