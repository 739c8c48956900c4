// SPDX-License-Identifier: MIT
#include <cstring>

#include "utils/scene.h"

namespace {

using fakes::World;

int prealloc(Scene& s) { return tavi_image_roi_with_align_convert_prealloc(&s.src, &s.rect, &s.dst, &s.out, 0); }
int prealloc_kept(Scene& s) { return tavi_image_roi_with_align_convert_prealloc(&s.src, &s.rect, &s.dst, &s.out, 1); }

int cut_and_free(Scene& s, int align, int format) {
    const int ret = tavi_image_roi_with_align_cvt(&s.src, &s.rect, &s.dst, align, format);
    if (ret != TAVI_RET_PARAM_ERR)
        free(s.dst.data);
    return ret;
}

int roi_rgb(Scene& s) { return cut_and_free(s, 2, TAVI_PIXEL_FORMAT_RGB888); }

void large(Scene& s) { s.src.width = 1280, s.src.height = 722, s.src.pixel_format = TAVI_PIXEL_FORMAT_RGB888; }

const std::string kR = "I tavi_image_roi_with_align_cvt: ", kL = "I tavi_image_roi_with_align_convert_prealloc: ";
const std::string kA = "I tavi_image_rect_align: ", kSetting = "env | I tavi_image_config_use_blit: use_blit=1 | ";
const std::string kRError = "E tavi_image_roi_with_align_cvt: ";
const std::string kLError = "E tavi_image_roi_with_align_convert_prealloc: ";
const std::string kAligned =
    kA +
    "src roi=(10 20 109 99) size=(100x80) ==> aligned roi=(10 20 109 99) size=(100x80) align_width=4 align_other=2";

const Case kRoi[] = {
    Case(
        "NullImageIsReportedByTheGeneralForm", TAVI_LOG_ERROR, nullptr,
        [](Scene& s) { return tavi_image_roi(nullptr, &s.rect, &s.dst); }, -2,
        kRError + "params error (img=null img->data=null img->fd=0 roi=rect roi_img=dst)"),
    Case(
        "NegativeFdIsNoMemory", TAVI_LOG_ERROR, [](Scene& s, World&) { s.src.data = nullptr, s.src.fd = -1; },
        roi_rgb, -2, kRError + "params error (img=src img->data=null img->fd=-1 roi=rect roi_img=dst)"),
    Case(
        "OutsideIsAnErrorHere", TAVI_LOG_ERROR, [](Scene& s, World&) { s.rect.right = 640; }, roi_rgb, -2,
        kRError + "roi (10 20 640 99) out of image (640x480)"),
    Case(
        "CutsOutInMultiplesOfFour", TAVI_LOG_INFO,
        [](Scene& s, World&) {
            s.rect = {538, 12, 635, 61}, s.src.pixel_format = TAVI_PIXEL_FORMAT_RGB888;
        },
        [](Scene& s) {
            const int ret = tavi_image_roi(&s.src, &s.rect, &s.dst);
            free(s.dst.data);
            return ret;
        },
        0,
        kR + "image size=(640 480) fmt=1 roi=(538 12 635 61) | " + kA +
            "src roi=(538 12 635 61) size=(98x50) ==> aligned roi=(538 12 637 63) size=(100x52) align_width=4 "
            "align_other=2 | " +
            kR + "roi w=100 h=52 channel=3 type_size=1 is_yuv=0 | " + kSetting + "crop src (538 12 635 61) dst"),
    Case(
        "CutsYuvInMultiplesOfEightAndReducesFailures", TAVI_LOG_INFO,
        [](Scene& s, World& w) {
            s.rect = {10, 10, 109, 59}, s.src.data = nullptr, w.answers["crop"] = -4;
        },
        roi_rgb, -1,
        kR + "image size=(640 480) fmt=7 roi=(10 10 109 59) | " + kA +
            "src roi=(10 10 109 59) size=(100x50) ==> aligned roi=(8 8 111 63) size=(104x56) align_width=8 "
            "align_other=2 | " +
            kR + "roi w=104 h=56 channel=1 type_size=1 is_yuv=1 | " + kSetting +
            "I tavi_image_crop_and_resize_cpu: yuv align pre box=(10 10 109 59) | "
            "I tavi_image_crop_and_resize_cpu: yuv align post box=(10 10 109 59) | "
            "crop src (10 10 109 59) {fmt=7 104x56 size=0 data=null fd=0}"),
    Case(
        "NothingIsCroppedWithoutMemory", TAVI_LOG_ERROR, [](Scene&, World& w) { w.heap_refuses = true; }, roi_rgb, -1,
        ""),

    Case(
        "LentNullRecords", TAVI_LOG_ERROR, nullptr,
        [](Scene&) { return tavi_image_roi_with_align_convert_prealloc(nullptr, nullptr, nullptr, nullptr, 0); }, -2,
        kLError + "params error (in_img=null in_img->data=null in_img->fd=0 src_rect=null roi_img=null "
                  "roi_img->data=null dst_rect=null)"),
    Case(
        "LentWithoutData", TAVI_LOG_ERROR, [](Scene& s, World&) { s.dst.data = nullptr; }, prealloc, -2,
        kLError + "params error (in_img=src in_img->data=src.data in_img->fd=3 src_rect=rect roi_img=dst "
                  "roi_img->data=null dst_rect=out)"),
    Case(
        "LentScaledToFill", TAVI_LOG_INFO, [](Scene& s, World&) { large(s), s.dst.width = 64, s.dst.height = 48; },
        prealloc, 0,
        kSetting + kL + "image size=(1280 722) fmt=1 src_rect=(10 20 109 99) dst_rect=(1 2 3 4) | " + kAligned +
            " | blit_crop src (10 20 109 99) {fmt=1 64x48 size=256 data=dst.data fd=4} (0 0 63 47) 0"),
    Case(
        "LentFillsAnEqualArea", TAVI_LOG_ERROR,
        [](Scene& s, World&) { large(s), s.dst.width = 80, s.dst.height = 100; }, prealloc, 0,
        "env | blit_crop src (10 20 109 99) {fmt=1 80x100 size=256 data=dst.data fd=4} (0 0 79 99) 0"),
    Case(
        "LentUnscaledIntoTheCorner", TAVI_LOG_ERROR,
        [](Scene& s, World&) {
            large(s), s.rect = {11, 21, 109, 119};
        },
        prealloc, 0, "env | blit_crop src (12 22 111 121) {fmt=1 100x100 size=256 data=dst.data fd=4} (0 0 99 99) 0"),
    Case(
        "LentAlignsAtTheRightEdge", TAVI_LOG_ERROR,
        [](Scene& s, World&) {
            large(s), s.rect = {1200, 700, 1277, 719};
        },
        prealloc_kept, 0,
        "env | blit_crop src (1200 700 1279 719) {fmt=1 320x240 size=256 data=dst.data fd=4} (1 2 3 4) 0"),
    Case(
        "LentSettingOff", TAVI_LOG_ERROR, [](Scene& s, World& w) { large(s), w.setting = {0}; }, prealloc, 0,
        "env | crop src (10 20 109 99) dst"),
    Case(
        "LentEngineFailurePassesTheCpuCode", TAVI_LOG_INFO,
        [](Scene& s, World& w) {
            large(s), s.dst.pixel_format = TAVI_PIXEL_FORMAT_RGB888;
            w.setting = {2}, w.answers = {{"blit_crop", -1}, {"crop", -4}};
        },
        prealloc_kept, -4,
        "env | I tavi_image_config_use_blit: use_blit=2 | " + kL +
            "image size=(1280 722) fmt=1 src_rect=(10 20 109 99) dst_rect=(1 2 3 4) | " + kAligned +
            " | blit_crop src (10 20 109 99) {fmt=1 320x240 size=256 data=dst.data fd=4} (1 2 3 4) 0 | " + kL +
            "process roi with cpu | crop src (10 20 109 99) dst"),
    Case(
        "LentConsultsTheSettingAfterTheRatioAndBeforeTheBounds", TAVI_LOG_INFO,
        [](Scene& s, World&) {
            large(s), s.rect = {100, 0, 1699, 99}, s.dst.width = 100, s.dst.height = 0;
        },
        prealloc, -2,
        kL + "resize ratio (16.00 inf) > 16, set use_blit=0 | " + kSetting + kL +
            "image size=(1280 722) fmt=1 src_rect=(100 0 1699 99) dst_rect=(1 2 3 4) | " + kLError +
            "src_rect (100 0 1699 99) out of image (1280x722)"),
};
DISPATCH_CASES(Roi, kRoi);

TEST(RoiPrealloc, SoftwareServesWhatTheEngineIsNotAsked) {
    const std::function<void(Scene&)> reasons[] = {
        [](Scene& s) { s.src.fd = -1; },      [](Scene& s) { s.dst.fd = 0; },
        [](Scene& s) { s.src.width = 1282; }, [](Scene& s) { s.src.height = 721; },
        [](Scene& s) { s.dst.height = 5; }, // 80 / 5 is 16
    };
    for (const auto& reason : reasons) {
        Scene s;
        large(s);
        reason(s);
        EXPECT_EQ(prealloc(s), 0);
        EXPECT_EQ(fakes::world().trace.back(), "crop src (10 20 109 99) dst");
        EXPECT_EQ(s.dst.size, 256u);
        EXPECT_EQ(s.out.right, 3);
    }
}

TEST(RoiPrealloc, RewritesSidesAndSizeOnlyWhenTheEngineDidIt) {
    Scene s;
    large(s);
    fakes::world().answers["blit_crop"] = -1;
    EXPECT_EQ(prealloc(s), 0);
    EXPECT_EQ(s.out.right, 99); // the region it would have landed in is written all the same
    EXPECT_EQ(s.dst.width, 320u);
    EXPECT_EQ(s.dst.size, 256u);
    fakes::world().answers["blit_crop"] = 0;
    EXPECT_EQ(prealloc(s), 0);
    EXPECT_EQ(s.dst.width, 100u);
    EXPECT_EQ(s.dst.height, 80u);
    EXPECT_EQ(s.dst.size, 24000u);
    EXPECT_EQ(s.dst.fd, 4);
}

TEST(Roi, DescribesTheCutOutImage) {
    Scene s;
    s.rect = {10, 10, 109, 59};
    tavi_image_t cut;
    memset(&cut, 0xff, sizeof(cut));
    ASSERT_EQ(tavi_image_roi_with_align(&s.src, &s.rect, &cut, 2), 0);
    EXPECT_EQ(cut.pixel_format, TAVI_PIXEL_FORMAT_YUV420SP_NV12);
    EXPECT_EQ(cut.size, 8736u);
    EXPECT_TRUE(cut.is_prealloc_buf == 0 && cut.fd == 0 && !cut.data_phy);
    cut.data[8735] = 1; // exactly as many bytes as it says
    fakes::world().answers["mem_check"] = -1;
    EXPECT_EQ(tavi_image_release(&cut), 0);

    // No format, no memory; and an image whose size wraps to a few bytes gets none either.
    EXPECT_EQ(tavi_image_roi_with_align_cvt(&s.src, &s.rect, &cut, 2, 16), TAVI_RET_FAIL);
    EXPECT_EQ(cut.size, static_cast<uint32_t>(-2));
    EXPECT_EQ(cut.data, nullptr);
    s.src.width = s.src.height = 65536, s.rect = {0, 0, 65535, 65535};
    EXPECT_EQ(tavi_image_roi_with_align_cvt(&s.src, &s.rect, &cut, 4, TAVI_PIXEL_FORMAT_RGBA8888), TAVI_RET_FAIL);
    EXPECT_EQ(cut.size, 0u);
    EXPECT_EQ(cut.data, nullptr);
}

TEST(RoiCpu, CopiesRowsOfTheRegion) {
    for (const auto format : {TAVI_PIXEL_FORMAT_GRAY8, TAVI_PIXEL_FORMAT_BGR888, TAVI_PIXEL_FORMAT_GRAY16}) {
        Scene s;
        for (int i = 0; i < 256; ++i)
            s.src_pixels[i] = static_cast<uint8_t>(i);
        s.src.pixel_format = format, s.src.width = 9, s.src.height = 7, s.rect = {2, 3, 8, 6};
        const auto pixel = static_cast<size_t>(tavi_image_get_size(&s.src)) / 63;
        ASSERT_EQ(tavi_image_roi_cpu(&s.src, &s.rect, &s.dst), 0);
        EXPECT_EQ(s.dst.size, 0u);
        for (size_t y = 0; y < 4; ++y)
            EXPECT_EQ(memcmp(s.dst.data + y * 7 * pixel, s.src_pixels + ((3 + y) * 9 + 2) * pixel, 7 * pixel), 0);
        free(s.dst.data);
    }
}

TEST(RoiCpu, RefusesQuietlyAndTakesEmptyRegions) {
    const std::string line = "I tavi_image_roi_cpu: ", size = line + "image size=(640 480) fmt=";
    const struct {
        std::function<void(Scene&)> arrange;
        int ret;
        std::string trace;
    } rows[] = {
        {[](Scene& s) { s.src.data = nullptr; }, -2, ""},
        {[](Scene& s) { s.rect.right = 640; }, -2, size + "7 roi=(10 20 640 99) | " + line + "roi (10 20 640 99)"},
        {[](Scene&) {}, -1, size + "7 roi=(10 20 109 99) | " + line + "roi w=100 h=80 channel=-2 type_size=1"},
        {[](Scene& s) {
             s.rect = {4, 5, 9, 4};
         },
         0, size + "7 roi=(4 5 9 4) | " + line + "roi w=6 h=0 channel=-2 type_size=1"},
        {[](Scene& s) {
             s.rect = {4, 5, 3, 9}, s.src.pixel_format = TAVI_PIXEL_FORMAT_GRAY16;
         },
         0, size + "15 roi=(4 5 3 9) | " + line + "roi w=0 h=5 channel=1 type_size=2"},
    };
    TaviLogger::GetInstance()->level = TAVI_LOG_INFO;
    for (const auto& row : rows) {
        Scene s;
        tavi_image_t cut{};
        row.arrange(s);
        EXPECT_EQ(tavi_image_roi_cpu(&s.src, &s.rect, &cut), row.ret);
        EXPECT_EQ(fakes::take_trace(), row.trace);
        EXPECT_EQ(cut.pixel_format, row.ret == -2 ? TAVI_PIXEL_FORMAT_GRAY8 : s.src.pixel_format);
        free(cut.data);
    }
    Scene s;
    s.src.pixel_format = TAVI_PIXEL_FORMAT_GRAY8;
    fakes::world().heap_refuses = true;
    EXPECT_EQ(tavi_image_roi_cpu(&s.src, &s.rect, &s.dst), TAVI_RET_FAIL);
}

} // namespace
