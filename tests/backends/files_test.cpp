// SPDX-License-Identifier: MIT
// Reading and writing files, JPEG apart, against the codec libraries themselves, and against files that are damaged
// or forged.
#include <algorithm>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include <fcntl.h>
#include <png.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <turbojpeg.h>
#include <zlib.h>

#include <gtest/gtest.h>

#include "backends/cpu/files/stream.h"
#include "backends/cpu/tavi_image_cpu.h"
#include "backends/file_bytes.h"
#include "pixels/convert.h"
#include "services/tavi_mem.h"
#include "support/captured_log.h"
#include "support/pixels.h"
#include "support/temp_file.h"

namespace {

using namespace tavi::test;
namespace fs = std::filesystem;

Blob be32(uint32_t v) { return {uint8_t(v >> 24), uint8_t(v >> 16), uint8_t(v >> 8), uint8_t(v)}; }
Blob le16(uint32_t v) { return {uint8_t(v), uint8_t(v >> 8)}; }
Blob le32(uint32_t v) { return le16(v) + le16(v >> 16); }

Blob chunk(const char* type, const Blob& data) {
    const Blob sum = text(type) + data;
    return be32(uint32_t(data.size())) + sum + be32(uint32_t(crc32(0, sum.data(), uInt(sum.size()))));
}

/// `filtered` are rows with a 0 before each; `more` is chunks between header and pixels.
Blob png_of(const Blob& filtered, int width, int height, int colour, int depth, int interlace, const Blob& more) {
    uLongf size = compressBound(filtered.size());
    Blob packed(size);
    compress(packed.data(), &size, filtered.data(), filtered.size());
    packed.resize(size);
    return Blob{0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'} +
           chunk("IHDR",
                 be32(width) + be32(height) + Blob{uint8_t(depth), uint8_t(colour), 0, 0, uint8_t(interlace)}) +
           more + chunk("IDAT", packed) + chunk("IEND", {});
}

Blob make_png(const Blob& rows, int width, int height, int colour, int depth, const Blob& more = {}) {
    Blob filtered;
    for (auto row = rows.begin(); row != rows.end(); row += rows.size() / height) {
        filtered.push_back(0);
        filtered.insert(filtered.end(), row, row + rows.size() / height);
    }
    return png_of(filtered, width, height, colour, depth, 0, more);
}

/// A TIFF block with the one tag, after another one.
Blob tiff(int orientation, bool big) {
    const auto u16 = [&](uint8_t v) { return big ? Blob{0, v} : Blob{v, 0}; };
    const auto u32 = [&](uint8_t v) { return big ? be32(v) : le32(v); };
    return text(big ? "MM" : "II") + u16(42) + u32(8) + u16(2) + (big ? Blob{1, 0xf} : Blob{0xf, 1}) + u16(2) +
           u32(4) + text("abc") + Blob{0} + (big ? Blob{1, 0x12} : Blob{0x12, 1}) + u16(3) + u32(1) +
           u16(uint8_t(orientation)) + u16(0) + u32(0);
}

Blob with_exif(const Blob& jpeg, const Blob& block) {
    const size_t length = block.size() + 8;
    return Blob{0xff, 0xd8, 0xff, 0xe1, uint8_t(length >> 8), uint8_t(length)} + text("Exif") + Blob{0, 0} + block +
           Blob(jpeg.begin() + 2, jpeg.end());
}

Blob bmp_head(uint32_t width, uint32_t height, uint32_t bits, uint32_t compression, size_t extra,
              uint32_t colours = 0) {
    return text("BM") + le32(0) + le32(0) + le32(uint32_t(54 + extra)) + le32(40) + le32(width) + le32(height) +
           le16(1) + le16(bits) + le32(compression) + Blob(12, 0) + le32(colours) + le32(0);
}

// ----------------------------------------------------------------------------------------------------- PNG, others

TEST(Png, ReadsEveryKind) {
    constexpr int kGrey = PNG_COLOR_TYPE_GRAY, kRgb = PNG_COLOR_TYPE_RGB, kRgba = PNG_COLOR_TYPE_RGBA;
    const Blob palette = chunk("PLTE", {1, 2, 3, 10, 20, 30, 100, 110, 120, 200, 210, 220});
    const Blob flat = make_png({0x1b}, 4, 1, PNG_COLOR_TYPE_PALETTE, 2, palette); // 0 1 2 3, two bits each
    const Blob clear = make_png({0x1b}, 4, 1, PNG_COLOR_TYPE_PALETTE, 2, palette + chunk("tRNS", {7, 80}));
    const Blob alpha = make_png({9, 50, 200, 60}, 2, 1, PNG_COLOR_TYPE_GRAY_ALPHA, 8);
    const Blob deep = {0x12, 0xff, 0xff, 0xff, 0x80, 0x80, 0, 1, 0x40, 0, 0x7f, 0xff}; // big endian
    const Blob grey = make_png(deep, 6, 1, kGrey, 16);
    expect_read("two bits", make_png({0x1b, 0xe4}, 4, 2, kGrey, 2), 1, 0, 4, 2, {0, 85, 170, 255, 255, 170, 85, 0});
    expect_read("palette", flat, 1, 1, 4, 1, {1, 2, 3, 10, 20, 30, 100, 110, 120, 200, 210, 220});
    expect_read("alpha", clear, 1, 3, 4, 1, {1, 2, 3, 7, 10, 20, 30, 80, 100, 110, 120, 255, 200, 210, 220, 255});
    expect_read("alpha dropped", clear, 0, 1, 4, 1, {1, 2, 3, 10, 20, 30, 100, 110, 120, 200, 210, 220});
    expect_read("deep", grey, 1, 15, 6, 1, {0xff, 0x12, 0xff, 0xff, 0x80, 0x80, 1, 0, 0, 0x40, 0xff, 0x7f});
    expect_read("deep, shallow", grey, 2, 0, 6, 1, {0x13, 0xff, 0x80, 0, 0x40, 0x7f});
    expect_read("deep colour", make_png(deep, 2, 1, kRgb, 16), 1, 1, 2, 1, {0x13, 0xff, 0x80, 0, 0x40, 0x7f});
    expect_read("grey with alpha", alpha, 1, 3, 2, 1, {9, 9, 9, 50, 200, 200, 200, 60});
    expect_read("grey as colour", make_png({9, 8}, 2, 1, kGrey, 8), 3, 3, 2, 1, {9, 9, 9, 255, 8, 8, 8, 255});
    expect_read("blue first", make_png({1, 2, 3, 4}, 1, 1, kRgba, 8), 3, 4, 1, 1, {3, 2, 1, 4});
    const Blob passes = {0, 1, 2, 0, 3, 4, 0, 5, 6, 7, 8}; // a corner, the pixel beside it, the second row
    const Blob interlaced = png_of(passes, 2, 2, PNG_COLOR_TYPE_GRAY_ALPHA, 8, 1, {});
    expect_read("interlaced", interlaced, 1, 3, 2, 2, {1, 1, 1, 2, 3, 3, 3, 4, 5, 5, 5, 6, 7, 7, 7, 8});
}

TEST(OwnCodecs, ReadWhatOthersWrite) {
    Blob greys;
    for (uint32_t i = 0; i < 16; ++i)
        greys = greys + le32(i * 0x111111);
    const auto own = [](const char* name, const Blob& file, int format, int w, int h, const Blob& pixels) {
        expect_read(name, file, 1, format, w, h, pixels);
        for (size_t cut = 3; cut < file.size(); ++cut) // trailing padding and white space may be missing or not
            if (read_bytes(Blob(file.begin(), file.begin() + cut), 1).ret == 0) {
                EXPECT_GE(cut + 3, file.size()) << name;
            }
    };
    CapturedLog log; // the cuts' lines
    const Blob two_colours = {9, 8, 7, 0, 1, 2, 3, 0}, two_rows = {3, 2, 1, 0, 6, 5, 4, 0};
    const Blob nine = {0xfd, 0x80, 0, 0}, nibbles = {0x1f, 0x80, 0x50, 0}; // of which the last are padding
    const Blob masks = le32(0xf800) + le32(0x7e0) + le32(0x1f), oldest = text("BM") + Blob(8, 0);
    const Blob old_colours = oldest + le32(32) + le32(12) + le32(0x10001) + le32(0x10001) + Blob{9, 8, 7, 1, 2, 3};
    const Blob old_pixel = oldest + le32(26) + le32(12) + le32(0x10001) + le32(0x180001) + Blob{3, 2, 1, 0};
    own("BMP, bottom-up", bmp_head(1, 2, 24, 0, 0) + two_rows, 1, 1, 2, {4, 5, 6, 1, 2, 3});
    own("BMP, top-down", bmp_head(1, -2, 24, 0, 0) + two_rows, 1, 1, 2, {1, 2, 3, 4, 5, 6});
    own("BMP, 4 bits of grey", bmp_head(5, 1, 4, 0, 64) + greys + nibbles, 0, 5, 1, {17, 255, 136, 0, 85});
    own("BMP, 1 bit of colour", bmp_head(9, 1, 1, 0, 8) + two_colours + nine, 1, 9, 1,
        {3, 2, 1, 3, 2, 1, 3, 2, 1, 3, 2, 1, 3, 2, 1, 3, 2, 1, 7, 8, 9, 3, 2, 1, 3, 2, 1});
    own("BMP, 555", bmp_head(2, 1, 16, 0, 0) + le16(0x7fff) + le16(0x7c03), 1, 2, 1, {255, 255, 255, 255, 0, 25});
    own("BMP, 565", bmp_head(1, 1, 16, 3, 12) + masks + le32(0x07e0), 1, 1, 1, {0, 255, 0});
    own("BMP, 32 bits without alpha", bmp_head(1, 1, 32, 0, 0) + Blob{3, 2, 1, 77}, 1, 1, 1, {1, 2, 3});
    own("BMP, too many colours", bmp_head(1, 1, 1, 0, 8, 300) + two_colours + nine, 1, 1, 1, {3, 2, 1});
    own("BMP, oldest header", old_pixel, 1, 1, 1, {1, 2, 3});
    own("BMP, oldest palette", old_colours + nine, 1, 1, 1, {3, 2, 1});
    own("PBM in digits", text("P1\n# a comment\n#\n3 2\n101\n0 1 0"), 0, 3, 2, {0, 255, 0, 255, 0, 255});
    own("PGM in digits, odd maximum", text("P2 3 1 10\n0 5 10\n"), 0, 3, 1, {0, 128, 255});
    own("PPM in digits, deep", text("P3 1 1 65535 65535 257 0 "), 1, 1, 1, {255, 1, 0});
    own("PBM", text("P4 9 1\n") + Blob{0x80, 0x80}, 0, 9, 1, {0, 255, 255, 255, 255, 255, 255, 255, 0});
    own("PGM, deep", text("P5\n2 1\n40000\n") + Blob{1, 2, 0xff, 0xfe}, 15, 2, 1, {0xa7, 1, 0xff, 0xff});
    own("PGM, comments behind its numbers", text("P5 2#b\n1# \n255#\n") + Blob{7, 8}, 0, 2, 1, {7, 8});
    own("PPM", text("P6 #x\n 1 1 255\n") + Blob{1, 2, 3}, 1, 1, 1, {1, 2, 3});
    for (int bits : {8, 32}) // run lengths
        EXPECT_EQ(read_bytes(bmp_head(4, 4, bits, 1, 1024) + Blob(2000, 0), 1).ret, TAVI_RET_UNSUPPORTED);
}

TEST(Files, LoseNothingWhereTheTypeHoldsIt) {
    const std::pair<const char*, std::vector<int>> types[] = {
        {".png", {0, 1, 2, 3, 4, 15}}, {".BMP", {0, 1, 2, 3, 4}}, {".ppm", {1}}, {".Pgm", {0, 15}}};
    for (const auto& [ending, formats] : types)
        for (const int format : formats)
            for (auto [w, h] : {std::pair{1, 1}, {5, 3}, {16, 16}, {33, 17}}) {
                SCOPED_TRACE(testing::Message() << ending << " format " << format << " " << w << "x" << h);
                const TempFile file(ending);
                Pixels from(format, w, h), to(format, w, h);
                const Blob pixels = from.noise(7).bytes();
                ASSERT_EQ(tavi_image_write_cpu(file.path(), &from.img), 0);
                EXPECT_EQ(from.bytes(), pixels); // the source is only read
                ASSERT_EQ(tavi_image_read_cpu(file.path(), &to.img, 3), 0);
                EXPECT_EQ(to.bytes(), pixels);
                EXPECT_TRUE(to.intact());
                EXPECT_EQ(read_file(file.path(), 1).img.pixel_format, format == 2 ? 1 : format == 4 ? 3 : format);
            }
}

TEST(Files, ConvertWhatTheTypeDoesNotHold) {
    const Blob jpeg = make_jpeg(smooth(32, 24, 3), 32, 24, TJPF_RGB, TJSAMP_444);
    const Result rgb = read_bytes(jpeg, 0);
    for (int format = 0; format < 16; ++format)
        for (const char* ending : {".jpg", ".png", ".bmp", ".ppm", ".pgm"}) {
            SCOPED_TRACE(testing::Message() << "format " << format << ending);
            Result own = read_bytes(jpeg, 3, wanted(format));
            ASSERT_EQ(own.ret, 0);
            own.img.data = own.pixels.data();
            const TempFile file(ending);
            ASSERT_EQ(tavi_image_write_cpu(file.path(), &own.img), 0);
            const Result back = read_file(file.path(), 0);
            ASSERT_EQ(back.pixels.size(), rgb.pixels.size());
            const bool grey = tavi::kFormats[format].model == tavi::Model::gray || std::string(ending) == ".pgm";
            for (size_t i = 0; !grey && i < rgb.pixels.size(); ++i)
                ASSERT_NEAR(back.pixels[i], rgb.pixels[i], 14) << i;
        }
    // Both sides together ask for a size; what is too small for chroma on the way grows all the same.
    EXPECT_EQ(read_bytes(jpeg, 3, wanted(7, 8, 6)).pixels.size(), 72u);
    EXPECT_EQ(read_bytes(jpeg, 3, wanted(7, 8, 0)).pixels.size(), 32u * 24 * 3 / 2);
    Pixels red(7, 2, 2);
    EXPECT_EQ(read_bytes(make_jpeg({255, 0, 0}, 1, 1, TJPF_RGB, TJSAMP_444), 3, red.img).ret, 0);
    EXPECT_LE(red.error(RefImage(Model::rgb, 2, 2, {255, 0, 0})), 4);
}

// --------------------------------------------------------------------------------------------- orientation, limits

// EXIF says on which side of the upright picture the file's first row and first column lie.
TEST(Orientation, AllEightTurnUprightInJpegAndPng) {
    constexpr int kModes[] = {0, 1, 3, 2, 8, 4, 8, 7}, w = 24, h = 16;
    const Blob stored = smooth(w, h, 1);
    const Blob jpeg = make_jpeg(stored, w, h, TJPF_GRAY, TJSAMP_GRAY);
    const Blob decoded = read_bytes(jpeg, 1).pixels;
    for (int o = 1; o <= 8; ++o) {
        const Blob block = tiff(o, o % 2 == 0);
        const Blob png = make_png(stored, w, h, PNG_COLOR_TYPE_GRAY, 8, chunk("eXIf", block));
        for (const auto& [file, pixels] : {std::pair{with_exif(jpeg, block), decoded}, {png, stored}}) {
            SCOPED_TRACE(o);
            const RefImage upright = ref_transform(ref_read(pixels.data(), 0, w, h), kModes[o - 1]);
            const Result r = read_bytes(file, 1);
            ASSERT_EQ(r.ret, 0);
            ASSERT_EQ(r.img.width, unsigned(upright.width));
            ASSERT_EQ(r.pixels.size(), stored.size());
            const RefImage exact = o == 7 ? ref_transform(upright, 3) : upright; // over the other diagonal
            ASSERT_EQ(ref_difference(ref_samples(exact, 0), r.pixels.data(), 0), 0);
            EXPECT_EQ(read_bytes(file, 1 + 16).pixels, pixels);
        }
    }
    // A block that is not read would leave the picture lying, so it is no picture.
    const Blob hidden = make_png({1}, 1, 1, PNG_COLOR_TYPE_GRAY, 8, chunk("eXIf", Blob(2 << 20)));
    expect_refused(TAVI_RET_FAIL, "eXIf", [&] { return read_bytes(hidden, 1).ret; });
    // What is no orientation turns nothing.
    Blob cut = tiff(6, false), long_type = cut;
    cut.resize(30);
    long_type[24] = 4;
    for (const Blob& broken :
         {tiff(0, false), tiff(9, true), cut, long_type, text("II*") + Blob{0, 0xff, 0xff, 0xff, 0xff}})
        EXPECT_EQ(read_bytes(with_exif(jpeg, broken), 1).pixels, decoded);
}

tavi_mem_stats_t stats() {
    tavi_mem_stats_t s = {};
    tavi_mem_get_stats(0, &s);
    return s;
}

TEST(Limits, HoldForEveryTypeAndAreFoundInTheHeader) {
    ::setenv("TAVI_MAX_PIXELS", "1200", 1);
    const Blob wide = png_of({0}, 16385, 1, PNG_COLOR_TYPE_RGB, 8, 0, {}), sof = {0xff, 0xc0};
    const Blob tall = png_of({0}, 1, 16385, PNG_COLOR_TYPE_RGB, 8, 0, {});
    Blob jpeg = make_jpeg(Blob(3, 0), 1, 1, TJPF_RGB, TJSAMP_444);
    std::fill_n(std::search(jpeg.begin(), jpeg.end(), sof.begin(), sof.end()) + 5, 4, 0x50); // 20560 x 20560
    const auto all = [](int width, const Blob& rows) {
        return std::vector{
            make_jpeg(rows, width, 30, TJPF_RGB, TJSAMP_420), make_png(rows, width, 30, PNG_COLOR_TYPE_RGB, 8),
            bmp_head(width, 30, 24, 0, 0) + Blob(124 * 30), text("P6 " + std::to_string(width) + " 30 255\n") + rows};
    };
    for (const Blob& file : all(40, smooth(40, 30, 3)))
        EXPECT_EQ(read_bytes(file, 0).ret, 0);
    const uint64_t before = stats().peak_bytes;
    for (const Blob& file : all(41, smooth(41, 30, 3)))
        expect_refused(TAVI_RET_UNSUPPORTED, "41 x 30; allowed are 1200", [&] { return read_bytes(file, 0).ret; });
    for (const Blob& file :
         {wide, tall, jpeg, bmp_head(16385, 1, 24, 0, 0) + Blob(64, 0), bmp_head(0x80000000, 0x80000000, 24, 0, 0),
          text("P6 16385 16385 255\n"), text("P5 1 16385 255\n")})
        expect_refused(TAVI_RET_UNSUPPORTED, "16384", [&] { return read_bytes(file, 0).ret; });
    EXPECT_EQ(stats().peak_bytes, before);
    for (const char* damaged : {"P6 0 4 255\n", "P5 99999999999999999999 4 255\n", "P2 1 1 10 11 "})
        EXPECT_EQ(read_bytes(text(damaged), 0).ret, TAVI_RET_FAIL) << damaged;
}

TEST(Limits, WhatIsShrunkIsReadByRows) {
    const int w = 3000, h = 2000;
    Blob rgb;
    while (rgb.size() < size_t{3} * w * h)
        rgb = rgb + smooth(w, 100, 3);
    Blob bgr(rgb); // BMP rows of 3000 pixels need no padding
    for (size_t i = 0; i < bgr.size(); i += 3)
        std::swap(bgr[i], bgr[i + 2]);
    const struct {
        const char* name;
        Blob file;
        bool from_bottom;
    } cases[] = {
        {"png", make_png(rgb, w, h, PNG_COLOR_TYPE_RGB, 8), false},
        {"ppm", text("P6 3000 2000 255\n") + rgb, false},
        {"bmp", bmp_head(w, -h, 24, 0, 0) + bgr, false},
        {"bmp from its last row", bmp_head(w, h, 24, 0, 0) + bgr, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Result whole = read_bytes(c.file, TAVI_IMAGE_READ_COLOR);
        const tavi::ImageView all = tavi::make_view(whole.pixels.data(), tavi::kFormats[1], w, h, {});
        for (const auto& [format, sw, sh] : {std::tuple{1, 800, 500}, {1, 1500, 1000}, {1, 3100, 77}, {7, 62, 100}}) {
            const tavi::Format& f = tavi::kFormats[format];
            Result got;
            const int64_t memory = peak_kib([&] { got = read_bytes(c.file, 3, wanted(format, sw, sh)); });
            ASSERT_EQ(got.ret, 0);
            Blob expected(got.pixels.size());
            ASSERT_FALSE(tavi::convert_views(all, tavi::make_view(expected.data(), f, sw, sh, {}), 0, 0));
            // Rows that come from the other end are averaged with weights that are rounded the other way.
            int worst = 0;
            for (size_t i = 0; i < expected.size(); ++i)
                worst = std::max(worst, std::abs(got.pixels[i] - expected[i]));
            EXPECT_LE(worst, c.from_bottom ? 1 : 0) << sw << 'x' << sh;
            EXPECT_LT(memory, 10 << 10) << "of 17.2 MiB";
        }
        Blob cut(c.file.begin(), c.file.end() - 20000);
        EXPECT_EQ(read_bytes(cut, 3, wanted(1, 800, 500)).ret, TAVI_RET_FAIL);
    }
}

TEST(Limits, NothingIsDoneOnTheWordOfAFile) {
    const Blob png = make_png({1}, 1, 1, PNG_COLOR_TYPE_GRAY, 8);
    const int64_t memory = peak_kib([&] {
        for (const char* type : {"tEXt", "iTXt", "pCAL", "eXIf", "quQu"}) {
            const Blob file = Blob(png.begin(), png.begin() + 33) + Blob{0x7f, 0xff, 0xff, 0xff} + text(type);
            expect_refused(TAVI_RET_FAIL, "damaged", [&] { return read_bytes(file + Blob(9), 0).ret; });
        }
    });
    EXPECT_LT(memory, 32 << 10);
    const int64_t before = process_value("/proc/self/io", "rchar:");
    for (const auto& [head, words] : {std::pair{bmp_head(1, 1, 24, 0, 0xfffffff0), "no pixels"},
                                      {make_jpeg({1}, 1, 1, TJPF_GRAY, TJSAMP_GRAY), "too large"},
                                      {text("P5 #"), "damaged"},
                                      {Blob{0xff, 0xd8, 0xff, 0xe0, 0, 2}, "damaged"},
                                      {text("P5 8000 8000 255\n"), "ends before its last row"}}) {
        const TempFile file;
        put(file.path(), head);
        fs::resize_file(file.path(), *words < 'f' ? 60 << 20 : int64_t{3} << 30); // all but the head is a hole
        expect_refused(TAVI_RET_FAIL, words, [&] { return read_file(file.path(), 0).ret; });
    }
    EXPECT_LT(process_value("/proc/self/io", "rchar:") - before, 1 << 20);
}

TEST(Damage, IsReportedOnceAndLeavesNoMemory) {
    const Blob picture = smooth(40, 30, 3);
    const Blob files[] = {make_jpeg(picture, 40, 30, TJPF_RGB, TJSAMP_420),
                          make_jpeg(picture, 40, 30, TJPF_RGB, TJSAMP_444, TJFLAG_PROGRESSIVE),
                          with_exif(make_jpeg(picture, 40, 30, TJPF_RGB, TJSAMP_422), tiff(6, true)),
                          make_png(picture, 40, 30, PNG_COLOR_TYPE_RGB, 8),
                          bmp_head(40, 30, 24, 0, 0) + picture,
                          text("P6 40 30 255\n") + picture,
                          text("P3 2 2 255\n 1 2 3 4 5 6 7 8 9 10 11 12 ")};
    std::mt19937 random(3);
    for (const Blob& file : files)
        for (size_t i = 0; i < 450; ++i) {
            SCOPED_TRACE(testing::Message() << "file " << &file - files << ", round " << i);
            const bool cut = i < 150;
            Blob damaged = file;
            if (cut)
                damaged.resize(i * (file.size() - 3) / 150);
            for (unsigned n = cut ? 0 : 1 + random() % 4; n > 0; --n)
                damaged[random() % (i % 2 ? std::min<size_t>(64, file.size()) : file.size())] ^=
                    uint8_t(1 << random() % 8);
            CapturedLog log;
            const Result r = read_bytes(damaged, 3 + 16, wanted(int(i % 15)));
            EXPECT_TRUE(r.ret == TAVI_RET_FAIL || r.ret == TAVI_RET_UNSUPPORTED || (r.ret == 0 && !cut)) << r.ret;
            EXPECT_EQ(r.img.data == nullptr && log.lines.size() == 1, r.ret != 0);
        }
    EXPECT_EQ(stats().live_count, 0u);
}

// ---------------------------------------------------------------------------------------------- arguments, targets

TEST(Arguments, AreRefusedByName) {
    const TempFile png(".png"), out(".png");
    put(png.path(), make_png(Blob(12, 5), 2, 2, PNG_COLOR_TYPE_RGB, 8));
    Pixels lent(1, 2, 2), pixel(1, 1, 1);
    memset(lent.data(), 99, lent.size());
    tavi_image_t small = lent.img, loose = lent.img, empty = lent.img, odd_pixels = pixel.img;
    tavi_image_t none = wanted(1, 2, 2), promised = wanted(1), odd = wanted(16);
    small.size = 11, loose.is_prealloc_buf = 0, promised.is_prealloc_buf = 1, empty.width = 0;
    odd_pixels.pixel_format = odd.pixel_format;
    constexpr int kParam = TAVI_RET_PARAM_ERR, kFail = TAVI_RET_FAIL, kNot = TAVI_RET_UNSUPPORTED, kWrite = 99;
    const std::tuple<int, const char*, const char*, tavi_image_t*, int> rows[] = {
        {kParam, "path", nullptr, &odd, 0},
        {kParam, "img", png.path(), nullptr, 0},
        {kParam, "read_flag=4", png.path(), &none, 4},
        {kParam, "pixel_format=16", png.path(), &odd, 3},
        {kParam, "size=11", png.path(), &small, 0},
        {kParam, "is_prealloc_buf", png.path(), &loose, 0},
        {kParam, "is_prealloc_buf", png.path(), &promised, 0},
        {kFail, "No such file", "/nowhere/x.png", &none, 0},
        {kFail, "directory", "/", &none, 0},
        {kParam, "img", out.path(), nullptr, kWrite},
        {kParam, "data", out.path(), &none, kWrite},
        {kNot, ".jpeg", "/tmp/x.tiff", &none, kWrite},
        {kNot, ".jpeg", "/tmp.png/x", &none, kWrite},
        {kNot, "format 16", out.path(), &odd_pixels, kWrite},
        {kNot, "0x2", out.path(), &empty, kWrite}};
    for (const auto& [result, words, path, img, flag] : rows) {
        CapturedLog log;
        EXPECT_EQ(flag == kWrite ? tavi_image_write_cpu(path, img) : tavi_image_read_cpu(path, img, flag), result);
        ASSERT_EQ(log.lines.size(), 1u) << words;
        EXPECT_NE(log.lines[0].message.find(words), std::string::npos) << log.lines[0].message;
    }
    EXPECT_EQ(lent.bytes(), Blob(12, 99)); // nothing was written
    lent.img.width = lent.img.height = 0;
    EXPECT_EQ(tavi_image_read_cpu(png.path(), &lent.img, 0), 0);
    EXPECT_EQ(lent.bytes(), Blob(12, 5));
    EXPECT_TRUE(lent.img.width == 2 && lent.img.height == 2 && lent.img.size == 12 && lent.img.is_prealloc_buf == 1);
}

class Targets : public InOwnFolder {
protected:
    Targets() { picture_.noise(5); }
    static size_t count() { return std::distance(fs::directory_iterator("."), {}); }
    int write(const std::string& name) { return tavi_image_write_cpu(name.c_str(), &picture_.img); }

private:
    Pixels picture_{1, 64, 64};
};

TEST_F(Targets, AppearWholeOrNotAtAll) {
    put("old.png", text("old"));
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit all = {};
    getrlimit(RLIMIT_FSIZE, &all);
    const rlimit few = {3000, all.rlim_max}; // the disk is full after so many bytes
    for (const char* name : {"a.png", "a.jpg", "a.bmp", "a.ppm", "old.png"}) {
        setrlimit(RLIMIT_FSIZE, &few);
        expect_refused(TAVI_RET_FAIL, "File too large", [&] { return write(name); });
        setrlimit(RLIMIT_FSIZE, &all);
    }
    EXPECT_EQ(count(), 1u);
    EXPECT_EQ(read_whole("old.png"), "old");
    EXPECT_EQ(write(std::string(251, 'n') + ".png"), 0);
    EXPECT_EQ(count(), 2u);
}

TEST_F(Targets, StayWhatTheyAre) {
    // A pipe is written straight. One of the test's own: a wrong rename by root would replace the machine's device.
    ASSERT_EQ(mkfifo("pipe.bmp", 0600), 0);
    const int reader = open("pipe.bmp", O_RDWR | O_NONBLOCK);
    EXPECT_EQ(write("pipe.bmp"), 0);
    char head[2] = {};
    EXPECT_EQ(read(reader, head, 2), 2);
    EXPECT_EQ(std::string(head, 2), "BM");
    close(reader);
    // A link stays a link, and what it leads to keeps its permissions or is made. One to itself is no name.
    put("old.png", text("old"));
    chmod("old.png", 0640);
    fs::create_directory("sub");
    for (auto [to, link] :
         {std::pair{"old.png", "link.png"}, {"sub/hop.png", "far.png"}, {"../new.png", "sub/hop.png"}})
        fs::create_symlink(to, link);
    fs::create_symlink("loop.png", "loop.png");
    EXPECT_EQ(write("link.png") + write("far.png"), 0);
    expect_refused(TAVI_RET_FAIL, "symbolic links", [&] { return write("loop.png"); });
    for (const char* link : {"link.png", "far.png", "sub/hop.png", "loop.png"})
        EXPECT_TRUE(fs::is_symlink(link)) << link;
    for (const char* file : {"old.png", "new.png"})
        EXPECT_EQ(read_whole(file).substr(1, 3), "PNG") << file;
    EXPECT_EQ(fs::status("old.png").permissions(), fs::perms(0640));
    EXPECT_EQ(count(), 7u);
}

TEST_F(Targets, CannotBeBlockedOrTakenOver) {
    for (int i = 0; i < 100; ++i)
        put(".tavi-" + std::to_string(getpid()) + "-" + std::to_string(i) + ".tmp", {});
    EXPECT_EQ(write("a.png"), 0) << "names that could be foreseen";
    if (geteuid() != 0)
        GTEST_SKIP() << "only root gives files away";
    for (uid_t writer : {0, 65534}) { // who may keep the owner, and who may not
        EXPECT_EQ(chown("a.png", 1, 1) + chmod("a.png", 06777) + chmod(".", 0777), 0);
        EXPECT_EQ(seteuid(writer) + write("a.png") + seteuid(0), 0);
        struct stat status = {};
        stat("a.png", &status);
        EXPECT_EQ(status.st_uid, writer ? writer : 1u);
        EXPECT_EQ(status.st_mode & 07777, writer ? 0777u : 06777u);
    }
}

TEST_F(Targets, AreNoStandardStreams) {
    const pid_t child = fork();
    if (child == 0) {
        close(2);
        tavi::Output output;
        const bool open = output.open("a");
        TaviLogger::GetInstance()->Log(TAVI_LOG_ERROR, "", "", 0, "", "a line"); // to whatever has descriptor 2
        _exit(open && output.write("abc", 3) && output.commit() ? 0 : 1);
    }
    waitpid(child, nullptr, 0);
    EXPECT_EQ(read_whole("a"), "abc");
}

} // namespace
