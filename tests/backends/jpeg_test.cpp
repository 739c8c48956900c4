// SPDX-License-Identifier: MIT
// JPEG against the codec's library itself: pixels, planes, ranges and matrices.
#include <cstdlib>
#include <utility>

#include <gtest/gtest.h>
#include <turbojpeg.h>

#include "backends/file_bytes.h"
#include "backends/software/tavi_image_libyuv.h"
#include "support/captured_log.h"
#include "support/pixels.h"

namespace {

using namespace tavi::test;

/// What the library itself makes of a file.
Blob decoded(const Blob& jpeg, int width, int height, int format) {
    Blob out(size_t(width) * height * tjPixelSize[format]);
    tjhandle handle = tjInitDecompress();
    EXPECT_EQ(tjDecompress2(handle, jpeg.data(), jpeg.size(), out.data(), width, 0, height, format, 0), 0);
    tjDestroy(handle);
    return out;
}

/// The same as planes, one behind the other; grey has one.
Blob decoded_planes(const Blob& jpeg, int width, int height, int subsampling) {
    Blob out(tjBufSizeYUV2(width, 1, height, subsampling));
    tjhandle handle = tjInitDecompress();
    EXPECT_EQ(tjDecompressToYUV2(handle, jpeg.data(), jpeg.size(), out.data(), width, 1, height, 0), 0);
    tjDestroy(handle);
    return out;
}

/// Flat YUV written to a file and read as RGB.
Blob through_file(int format, const Color& yuv) {
    const TempFile file(".jpg");
    Pixels flat(format, 16, 16);
    EXPECT_EQ(tavi_image_write_cpu(file.path(), &flat.set(RefImage(Model::yuv, 16, 16, yuv)).img), 0);
    return read_file(file.path(), 0).pixels;
}

TEST(Jpeg, DecodesAsTheLibraryDoes) {
    constexpr struct {
        int flag, format, tj;
    } rows[] = {{0, 1, TJPF_RGB}, {1, 1, TJPF_RGB},  {2, 0, TJPF_GRAY},
                {3, 2, TJPF_BGR}, {3, 3, TJPF_RGBA}, {3, 4, TJPF_BGRA}};
    for (int flags : {0, TJFLAG_PROGRESSIVE}) {
        const Blob jpeg = make_jpeg(smooth(37, 23, 3), 37, 23, TJPF_RGB, TJSAMP_420, flags);
        for (const auto& row : rows)
            expect_read("jpeg", jpeg, row.flag, row.format, 37, 23, decoded(jpeg, 37, 23, row.tj));
    }
    const Blob grey = make_jpeg(smooth(9, 9, 1), 9, 9, TJPF_GRAY, TJSAMP_GRAY);
    expect_read("grey", grey, 1, 0, 9, 9, decoded(grey, 9, 9, TJPF_GRAY));
}

TEST(Jpeg, RefusesCmykAndTakesStrayBytesBeforeTheEnd) {
    const Blob cmyk = make_jpeg(smooth(16, 16, 4), 16, 16, TJPF_CMYK, TJSAMP_444);
    expect_refused(TAVI_RET_UNSUPPORTED, "CMYK", [&] { return read_bytes(cmyk, 0).ret; });
    const Blob jpeg = make_jpeg(smooth(16, 16, 3), 16, 16, TJPF_RGB, TJSAMP_420);
    Blob stray = jpeg;
    stray.insert(stray.end() - 2, 3, 0);
    EXPECT_EQ(read_bytes(stray, 0).pixels, read_bytes(jpeg, 0).pixels);
}

// What shrinks to a quarter or less is decoded smaller: as good as all of it scaled, without its memory.
TEST(Jpeg, ShrinksWhileItDecodes) {
    for (int subsampling : {TJSAMP_444, TJSAMP_422, TJSAMP_420, TJSAMP_GRAY, TJSAMP_440, TJSAMP_411}) {
        const Blob jpeg = make_jpeg(smooth(164, 123, 3), 164, 123, TJPF_RGB, subsampling);
        for (int format = 0; format <= 14; ++format) {
            SCOPED_TRACE(testing::Message() << "subsampling " << subsampling << " format " << format);
            Pixels whole(format, 164, 123), scaled(format, 19, 14), read(format, 19, 14);
            ASSERT_EQ(read_bytes(jpeg, 3, whole.img).ret, 0);
            ASSERT_EQ(tavi_image_convert_libyuv(&whole.img, &scaled.img, TAVI_IMAGE_TRANSFORM_NONE), 0);
            ASSERT_EQ(read_bytes(jpeg, 3, read.img).ret, 0);
            ASSERT_TRUE(read.intact());
            ASSERT_LE(read.error(scaled.colors()), subsampling == TJSAMP_411 ? 7 : 3); // which it smoothes more
        }
    }
    const Blob large = make_jpeg(Blob(4000 * 3000 * 3, 90), 4000, 3000, TJPF_RGB, TJSAMP_420); // 34 MiB of pixels
    EXPECT_LT(peak_kib([&] { EXPECT_EQ(read_bytes(large, 3, wanted(1, 400, 300)).ret, 0); }), 12 << 10);
}

// Planes are decoded by the library into memory of their own; each sample of ours must be the exact mean of the
// samples that fall on it, moved to the limited range.
TEST(Jpeg, DecodesStraightIntoPlanesOfTheLimitedRange) {
    for (int subsampling : {TJSAMP_444, TJSAMP_422, TJSAMP_420, TJSAMP_GRAY, TJSAMP_440, TJSAMP_411})
        for (auto [w, h] : {std::pair{32, 16}, {17, 15}, {33, 6}, {2, 2}, {5, 3}}) {
            const Blob jpeg = make_jpeg(smooth(w, h, 3), w, h, TJPF_RGB, subsampling);
            const Blob planes = decoded_planes(jpeg, w, h, subsampling);
            RefImage exact(Model::yuv, w, h, {0, 128, 128});
            const uint8_t* plane = planes.data();
            for (int i = 0; i < (subsampling == TJSAMP_GRAY ? 1 : 3); ++i) {
                const int pitch = tjPlaneWidth(i, w, subsampling), xf = i ? tjMCUWidth[subsampling] / 8 : 1,
                          yf = i ? tjMCUHeight[subsampling] / 8 : 1;
                for (int y = 0; y < h; ++y)
                    for (int x = 0; x < w; ++x)
                        exact.at(x, y)[i] = i ? 128 + (plane[y / yf * pitch + x / xf] - 128) * 224. / 255
                                              : 16 + plane[y * pitch + x] * 219. / 255;
                plane += pitch * tjPlaneHeight(i, h, subsampling);
            }
            for (int format = 5; format <= 14; ++format) {
                SCOPED_TRACE(testing::Message()
                             << w << "x" << h << " subsampling " << subsampling << " format " << format);
                Pixels picture(format, w, h);
                ASSERT_EQ(read_bytes(jpeg, 3, picture.img).ret, 0);
                ASSERT_TRUE(picture.intact());
                ASSERT_LE(picture.error(exact), 1.0);
            }
        }
}

TEST(Jpeg, KeepsYuvPicturesAndTheirRange) {
    const TempFile file(".jpg");
    for (int format = 5; format <= 14; ++format)
        for (auto [w, h] : {std::pair{48, 32}, {37, 23}}) {
            SCOPED_TRACE(testing::Message() << w << "x" << h << " format " << format);
            Pixels before(format, w, h), after(format, w, h);
            ASSERT_EQ(read_bytes(make_jpeg(smooth(w, h, 3), w, h, TJPF_RGB, TJSAMP_444), 3, before.img).ret, 0);
            ASSERT_EQ(tavi_image_write_cpu(file.path(), &before.img), 0);
            ASSERT_EQ(tavi_image_read_cpu(file.path(), &after.img, 3), 0);
            ASSERT_LE(after.error(before.colors()), 4);
        }
    // White and black of the limited range are white and black in the file.
    for (auto [luma, grey] : {std::pair{235.0, 255}, {16.0, 0}})
        EXPECT_EQ(through_file(TAVI_PIXEL_FORMAT_YUV420SP_NV12, {luma, 128, 128}), Blob(16 * 16 * 3, grey));
}

// Flat colours as NV12 of BT.709: the file holds them in its own matrix, and they come back.
TEST(Jpeg, ConvertsWhatTheSettingCallsAnotherMatrix) {
    ::setenv("TAVI_YUV", "bt709", 1);
    for (const Color& c : {Color{255, 0, 0}, {0, 200, 0}, {20, 30, 220}, {240, 230, 40}, {90, 90, 90}}) {
        const double luma = 0.2126 * c[0] + 0.7152 * c[1] + 0.0722 * c[2];
        const Color yuv = {16 + luma * 219 / 255, 128 + (c[2] - luma) / (2 * (1 - 0.0722)) * 224 / 255,
                           128 + (c[0] - luma) / (2 * (1 - 0.2126)) * 224 / 255};
        Pixels nv12(TAVI_PIXEL_FORMAT_YUV420SP_NV12, 16, 16), back(TAVI_PIXEL_FORMAT_YUV420SP_NV12, 16, 16);
        const TempFile file(".jpg");
        ASSERT_EQ(tavi_image_write_cpu(file.path(), &nv12.set(RefImage(Model::yuv, 16, 16, yuv)).img), 0);
        const Blob rgb = decoded(text(file.read()), 16, 16, TJPF_RGB);
        for (size_t i = 0; i < rgb.size(); ++i)
            ASSERT_NEAR(rgb[i], c[i % 3], 4) << c[0] << " byte " << i;
        ASSERT_EQ(tavi_image_read_cpu(file.path(), &back.img, 3), 0);
        EXPECT_LE(back.error(nv12.colors()), 3) << c[0];
    }
}

TEST(Jpeg, KeepsTheSamplesOfTheFullRange) {
    ::setenv("TAVI_YUV", "bt601-full", 1);
    const Blob jpeg = make_jpeg(smooth(32, 16, 3), 32, 16, TJPF_RGB, TJSAMP_420);
    EXPECT_EQ(read_bytes(jpeg, 3, wanted(TAVI_PIXEL_FORMAT_YUV420P_YU12)).pixels,
              decoded_planes(jpeg, 32, 16, TJSAMP_420));
    const Blob white = make_jpeg(Blob(16 * 16 * 3, 255), 16, 16, TJPF_RGB, TJSAMP_420);
    EXPECT_EQ(read_bytes(white, 3, wanted(TAVI_PIXEL_FORMAT_YUV420P_YU12, 32, 32)).pixels[0], 255) << "scaled";
    for (const int grey : {0, 16, 235, 255})
        EXPECT_EQ(through_file(TAVI_PIXEL_FORMAT_YUV422_UYVY, {double(grey), 128, 128}),
                  Blob(16 * 16 * 3, uint8_t(grey)));
}

} // namespace
