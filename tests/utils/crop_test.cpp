// SPDX-License-Identifier: MIT
#include "utils/scene.h"

namespace {

int crop(Scene& s) { return tavi_image_crop_and_resize_cpu(&s.src, &s.rect, &s.dst, 0); }
int turn(Scene& s) { return tavi_image_crop_and_resize_cpu(&s.src, &s.rect, &s.dst, 7); }
int with_crop(Scene& s) { return tavi_image_convert_with_crop(&s.src, &s.rect, &s.dst, &s.out, 0); }
int with_crop_whole(Scene& s) { return tavi_image_convert_with_crop(&s.src, &s.rect, &s.dst, nullptr, 0); }

int refused(Scene& s) { // with the descriptor of the source alone, and for nulls
    return with_crop(s) + tavi_image_convert_with_crop(nullptr, &s.rect, &s.dst, nullptr, 0) * 10 +
           tavi_image_convert_with_crop(&s.dst, nullptr, &s.dst, &s.rect, 0) * 100 +
           tavi_image_convert_with_crop(&s.dst, &s.rect, nullptr, &s.rect, 0) * 1000;
}

const std::string kCropped = "crop src (10 20 109 99) dst", kAsked = "probe | env | " + kCropped,
                  kReleased = " | mem_check temp 0 | mem_free temp";
const std::string kCr = "I tavi_image_crop_and_resize_cpu: ", kCo = "I tavi_image_convert: ";
const std::string kW = "I tavi_image_convert_with_crop: ";

const Case kCrop[] = {
    {"SameFormatGoesStraight", TAVI_LOG_DEBUG, "src.fmt=1 roi=3,5,100,51 crop=-9", crop, -9,
     "crop src (3 5 100 51) dst"},
    {"ConvertsByWayOfATemporary", TAVI_LOG_INFO, "roi=3,5,100,51 libyuv=-5", crop, -5,
     kCr + "yuv align pre box=(3 5 100 51) | " + kCr +
         "yuv align post box=(4 6 101 51) | crop src (4 6 101 51) {fmt=7 320x240 size=0 data=null fd=0} | " + kCo +
         "src image width=320 height=240 fmt=7 fd=0 data=temp data_phy=null size=0 | " + kCo +
         "dst image width=320 height=240 fmt=1 fd=4 data=dst.data data_phy=null size=256 | " + kCo +
         "transform mode=0 | probe | libyuv {fmt=7 320x240 size=0 data=temp fd=0} dst 0 | " + kCo +
         "tavi_image_convert finish ret=-5" + kReleased},
    {"ExchangesSidesForAQuarterTurn", TAVI_LOG_ERROR, "src.fmt=1", turn, 0,
     "crop src (10 20 109 99) {fmt=1 240x320 size=0 data=null fd=0} | probe | "
     "libyuv {fmt=1 240x320 size=0 data=temp fd=0} dst 7" +
         kReleased},
    {"FailedCropIsNotReleased", TAVI_LOG_ERROR, "src.fmt=1 crop=-6", turn, -6,
     "crop src (10 20 109 99) {fmt=1 240x320 size=0 data=null fd=0}"},
    {"RefusesSilently", TAVI_LOG_DEBUG, "src.data=0", refused, -2222, ""},
    {"EngineGetsTheGivenDestination", TAVI_LOG_INFO, "probe=5 setting=2", with_crop, 0,
     kW + "src_img size=(640 480) fmt=7 src_roi=(10 20 109 99) dst_img size=(320 240) | probe | env | "
          "I tavi_image_config_use_blit: use_blit=2 | blit_crop src (10 20 109 99) dst (1 2 3 4) 0"},
    {"EngineFailureIsQuiet", TAVI_LOG_WARN, "src.fmt=1 probe=1 blit_crop=-1 crop=-3", with_crop_whole, -3,
     "probe | env | blit_crop src (10 20 109 99) dst (0 0 319 239) 0 | " + kCropped},
    {"SettingOffMeansSoftware", TAVI_LOG_ERROR, "src.fmt=1 probe=1 setting=0", with_crop, 0, kAsked},
    {"PhysicalSourceIsSoftwares", TAVI_LOG_ERROR, "src.fmt=1 probe=1 src.fd=0 src.phy=1", with_crop, 0, kAsked},
    {"SourceFdOfMinusOneIsSoftwares", TAVI_LOG_ERROR, "src.fmt=1 probe=1 src.fd=-1", with_crop, 0, kAsked},
    {"DestinationFdOfMinusOneIsSoftwares", TAVI_LOG_ERROR, "src.fmt=1 probe=1 dst.fd=-1", with_crop, 0, kAsked},
    {"OddDestinationWidthBeforeTheSetting", TAVI_LOG_ERROR, "src.fmt=1 probe=1 dst.w=322", with_crop, 0,
     "probe | " + kCropped},
    {"RatioOfSixteenIsRefusedWithoutAnEngineToo", TAVI_LOG_INFO, "src.fmt=1 src.w=1920 roi=100,0,1699,99 dst.w=100",
     with_crop, 0,
     kW + "src_img size=(1920 480) fmt=1 src_roi=(100 0 1699 99) dst_img size=(100 240) | probe | " + kW +
         "resize ratio (16.00 0.42) > 16, set use_blit=0 | " + kW +
         "process roi with cpu | crop src (100 0 1699 99) dst"},
    {"RatioOfSixteenDownwards", TAVI_LOG_ERROR, "src.fmt=1 src.h=1700 probe=1 roi=0,0,99,1599 dst.h=100", with_crop,
     0, "probe | env | crop src (0 0 99 1599) dst"},
    {"RatioJustBelowSixteenIsTaken", TAVI_LOG_ERROR, "probe=1 src.w=1920 roi=0,0,1598,99 dst.w=100", with_crop, 0,
     "probe | env | blit_crop src (0 0 1598 99) dst (1 2 3 4) 0"},
};
DISPATCH_CASES(Crop, kCrop);

TEST(Crop, AlignsYuvBoxesToEvenPixels) {
    const std::pair<const char*, const char*> rows[] = {
        {"roi=3,5,100,51", "(4 6 101 51)"},
        {"roi=0,0,638,478", "(0 0 639 479)"},
        {"roi=0,0,638,478 src.w=639 src.h=479", "(0 0 637 477)"},
        {"roi=639,479,639,479", "(640 480 639 479)"}, // nothing limits what moves inward
        {"roi=-3,-4,-6,-5", "(-2 -4 -7 -5)"},         // odd and even are bit tests
    };
    for (const auto& [changes, aligned] : rows) {
        Scene s(std::string("src.fmt=14 dst.fmt=14 ") + changes);
        const tavi_rect_t before = s.rect;
        crop(s);
        EXPECT_EQ(fakes::take_trace(), std::string("crop src ") + aligned + " dst");
        EXPECT_TRUE(before.left == s.rect.left && before.right == s.rect.right); // a private copy was aligned
    }
}

TEST(Crop, TestsRegionAndSizeBeforeAskingTheEngine) {
    const std::string sides = "E tavi_image_convert_with_crop: dst_img width height must be correct set";
    const std::string image = ") out of image (0 0 640 480)";
    const std::pair<const char*, std::string> rows[] = {
        {"roi=-1,0,9,9", kW + "src_roi (-1 0 9 9" + image},
        {"roi=0,-1,9,9", kW + "src_roi (0 -1 9 9" + image},
        {"roi=0,0,640,9", kW + "src_roi (0 0 640 9" + image},
        {"roi=0,0,9,-1", kW + "src_roi (0 0 9 -1" + image},
        {"roi=0,0,9,480", kW + "src_roi (0 0 9 480" + image},
        {"dst.w=4097", sides},
        {"dst.w=0", sides},
        {"dst.h=4097", sides},
        {"dst.h=0", sides},
        {"dst.w=4096 dst.h=4096", ""},
        {"roi=0,0,9,9 dst.w=1 dst.h=1", ""},
        {"roi=9,9,0,0", ""}, // empty: the backends' business
    };
    for (const auto& [changes, refusal] : rows) {
        Scene s(changes);
        TaviLogger::GetInstance()->level = TAVI_LOG_INFO;
        EXPECT_EQ(with_crop(s), refusal.empty() ? TAVI_RET_SUCCESS : TAVI_RET_PARAM_ERR);
        const std::string trace = fakes::take_trace(), rest = trace.substr(trace.find(" | ") + 3);
        EXPECT_EQ(refusal.empty() ? rest.substr(0, 5) : rest, refusal.empty() ? "probe" : refusal) << changes;
    }
}

} // namespace
