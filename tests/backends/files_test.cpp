// SPDX-License-Identifier: MIT
// Reading and writing files, JPEG apart, against the codec libraries themselves, and against files that are damaged
// or forged.
#include <algorithm>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <png.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <turbojpeg.h>

#include <gtest/gtest.h>

#include "backends/cpu/files/stream.h"
#include "backends/cpu/tavi_image_cpu.h"
#include "backends/file_bytes.h"
#include "services/tavi_mem.h"
#include "support/captured_log.h"
#include "support/pixels.h"
#include "support/temp_file.h"

namespace {

using namespace tavi::test;

Blob make_png(const Blob& rows, int width, int height, int colour, int depth, int interlace = PNG_INTERLACE_NONE,
              const std::function<void(png_structp, png_infop)>& more = {}) {
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    Blob out;
    png_set_write_fn(
        png, &out,
        [](png_structp p, png_bytep b, size_t n) {
            Blob& to = *static_cast<Blob*>(png_get_io_ptr(p));
            to.insert(to.end(), b, b + n);
        },
        nullptr);
    png_set_IHDR(png, info, width, height, depth, colour, interlace, 0, 0);
    if (more)
        more(png, info);
    std::vector<png_bytep> pointers;
    for (int y = 0; y < height; ++y)
        pointers.push_back(const_cast<png_bytep>(rows.data() + y * (rows.size() / height)));
    png_set_rows(png, info, pointers.data());
    png_write_png(png, info, PNG_TRANSFORM_IDENTITY, nullptr);
    png_destroy_write_struct(&png, &info);
    return out;
}

/// A TIFF block with the one tag, after another one.
Blob tiff(int orientation, bool big) {
    const auto u16 = [&](int v) {
        return big ? Blob{uint8_t(v >> 8), uint8_t(v)} : Blob{uint8_t(v), uint8_t(v >> 8)};
    };
    const auto u32 = [&](int v) { return big ? u16(0) + u16(v) : u16(v) + u16(0); };
    return text(big ? "MM" : "II") + u16(42) + u32(8) + u16(2) + u16(0x10f) + u16(2) + u32(4) + text("abc") +
           Blob{0} + u16(0x112) + u16(3) + u32(1) + u16(orientation) + u16(0) + u32(0);
}

Blob with_exif(const Blob& jpeg, const Blob& block) {
    const size_t length = block.size() + 8;
    return Blob{0xff, 0xd8, 0xff, 0xe1, uint8_t(length >> 8), uint8_t(length)} + text("Exif") + Blob{0, 0} + block +
           Blob(jpeg.begin() + 2, jpeg.end());
}

Blob le16(uint32_t v) { return {uint8_t(v), uint8_t(v >> 8)}; }
Blob le32(uint32_t v) { return le16(v) + le16(v >> 16); }

Blob bmp_head(uint32_t width, uint32_t height, uint32_t bits, uint32_t compression, size_t extra,
              uint32_t colours = 0) {
    return text("BM") + le32(0) + le32(0) + le32(uint32_t(54 + extra)) + le32(40) + le32(width) + le32(height) +
           le16(1) + le16(bits) + le32(compression) + Blob(12, 0) + le32(colours) + le32(0);
}

// ----------------------------------------------------------------------------------------------------- PNG, others

TEST(Png, ReadsEveryKind) {
    const auto palette = [](bool transparent) {
        return [transparent](png_structp png, png_infop info) {
            const png_color colours[4] = {{1, 2, 3}, {10, 20, 30}, {100, 110, 120}, {200, 210, 220}};
            const png_byte alpha[2] = {7, 80};
            png_set_PLTE(png, info, colours, 4);
            if (transparent)
                png_set_tRNS(png, info, alpha, 2, nullptr);
        };
    };
    const Blob bits = {0x1b, 0xe4};                               // 0 1 2 3 and 3 2 1 0, two bits each
    const Blob deep = {0x12, 0xff, 0xff, 0xff, 0x80, 0x80, 0, 1}; // big endian
    const Blob flat = make_png(bits, 4, 2, PNG_COLOR_TYPE_PALETTE, 2, 0, palette(false));
    const Blob clear = make_png({0x1b}, 4, 1, PNG_COLOR_TYPE_PALETTE, 2, 0, palette(true));
    const Blob grey = make_png(deep, 4, 1, PNG_COLOR_TYPE_GRAY, 16);
    expect_read("two bits of grey", make_png(bits, 4, 2, PNG_COLOR_TYPE_GRAY, 2), 1, 0, 4, 2,
                {0, 85, 170, 255, 255, 170, 85, 0});
    expect_read("palette", flat, 1, 1, 4, 2, {1,   2,   3,   10,  20,  30,  100, 110, 120, 200, 210, 220,
                                              200, 210, 220, 100, 110, 120, 10,  20,  30,  1,   2,   3});
    expect_read("palette with alpha", clear, 1, 3, 4, 1,
                {1, 2, 3, 7, 10, 20, 30, 80, 100, 110, 120, 255, 200, 210, 220, 255});
    expect_read("palette, alpha dropped", clear, 0, 1, 4, 1, {1, 2, 3, 10, 20, 30, 100, 110, 120, 200, 210, 220});
    expect_read("deep grey", grey, 1, 15, 4, 1, {0xff, 0x12, 0xff, 0xff, 0x80, 0x80, 1, 0});
    expect_read("deep grey, shallow", grey, 2, 0, 4, 1, {0x13, 0xff, 0x80, 0});
    expect_read("grey with alpha", make_png({9, 50, 200, 60}, 2, 1, PNG_COLOR_TYPE_GRAY_ALPHA, 8), 1, 3, 2, 1,
                {9, 9, 9, 50, 200, 200, 200, 60});
    expect_read("deep colour", make_png(deep + Blob{0x40, 0, 0x7f, 0xff}, 2, 1, PNG_COLOR_TYPE_RGB, 16), 1, 1, 2, 1,
                {0x13, 0xff, 0x80, 0, 0x40, 0x7f});
    expect_read("grey as colour with alpha", make_png({9, 8}, 2, 1, PNG_COLOR_TYPE_GRAY, 8), 3, 3, 2, 1,
                {9, 9, 9, 255, 8, 8, 8, 255});
    const Blob rgba = Pixels(3, 19, 13).noise(1).bytes();
    for (int interlace : {PNG_INTERLACE_NONE, PNG_INTERLACE_ADAM7}) {
        const Blob png = make_png(rgba, 19, 13, PNG_COLOR_TYPE_RGBA, 8, interlace);
        EXPECT_EQ(read_bytes(png, 1).pixels, rgba);
        Pixels bgra(4, 19, 13);
        ASSERT_EQ(read_bytes(png, 3, bgra.img).ret, 0);
        EXPECT_EQ(bgra.data()[0], rgba[2]);
        EXPECT_EQ(bgra.data()[3], rgba[3]);
    }
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
    const Blob two_colours = {9, 8, 7, 0, 1, 2, 3, 0}, second = {0x80, 0, 0, 0};
    const Blob two_rows = {3, 2, 1, 0, 6, 5, 4, 0};
    own("BMP, bottom-up", bmp_head(1, 2, 24, 0, 0) + two_rows, 1, 1, 2, {4, 5, 6, 1, 2, 3});
    own("BMP, top-down", bmp_head(1, -2, 24, 0, 0) + two_rows, 1, 1, 2, {1, 2, 3, 4, 5, 6});
    own("BMP, 4 bits of grey", bmp_head(9, 1, 4, 0, 64) + greys + Blob{0x1f, 0x80, 0x12, 0x34, 0x50, 0, 0, 0}, 0, 9,
        1, {17, 255, 136, 0, 17, 34, 51, 68, 85});
    own("BMP, 1 bit of colour", bmp_head(9, 1, 1, 0, 8) + two_colours + Blob{0xfd, 0x80, 0, 0}, 1, 9, 1,
        {3, 2, 1, 3, 2, 1, 3, 2, 1, 3, 2, 1, 3, 2, 1, 3, 2, 1, 7, 8, 9, 3, 2, 1, 3, 2, 1});
    own("BMP, 555", bmp_head(2, 1, 16, 0, 0) + le16(0x7fff) + le16(0x7c03), 1, 2, 1, {255, 255, 255, 255, 0, 25});
    own("BMP, 565", bmp_head(1, 1, 16, 3, 12) + le32(0xf800) + le32(0x7e0) + le32(0x1f) + le32(0x07e0), 1, 1, 1,
        {0, 255, 0});
    own("BMP, 32 bits without alpha", bmp_head(1, 1, 32, 0, 0) + Blob{3, 2, 1, 77}, 1, 1, 1, {1, 2, 3});
    own("BMP, oldest header",
        text("BM") + Blob(8, 0) + le32(26) + le32(12) + le32(0x10001) + le32(0x180001) + Blob{3, 2, 1, 0}, 1, 1, 1,
        {1, 2, 3});
    own("BMP, more colours than its bits can name", bmp_head(1, 1, 1, 0, 8, 300) + two_colours + second, 1, 1, 1,
        {3, 2, 1});
    own("BMP, oldest palette",
        text("BM") + Blob(8, 0) + le32(32) + le32(12) + le32(0x10001) + le32(0x10001) + Blob{9, 8, 7, 1, 2, 3} +
            second,
        1, 1, 1, {3, 2, 1});
    own("PBM in digits", text("P1\n# a comment\n#\n3 2\n101\n0 1 0"), 0, 3, 2, {0, 255, 0, 255, 0, 255});
    own("PGM in digits, odd maximum", text("P2 3 1 10\n0 5 10\n"), 0, 3, 1, {0, 128, 255});
    own("PPM in digits, deep", text("P3 1 1 65535 65535 257 0 "), 1, 1, 1, {255, 1, 0});
    own("PBM", text("P4 9 1\n") + Blob{0x80, 0x80}, 0, 9, 1, {0, 255, 255, 255, 255, 255, 255, 255, 0});
    own("PGM, deep", text("P5\n2 1\n65535\n") + Blob{1, 2, 0xff, 0xfe}, 15, 2, 1, {2, 1, 0xfe, 0xff});
    own("PGM, comments behind its numbers", text("P5 2#b\n1# \n255#\n") + Blob{7, 8}, 0, 2, 1, {7, 8});
    own("PPM", text("P6 #x\n 1 1 255\n") + Blob{1, 2, 3}, 1, 1, 1, {1, 2, 3});
    for (int bits : {8, 32}) // run lengths
        EXPECT_EQ(read_bytes(bmp_head(4, 4, bits, 1, 1024) + Blob(2000, 0), 1).ret, TAVI_RET_UNSUPPORTED);
}

TEST(Files, LoseNothingWhereTheTypeHoldsIt) {
    struct Case {
        const char* ending;
        std::vector<int> formats;
    } cases[] = {{".png", {0, 1, 2, 3, 4, 15}}, {".BMP", {0, 1, 2, 3, 4}}, {".ppm", {1}}, {".Pgm", {0, 15}}};
    for (const Case& c : cases) {
        for (int format : c.formats) {
            for (auto [w, h] : {std::pair{1, 1}, {5, 3}, {16, 16}, {33, 17}}) {
                SCOPED_TRACE(testing::Message() << c.ending << " format " << format << " " << w << "x" << h);
                const TempFile file(c.ending);
                Pixels from(format, w, h), to(format, w, h);
                const Blob pixels = from.noise(7).bytes();
                ASSERT_EQ(tavi_image_write_cpu(file.path(), &from.img), 0);
                EXPECT_EQ(from.bytes(), pixels); // the source is only read
                to.img.width = to.img.height = 0;
                ASSERT_EQ(tavi_image_read_cpu(file.path(), &to.img, 3), 0);
                EXPECT_EQ(to.bytes(), pixels);
                EXPECT_TRUE(to.intact());
                const Result stored = read_file(file.path(), 1);
                ASSERT_EQ(stored.ret, 0);
                EXPECT_EQ(stored.img.pixel_format, format == 2 ? 1 : format == 4 ? 3 : format);
            }
        }
    }
}

TEST(Files, ConvertWhatTheTypeDoesNotHold) {
    const Blob jpeg = make_jpeg(smooth(32, 24, 3), 32, 24, TJPF_RGB, TJSAMP_444);
    const Result rgb = read_bytes(jpeg, 0);
    for (int format = 0; format < 16; ++format) {
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
    Blob stored(static_cast<size_t>(w) * h);
    for (size_t i = 0; i < stored.size(); ++i)
        stored[i] = static_cast<uint8_t>(i % w * 8 + i / w * 3);
    const Blob jpeg = make_jpeg(stored, w, h, TJPF_GRAY, TJSAMP_GRAY);
    const Blob decoded = read_bytes(jpeg, 1).pixels;
    for (int o = 1; o <= 8; ++o) {
        Blob block = tiff(o, o % 2 == 0);
        const Blob png = make_png(stored, w, h, PNG_COLOR_TYPE_GRAY, 8, 0, [&](png_structp p, png_infop i) {
            png_set_eXIf_1(p, i, static_cast<png_uint_32>(block.size()), block.data());
        });
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
    Blob large(2 << 20);
    const Blob hidden = make_png({1}, 1, 1, PNG_COLOR_TYPE_GRAY, 8, 0, [&](png_structp p, png_infop i) {
        png_set_eXIf_1(p, i, static_cast<png_uint_32>(large.size()), large.data());
    });
    expect_refused(TAVI_RET_FAIL, "eXIf", [&] { return read_bytes(hidden, 1).ret; });
    // What is no orientation turns nothing.
    Blob cut = tiff(6, false), long_type = cut;
    cut.resize(30);
    long_type[24] = 4;
    for (const Blob& broken :
         {tiff(0, false), tiff(9, true), cut, long_type, text("II*") + Blob{0, 0xff, 0xff, 0xff, 0xff}})
        EXPECT_EQ(read_bytes(with_exif(jpeg, broken), 1).pixels, decoded);
}

TEST(Limits, AForgedHeaderTakesNoMemory) {
    const auto big = [](uint32_t v) { return Blob{uint8_t(v >> 24), uint8_t(v >> 16), uint8_t(v >> 8), uint8_t(v)}; };
    Blob wide = make_png(Blob(3, 0), 1, 1, PNG_COLOR_TYPE_RGB, 8), tall = wide;
    Blob jpeg = make_jpeg(Blob(3, 0), 1, 1, TJPF_RGB, TJSAMP_444);
    const Blob sof = {0xff, 0xc0};
    const auto frame = std::search(jpeg.begin(), jpeg.end(), sof.begin(), sof.end());
    std::fill_n(frame + 5, 4, 0x50); // 20560 x 20560
    const Blob side = big(16385);
    std::copy(side.begin(), side.end(), wide.begin() + 16);
    std::copy(side.begin(), side.end(), tall.begin() + 20);
    tavi_mem_stats_t before = {}, after = {};
    tavi_mem_get_stats(0, &before);
    for (const Blob& file :
         {wide, tall, jpeg, bmp_head(16385, 1, 24, 0, 0) + Blob(64, 0), bmp_head(0x80000000, 0x80000000, 24, 0, 0),
          text("P6 16385 16385 255\n"), text("P5 1 16385 255\n")}) {
        expect_refused(TAVI_RET_UNSUPPORTED, "16384", [&] { return read_bytes(file, 0).ret; });
    }
    tavi_mem_get_stats(0, &after);
    EXPECT_EQ(before.peak_bytes, after.peak_bytes);
    for (const char* damaged : {"P6 0 4 255\n", "P5 99999999999999999999 4 255\n", "P2 1 1 10 11 "})
        EXPECT_EQ(read_bytes(text(damaged), 0).ret, TAVI_RET_FAIL) << damaged;
}

TEST(Limits, ACeilingHoldsForEveryType) {
    ::setenv("TAVI_MAX_PIXELS", "1200", 1);
    for (int width : {40, 41}) {
        const Blob rows = smooth(width, 30, 3);
        for (const Blob& file :
             {make_jpeg(rows, width, 30, TJPF_RGB, TJSAMP_420), make_png(rows, width, 30, PNG_COLOR_TYPE_RGB, 8),
              bmp_head(width, 30, 24, 0, 0) + Blob(124 * 30),
              text("P6 " + std::to_string(width) + " 30 255\n") + rows})
            if (width == 40)
                EXPECT_EQ(read_bytes(file, 0).ret, 0);
            else
                expect_refused(TAVI_RET_UNSUPPORTED, "41 x 30; allowed are 1200",
                               [&] { return read_bytes(file, 0).ret; });
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
                                      {text("P5 9999 9999 255\n"), "ends before its last row"}}) {
        const TempFile file;
        put(file.path(), head);
        std::filesystem::resize_file(file.path(),
                                     *words == 'e' ? 90 << 20 : int64_t{3} << 30); // all but the head is a hole
        expect_refused(TAVI_RET_FAIL, words, [&] { return read_file(file.path(), 0).ret; });
    }
    EXPECT_LT(process_value("/proc/self/io", "rchar:") - before, 1 << 20);
}

TEST(Damage, IsReportedOnceAndLeavesNoMemory) {
    const Blob picture = smooth(40, 30, 3);
    const std::map<std::string, Blob> files = {
        {"jpeg", make_jpeg(picture, 40, 30, TJPF_RGB, TJSAMP_420)},
        {"progressive", make_jpeg(picture, 40, 30, TJPF_RGB, TJSAMP_444, TJFLAG_PROGRESSIVE)},
        {"exif", with_exif(make_jpeg(picture, 40, 30, TJPF_RGB, TJSAMP_422), tiff(6, true))},
        {"png", make_png(picture, 40, 30, PNG_COLOR_TYPE_RGB, 8)},
        {"interlaced", make_png(picture, 40, 30, PNG_COLOR_TYPE_RGB, 8, PNG_INTERLACE_ADAM7)},
        {"bmp", bmp_head(40, 30, 24, 0, 0) + picture},
        {"ppm", text("P6 40 30 255\n") + picture},
        {"digits", text("P3 2 2 255\n 1 2 3 4 5 6 7 8 9 10 11 12 ")},
    };
    const auto check = [](const Result& r, const CapturedLog& log) {
        EXPECT_EQ(r.img.data, nullptr);
        EXPECT_TRUE(r.ret == TAVI_RET_FAIL || r.ret == TAVI_RET_UNSUPPORTED) << r.ret;
        EXPECT_EQ(log.lines.size(), 1u);
    };
    tavi_mem_stats_t stats = {};
    for (const auto& [name, file] : files) {
        const size_t step = std::max<size_t>(1, file.size() / 150);
        for (size_t size = 0; size + 3 < file.size(); size += step) {
            SCOPED_TRACE(name + " cut to " + std::to_string(size));
            CapturedLog log;
            check(read_bytes(Blob(file.begin(), file.begin() + size), 0 + 16), log);
        }
        std::mt19937 random(3);
        for (int i = 0; i < 300; ++i) {
            SCOPED_TRACE(name + " flipped, round " + std::to_string(i));
            Blob flipped = file;
            for (unsigned n = 1 + random() % 4; n > 0; --n)
                flipped[random() % (i % 2 ? std::min<size_t>(64, file.size()) : file.size())] ^=
                    uint8_t(1 << random() % 8);
            CapturedLog log;
            const Result r = read_bytes(flipped, 3 + 16, wanted(i % 15));
            if (r.ret != 0)
                check(r, log);
        }
    }
    tavi_mem_get_stats(0, &stats);
    EXPECT_EQ(stats.live_count, 0u);
}

// ---------------------------------------------------------------------------------------------- arguments, targets

TEST(Arguments, AreRefusedByName) {
    const TempFile png(".png");
    put(png.path(), make_png(Blob(12, 5), 2, 2, PNG_COLOR_TYPE_RGB, 8));
    Pixels lent(1, 2, 2), pixel(1, 1, 1);
    memset(lent.data(), 99, lent.size());
    tavi_image_t small = lent.img, loose = lent.img, empty = lent.img, odd_pixels = pixel.img;
    tavi_image_t none = wanted(1, 2, 2), promised = wanted(1), odd = wanted(16);
    small.size = 11;
    loose.is_prealloc_buf = 0;
    promised.is_prealloc_buf = 1;
    empty.width = 0;
    odd_pixels.pixel_format = odd.pixel_format;
    constexpr int kParam = TAVI_RET_PARAM_ERR, kWrite = 99;
    const TempFile out(".png");
    const struct {
        int result;
        const char *words, *path;
        tavi_image_t* img;
        int flag;
    } rows[] = {
        {kParam, "path", nullptr, &odd, 0},
        {kParam, "img", png.path(), nullptr, 0},
        {kParam, "read_flag=4", png.path(), &none, 4},
        {kParam, "read_flag=-1", png.path(), &none, -1},
        {kParam, "pixel_format=16", png.path(), &odd, 3},
        {kParam, "size=11", png.path(), &small, 0},
        {kParam, "is_prealloc_buf", png.path(), &loose, 0},
        {kParam, "is_prealloc_buf", png.path(), &promised, 0},
        {TAVI_RET_FAIL, "No such file", "/nowhere/x.png", &none, 0},
        {TAVI_RET_FAIL, "directory", "/", &none, 0},
        {kParam, "img", out.path(), nullptr, kWrite},
        {kParam, "data", out.path(), &none, kWrite},
        {TAVI_RET_UNSUPPORTED, ".jpeg", "/tmp/x.tiff", &none, kWrite},
        {TAVI_RET_UNSUPPORTED, ".jpeg", "/tmp.png/x", &none, kWrite},
        {TAVI_RET_UNSUPPORTED, "format 16", out.path(), &odd_pixels, kWrite},
        {TAVI_RET_UNSUPPORTED, "0x2", out.path(), &empty, kWrite},
    };
    for (const auto& row : rows)
        expect_refused(row.result, row.words, [&] {
            return row.flag == kWrite ? tavi_image_write_cpu(row.path, row.img)
                                      : tavi_image_read_cpu(row.path, row.img, row.flag);
        });
    EXPECT_EQ(lent.bytes(), Blob(12, 99)); // nothing was written
    lent.img.width = lent.img.height = 0;
    EXPECT_EQ(tavi_image_read_cpu(png.path(), &lent.img, 0), 0);
    EXPECT_EQ(lent.bytes(), Blob(12, 5));
    EXPECT_EQ(std::tie(lent.img.width, lent.img.height, lent.img.size, lent.img.is_prealloc_buf),
              std::make_tuple(2u, 2u, 12u, 1));
}

// A folder of the test's own: what is in it afterwards is what the writer left.
struct Folder {
    std::filesystem::path path =
        std::filesystem::path(testing::TempDir()) / ("tavi_folder_" + std::to_string(getpid()));
    Folder() { std::filesystem::create_directory(path); }
    ~Folder() { std::filesystem::remove_all(path); }
    std::string at(const std::string& name) const { return (path / name).string(); }
    size_t count() const { return std::distance(std::filesystem::directory_iterator(path), {}); }
};

TEST(Targets, AppearWholeOrNotAtAll) {
    const Folder folder;
    Pixels picture(1, 64, 64);
    tavi_image_t img = picture.noise(5).img;
    put(folder.at("old.png"), text("old"));
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit all = {};
    getrlimit(RLIMIT_FSIZE, &all);
    rlimit few = all;
    few.rlim_cur = 3000; // the disk is full after so many bytes
    {
        CapturedLog log;
        setrlimit(RLIMIT_FSIZE, &few);
        for (const char* name : {"a.png", "a.jpg", "a.bmp", "a.ppm", "old.png"})
            EXPECT_EQ(tavi_image_write_cpu(folder.at(name).c_str(), &img), TAVI_RET_FAIL) << name;
        setrlimit(RLIMIT_FSIZE, &all);
        EXPECT_EQ(log.lines.size(), 5u);
    }
    EXPECT_EQ(folder.count(), 1u);
    EXPECT_EQ(read_whole(folder.at("old.png")), "old");

    // What is no regular file is written straight and stays what it is. A pipe of the test's own: a wrong rename by
    // root would replace the machine's device.
    ASSERT_EQ(mkfifo(folder.at("pipe.bmp").c_str(), 0600), 0);
    const int reader = open(folder.at("pipe.bmp").c_str(), O_RDWR | O_NONBLOCK);
    EXPECT_EQ(tavi_image_write_cpu(folder.at("pipe.bmp").c_str(), &img), 0);
    char head[2] = {};
    EXPECT_EQ(read(reader, head, 2), 2);
    EXPECT_EQ(std::string(head, 2), "BM");
    close(reader);

    // A link stays a link, and an old file keeps its permissions.
    chmod(folder.at("old.png").c_str(), 0640);
    std::filesystem::create_symlink("old.png", folder.at("link.png"));
    EXPECT_EQ(tavi_image_write_cpu(folder.at("link.png").c_str(), &img), 0);
    EXPECT_TRUE(std::filesystem::is_symlink(folder.at("link.png")));
    EXPECT_EQ(read_whole(folder.at("old.png")).substr(1, 3), "PNG");
    struct stat status = {};
    stat(folder.at("old.png").c_str(), &status);
    EXPECT_EQ(status.st_mode & 0777, 0640u);

    EXPECT_EQ(tavi_image_write_cpu(folder.at(std::string(251, 'n') + ".png").c_str(), &img), 0);
    EXPECT_EQ(folder.count(), 4u);

    // One that leads to nothing yet gets what it leads to; one that leads to itself is no name.
    std::filesystem::create_directory(folder.at("sub"));
    std::filesystem::create_symlink("sub/hop.png", folder.at("far.png"));
    std::filesystem::create_symlink("../new.png", folder.at("sub/hop.png"));
    std::filesystem::create_symlink("loop.png", folder.at("loop.png"));
    EXPECT_EQ(tavi_image_write_cpu(folder.at("far.png").c_str(), &img), 0);
    EXPECT_TRUE(std::filesystem::is_symlink(folder.at("far.png")) &&
                std::filesystem::is_regular_file(folder.at("new.png")));
    expect_refused(TAVI_RET_FAIL, "symbolic links",
                   [&] { return tavi_image_write_cpu(folder.at("loop.png").c_str(), &img); });
    EXPECT_TRUE(std::filesystem::is_symlink(folder.at("loop.png")));
    EXPECT_EQ(folder.count(), 8u);
}

TEST(Targets, CannotBeBlockedOrTakenOver) {
    const Folder folder;
    Pixels picture(1, 8, 8);
    const std::string path = folder.at("a.png"), start = folder.at(".tavi-" + std::to_string(getpid()) + "-");
    for (int i = 0; i < 100; ++i)
        put(start + std::to_string(i) + ".tmp", {});
    EXPECT_EQ(tavi_image_write_cpu(path.c_str(), &picture.img), 0) << "names that could be foreseen";
    if (geteuid() != 0)
        GTEST_SKIP() << "only root gives files away";
    struct stat status = {};
    for (uid_t writer : {0, 65534}) { // who may keep the owner, and who may not
        EXPECT_EQ(chown(path.c_str(), 1, 1) + chmod(path.c_str(), 06777) + chmod(folder.at("").c_str(), 0777), 0);
        EXPECT_EQ(seteuid(writer) + tavi_image_write_cpu(path.c_str(), &picture.img) + seteuid(0), 0);
        stat(path.c_str(), &status);
        EXPECT_EQ(status.st_uid, writer ? writer : 1u);
        EXPECT_EQ(status.st_mode & 07777, writer ? 0777u : 06777u);
    }
}

TEST(Targets, AreNoStandardStreams) {
    const TempFile file;
    const pid_t child = fork();
    if (child == 0) {
        close(2);
        tavi::Output output;
        const bool open = output.open(file.path());
        TaviLogger::GetInstance()->Log(TAVI_LOG_ERROR, "", "", 0, "", "a line"); // to whatever has descriptor 2
        _exit(open && output.write("abc", 3) && output.commit() ? 0 : 1);
    }
    int status = 1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(file.read(), "abc");
}

TEST(Sources, MayBeAPipe) {
    const int w = 400, h = 300;
    const Blob jpeg = make_jpeg(Pixels(1, w, h).noise(1).bytes(), w, h, TJPF_RGB, TJSAMP_444);
    ASSERT_GT(jpeg.size(), 130000u); // the reader's room grows twice
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    std::thread writer([&] {
        EXPECT_EQ(write(ends[1], jpeg.data(), jpeg.size()), ssize_t(jpeg.size()));
        close(ends[1]);
    });
    const Result r = read_file(("/proc/self/fd/" + std::to_string(ends[0])).c_str(), 0);
    close(ends[0]);
    writer.join();
    EXPECT_EQ(r.pixels, read_bytes(jpeg, 0).pixels);
}

} // namespace
