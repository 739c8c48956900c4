// SPDX-License-Identifier: MIT
#include <cstring>

#include "utils/scene.h"

namespace {

int prealloc(Scene& s) { return tavi_image_roi_with_align_convert_prealloc(&s.src, &s.rect, &s.dst, &s.out, 0); }
int prealloc_kept(Scene& s) { return tavi_image_roi_with_align_convert_prealloc(&s.src, &s.rect, &s.dst, &s.out, 1); }
int prealloc_nulls(Scene&) {
    return tavi_image_roi_with_align_convert_prealloc(nullptr, nullptr, nullptr, nullptr, 0);
}
int roi_null(Scene& s) { return tavi_image_roi(nullptr, &s.rect, &s.dst); }

int cut(Scene& s) {
    const int ret = tavi_image_roi(&s.src, &s.rect, &s.dst);
    if (s.dst.data != s.dst_pixels)
        free(s.dst.data);
    return ret;
}

const std::string kR = "I tavi_image_roi_with_align_cvt: ", kRError = "E tavi_image_roi_with_align_cvt: ";
const std::string kL = "I tavi_image_roi_with_align_convert_prealloc: ";
const std::string kLError = "E tavi_image_roi_with_align_convert_prealloc: ";
const std::string kSetting = "env | I tavi_image_config_use_blit: use_blit=";
const std::string kA = "I tavi_image_rect_align: src roi=";
const std::string kAligned = kA + "(10 20 109 99) size=(100x80) ==> aligned roi=(10 20 109 99) size=(100x80) "
                                  "align_width=4 align_other=2 | ";
const std::string kBlit = "blit_crop src (10 20 109 99) {fmt=1 ", kIntoDst = " size=256 data=dst.data fd=4} ";
// An image and a region that the engine takes.
#define LARGE "src.w=1280 src.h=722 src.fmt=1 "

const Case kRoi[] = {
    {"NullImageIsReportedByTheGeneralForm", TAVI_LOG_ERROR, "", roi_null, -2,
     kRError + "params error (img=null img->data=null img->fd=0 roi=rect roi_img=dst)"},
    {"NegativeFdIsNoMemory", TAVI_LOG_ERROR, "src.data=0 src.fd=-1", cut, -2,
     kRError + "params error (img=src img->data=null img->fd=-1 roi=rect roi_img=dst)"},
    {"OutsideIsAnErrorHere", TAVI_LOG_ERROR, "roi=10,20,640,99", cut, -2,
     kRError + "roi (10 20 640 99) out of image (640x480)"},
    {"CutsOutInMultiplesOfFour", TAVI_LOG_INFO, "src.fmt=1 roi=538,12,635,61", cut, 0,
     kR + "image size=(640 480) fmt=1 roi=(538 12 635 61) | " + kA +
         "(538 12 635 61) size=(98x50) ==> aligned roi=(538 12 637 63) size=(100x52) align_width=4 align_other=2 | " +
         kR + "roi w=100 h=52 channel=3 type_size=1 is_yuv=0 | " + kSetting + "1 | crop src (538 12 635 61) dst"},
    {"CutsYuvInMultiplesOfEightAndReducesFailures", TAVI_LOG_INFO, "roi=10,10,109,59 src.data=0 crop=-4", cut, -1,
     kR + "image size=(640 480) fmt=7 roi=(10 10 109 59) | " + kA +
         "(10 10 109 59) size=(100x50) ==> aligned roi=(8 8 111 63) size=(104x56) align_width=8 align_other=2 | " +
         kR + "roi w=104 h=56 channel=1 type_size=1 is_yuv=1 | " + kSetting +
         "1 | I tavi_image_crop_and_resize_cpu: yuv align pre box=(10 10 109 59) | "
         "I tavi_image_crop_and_resize_cpu: yuv align post box=(10 10 109 59) | crop src (10 10 109 59) dst"},
    {"NothingIsCroppedWithoutMemory", TAVI_LOG_ERROR, "heap=0", cut, -1, ""},

    {"LentNullRecords", TAVI_LOG_ERROR, "", prealloc_nulls, -2,
     kLError + "params error (in_img=null in_img->data=null in_img->fd=0 src_rect=null roi_img=null "
               "roi_img->data=null dst_rect=null)"},
    {"LentWithoutData", TAVI_LOG_ERROR, "dst.data=0", prealloc, -2,
     kLError + "params error (in_img=src in_img->data=src.data in_img->fd=3 src_rect=rect roi_img=dst "
               "roi_img->data=null dst_rect=out)"},
    {"LentScaledToFill", TAVI_LOG_INFO, LARGE "dst.w=64 dst.h=48", prealloc, 0,
     kSetting + "1 | " + kL + "image size=(1280 722) fmt=1 src_rect=(10 20 109 99) dst_rect=(1 2 3 4) | " + kAligned +
         kBlit + "64x48" + kIntoDst + "(0 0 63 47) 0"},
    {"LentFillsAnEqualArea", TAVI_LOG_ERROR, LARGE "dst.w=80 dst.h=100", prealloc, 0,
     "env | " + kBlit + "80x100" + kIntoDst + "(0 0 79 99) 0"},
    {"LentUnscaledIntoTheCorner", TAVI_LOG_ERROR, LARGE "roi=11,21,109,119", prealloc, 0,
     "env | blit_crop src (12 22 111 121) {fmt=1 100x100" + kIntoDst + "(0 0 99 99) 0"},
    {"LentAlignsAtTheRightEdge", TAVI_LOG_ERROR, LARGE "roi=1200,700,1277,719", prealloc_kept, 0,
     "env | blit_crop src (1200 700 1279 719) {fmt=1 320x240" + kIntoDst + "(1 2 3 4) 0"},
    {"LentSettingOff", TAVI_LOG_ERROR, LARGE "setting=0", prealloc, 0, "env | crop src (10 20 109 99) dst"},
    {"LentEngineFailurePassesTheCpuCode", TAVI_LOG_INFO, LARGE "setting=2 blit_crop=-1 crop=-4", prealloc_kept, -4,
     kSetting + "2 | " + kL + "image size=(1280 722) fmt=1 src_rect=(10 20 109 99) dst_rect=(1 2 3 4) | " + kAligned +
         kBlit + "320x240" + kIntoDst + "(1 2 3 4) 0 | " + kL + "process roi with cpu | crop src (10 20 109 99) dst"},
    {"LentConsultsTheSettingAfterTheRatioAndBeforeTheBounds", TAVI_LOG_INFO,
     LARGE "roi=100,0,1699,99 dst.w=100 dst.h=10", prealloc, -2,
     kL + "resize ratio (16.00 10.00) > 16, set use_blit=0 | " + kSetting + "1 | " + kL +
         "image size=(1280 722) fmt=1 src_rect=(100 0 1699 99) dst_rect=(1 2 3 4) | " + kLError +
         "src_rect (100 0 1699 99) out of image (1280x722)"},
};
DISPATCH_CASES(Roi, kRoi);

TEST(RoiPrealloc, SoftwareServesWhatTheEngineIsNotAsked) {
    for (const char* changes :
         {"src.fd=-1", "dst.fd=0", "src.w=1282", "src.h=721", "dst.h=0", "dst.h=5"}) { // 80 / 5 is 16
        Scene s(std::string(LARGE) + changes);
        EXPECT_EQ(prealloc(s), 0);
        EXPECT_EQ(fakes::world().trace.back(), "crop src (10 20 109 99) dst");
        EXPECT_TRUE(s.dst.size == 256 && s.out.right == 3) << changes;
    }
}

TEST(RoiPrealloc, RewritesSidesAndSizeOnlyWhenTheEngineDidIt) {
    Scene s(LARGE "blit_crop=-1");
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
    tavi_image_t made;
    memset(&made, 0xff, sizeof(made));
    ASSERT_EQ(tavi_image_roi_with_align(&s.src, &s.rect, &made, 2), 0);
    EXPECT_EQ(made.pixel_format, TAVI_PIXEL_FORMAT_YUV420SP_NV12);
    EXPECT_EQ(made.size, 8736u);
    EXPECT_TRUE(made.is_prealloc_buf == 0 && made.fd == 0 && !made.data_phy);
    made.data[8735] = 1; // exactly as many bytes as it says
    fakes::world().answers["mem_check"] = -1;
    EXPECT_EQ(tavi_image_release(&made), 0);

    // No format, no memory; and an image whose size wraps to a few bytes gets none either.
    EXPECT_EQ(tavi_image_roi_with_align_cvt(&s.src, &s.rect, &made, 2, 16), TAVI_RET_FAIL);
    EXPECT_EQ(made.size, static_cast<uint32_t>(-2));
    EXPECT_EQ(made.data, nullptr);
    s.src.width = s.src.height = 65536, s.rect = {0, 0, 65535, 65535};
    EXPECT_EQ(tavi_image_roi_with_align_cvt(&s.src, &s.rect, &made, 4, TAVI_PIXEL_FORMAT_RGBA8888), TAVI_RET_FAIL);
    EXPECT_EQ(made.size, 0u);
    EXPECT_EQ(made.data, nullptr);
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
        const char* changes;
        int ret;
        std::string trace;
    } rows[] = {
        {"src.data=0", -2, ""},
        {"roi=10,20,640,99", -2, size + "7 roi=(10 20 640 99) | " + line + "roi (10 20 640 99)"},
        {"", -1, size + "7 roi=(10 20 109 99) | " + line + "roi w=100 h=80 channel=-2 type_size=1"},
        {"roi=4,5,9,4", 0, size + "7 roi=(4 5 9 4) | " + line + "roi w=6 h=0 channel=-2 type_size=1"},
        {"roi=4,5,3,9 src.fmt=15", 0, size + "15 roi=(4 5 3 9) | " + line + "roi w=0 h=5 channel=1 type_size=2"},
        {"heap=0 src.fmt=0", -1, size + "0 roi=(10 20 109 99) | " + line + "roi w=100 h=80 channel=1 type_size=1"},
    };
    for (const auto& row : rows) {
        Scene s(row.changes);
        TaviLogger::GetInstance()->level = TAVI_LOG_INFO;
        tavi_image_t cut_out{};
        EXPECT_EQ(tavi_image_roi_cpu(&s.src, &s.rect, &cut_out), row.ret);
        EXPECT_EQ(fakes::take_trace(), row.trace);
        EXPECT_EQ(cut_out.pixel_format, row.ret == -2 ? TAVI_PIXEL_FORMAT_GRAY8 : s.src.pixel_format);
        free(cut_out.data);
    }
}

} // namespace
