// SPDX-License-Identifier: MIT
// Reading and writing files against the codec libraries themselves, and against files that are damaged or forged.
#include <algorithm>
#include <cmath>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <vector>

#include <fcntl.h>
#include <png.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <turbojpeg.h>

#include <gtest/gtest.h>

#include "backends/cpu/tavi_image_cpu.h"
#include "image/format.h"
#include "services/tavi_mem.h"
#include "support/captured_log.h"
#include "support/fence_buffer.h"
#include "support/temp_file.h"

namespace {

using tavi::test::FenceBuffer;
using Blob = std::vector<uint8_t>;

Blob operator+(Blob a, const Blob& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}
Blob text(const std::string& s) { return Blob(s.begin(), s.end()); }

void put(const std::string& path, const Blob& bytes) {
    std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()), bytes.size());
}

/// An image read from bytes: attached memory is copied and given back.
struct Result {
    int ret = 0;
    tavi_image_t img = {};
    Blob pixels;
};

Result read_file(const char* path, int flag, tavi_image_t img = {}) {
    Result r;
    r.ret = tavi_image_read_cpu(path, &img, flag);
    r.img = img;
    if (img.data && img.is_prealloc_buf != 1) {
        r.pixels.assign(img.data, img.data + img.size);
        EXPECT_EQ(tavi_mem_free_by_virt_addr(img.data), 0);
    }
    return r;
}

Result read_bytes(const Blob& bytes, int flag, tavi_image_t img = {}) {
    const TempFile file;
    put(file.path(), bytes);
    return read_file(file.path(), flag, img);
}

tavi_image_t describe(int format, int width, int height, uint8_t* data = nullptr) {
    tavi_image_t img = {};
    img.pixel_format = static_cast<tavi_pixel_format>(format);
    img.width = static_cast<uint32_t>(width);
    img.height = static_cast<uint32_t>(height);
    img.size = static_cast<uint32_t>(tavi::byte_count(tavi::kFormats[format], img.width, img.height));
    img.data = data;
    img.is_prealloc_buf = data != nullptr;
    return img;
}

void expect_read(const char* name, const Blob& file, int flag, int format, int width, int height,
                 const Blob& pixels) {
    SCOPED_TRACE(name);
    const Result r = read_bytes(file, flag, flag == 3 ? describe(format, 0, 0) : tavi_image_t{});
    ASSERT_EQ(r.ret, 0) << flag << " " << format;
    EXPECT_EQ(std::tie(r.img.width, r.img.height), std::make_tuple(unsigned(width), unsigned(height)));
    EXPECT_EQ(r.img.pixel_format, format);
    EXPECT_EQ(r.pixels, pixels);
}

/// A smooth colour picture with one bright corner, so that turning it shows.
Blob smooth(int width, int height, int channels) {
    Blob p(static_cast<size_t>(width) * height * channels);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            for (int c = 0; c < channels; ++c)
                p[(static_cast<size_t>(y) * width + x) * channels + c] = static_cast<uint8_t>(
                    c == 3 ? 40 + 3 * x : 128 + 90 * std::sin((x * (c + 1) + y * (3 - c)) * 3.0 / (width + height)));
    return p;
}

Blob noise(size_t size, unsigned seed) {
    std::mt19937 random(seed);
    Blob p(size);
    for (uint8_t& b : p)
        b = static_cast<uint8_t>(random());
    return p;
}

Blob make_jpeg(const Blob& pixels, int width, int height, int format, int subsampling, int flags = 0) {
    tjhandle handle = tjInitCompress();
    unsigned char* out = nullptr;
    unsigned long size = 0;
    EXPECT_EQ(tjCompress2(handle, pixels.data(), width, 0, height, format, &out, &size, subsampling, 90, flags), 0);
    Blob jpeg(out, out + size);
    tjFree(out);
    tjDestroy(handle);
    return jpeg;
}

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
    png_write_info(png, info);
    std::vector<png_bytep> pointers;
    for (int y = 0; y < height; ++y)
        pointers.push_back(const_cast<png_bytep>(rows.data() + y * (rows.size() / height)));
    png_write_image(png, pointers.data());
    png_write_end(png, info);
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

Blob bmp_head(uint32_t width, uint32_t height, uint32_t bits, uint32_t compression, size_t extra) {
    return text("BM") + le32(0) + le32(0) + le32(uint32_t(54 + extra)) + le32(40) + le32(width) + le32(height) +
           le16(1) + le16(bits) + le32(compression) + Blob(20, 0);
}

// ---------------------------------------------------------------------------------------------------------- JPEG

TEST(Jpeg, DecodesAsTheLibraryDoes) {
    const Blob picture = smooth(37, 23, 3);
    for (int flags : {0, TJFLAG_PROGRESSIVE}) {
        const Blob jpeg = make_jpeg(picture, 37, 23, TJPF_RGB, TJSAMP_420, flags);
        tjhandle handle = tjInitDecompress();
        for (auto [flag, format, tj] : {std::tuple{0, 1, TJPF_RGB},
                                        {1, 1, TJPF_RGB},
                                        {2, 0, TJPF_GRAY},
                                        {3, 2, TJPF_BGR},
                                        {3, 3, TJPF_RGBA},
                                        {3, 4, TJPF_BGRA}}) {
            Blob expected(37 * 23 * tavi::kFormats[format].channels);
            ASSERT_EQ(tjDecompress2(handle, jpeg.data(), jpeg.size(), expected.data(), 37, 0, 23, tj, 0), 0);
            expect_read("jpeg", jpeg, flag, format, 37, 23, expected);
        }
        tjDestroy(handle);
    }
    const Result grey = read_bytes(make_jpeg(smooth(9, 9, 1), 9, 9, TJPF_GRAY, TJSAMP_GRAY), 1);
    EXPECT_EQ(grey.img.pixel_format, TAVI_PIXEL_FORMAT_GRAY8);
}

TEST(Jpeg, RefusesCmykAndTakesStrayBytesBeforeTheEnd) {
    CapturedLog log;
    const Result cmyk = read_bytes(make_jpeg(smooth(16, 16, 4), 16, 16, TJPF_CMYK, TJSAMP_444), 0);
    EXPECT_EQ(cmyk.ret, TAVI_RET_UNSUPPORTED);
    ASSERT_EQ(log.lines.size(), 1u);
    EXPECT_NE(log.lines[0].message.find("CMYK"), std::string::npos);
    EXPECT_EQ(log.lines[0].tag, "tavi-cpu");

    const Blob jpeg = make_jpeg(smooth(16, 16, 3), 16, 16, TJPF_RGB, TJSAMP_420);
    Blob stray = jpeg;
    stray.insert(stray.end() - 2, 3, 0);
    EXPECT_EQ(read_bytes(stray, 0).pixels, read_bytes(jpeg, 0).pixels);
}

double limited(double full, bool chroma) { return chroma ? 128 + (full - 128) * 224 / 255 : 16 + full * 219 / 255; }

/// One component of a picture in memory, by the definition of the formats: 0 Y, 1 U, 2 V.
uint8_t component(const tavi_image_t& img, int which, int x, int y) {
    const tavi::Format& f = tavi::kFormats[img.pixel_format];
    const int w = static_cast<int>(img.width), h = static_cast<int>(img.height);
    const int rows = f.family == tavi::Family::yuv420 ? h / 2 : h;
    const int second = f.swapped ? 3 - which : which; // which plane or half of a pair
    if (f.planes == 1) {
        const bool uyvy = img.pixel_format == TAVI_PIXEL_FORMAT_YUV422_UYVY;
        const size_t at = static_cast<size_t>(y) * 2 * w;
        return img.data[at + (which == 0 ? 2 * x + uyvy : 4 * x + 2 * which - 1 - uyvy)];
    }
    if (which == 0)
        return img.data[static_cast<size_t>(y) * w + x];
    const size_t base = static_cast<size_t>(w) * h;
    if (f.planes == 3)
        return img.data[base + static_cast<size_t>(second - 1) * (w / 2) * rows + y * (w / 2) + x];
    return img.data[base + static_cast<size_t>(y) * (w / 2) * 2 + 2 * x + second - 1];
}

// Planes are decoded by the library into memory of their own; each sample of ours must be the exact mean of the
// samples that fall on it, moved to the limited range.
TEST(Jpeg, DecodesStraightIntoPlanesOfTheLimitedRange) {
    for (int subsampling : {TJSAMP_444, TJSAMP_422, TJSAMP_420, TJSAMP_GRAY, TJSAMP_440, TJSAMP_411}) {
        for (auto [w, h] : {std::pair{32, 16}, {17, 15}, {33, 6}, {2, 2}, {5, 3}}) {
            const Blob jpeg = make_jpeg(smooth(w, h, 3), w, h, TJPF_RGB, subsampling);
            const int xf = tjMCUWidth[subsampling] / 8, yf = tjMCUHeight[subsampling] / 8;
            Blob plane[3];
            unsigned char* at[3] = {};
            const int planes = subsampling == TJSAMP_GRAY ? 1 : 3;
            for (int i = 0; i < planes; ++i) {
                plane[i].resize(tjPlaneSizeYUV(i, w, 0, h, subsampling));
                at[i] = plane[i].data();
            }
            tjhandle handle = tjInitDecompress();
            ASSERT_EQ(tjDecompressToYUVPlanes(handle, jpeg.data(), jpeg.size(), at, w, nullptr, h, 0), 0);
            tjDestroy(handle);
            for (int format = 5; format <= 14; ++format) {
                SCOPED_TRACE(testing::Message()
                             << w << "x" << h << " subsampling " << subsampling << " format " << format);
                FenceBuffer memory(describe(format, w, h).size);
                tavi_image_t img = describe(format, w, h, memory.data());
                ASSERT_EQ(read_bytes(jpeg, 3, img).ret, 0);
                ASSERT_TRUE(memory.intact());
                const bool half = tavi::kFormats[format].family == tavi::Family::yuv420;
                for (int c = 0; c < 3; ++c) {
                    for (int y = 0; y < (c && half ? h / 2 : h); ++y) {
                        for (int x = 0; x < (c ? w / 2 : w); ++x) {
                            double sum = 0;
                            const int wide = c ? 2 : 1, high = c && half ? 2 : 1;
                            for (int j = 0; j < high; ++j)
                                for (int i = 0; i < wide; ++i)
                                    sum += c < planes ? plane[c][(y * high + j) / (c ? yf : 1) *
                                                                     tjPlaneWidth(c, w, subsampling) +
                                                                 (x * wide + i) / (c ? xf : 1)]
                                                      : 128;
                            ASSERT_NEAR(component(img, c, x, y), limited(sum / (wide * high), c > 0), 1.0)
                                << "component " << c << " at " << x << "," << y;
                        }
                    }
                }
                if (tavi::kFormats[format].planes == 1 && w % 2 == 1) {
                    EXPECT_EQ(img.data[2 * w - (format == TAVI_PIXEL_FORMAT_YUV422_UYVY ? 2 : 1)], 128);
                }
            }
        }
    }
}

TEST(Jpeg, KeepsYuvPicturesAndTheirRange) {
    const TempFile file(".jpg");
    for (int format = 5; format <= 14; ++format) {
        for (auto [w, h] : {std::pair{48, 32}, {37, 23}}) {
            SCOPED_TRACE(testing::Message() << w << "x" << h << " format " << format);
            const Blob source = make_jpeg(smooth(w, h, 3), w, h, TJPF_RGB, TJSAMP_444);
            FenceBuffer before(describe(format, w, h).size), after(before.size());
            tavi_image_t img = describe(format, w, h, before.data());
            tavi_image_t back = describe(format, w, h, after.data());
            ASSERT_EQ(read_bytes(source, 3, img).ret, 0);
            ASSERT_EQ(tavi_image_write_cpu(file.path(), &img), 0);
            ASSERT_EQ(tavi_image_read_cpu(file.path(), &back, 3), 0);
            for (size_t i = 0; i < before.size(); ++i)
                ASSERT_NEAR(before.data()[i], after.data()[i], 4) << i;
        }
    }
    // White and black of the limited range are white and black in the file.
    for (auto [luma, grey] : {std::pair{235, 255}, {16, 0}}) {
        Blob nv12(16 * 16 * 3 / 2, 128);
        std::fill_n(nv12.begin(), 16 * 16, static_cast<uint8_t>(luma));
        tavi_image_t img = describe(TAVI_PIXEL_FORMAT_YUV420SP_NV12, 16, 16, nv12.data());
        ASSERT_EQ(tavi_image_write_cpu(file.path(), &img), 0);
        EXPECT_EQ(read_file(file.path(), 0).pixels, Blob(16 * 16 * 3, grey));
    }
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
    const Blob deep = {0x12, 0x34, 0xff, 0xff, 0x80, 0x80, 0, 1}; // big endian
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
    expect_read("deep grey", grey, 1, 15, 4, 1, {0x34, 0x12, 0xff, 0xff, 0x80, 0x80, 1, 0});
    expect_read("deep grey, shallow", grey, 2, 0, 4, 1, {0x12, 0xff, 0x80, 0});
    expect_read("grey with alpha", make_png({9, 50, 200, 60}, 2, 1, PNG_COLOR_TYPE_GRAY_ALPHA, 8), 1, 3, 2, 1,
                {9, 9, 9, 50, 200, 200, 200, 60});
    expect_read("deep colour", make_png(deep + Blob{0x40, 0, 0x7f, 0xff}, 2, 1, PNG_COLOR_TYPE_RGB, 16), 1, 1, 2, 1,
                {0x12, 0xff, 0x80, 0, 0x40, 0x7f});
    expect_read("grey as colour", make_png({9, 8}, 2, 1, PNG_COLOR_TYPE_GRAY, 8), 0, 1, 2, 1, {9, 9, 9, 8, 8, 8});
    const Blob rgba = noise(19 * 13 * 4, 1);
    for (int interlace : {PNG_INTERLACE_NONE, PNG_INTERLACE_ADAM7}) {
        const Blob png = make_png(rgba, 19, 13, PNG_COLOR_TYPE_RGBA, 8, interlace);
        EXPECT_EQ(read_bytes(png, 1).pixels, rgba);
        FenceBuffer memory(rgba.size());
        ASSERT_EQ(read_bytes(png, 3, describe(TAVI_PIXEL_FORMAT_BGRA8888, 19, 13, memory.data())).ret, 0);
        EXPECT_EQ(memory.data()[0], rgba[2]);
        EXPECT_EQ(memory.data()[3], rgba[3]);
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
    const Blob two_rows = {3, 2, 1, 0, 6, 5, 4, 0};
    own("BMP, bottom-up", bmp_head(1, 2, 24, 0, 0) + two_rows, 1, 1, 2, {4, 5, 6, 1, 2, 3});
    own("BMP, top-down", bmp_head(1, -2, 24, 0, 0) + two_rows, 1, 1, 2, {1, 2, 3, 4, 5, 6});
    own("BMP, 4 bits of grey", bmp_head(3, 1, 4, 0, 64) + greys + Blob{0x1f, 0x80, 0, 0}, 0, 3, 1, {17, 255, 136});
    own("BMP, 1 bit of colour", bmp_head(9, 1, 1, 0, 8) + Blob{9, 8, 7, 0, 1, 2, 3, 0} + Blob{0xfd, 0x80, 0, 0}, 1, 9,
        1, {3, 2, 1, 3, 2, 1, 3, 2, 1, 3, 2, 1, 3, 2, 1, 3, 2, 1, 7, 8, 9, 3, 2, 1, 3, 2, 1});
    own("BMP, 555", bmp_head(2, 1, 16, 0, 0) + le16(0x7fff) + le16(0x7c00), 1, 2, 1, {255, 255, 255, 255, 0, 0});
    own("BMP, 565", bmp_head(1, 1, 16, 3, 12) + le32(0xf800) + le32(0x7e0) + le32(0x1f) + le32(0x07e0), 1, 1, 1,
        {0, 255, 0});
    own("BMP, 32 bits without alpha", bmp_head(1, 1, 32, 0, 0) + Blob{3, 2, 1, 77}, 1, 1, 1, {1, 2, 3});
    own("BMP, oldest header",
        text("BM") + Blob(8, 0) + le32(26) + le32(12) + le32(0x10001) + le32(0x180001) + Blob{3, 2, 1, 0}, 1, 1, 1,
        {1, 2, 3});
    own("PBM in digits", text("P1\n# a comment\n3 2\n101\n0 1 0"), 0, 3, 2, {0, 255, 0, 255, 0, 255});
    own("PGM in digits, odd maximum", text("P2 3 1 10\n0 5 10\n"), 0, 3, 1, {0, 128, 255});
    own("PPM in digits, deep", text("P3 1 1 65535 65535 257 0 "), 1, 1, 1, {255, 1, 0});
    own("PBM", text("P4 9 1\n") + Blob{0x80, 0x80}, 0, 9, 1, {0, 255, 255, 255, 255, 255, 255, 255, 0});
    own("PGM, deep", text("P5\n2 1\n65535\n") + Blob{1, 2, 0xff, 0xfe}, 15, 2, 1, {2, 1, 0xfe, 0xff});
    own("PPM", text("P6 #x\n 1 1 255\n") + Blob{1, 2, 3}, 1, 1, 1, {1, 2, 3});
    EXPECT_EQ(read_bytes(bmp_head(4, 4, 8, 1, 1024) + Blob(2000, 0), 1).ret, TAVI_RET_UNSUPPORTED); // run lengths
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
                FenceBuffer from(describe(format, w, h).size), to(from.size());
                const Blob pixels = noise(from.size(), 7);
                std::copy(pixels.begin(), pixels.end(), from.data());
                tavi_image_t img = describe(format, w, h, from.data());
                ASSERT_EQ(tavi_image_write_cpu(file.path(), &img), 0);
                EXPECT_TRUE(std::equal(pixels.begin(), pixels.end(), from.data())); // the source is only read
                tavi_image_t back = describe(format, 0, 0, to.data());
                back.size = static_cast<uint32_t>(to.size());
                ASSERT_EQ(tavi_image_read_cpu(file.path(), &back, 3), 0);
                EXPECT_TRUE(std::equal(from.data(), from.data() + from.size(), to.data()));
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
            Result own = read_bytes(jpeg, 3, describe(format, 0, 0));
            ASSERT_EQ(own.ret, 0);
            own.img.data = own.pixels.data();
            const TempFile file(ending);
            ASSERT_EQ(tavi_image_write_cpu(file.path(), &own.img), 0);
            const Result back = read_file(file.path(), 0);
            ASSERT_EQ(back.pixels.size(), rgb.pixels.size());
            const bool grey = tavi::kFormats[format].family == tavi::Family::gray || std::string(ending) == ".pgm";
            for (size_t i = 0; !grey && i < rgb.pixels.size(); ++i)
                ASSERT_NEAR(back.pixels[i], rgb.pixels[i], 14) << i;
        }
    }
    const Result small = read_bytes(jpeg, 3, describe(TAVI_PIXEL_FORMAT_YUV420SP_NV12, 8, 6));
    EXPECT_EQ(small.ret, 0);
    EXPECT_EQ(small.pixels.size(), 72u);
}

// ------------------------------------------------------------------------------------------------- orientation,
// limits

// EXIF says on which side of the upright picture the file's first row and first column lie.
TEST(Orientation, AllEightTurnUprightInJpegAndPng) {
    const int w = 24, h = 16;
    Blob stored(static_cast<size_t>(w) * h);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            stored[static_cast<size_t>(y) * w + x] = static_cast<uint8_t>(x * 8 + y * 3);
    const auto from = [&](int o, int x, int y) { // where pixel (x, y) of the upright picture lies in the file
        const int row = o < 5 ? y : x, column = o < 5 ? x : y;
        const bool up = o == 3 || o == 4 || o == 6 || o == 7, left = o == 2 || o == 3 || o == 7 || o == 8;
        return (up ? h - 1 - row : row) * w + (left ? w - 1 - column : column);
    };
    const Blob jpeg = make_jpeg(stored, w, h, TJPF_GRAY, TJSAMP_GRAY);
    const Blob decoded = read_bytes(jpeg, 1).pixels;
    for (int o = 1; o <= 8; ++o) {
        Blob block = tiff(o, o % 2 == 0);
        const Blob png = make_png(stored, w, h, PNG_COLOR_TYPE_GRAY, 8, 0, [&](png_structp p, png_infop i) {
            png_set_eXIf_1(p, i, static_cast<png_uint_32>(block.size()), block.data());
        });
        for (const auto& [file, pixels] : {std::pair{with_exif(jpeg, block), decoded}, {png, stored}}) {
            SCOPED_TRACE(o);
            const Result r = read_bytes(file, 1);
            ASSERT_EQ(r.ret, 0);
            ASSERT_EQ(r.img.width, unsigned(o < 5 ? w : h));
            for (int y = 0; y < int(r.img.height); ++y)
                for (int x = 0; x < int(r.img.width); ++x)
                    ASSERT_EQ(r.pixels[y * r.img.width + x], pixels[from(o, x, y)]) << x << "," << y;
            EXPECT_EQ(read_bytes(file, 1 + 16).pixels, pixels);
        }
    }
    // What is no orientation turns nothing.
    Blob cut = tiff(6, false);
    cut.resize(30);
    for (const Blob& broken : {tiff(0, false), tiff(9, true), cut, text("II*") + Blob{0, 0xff, 0xff, 0xff, 0xff}})
        EXPECT_EQ(read_bytes(with_exif(jpeg, broken), 1).pixels, decoded);
}

TEST(Limits, AForgedHeaderTakesNoMemory) {
    const auto big = [](uint32_t v) { return Blob{uint8_t(v >> 24), uint8_t(v >> 16), uint8_t(v >> 8), uint8_t(v)}; };
    Blob png = make_png(Blob(3, 0), 1, 1, PNG_COLOR_TYPE_RGB, 8);
    Blob jpeg = make_jpeg(Blob(3, 0), 1, 1, TJPF_RGB, TJSAMP_444);
    const Blob sof = {0xff, 0xc0};
    const auto frame = std::search(jpeg.begin(), jpeg.end(), sof.begin(), sof.end());
    std::fill_n(frame + 5, 4, 0x50); // 20560 x 20560
    const Blob wide = big(16385) + big(1);
    std::copy(wide.begin(), wide.end(), png.begin() + 16);
    tavi_mem_stats_t before = {}, after = {};
    tavi_mem_get_stats(0, &before);
    for (const Blob& file :
         {png, jpeg, bmp_head(16385, 1, 24, 0, 0) + Blob(64, 0), bmp_head(0x80000000, 0x80000000, 24, 0, 0),
          text("P6 16385 16385 255\n"), text("P5 1 16385 255\n")}) {
        CapturedLog log;
        EXPECT_EQ(read_bytes(file, 0).ret, TAVI_RET_UNSUPPORTED);
        ASSERT_EQ(log.lines.size(), 1u);
        EXPECT_NE(log.lines[0].message.find("16384"), std::string::npos) << log.lines[0].message;
    }
    tavi_mem_get_stats(0, &after);
    EXPECT_EQ(before.peak_bytes, after.peak_bytes);
    EXPECT_EQ(read_bytes(text("P6 0 4 255\n"), 0).ret, TAVI_RET_FAIL);
    EXPECT_EQ(read_bytes(text("P5 99999999999999999999 4 255\n"), 0).ret, TAVI_RET_FAIL);
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
            const Result r = read_bytes(flipped, 3 + 16, describe(i % 15, 0, 0));
            if (r.ret != 0)
                check(r, log);
        }
    }
    tavi_mem_get_stats(0, &stats);
    EXPECT_EQ(stats.live_count, 0u);
}

// -------------------------------------------------------------------------------------------------- arguments,
// targets

TEST(Arguments, AreRefusedByName) {
    const TempFile png(".png");
    put(png.path(), make_png(Blob(12, 5), 2, 2, PNG_COLOR_TYPE_RGB, 8));
    uint8_t memory[12];
    std::fill(std::begin(memory), std::end(memory), 99);
    tavi_image_t small = describe(1, 0, 0, memory), loose = describe(1, 0, 0, memory), odd = describe(1, 0, 0);
    small.size = 11;
    loose.is_prealloc_buf = 0;
    odd.pixel_format = static_cast<tavi_pixel_format>(16);
    tavi_image_t promised = describe(1, 0, 0), none = describe(1, 2, 2), empty = describe(1, 0, 2, memory);
    promised.is_prealloc_buf = 1;
    tavi_image_t odd_pixels = odd;
    odd_pixels.data = memory;
    odd_pixels.width = odd_pixels.height = 1;
    const TempFile out(".png");
    const auto refused = [](int expected, const char* names, const std::function<int()>& call) {
        CapturedLog log;
        EXPECT_EQ(call(), expected) << names;
        ASSERT_EQ(log.lines.size(), 1u) << names;
        EXPECT_EQ(log.lines[0].level, TAVI_LOG_ERROR);
        EXPECT_NE(log.lines[0].message.find(names), std::string::npos) << log.lines[0].message;
    };
    const auto read = [&](int expected, const char* names, const char* path, tavi_image_t* img, int flag) {
        refused(expected, names, [=] { return tavi_image_read_cpu(path, img, flag); });
    };
    const auto write = [&](int expected, const char* names, const char* path, tavi_image_t* img) {
        refused(expected, names, [=] { return tavi_image_write_cpu(path, img); });
    };
    read(TAVI_RET_PARAM_ERR, "path", nullptr, &odd, 0);
    read(TAVI_RET_PARAM_ERR, "img", png.path(), nullptr, 0);
    read(TAVI_RET_PARAM_ERR, "read_flag=4", png.path(), &none, 4);
    read(TAVI_RET_PARAM_ERR, "read_flag=-1", png.path(), &none, -1);
    read(TAVI_RET_PARAM_ERR, "pixel_format=16", png.path(), &odd, 3);
    read(TAVI_RET_PARAM_ERR, "size=11", png.path(), &small, 0);
    read(TAVI_RET_PARAM_ERR, "is_prealloc_buf", png.path(), &loose, 0);
    read(TAVI_RET_PARAM_ERR, "is_prealloc_buf", png.path(), &promised, 0);
    read(TAVI_RET_FAIL, "No such file", "/nowhere/x.png", &none, 0);
    read(TAVI_RET_FAIL, "directory", "/", &none, 0);
    write(TAVI_RET_PARAM_ERR, "img", out.path(), nullptr);
    write(TAVI_RET_UNSUPPORTED, ".jpeg", "/tmp/x.tiff", &none);
    write(TAVI_RET_UNSUPPORTED, ".jpeg", "/tmp.png/x", &none);
    write(TAVI_RET_PARAM_ERR, "data", out.path(), &none);
    write(TAVI_RET_UNSUPPORTED, "format 16", out.path(), &odd_pixels);
    write(TAVI_RET_UNSUPPORTED, "0x2", out.path(), &empty);
    EXPECT_EQ(std::count(std::begin(memory), std::end(memory), 99), 12); // nothing was written
    tavi_image_t lent = describe(1, 0, 0, memory);
    lent.size = 12;
    EXPECT_EQ(tavi_image_read_cpu(png.path(), &lent, 0), 0);
    EXPECT_EQ(std::count(std::begin(memory), std::end(memory), 5), 12);
    EXPECT_EQ(std::tie(lent.width, lent.height, lent.size, lent.is_prealloc_buf), std::make_tuple(2u, 2u, 12u, 1));
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

std::string content(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

TEST(Targets, AppearWholeOrNotAtAll) {
    const Folder folder;
    Blob pixels = noise(64 * 64 * 3, 5);
    tavi_image_t img = describe(1, 64, 64, pixels.data());
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
    EXPECT_EQ(content(folder.at("old.png")), "old");

    // A device is written straight, and survives; its full disk is noticed as well.
    std::filesystem::create_symlink("/dev/full", folder.at("full.bmp"));
    EXPECT_EQ(tavi_image_write_cpu(folder.at("full.bmp").c_str(), &img), TAVI_RET_FAIL);
    EXPECT_TRUE(std::filesystem::is_character_file("/dev/full"));

    // A link stays a link, and an old file keeps its permissions.
    chmod(folder.at("old.png").c_str(), 0640);
    std::filesystem::create_symlink("old.png", folder.at("link.png"));
    EXPECT_EQ(tavi_image_write_cpu(folder.at("link.png").c_str(), &img), 0);
    EXPECT_TRUE(std::filesystem::is_symlink(folder.at("link.png")));
    EXPECT_EQ(content(folder.at("old.png")).substr(1, 3), "PNG");
    struct stat status = {};
    stat(folder.at("old.png").c_str(), &status);
    EXPECT_EQ(status.st_mode & 0777, 0640u);

    EXPECT_EQ(tavi_image_write_cpu(folder.at(std::string(251, 'n') + ".png").c_str(), &img), 0);
    EXPECT_EQ(folder.count(), 4u);
}

TEST(Sources, MayBeAPipe) {
    const Blob jpeg = make_jpeg(smooth(200, 100, 3), 200, 100, TJPF_RGB, TJSAMP_444);
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    ASSERT_EQ(write(ends[1], jpeg.data(), jpeg.size()), ssize_t(jpeg.size())); // less than a pipe holds
    close(ends[1]);
    const Result r = read_file(("/proc/self/fd/" + std::to_string(ends[0])).c_str(), 0);
    EXPECT_EQ(r.pixels, read_bytes(jpeg, 0).pixels);
    close(ends[0]);
}

} // namespace
