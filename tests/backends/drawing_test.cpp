// SPDX-License-Identifier: MIT
// Drawing against a slow model that asks of every pixel how far its centre is from the shape.
#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>
#include <random>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "backends/cpu/drawing/stroke_font.h"
#include "backends/cpu/tavi_image_cpu.h"
#include "backends/software/tavi_image_libyuv.h"
#include "support/captured_log.h"
#include "support/pixels.h"

namespace {

using namespace tavi::test;
using Real = long double;

/// What the model says of a pixel. Centres on a shape's very edge may go either way where the edge is not exact.
enum class Is { out, edge, in };

Is compare(Real distance, Real limit) {
    return distance < limit - 1e-3L ? Is::in : distance > limit + 1e-3L ? Is::out : Is::edge;
}

struct Shape {
    enum Kind { circle, line, rect } kind;
    tavi_point_t a, b;
    int radius;
    int thickness;
};

Is in_circle(const Shape& s, int x, int y) {
    const Real dx = Real(x) - s.a.x, dy = Real(y) - s.a.y, d = 2 * std::sqrt(dx * dx + dy * dy);
    const Real t = s.thickness < 0 ? 1 : std::max(1, s.thickness);
    const Real outer = 2 * Real(s.radius) + t, inner = s.thickness < 0 ? 0 : 2 * Real(s.radius) - t;
    if (std::abs(dx) < 1e6L && std::abs(dy) < 1e6L && outer < 1e6L) { // exact: the inner edge belongs to it
        const int64_t q = 4 * (int64_t(dx) * int64_t(dx) + int64_t(dy) * int64_t(dy));
        const int64_t o = int64_t(outer), i = std::max<int64_t>(0, int64_t(inner));
        return q < o * o && q >= i * i ? Is::in : Is::out;
    }
    const Is before = compare(d, outer), after = compare(d, inner);
    return before == Is::out || after == Is::in ? Is::out : before == Is::in && after == Is::out ? Is::in : Is::edge;
}

Is in_line(const Shape& s, int x, int y) {
    const int t = std::max(1, s.thickness);
    const Real shift = t > 1 && t % 2 == 0 ? 0.5L : 0;
    const Real ax = s.a.x - shift, ay = s.a.y - shift, dx = Real(s.b.x) - s.a.x, dy = Real(s.b.y) - s.a.y;
    if (t == 1) { // one pixel for each step along the longer axis; halves go down, or right
        const bool steep = std::abs(dx) <= std::abs(dy);
        const Real along = steep ? y - ay : x - ax, length = steep ? dy : dx;
        if (length == 0)
            return along == 0 && x == s.a.x && y == s.a.y ? Is::in : Is::out;
        if (along / length < 0 || along / length > 1)
            return Is::out;
        const Real at = (steep ? ax : ay) + along * (steep ? dx : dy) / length;
        const Real off = (steep ? x : y) - at;
        if (std::abs(dx) + std::abs(dy) > 1e6L && std::abs(std::abs(off) - 0.5L) < 1e-3L)
            return Is::edge;
        return off > -0.5L && off <= 0.5L ? Is::in : Is::out;
    }
    const Real square = dx * dx + dy * dy;
    const Real u = square > 0 ? std::clamp<Real>(((x - ax) * dx + (y - ay) * dy) / square, 0, 1) : 0;
    return compare(std::hypot(x - ax - u * dx, y - ay - u * dy), t / Real(2));
}

Is in_rect(const Shape& s, int x, int y) {
    const auto [l, r] = std::minmax({Real(s.a.x), Real(s.b.x)});
    const auto [top, bottom] = std::minmax({Real(s.a.y), Real(s.b.y)});
    const Real t = std::max(1, s.thickness), out = std::floor((t - 1) / 2),
               in = s.thickness < 0 ? -1 : std::floor(t / 2);
    const Real depth = std::min({x - l, r - x, y - top, bottom - y}); // how far inside the outermost row or column
    if (s.thickness < 0)
        return depth >= 0 ? Is::in : Is::out;
    return depth >= -out && depth <= in ? Is::in : Is::out;
}

Is model(const Shape& s, int x, int y) {
    return s.kind == Shape::circle ? in_circle(s, x, y) : s.kind == Shape::line ? in_line(s, x, y) : in_rect(s, x, y);
}

int draw(tavi_image_t* img, const Shape& s, tavi_color_t color) {
    return s.kind == Shape::circle ? tavi_image_draw_circle_cpu(img, s.a, s.radius, color, s.thickness)
           : s.kind == Shape::line ? tavi_image_draw_line_cpu(img, s.a, s.b, color, s.thickness)
                                   : tavi_image_draw_rect_cpu(img, s.a, s.b, color, s.thickness);
}

/// Draws one shape on noise and asks the model of every pixel, its chroma and alpha included.
void check(const Shape& s, int format, int width, int height, std::mt19937& random) {
    const tavi_color_t color = {static_cast<uint8_t>(random()), static_cast<uint8_t>(random()),
                                static_cast<uint8_t>(random())};
    Pixels picture(format, width, height, random() % 3);
    const RefImage before = picture.noise(random()).colors();
    const std::vector<uint8_t> bytes = picture.bytes();
    ASSERT_EQ(draw(&picture.img, s, color), 0);
    ASSERT_TRUE(picture.intact());
    const RefImage after = picture.colors();
    const RefImage dot(Model::rgb, 1, 1, {double(color.r), double(color.g), double(color.b)});
    const Color ink = ref_convert(dot, format).at(0, 0);
    const bool yuv = tavi::is_yuv(format), half = tavi::kFormats[format].yshift() == 1;
    const auto sample = [&](int x, int y) { // the chroma sample of a pixel, as a number
        return !yuv ? y * width + x
                    : std::min(y >> half, (height >> half) - 1) * width + std::min(x >> 1, (width >> 1) - 1);
    };
    std::vector<Is> luma, chroma(static_cast<size_t>(width) * height, Is::out);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            luma.push_back(model(s, x, y));
            chroma[sample(x, y)] = std::max(chroma[sample(x, y)], luma.back());
        }
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const size_t at = static_cast<size_t>(y) * width + x;
            for (int c = 0; c < 3; ++c)
                if (const Is is = c ? chroma[sample(x, y)] : luma[at]; is != Is::edge) {
                    ASSERT_NEAR(after.at(x, y)[c], is == Is::in ? ink[c] : before.at(x, y)[c], 0.51)
                        << x << "," << y << " component " << c;
                }
            if ((format == 3 || format == 4) && luma[at] != Is::edge) {
                ASSERT_EQ(picture.data()[4 * at + 3], luma[at] == Is::in ? 255 : bytes[4 * at + 3]) << x << "," << y;
            }
        }
}

Shape random_shape(std::mt19937& random, bool extreme) {
    const auto coordinate = [&] {
        const int32_t any[] = {static_cast<int32_t>(INT_MIN + random() % 3),
                               static_cast<int32_t>(INT_MAX - random() % 3), static_cast<int32_t>(random()),
                               static_cast<int32_t>(random() % 20001) - 10000};
        const unsigned kind = random() % 6;
        return extreme && kind < 4 ? any[kind] : static_cast<int32_t>(random() % 40) - 10;
    };
    const auto point = [&] { return tavi_point_t{coordinate(), coordinate(), 0}; };
    static constexpr int kThickness[] = {-1, 0, 1, 1, 2, 3, 4, 5, 8, 13, 1001, INT_MAX, INT_MIN};
    Shape s{static_cast<Shape::Kind>(random() % 3), point(), point(), 0, kThickness[random() % (extreme ? 13 : 10)]};
    s.radius = extreme ? coordinate() & INT_MAX : static_cast<int>(random() % 20);
    return s;
}

TEST(Drawing, CoversThePixelsWhoseCentresAreInside) {
    std::mt19937 random(11);
    for (int round = 0; round < 10000; ++round) {
        const bool extreme = round % 2 == 1;
        const Shape s = random_shape(random, extreme);
        const int format = static_cast<int>(random() % 16);
        const int width = 2 + static_cast<int>(random() % 23), height = 2 + static_cast<int>(random() % 19);
        SCOPED_TRACE(testing::Message() << "round " << round << " kind " << s.kind << " a " << s.a.x << "," << s.a.y
                                        << " b " << s.b.x << "," << s.b.y << " radius " << s.radius << " thickness "
                                        << s.thickness << " format " << format << " " << width << "x" << height);
        check(s, format, width, height, random);
        if (HasFatalFailure())
            return;
    }
}

// One colour is the same bytes whether it is drawn, or converted from a flat picture, or padded around a letterbox.
TEST(Drawing, HasTheColoursOfConversion) {
    ::setenv("TAVI_YUV", "bt2020-full", 1);
    for (int i = 0; i < 18 * 18 * 18; ++i) {
        const int r = i / 324 * 15, g = i / 18 % 18 * 15, b = i % 18 * 15;
        const tavi_color_t color = {uint8_t(r), uint8_t(g), uint8_t(b)};
        Pixels rgb(TAVI_PIXEL_FORMAT_RGB888, 6, 4);
        for (size_t at = 0; at < rgb.size(); at += 3)
            std::memcpy(rgb.data() + at, &color, 3);
        for (int format = 0; format < 16; ++format) {
            Pixels drawn(format, 6, 4), converted(format, 6, 4), padded(format, 6, 4), corner(format, 2, 4);
            ASSERT_EQ(tavi_image_draw_rect_cpu(&drawn.img, {0, 0, 0}, {5, 3, 0}, color, -1), 0);
            ASSERT_EQ(tavi_image_convert_libyuv(&rgb.img, &converted.img, TAVI_IMAGE_TRANSFORM_NONE), 0);
            ASSERT_EQ(drawn.bytes(), converted.bytes()) << "format " << format << ' ' << r << ' ' << g << ' ' << b;
            ASSERT_EQ(tavi_image_convert2_libyuv(&corner.img, &padded.img, 1, r << 16 | g << 8 | b, 2, nullptr,
                                                 nullptr, nullptr, nullptr, TAVI_IMAGE_RESIZE_DEFAULT),
                      0);
            for (int plane = 0; plane < drawn.view().planes(); ++plane) { // four columns of six are padding
                const tavi::PlaneView &a = padded.view().plane[plane], &d = drawn.view().plane[plane];
                ASSERT_EQ(std::memcmp(a.row(0), d.row(0), size_t(a.cols * 2 / 3 * a.step)), 0) << "format " << format;
            }
        }
    }
}

// ------------------------------------------------------------------------------------------------------------ text

struct Canvas : Pixels {
    Canvas(int w, int h) : Pixels(TAVI_PIXEL_FORMAT_GRAY8, w, h) { memset(data(), 0, size()); }
    Canvas& text(const std::string& s, int x, int y, int size, int thickness) {
        EXPECT_EQ(tavi_image_draw_text_cpu(&img, s.c_str(), {x, y, size}, {255, 255, 255}, thickness), 0);
        return *this;
    }
    int row(int y) const {
        return static_cast<int>(std::count(view().plane[0].row(y), view().plane[0].row(y + 1), 255));
    }
    int column(int x) const {
        int ink = 0;
        for (unsigned y = 0; y < img.height; ++y)
            ink += *view().plane[0].at(x, y) == 255;
        return ink;
    }
};

std::vector<uint8_t> picture_of(const std::string& s, int size, int thickness) {
    return Canvas(300, 80).text(s, 10, 16, size, thickness).bytes();
}

std::string utf8(uint32_t code) {
    const auto tail = [code](int shift) { return static_cast<char>(0x80 | (code >> shift & 0x3f)); };
    if (code < 0x80)
        return {static_cast<char>(code)};
    if (code < 0x800)
        return {static_cast<char>(0xc0 | code >> 6), tail(0)};
    return {static_cast<char>(0xe0 | code >> 12), tail(6), tail(0)};
}

constexpr uint32_t kPromised[][2] = {{0x21, 0x7e},   {0xa1, 0xff},   {0x391, 0x3a1},
                                     {0x3a3, 0x3ce}, {0x400, 0x45f}, {0x2190, 0x2199}};

TEST(Text, HasEveryPromisedGlyphInsideItsCell) {
    std::set<std::vector<uint8_t>> pictures;
    for (const auto& [first, last] : kPromised)
        for (uint32_t code = first; code <= last; ++code) {
            SCOPED_TRACE(testing::Message() << std::hex << code);
            EXPECT_TRUE(tavi::has_glyph(code));
            pictures.insert(picture_of(utf8(code), 48, 1));
            for (auto [size, thickness] : {std::pair{12, 1}, {24, 2}, {48, 3}}) {
                Canvas c(60, 80);
                c.text(utf8(code), 10, 16, size, thickness);
                int ink = 0;
                for (int y = 0; y < 80; ++y) {
                    ink += c.row(y);
                    EXPECT_TRUE(c.row(y) == 0 || (y >= 16 && y < 16 + size)) << "row " << y - 16 << " of " << size;
                }
                EXPECT_GT(ink, 0);
                for (int x = 0; x < 10; ++x)
                    EXPECT_EQ(c.column(x), 0) << "column " << x - 10;
            }
        }
    EXPECT_EQ(pictures.count(picture_of("\uE000", 48, 1)), 0u); // the box of a missing one
    EXPECT_GT(pictures.size(), 240u); // the rest are letters of one alphabet that look like another's
}

TEST(Text, StrokesAreAsThickAsThePen) {
    for (int size : {12, 17, 24, 40}) {
        for (int t = 1; t <= 6; ++t) {
            Canvas bar(40, 60), dash(40, 60), both(80, 60);
            EXPECT_EQ(bar.text("|", 8, 8, size, t).row(8 + size / 2), t) << size;
            EXPECT_EQ(dash.text("-", 8, 8, size, t).column(8 + size / 8), t) << size;
            both.text("||", 8, 8, size, t); // never closer than a pixel
            EXPECT_EQ(both.column(8 + t), 0);
            EXPECT_GT(both.column(8 + t - 1), 0);
        }
    }
}

TEST(Text, ReadsUtf8AndShowsABoxForEachBadByte) {
    const std::string box = "\uE000";
    for (auto [text, like] : {std::pair<std::string, std::string>{"\xff", box},
                              {"a\xc3(", "a" + box + "("},
                              {"\xf0\x9f\x98\x80", box},         // a smile is well-formed and has no glyph
                              {"\xf0\x9f\x98", box + box + box}, // and cut it is three bad bytes
                              {"\xc0\xaf\x80", box + box + box}, // longer than need be, and alone
                              {"\xed\xa0\x80", box + box + box}, // half a surrogate pair
                              {"\xf4\x90\x80\x80z", box + box + box + box + "z"}, // beyond the last code point
                              {"\t", box}})
        EXPECT_EQ(picture_of(text, 0, 1), picture_of(like, 0, 1)) << text;
    Canvas two_lines(300, 80);
    two_lines.text("25\u00b0C", 10, 16, 24, 1).text("abc", 10, 16 + 24, 24, 1);
    EXPECT_EQ(picture_of("25\u00b0C\nabc", 0, 1), two_lines.bytes());
    for (const char* end : {"\xf0", "\xe2\x86", "\xc3", "ab\xf0\x9f\x98"}) { // nothing beyond the string is read
        FenceBuffer memory(std::strlen(end) + 1);
        std::memcpy(memory.data(), end, memory.size());
        Canvas canvas(60, 60);
        EXPECT_EQ(tavi_image_draw_text_cpu(&canvas.img, reinterpret_cast<char*>(memory.data()), {0, 0, 0}, {}, 3), 0);
    }
}

TEST(Text, IsClippedAtAnyPlaceAndSize) {
    std::mt19937 random(4);
    const std::string all = "Aq\u00c5\u03b2\u0416\u2192\n@|\u00e7";
    for (int i = 0; i < 2000; ++i) {
        Pixels picture(i % 16, 2 + random() % 20, 2 + random() % 20);
        const Shape s = random_shape(random, true);
        const tavi_point_t at = {s.a.x, s.a.y, i % 3 ? static_cast<int>(random() % 60) : s.radius};
        ASSERT_EQ(tavi_image_draw_text_cpu(&picture.img, all.c_str(), at, {1, 2, 3}, s.thickness), 0);
        ASSERT_TRUE(picture.intact()) << i;
    }
}

TEST(Text, IsTheSameWhereTheEdgeCutsIt) {
    Canvas whole(80, 60);
    whole.text("@", 40, 8, 40, 3);
    for (int shift = 1; shift < 80; ++shift) {
        Canvas cut(80, 60);
        cut.text("@", 40 - shift, 8, 40, 3);
        for (int x = 0; x + shift < 80; ++x)
            ASSERT_EQ(cut.column(x), whole.column(x + shift)) << shift;
    }
}

TEST(Drawing, RefusesByName) {
    Pixels picture(0, 4, 4);
    tavi_image_t *good = &picture.img, bad = *good, big = *good;
    bad.pixel_format = static_cast<tavi_pixel_format>(16);
    big.width = 16385;
    const tavi_point_t p = {0, 0, 0}, q = {0, 0, -1};
    const int param = TAVI_RET_PARAM_ERR;
    expect_refused(param, "radius=-1", [&] { return tavi_image_draw_circle_cpu(good, p, -1, {}, 1); });
    expect_refused(param, "text", [&] { return tavi_image_draw_text_cpu(good, nullptr, p, {}, 1); });
    expect_refused(param, "size=-1", [&] { return tavi_image_draw_text_cpu(good, "a", q, {}, 1); });
    expect_refused(param, "0 to 15", [&] { return tavi_image_draw_line_cpu(&bad, p, p, {}, 1); });
    expect_refused(param, "null", [&] { return tavi_image_draw_rect_cpu(nullptr, p, p, {}, 1); });
    expect_refused(TAVI_RET_UNSUPPORTED, "16384", [&] { return tavi_image_draw_rect_cpu(&big, p, p, {}, 1); });
}

} // namespace
