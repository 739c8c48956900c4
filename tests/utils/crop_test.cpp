// SPDX-License-Identifier: MIT
#include "utils/scene.h"

namespace {

using fakes::World;

int crop(Scene& s) { return tavi_image_crop_and_resize_cpu(&s.src, &s.rect, &s.dst, 0); }
int turn(Scene& s) { return tavi_image_crop_and_resize_cpu(&s.src, &s.rect, &s.dst, 7); }
int with_crop(Scene& s) { return tavi_image_convert_with_crop(&s.src, &s.rect, &s.dst, &s.out, 0); }
int with_crop_whole(Scene& s) { return tavi_image_convert_with_crop(&s.src, &s.rect, &s.dst, nullptr, 0); }

void all_rgb(Scene& s) { s.src.pixel_format = s.dst.pixel_format = TAVI_PIXEL_FORMAT_RGB888; }

const std::string kCropped = "crop src (10 20 109 99) dst", kReleased = " | mem_check temp 0 | mem_free temp";
const std::string kCr = "I tavi_image_crop_and_resize_cpu: ", kCo = "I tavi_image_convert: ";
const std::string kW = "I tavi_image_convert_with_crop: ";

const Case kCrop[] = {
    Case(
        "SameFormatGoesStraight", TAVI_LOG_DEBUG,
        [](Scene& s, World& w) {
            all_rgb(s), s.rect = {3, 5, 100, 51}, w.answers["crop"] = -9;
        },
        crop, -9, "crop src (3 5 100 51) dst"),
    Case(
        "ConvertsByWayOfATemporary", TAVI_LOG_INFO,
        [](Scene& s, World& w) {
            s.rect = {3, 5, 100, 51}, w.answers["libyuv"] = -5;
        },
        crop, -5,
        kCr + "yuv align pre box=(3 5 100 51) | " + kCr +
            "yuv align post box=(4 6 101 51) | crop src (4 6 101 51) {fmt=7 320x240 size=0 data=null fd=0} | " + kCo +
            "src image width=320 height=240 fmt=7 fd=0 data=temp data_phy=null size=0 | " + kCo +
            "dst image width=320 height=240 fmt=1 fd=4 data=dst.data data_phy=null size=256 | " + kCo +
            "transform mode=0 | probe | libyuv {fmt=7 320x240 size=0 data=temp fd=0} dst 0 | " + kCo +
            "tavi_image_convert finish ret=-5" + kReleased),
    Case(
        "ExchangesSidesForAQuarterTurn", TAVI_LOG_ERROR, [](Scene& s, World&) { all_rgb(s); }, turn, 0,
        "crop src (10 20 109 99) {fmt=1 240x320 size=0 data=null fd=0} | probe | "
        "libyuv {fmt=1 240x320 size=0 data=temp fd=0} dst 7" +
            kReleased),
    Case(
        "FailedCropIsNotReleased", TAVI_LOG_ERROR, [](Scene& s, World& w) { all_rgb(s), w.answers["crop"] = -6; },
        turn, -6, "crop src (10 20 109 99) {fmt=1 240x320 size=0 data=null fd=0}"),
    Case(
        "RefusesSilently", TAVI_LOG_DEBUG, nullptr,
        [](Scene& s) {
            s.out = s.rect;
            const int nulls = tavi_image_convert_with_crop(nullptr, &s.rect, &s.dst, nullptr, 0) +
                              tavi_image_convert_with_crop(&s.src, nullptr, &s.dst, &s.out, 0) * 10 +
                              tavi_image_convert_with_crop(&s.src, &s.rect, nullptr, nullptr, 0) * 100;
            s.src.data = nullptr; // a descriptor alone
            return nulls + with_crop(s) * 1000;
        },
        -2222, ""),
    Case(
        "EngineGetsTheGivenDestination", TAVI_LOG_INFO,
        [](Scene&, World& w) { w.answers["probe"] = 5, w.setting = {2}; }, with_crop, 0,
        kW + "src_img size=(640 480) fmt=7 src_roi=(10 20 109 99) dst_img size=(320 240) | probe | env | "
             "I tavi_image_config_use_blit: use_blit=2 | blit_crop src (10 20 109 99) dst (1 2 3 4) 0"),
    Case(
        "EngineFailureIsQuiet", TAVI_LOG_WARN,
        [](Scene& s, World& w) {
            all_rgb(s), w.answers = {{"probe", 1}, {"blit_crop", -1}, {"crop", -3}};
        },
        with_crop_whole, -3, "probe | env | blit_crop src (10 20 109 99) dst (0 0 319 239) 0 | " + kCropped),
    Case(
        "SettingOffMeansSoftware", TAVI_LOG_ERROR,
        [](Scene& s, World& w) { all_rgb(s), w.answers["probe"] = 1, w.setting = {0}; }, with_crop, 0,
        "probe | env | " + kCropped),
    Case(
        "OddDestinationWidthBeforeTheSetting", TAVI_LOG_ERROR,
        [](Scene& s, World& w) { all_rgb(s), w.answers["probe"] = 1, s.dst.width = 322; }, with_crop, 0,
        "probe | " + kCropped),
    Case(
        "RatioOfSixteenIsRefusedWithoutAnEngineToo", TAVI_LOG_INFO,
        [](Scene& s, World&) {
            all_rgb(s), s.src.width = 1920, s.rect = {100, 0, 1699, 99}, s.dst.width = 100;
        },
        with_crop, 0,
        kW + "src_img size=(1920 480) fmt=1 src_roi=(100 0 1699 99) dst_img size=(100 240) | probe | " + kW +
            "resize ratio (16.00 0.42) > 16, set use_blit=0 | " + kW +
            "process roi with cpu | crop src (100 0 1699 99) dst"),
    Case(
        "RatioJustBelowSixteenIsTaken", TAVI_LOG_ERROR,
        [](Scene& s, World& w) {
            w.answers["probe"] = 1, s.src.width = 1920, s.rect = {0, 0, 1598, 99}, s.dst.width = 100;
        },
        with_crop, 0, "probe | env | blit_crop src (0 0 1598 99) dst (1 2 3 4) 0"),
};
DISPATCH_CASES(Crop, kCrop);

TEST(Crop, NeedsBothDescriptorsForTheEngine) {
    fakes::world().answers["probe"] = 1;
    for (const int bad : {0, -1})
        for (const bool source : {true, false}) {
            Scene s;
            all_rgb(s);
            (source ? s.src : s.dst).fd = bad, (source ? s.src : s.dst).data_phy = &s;
            EXPECT_EQ(with_crop(s), 0);
            EXPECT_EQ(fakes::world().trace.back(), kCropped);
        }
}

TEST(Crop, AlignsYuvBoxesToEvenPixels) {
    const struct {
        uint32_t width, height;
        tavi_rect_t box;
        const char* aligned;
    } rows[] = {
        {640, 480, {3, 5, 100, 51}, "(4 6 101 51)"},
        {640, 480, {0, 0, 638, 478}, "(0 0 639 479)"},
        {639, 479, {0, 0, 638, 478}, "(0 0 637 477)"},
        {640, 480, {639, 479, 639, 479}, "(640 480 639 479)"}, // nothing limits what moves inward
        {640, 480, {-3, -4, -6, -5}, "(-2 -4 -7 -5)"},         // odd and even are bit tests
    };
    for (const auto& row : rows) {
        Scene s;
        s.dst.pixel_format = s.src.pixel_format = TAVI_PIXEL_FORMAT_YUV422_UYVY;
        s.src.width = row.width, s.src.height = row.height, s.rect = row.box;
        crop(s);
        EXPECT_EQ(fakes::take_trace(), std::string("crop src ") + row.aligned + " dst");
        EXPECT_EQ(s.rect.left, row.box.left); // the caller's box is never modified
        EXPECT_EQ(s.rect.right, row.box.right);
    }
}

TEST(Crop, TestsRegionAndSizeBeforeAskingTheEngine) {
    const std::string sides = "E tavi_image_convert_with_crop: dst_img width height must be correct set";
    const struct {
        tavi_rect_t roi;
        uint32_t width, height;
        std::string refusal;
    } rows[] = {
        {{-1, 0, 9, 9}, 8, 8, kW + "src_roi (-1 0 9 9) out of image (0 0 640 480)"},
        {{0, -1, 9, 9}, 8, 8, kW + "src_roi (0 -1 9 9) out of image (0 0 640 480)"},
        {{0, 0, 640, 9}, 8, 8, kW + "src_roi (0 0 640 9) out of image (0 0 640 480)"},
        {{0, 0, 9, -1}, 8, 8, kW + "src_roi (0 0 9 -1) out of image (0 0 640 480)"},
        {{0, 0, 9, 9}, 4097, 10, sides},
        {{0, 0, 9, 9}, 0, 10, sides},
        {{0, 0, 9, 9}, 10, 4097, sides},
        {{0, 0, 9, 9}, 10, 0, sides},
        {{0, 0, 9, 9}, 4096, 4096, ""},
        {{0, 0, 9, 9}, 1, 1, ""},
        {{9, 9, 0, 0}, 8, 8, ""}, // empty: the backends' business
    };
    TaviLogger::GetInstance()->level = TAVI_LOG_INFO;
    for (const auto& row : rows) {
        Scene s;
        s.rect = row.roi, s.dst.width = row.width, s.dst.height = row.height;
        EXPECT_EQ(with_crop(s), row.refusal.empty() ? TAVI_RET_SUCCESS : TAVI_RET_PARAM_ERR);
        const std::string trace = fakes::take_trace(), rest = trace.substr(trace.find(" | ") + 3);
        EXPECT_EQ(row.refusal.empty() ? rest.substr(0, 5) : rest, row.refusal.empty() ? "probe" : row.refusal);
    }
}

} // namespace
