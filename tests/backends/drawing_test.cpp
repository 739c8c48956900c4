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
#include "image/view.h"
#include "support/captured_log.h"
#include "support/fence_buffer.h"
#include "support/reference.h"

namespace {

using tavi::test::FenceBuffer;
using Real = long double;

/// What the model says of a pixel. Centres on a shape's very edge may go either way where the edge is not exact.
enum class Is { out, in, edge };

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

tavi_image_t describe(int format, int width, int height, uint8_t* data) {
    tavi_image_t img = {};
    img.pixel_format = static_cast<tavi_pixel_format>(format);
    img.width = static_cast<uint32_t>(width);
    img.height = static_cast<uint32_t>(height);
    img.data = data;
    return img;
}

bool same(const tavi::test::Color& a, const tavi::test::Color& b, bool chroma) {
    return chroma ? std::abs(a.b - b.b) <= 0.51 && std::abs(a.c - b.c) <= 0.51 : std::abs(a.a - b.a) <= 0.51;
}

/// Draws one shape on noise and asks the model of every pixel, its chroma included.
void check(const Shape& s, int format, int width, int height, std::mt19937& random) {
    const tavi_color_t color = {static_cast<uint8_t>(random()), static_cast<uint8_t>(random()),
                                static_cast<uint8_t>(random())};
    FenceBuffer memory(tavi::test::ref_bytes(format, width, height), random() % 3);
    std::generate_n(memory.data(), memory.size(), std::ref(random));
    const auto before = tavi::test::ref_read(memory.data(), format, width, height);
    tavi_image_t img = describe(format, width, height, memory.data());
    ASSERT_EQ(draw(&img, s, color), 0);
    ASSERT_TRUE(memory.intact());
    const auto after = tavi::test::ref_read(memory.data(), format, width, height);
    tavi::test::RefImage one{tavi::test::Model::rgb, 1, 1, {{double(color.r), double(color.g), double(color.b)}}};
    const tavi::test::Color ink = tavi::test::ref_convert(one, format).at(0, 0);
    const tavi::Format& f = tavi::kFormats[format];
    const bool yuv = tavi::is_yuv(format), half = f.family == tavi::Family::yuv420;
    const auto sample = [&](int x, int y) { // the chroma sample of a pixel, as a number
        return std::min(y >> half, (height >> half) - 1) * width + std::min(x >> 1, (width >> 1) - 1);
    };
    std::vector<Is> chroma(static_cast<size_t>(width) * height, Is::out);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const Is is = model(s, x, y);
            if (yuv && is != Is::out && chroma[sample(x, y)] != Is::in)
                chroma[sample(x, y)] = is;
            if (is != Is::edge) {
                ASSERT_TRUE(same(after.at(x, y), is == Is::in ? ink : before.at(x, y), false)) << x << "," << y;
            }
            if (f.family == tavi::Family::rgb && is != Is::edge) {
                ASSERT_TRUE(same(after.at(x, y), is == Is::in ? ink : before.at(x, y), true)) << x << "," << y;
            }
        }
    }
    for (int y = 0; yuv && y < height; ++y)
        for (int x = 0; x < width; ++x)
            if (const Is is = chroma[sample(x, y)]; is != Is::edge) {
                ASSERT_TRUE(same(after.at(x, y), is == Is::in ? ink : before.at(x, y), true))
                    << "chroma " << x << "," << y;
            }
}

Shape random_shape(std::mt19937& random, bool extreme) {
    const auto coordinate = [&]() -> int32_t {
        switch (extreme ? random() % 6 : 9) {
        case 0:
            return INT_MIN + static_cast<int>(random() % 3);
        case 1:
            return INT_MAX - static_cast<int>(random() % 3);
        case 2:
            return static_cast<int32_t>(random());
        case 3:
            return static_cast<int>(random() % 20001) - 10000;
        default:
            return static_cast<int>(random() % 40) - 10;
        }
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

TEST(Drawing, LinesOfOnePixelAreTheSameInBothDirections) {
    std::mt19937 random(5);
    for (int i = 0; i < 500; ++i) {
        Shape s = random_shape(random, i % 2);
        s.kind = Shape::line;
        s.thickness = 1;
        std::vector<uint8_t> one(32 * 32), other(32 * 32);
        tavi_image_t a = describe(0, 32, 32, one.data()), b = describe(0, 32, 32, other.data());
        draw(&a, s, {255, 255, 255});
        std::swap(s.a, s.b);
        draw(&b, s, {255, 255, 255});
        EXPECT_EQ(one, other) << i;
    }
}

TEST(Drawing, GivesNewPixelsFullAlpha) {
    std::vector<uint8_t> pixels(4 * 4 * 4, 7);
    tavi_image_t img = describe(TAVI_PIXEL_FORMAT_BGRA8888, 4, 4, pixels.data());
    ASSERT_EQ(tavi_image_draw_line_cpu(&img, {0, 0, 0}, {3, 0, 0}, {1, 2, 3}, 1), 0);
    EXPECT_EQ(std::vector<uint8_t>(pixels.begin(), pixels.begin() + 4), (std::vector<uint8_t>{3, 2, 1, 255}));
}

// ------------------------------------------------------------------------------------------------------------ text

struct Canvas {
    Canvas(int w, int h) : width(w), height(h), pixels(static_cast<size_t>(w) * h) {}
    Canvas& text(const std::string& s, int x, int y, int size, int thickness) {
        tavi_image_t img = describe(0, width, height, pixels.data());
        EXPECT_EQ(tavi_image_draw_text_cpu(&img, s.c_str(), {x, y, size}, {255, 255, 255}, thickness), 0);
        return *this;
    }
    int row(int y) const { return static_cast<int>(std::count(&pixels[y * width], &pixels[y * width] + width, 255)); }
    bool column_is_blank(int x) const {
        for (int y = 0; y < height; ++y)
            if (pixels[static_cast<size_t>(y) * width + x])
                return false;
        return true;
    }
    bool operator==(const Canvas& other) const { return pixels == other.pixels; }

    int width, height;
    std::vector<uint8_t> pixels;
};

std::string utf8(uint32_t code) {
    std::string s;
    for (int shift = code < 0x80 ? 0 : code < 0x800 ? 6 : 12; shift >= 0; shift -= 6)
        s += static_cast<char>(s.empty() ? (code < 0x80    ? 0
                                            : code < 0x800 ? 0xc0
                                                           : 0xe0) |
                                               code >> shift
                                         : 0x80 | (code >> shift & 0x3f));
    return s;
}

std::vector<uint32_t> promised() {
    std::vector<uint32_t> codes;
    for (auto [first, last] : {std::pair{0x21u, 0x7eu},
                               {0xa1u, 0xffu},
                               {0x391u, 0x3a1u},
                               {0x3a3u, 0x3ceu},
                               {0x400u, 0x45fu},
                               {0x2190u, 0x2199u}})
        for (uint32_t c = first; c <= last; ++c)
            codes.push_back(c);
    return codes;
}

TEST(Text, HasEveryPromisedGlyphInsideItsCell) {
    const Canvas box = Canvas(60, 80).text("\uE000", 10, 16, 48, 1);
    std::set<std::vector<uint8_t>> pictures;
    for (uint32_t code : promised()) {
        SCOPED_TRACE(testing::Message() << std::hex << code);
        EXPECT_TRUE(tavi::has_glyph(code));
        const Canvas glyph = Canvas(60, 80).text(utf8(code), 10, 16, 48, 1);
        EXPECT_FALSE(glyph == box);
        pictures.insert(glyph.pixels);
        for (auto [size, thickness] : {std::pair{12, 1}, {24, 2}, {48, 3}}) {
            const Canvas c = Canvas(60, 80).text(utf8(code), 10, 16, size, thickness);
            int ink = 0;
            for (int y = 0; y < 80; ++y) {
                ink += c.row(y);
                EXPECT_TRUE(c.row(y) == 0 || (y >= 16 && y < 16 + size)) << "row " << y - 16 << " of " << size;
            }
            EXPECT_GT(ink, 0);
            for (int x = 0; x < 10; ++x)
                EXPECT_TRUE(c.column_is_blank(x)) << "column " << x - 10;
        }
    }
    EXPECT_GT(pictures.size(), 240u); // the rest are letters of one alphabet that look like another's
}

TEST(Text, StrokesAreAsThickAsThePen) {
    for (int size : {12, 17, 24, 40}) {
        for (int t = 1; t <= 6; ++t) {
            const Canvas bar = Canvas(40, 60).text("|", 8, 8, size, t);
            EXPECT_EQ(bar.row(8 + size / 2), t) << size;
            const Canvas both = Canvas(80, 60).text("||", 8, 8, size, t); // never closer than a pixel
            EXPECT_TRUE(both.column_is_blank(8 + t));
            EXPECT_FALSE(both.column_is_blank(8 + t - 1));
        }
    }
}

TEST(Text, ReadsUtf8AndShowsABoxForEachBadByte) {
    const auto show = [](const std::string& s) { return Canvas(300, 60).text(s, 3, 3, 0, 1); };
    const std::string box = "\uE000";
    for (auto [text, like] : {std::pair<std::string, std::string>{"\xff", box},
                              {"a\xc3(", "a" + box + "("},
                              {"\xf0\x9f\x98\x80", box},         // a smile is well-formed and has no glyph
                              {"\xf0\x9f\x98", box + box + box}, // and cut it is three bad bytes
                              {"\xc0\xaf\x80", box + box + box}, // longer than need be, and alone
                              {"\xed\xa0\x80", box + box + box}, // half a surrogate pair
                              {"\xf4\x90\x80\x80z", box + box + box + box + "z"}, // beyond the last code point
                              {"\t", box}})
        EXPECT_TRUE(show(text) == show(like)) << text;
    EXPECT_TRUE(show("25\u00b0C\nabc") == show("25\xc2\xb0"
                                               "C")
                                              .text("abc", 3, 3 + 24, 0, 1));
    for (const char* end : {"\xf0", "\xe2\x86", "\xc3", "ab\xf0\x9f\x98"}) { // nothing beyond the string is read
        FenceBuffer memory(std::strlen(end) + 1);
        std::memcpy(memory.data(), end, memory.size());
        Canvas canvas(60, 60);
        tavi_image_t img = describe(0, 60, 60, canvas.pixels.data());
        EXPECT_EQ(tavi_image_draw_text_cpu(&img, reinterpret_cast<char*>(memory.data()), {0, 0, 0}, {}, 3), 0);
    }
}

TEST(Text, IsClippedAtAnyPlaceAndSize) {
    std::mt19937 random(4);
    const std::string all = "Aq\u00c5\u03b2\u0416\u2192\n@|\u00e7";
    for (int i = 0; i < 2000; ++i) {
        const int format = static_cast<int>(random() % 16), w = 2 + random() % 20, h = 2 + random() % 20;
        FenceBuffer memory(tavi::test::ref_bytes(format, w, h));
        tavi_image_t img = describe(format, w, h, memory.data());
        const Shape s = random_shape(random, true);
        const tavi_point_t at = {s.a.x, s.a.y, i % 3 ? static_cast<int>(random() % 60) : s.radius};
        ASSERT_EQ(tavi_image_draw_text_cpu(&img, all.c_str(), at, {1, 2, 3}, s.thickness), 0);
        ASSERT_TRUE(memory.intact()) << i;
    }
}

TEST(Drawing, RefusesByName) {
    uint8_t pixels[16] = {};
    tavi_image_t good = describe(0, 4, 4, pixels), bad = good, big = good;
    bad.pixel_format = static_cast<tavi_pixel_format>(16);
    big.width = 16385;
    const tavi_point_t p = {0, 0, 0}, q = {0, 0, -1};
    const auto refused = [](int expected, const char* names, auto call) {
        CapturedLog log;
        EXPECT_EQ(call(), expected);
        ASSERT_EQ(log.lines.size(), 1u);
        EXPECT_NE(log.lines[0].message.find(names), std::string::npos) << log.lines[0].message;
    };
    refused(TAVI_RET_PARAM_ERR, "radius=-1", [&] { return tavi_image_draw_circle_cpu(&good, p, -1, {}, 1); });
    refused(TAVI_RET_PARAM_ERR, "text", [&] { return tavi_image_draw_text_cpu(&good, nullptr, p, {}, 1); });
    refused(TAVI_RET_PARAM_ERR, "size=-1", [&] { return tavi_image_draw_text_cpu(&good, "a", q, {}, 1); });
    refused(TAVI_RET_PARAM_ERR, "0 to 15", [&] { return tavi_image_draw_line_cpu(&bad, p, p, {}, 1); });
    refused(TAVI_RET_PARAM_ERR, "null", [&] { return tavi_image_draw_rect_cpu(nullptr, p, p, {}, 1); });
    refused(TAVI_RET_UNSUPPORTED, "16384", [&] { return tavi_image_draw_rect_cpu(&big, p, p, {}, 1); });
}

} // namespace
