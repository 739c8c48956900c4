// SPDX-License-Identifier: MIT
// JPEG against the codec's library itself: pixels, planes, ranges and matrices.
#include <cmath>
#include <cstdlib>
#include <utility>

#include <gtest/gtest.h>
#include <turbojpeg.h>

#include "backends/file_bytes.h"
#include "support/captured_log.h"
#include "support/pixels.h"

namespace {

using namespace tavi::test;

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
            Blob expected(37 * 23 * tavi::kFormats[format].parts);
            ASSERT_EQ(tjDecompress2(handle, jpeg.data(), jpeg.size(), expected.data(), 37, 0, 23, tj, 0), 0);
            expect_read("jpeg", jpeg, flag, format, 37, 23, expected);
        }
        tjDestroy(handle);
    }
    const Result grey = read_bytes(make_jpeg(smooth(9, 9, 1), 9, 9, TJPF_GRAY, TJSAMP_GRAY), 1);
    EXPECT_EQ(grey.img.pixel_format, TAVI_PIXEL_FORMAT_GRAY8);
}

TEST(Jpeg, RefusesCmykAndTakesStrayBytesBeforeTheEnd) {
    const Blob cmyk = make_jpeg(smooth(16, 16, 4), 16, 16, TJPF_CMYK, TJSAMP_444);
    expect_refused(TAVI_RET_UNSUPPORTED, "CMYK", [&] { return read_bytes(cmyk, 0).ret; });
    const Blob jpeg = make_jpeg(smooth(16, 16, 3), 16, 16, TJPF_RGB, TJSAMP_420);
    Blob stray = jpeg;
    stray.insert(stray.end() - 2, 3, 0);
    EXPECT_EQ(read_bytes(stray, 0).pixels, read_bytes(jpeg, 0).pixels);
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
            RefImage exact(Model::yuv, w, h, {0, 128, 128});
            for (int y = 0; y < h; ++y)
                for (int x = 0; x < w; ++x)
                    for (int i = 0; i < planes; ++i) {
                        const int pitch = tjPlaneWidth(i, w, subsampling);
                        const double full = plane[i][(i ? y / yf : y) * pitch + (i ? x / xf : x)];
                        exact.at(x, y)[i] = i ? 128 + (full - 128) * 224 / 255 : 16 + full * 219 / 255;
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
}

TEST(Jpeg, KeepsYuvPicturesAndTheirRange) {
    const TempFile file(".jpg");
    for (int format = 5; format <= 14; ++format) {
        for (auto [w, h] : {std::pair{48, 32}, {37, 23}}) {
            SCOPED_TRACE(testing::Message() << w << "x" << h << " format " << format);
            const Blob source = make_jpeg(smooth(w, h, 3), w, h, TJPF_RGB, TJSAMP_444);
            Pixels before(format, w, h), after(format, w, h);
            ASSERT_EQ(read_bytes(source, 3, before.img).ret, 0);
            ASSERT_EQ(tavi_image_write_cpu(file.path(), &before.img), 0);
            ASSERT_EQ(tavi_image_read_cpu(file.path(), &after.img, 3), 0);
            ASSERT_LE(after.error(before.colors()), 4);
        }
    }
    // White and black of the limited range are white and black in the file.
    for (auto [luma, grey] : {std::pair{235, 255}, {16, 0}}) {
        Pixels flat(TAVI_PIXEL_FORMAT_YUV420SP_NV12, 16, 16);
        flat.set(RefImage(Model::yuv, 16, 16, {double(luma), 128, 128}));
        ASSERT_EQ(tavi_image_write_cpu(file.path(), &flat.img), 0);
        EXPECT_EQ(read_file(file.path(), 0).pixels, Blob(16 * 16 * 3, grey));
    }
}

// Patches of flat colours, as NV12 of BT.709: the file holds them in its own matrix, and they come back.
TEST(Jpeg, ConvertsWhatTheSettingCallsAnotherMatrix) {
    ::setenv("TAVI_YUV", "bt709", 1);
    constexpr int kPatch = 32;
    const Color patches[] = {{255, 0, 0}, {0, 200, 0}, {20, 30, 220}, {240, 230, 40}, {90, 90, 90}};
    const int width = kPatch * int(std::size(patches));
    Pixels nv12(TAVI_PIXEL_FORMAT_YUV420SP_NV12, width, kPatch), back(TAVI_PIXEL_FORMAT_YUV420SP_NV12, width, kPatch);
    for (int y = 0; y < kPatch; ++y)
        for (int x = 0; x < width; ++x) {
            const Color& c = patches[x / kPatch];
            const double luma = 0.2126 * c[0] + 0.7152 * c[1] + 0.0722 * c[2];
            *nv12.view().plane[0].at(x, y) = uint8_t(std::lround(16 + luma * 219 / 255));
            uint8_t* const uv = nv12.view().plane[1].at(x / 2, y / 2);
            uv[0] = uint8_t(std::lround(128 + (c[2] - luma) / (2 * (1 - 0.0722)) * 224 / 255));
            uv[1] = uint8_t(std::lround(128 + (c[0] - luma) / (2 * (1 - 0.2126)) * 224 / 255));
        }
    const TempFile file(".jpg");
    ASSERT_EQ(tavi_image_write_cpu(file.path(), &nv12.img), 0);
    const std::string jpeg = read_whole(file.path());
    Blob rgb(size_t(width) * kPatch * 3);
    tjhandle handle = tjInitDecompress();
    ASSERT_EQ(tjDecompress2(handle, reinterpret_cast<const uint8_t*>(jpeg.data()), jpeg.size(), rgb.data(), width, 0,
                            kPatch, TJPF_RGB, 0),
              0);
    tjDestroy(handle);
    ASSERT_EQ(tavi_image_read_cpu(file.path(), &back.img, 3), 0);
    for (size_t i = 0; i < std::size(patches); ++i) {
        const int x = int(i) * kPatch + kPatch / 2, y = kPatch / 2;
        for (int c = 0; c < 3; ++c)
            EXPECT_NEAR(rgb[(size_t(y) * width + x) * 3 + c], patches[i][c], 4) << "patch " << i;
        for (int plane = 0; plane < 2; ++plane)
            for (int byte = 0; byte <= plane; ++byte)
                EXPECT_NEAR(back.view().plane[plane].at(x >> plane, y >> plane)[byte],
                            nv12.view().plane[plane].at(x >> plane, y >> plane)[byte], 3)
                    << "patch " << i;
    }
}

TEST(Jpeg, KeepsTheSamplesOfTheFullRange) {
    ::setenv("TAVI_YUV", "bt601-full", 1);
    const Blob jpeg = make_jpeg(smooth(32, 16, 3), 32, 16, TJPF_RGB, TJSAMP_420);
    Blob planes(32 * 16 * 3 / 2);
    unsigned char* at[3] = {planes.data(), planes.data() + 512, planes.data() + 640};
    tjhandle handle = tjInitDecompress();
    ASSERT_EQ(tjDecompressToYUVPlanes(handle, jpeg.data(), jpeg.size(), at, 32, nullptr, 16, 0), 0);
    tjDestroy(handle);
    EXPECT_EQ(read_bytes(jpeg, 3, wanted(TAVI_PIXEL_FORMAT_YUV420P_YU12)).pixels, planes);
    const Blob white = make_jpeg(Blob(16 * 16 * 3, 255), 16, 16, TJPF_RGB, TJSAMP_420);
    EXPECT_EQ(read_bytes(white, 3, wanted(TAVI_PIXEL_FORMAT_YUV420P_YU12, 32, 32)).pixels[0], 255) << "scaled";
    const TempFile file(".jpg");
    for (const int luma : {0, 16, 235, 255}) {
        Pixels flat(TAVI_PIXEL_FORMAT_YUV422_UYVY, 16, 16);
        flat.set(RefImage(Model::yuv, 16, 16, {double(luma), 128, 128}));
        ASSERT_EQ(tavi_image_write_cpu(file.path(), &flat.img), 0);
        EXPECT_EQ(read_file(file.path(), 0).pixels, Blob(16 * 16 * 3, uint8_t(luma)));
    }
}

} // namespace
