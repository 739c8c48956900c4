// SPDX-License-Identifier: MIT
// Writes sheets of every shape, thickness and glyph for people to look at: drawing_sheets DIRECTORY.
#include <cstdio>
#include <string>
#include <vector>

#include "backends/cpu/tavi_image_cpu.h"
#include "image/format.h"

namespace {

constexpr tavi_color_t kInk = {20, 30, 60}, kRed = {220, 40, 30}, kGreen = {20, 150, 60}, kBlue = {30, 80, 220};

std::string utf8(uint32_t code) {
    if (code < 0x80)
        return {char(code)};
    if (code < 0x800)
        return {char(0xc0 | code >> 6), char(0x80 | (code & 63))};
    return {char(0xe0 | code >> 12), char(0x80 | (code >> 6 & 63)), char(0x80 | (code & 63))};
}

struct Sheet {
    Sheet(int format, int width, int height) {
        img.pixel_format = static_cast<tavi_pixel_format>(format);
        img.width = static_cast<uint32_t>(width);
        img.height = static_cast<uint32_t>(height);
        pixels.resize(tavi::byte_count(tavi::kFormats[format], img.width, img.height));
        img.data = pixels.data();
        tavi_image_draw_rect_cpu(&img, {0, 0, 0}, {width - 1, height - 1, 0}, {250, 248, 240}, -1);
    }
    void text(int x, int y, const std::string& s, int size = 0, int thickness = 1, tavi_color_t color = kInk) {
        tavi_image_draw_text_cpu(&img, s.c_str(), {x, y, size}, color, thickness);
    }
    bool write(const std::string& folder, const std::string& name) {
        return tavi_image_write_cpu((folder + "/" + name + ".png").c_str(), &img) == 0;
    }
    tavi_image_t img = {};
    std::vector<uint8_t> pixels;
};

void shapes(Sheet& s) {
    for (int t = 1; t <= 8; ++t) {
        const int x = (t - 1) * 100;
        s.text(x + 4, 2, "t=" + std::to_string(t));
        for (int i = 0; i < 12; ++i) { // a fan
            static const int dx[] = {40, 39, 35, 28, 20, 10, 0, -10, -20, -28, -35, -39};
            static const int dy[] = {0, 10, 20, 28, 35, 39, 40, 39, 35, 28, 20, 10};
            tavi_image_draw_line_cpu(&s.img, {x + 48 + dx[i] / 4, 72 + dy[i] / 4, 0}, {x + 48 + dx[i], 72 + dy[i], 0},
                                     i % 2 ? kInk : kRed, t);
        }
        tavi_image_draw_circle_cpu(&s.img, {x + 48, 165, 0}, 36, kInk, t);
        tavi_image_draw_circle_cpu(&s.img, {x + 48, 165, 0}, 20, kBlue, t);
        tavi_image_draw_circle_cpu(&s.img, {x + 48, 165, 0}, 6, kRed, t);
        tavi_image_draw_rect_cpu(&s.img, {x + 10, 215, 0}, {x + 86, 260, 0}, kGreen, t);
        tavi_image_draw_rect_cpu(&s.img, {x + 30, 228, 0}, {x + 66, 247, 0}, kRed, -1);
        const int corner[5][2] = {{20, 280}, {80, 290}, {70, 340}, {14, 330}, {20, 280}}; // a quadrilateral's edges
        for (int i = 0; i < 4; ++i)
            tavi_image_draw_line_cpu(&s.img, {x + corner[i][0], corner[i][1], 0},
                                     {x + corner[i + 1][0], corner[i + 1][1], 0}, kBlue, t);
        tavi_image_draw_line_cpu(&s.img, {x + 30, 310, 0}, {x + 30, 310, 0}, kRed, t);
    }
    for (int r = 0, x = 12; r <= 14; x += 2 * r + 8, ++r) {
        tavi_image_draw_circle_cpu(&s.img, {x + r, 370, 0}, r, kInk, 1);
        tavi_image_draw_circle_cpu(&s.img, {x + r, 402, 0}, r, kRed, -1);
        tavi_image_draw_circle_cpu(&s.img, {x + r, 436, 0}, r, kBlue, 2);
    }
}

void font(Sheet& s, int size, int thickness) {
    int y = 4;
    std::string line;
    const auto flush = [&] {
        s.text(6, y, line, size, thickness);
        y += size;
        line.clear();
    };
    const std::pair<int, int> ranges[] = {{0x21, 0x4f},     {0x50, 0x7e},    {0xa1, 0xcf},   {0xd0, 0xff},
                                          {0x384, 0x3b0},   {0x3b1, 0x3ce},  {0x400, 0x42f}, {0x430, 0x45f},
                                          {0x2013, 0x2026}, {0x2190, 0x219a}};
    for (auto [from, to] : ranges) {
        for (int c = from; c <= to; ++c) {
            line += utf8(static_cast<uint32_t>(c));
            if (line.size() > 90)
                flush();
        }
        flush();
    }
}

void words(Sheet& s, int y0) {
    int y = y0;
    for (auto [size, thickness] :
         {std::pair{12, 1}, {16, 1}, {20, 1}, {24, 1}, {24, 2}, {32, 2}, {32, 3}, {48, 4}, {72, 7}}) {
        s.text(6, y, "person 0.97 Größe çà Ελλάδα Привет мир 25°C →", size, thickness);
        y += size + 6;
    }
}

} // namespace

int main(int argc, char** argv) {
    const std::string folder = argc > 1 ? argv[1] : ".";
    bool good = true;
    for (auto [name, format] : {std::pair{"rgb", 1}, {"gray16", 15}, {"nv12", 7}, {"yuyv", 13}}) {
        Sheet sheet(format, 801, 463);
        shapes(sheet);
        good &= sheet.write(folder, std::string("shapes-") + name);
        Sheet text(format, 901, 371);
        words(text, 4);
        good &= text.write(folder, std::string("words-") + name);
    }
    for (auto [size, thickness] : {std::pair{24, 1}, {24, 2}, {48, 3}}) {
        Sheet sheet(1, size == 24 ? 820 : 1640, size == 24 ? 370 : 740);
        font(sheet, size, thickness);
        good &= sheet.write(folder, "font-" + std::to_string(size) + "-" + std::to_string(thickness));
    }
    if (!good)
        std::fprintf(stderr, "cannot write the sheets to %s\n", folder.c_str());
    return good ? 0 : 1;
}
