// SPDX-License-Identifier: MIT
#include <algorithm>
#include <thread>

#include "utils/scene.h"

namespace {

int convert(Scene& s) { return tavi_image_convert(&s.src, &s.dst, 3); }
int convert_null(Scene& s) { return tavi_image_convert(nullptr, &s.dst, 0); }
int convert_to_null(Scene& s) { return tavi_image_convert(&s.src, nullptr, 0); }

int keep_ration(Scene& s) {
    return tavi_image_convert_keep_ration(&s.src, &s.dst, 5, 6, &s.f[0], &s.f[1], &s.f[2], &s.f[3]);
}

int keep_ration_refused(Scene& s) {
    return keep_ration(s) + 10 * tavi_image_convert_keep_ration(nullptr, &s.dst, 0, 0, s.f, s.f, s.f, s.f) +
           100 * tavi_image_convert_keep_ration(&s.dst, nullptr, 0, 0, s.f, s.f, s.f, s.f);
}

int by_method(Scene& s) {
    return tavi_image_convert_keep_ratio_by_method(&s.src, &s.dst, 5, 6, &s.f[0], &s.f[1], &s.f[2], &s.f[3], 2, 7);
}

const std::string kSoftware = "libyuv src dst 3", kEngine = "blit src dst 3";
const std::string kUnasked = "probe | " + kSoftware, kAsked = "probe | env | " + kSoftware; // the setting
const std::string kKeepSoftware = "libyuv2 src dst 1 5 6 f0 f1 f2 f3 2";
const std::string kKeepEngine = "keep_ratio_blit src dst 5 6 f0 f1 f2 f3 7";
const std::string kE = "E tavi_image_convert: ", kNull = kE + "src image or dst image is null";
const std::string kC = "I tavi_image_convert: ", kK = "I tavi_image_convert_keep_ratio_by_method: ";
const std::string kKeepBegin = kK + "tavi_image_convert_keep_ratio_by_method begin | " + kK + "src image width=";
const std::string kKeepDst =
    kK + "dst image width=320 height=240 fmt=1 | check src dst 7 | env | I tavi_image_config_use_blit: use_blit=";
const std::string kKeepEnd = " | " + kK + "tavi_image_convert_keep_ratio_by_method end";

const Case kConvert[] = {
    {"NullSource", TAVI_LOG_DEBUG, "", convert_null, -2, kNull},
    {"NullDestination", TAVI_LOG_ERROR, "", convert_to_null, -2,
     kNull + " | " + kE + "src image size=640x480 data=src.data fd=3 data_phy=null"},
    {"NegativeFdIsNoMemory", TAVI_LOG_ERROR, "src.data=0 src.fd=-1", convert, -2,
     kNull + " | " + kE + "src image size=640x480 data=null fd=-1 data_phy=null"},
    {"PhysicalAddressIsMemory", TAVI_LOG_ERROR, "src.data=0 src.fd=0 src.phy=1", convert, 0, kUnasked},
    {"EngineTakesAllAndLogsAll", TAVI_LOG_INFO, "probe=9", convert, 0,
     kC + "src image width=640 height=480 fmt=7 fd=3 data=src.data data_phy=null size=256 | " + kC +
         "dst image width=320 height=240 fmt=1 fd=4 data=dst.data data_phy=null size=256 | " + kC +
         "transform mode=3 | probe | env | I tavi_image_config_use_blit: use_blit=1 | " + kEngine + " | " + kC +
         "tavi_image_convert finish ret=0"},
    {"EngineFailsSoftwareAnswers", TAVI_LOG_WARN, "probe=1 blit=-7 libyuv=-4", convert, -4,
     "probe | env | " + kEngine +
         " | W tavi_image_convert: Encounter an error(-7), try convert image by software | " + kSoftware},
    {"FdOfMinusOneGoesToTheEngine", TAVI_LOG_ERROR, "probe=1 src.fd=-1 dst.fd=0 dst.phy=1", convert, 0,
     "probe | env | " + kEngine},
    {"UnsetSettingAllowsAndGray16IsAGoodDestination", TAVI_LOG_ERROR, "probe=1 setting= dst.fmt=15", convert, 0,
     "probe | env | " + kEngine},
    {"NoEngineNoSetting", TAVI_LOG_ERROR, "", convert, 0, kUnasked},
    {"GreySourceNoSetting", TAVI_LOG_ERROR, "probe=1 src.fmt=0", convert, 0, kUnasked},
    {"Gray16SourceNoSetting", TAVI_LOG_ERROR, "probe=1 src.fmt=15", convert, 0, kUnasked},
    {"GreyDestinationNoSetting", TAVI_LOG_ERROR, "probe=1 dst.fmt=0", convert, 0, kUnasked},
    {"SourceOutsideDeviceMemoryNoSetting", TAVI_LOG_ERROR, "probe=1 src.fd=0", convert, 0, kUnasked},
    {"DestinationOutsideDeviceMemoryNoSetting", TAVI_LOG_ERROR, "probe=1 dst.fd=0", convert, 0, kUnasked},
    {"SettingBeforeTheSourcesWidth", TAVI_LOG_ERROR, "probe=1 src.w=642", convert, 0, kAsked},
    {"SettingBeforeTheDestinationsWidth", TAVI_LOG_ERROR, "probe=1 dst.w=322", convert, 0, kAsked},
    {"SettingOfTwoMeansSoftware", TAVI_LOG_ERROR, "probe=1 setting=2", convert, 0, kAsked},
    {"KeepRationIsSoftware", TAVI_LOG_DEBUG, "src.data=0 libyuv2=-8", keep_ration, -8,
     "libyuv2 src dst 1 5 6 f0 f1 f2 f3 0"},
    {"KeepRationRefusesSilently", TAVI_LOG_DEBUG, "src.data=0 src.fd=-1", keep_ration_refused, -222, ""},
    {"KeepRatioByEngine", TAVI_LOG_INFO, "check=2 keep_ratio_blit=-1 setting=2", by_method, -1,
     kKeepBegin + "640 height=480 fmt=7 | " + kKeepDst + "2 | " + kK + "use blit to resize keep ratio | " +
         kKeepEngine + kKeepEnd},
    {"KeepRatioOfAnOddRgbRow", TAVI_LOG_INFO, "check=1 src.w=642 src.fmt=2", by_method, 0,
     kKeepBegin + "642 height=480 fmt=2 | " + kKeepDst + "1 | " + kK + "use blit to resize keep ratio | " + kK +
         "use libyuv to resize keep ratio | " + kKeepSoftware + kKeepEnd},
    {"KeepRatioWithTheSettingOff", TAVI_LOG_ERROR, "check=0 setting=0 libyuv2=-6", by_method, -6,
     "check src dst 7 | env | " + kKeepSoftware},
};
DISPATCH_CASES(Convert, kConvert);

TEST(Convert, KeepRatioTestsWidthsOfThreeBytePixelsOnly) {
    for (int format = 0; format < 16; ++format) {
        Scene s("check=1 src.w=642 src.fmt=" + std::to_string(format));
        by_method(s);
        EXPECT_EQ(fakes::world().trace.back(), format == 1 || format == 2 ? kKeepSoftware : kKeepEngine) << format;
    }
}

TEST(Convert, ReadsTheSettingOnceWhateverComesLater) {
    Scene s("probe=1 setting=0");
    convert(s);
    fakes::world().setting = {1};
    by_method(s);
    convert(s);
    EXPECT_EQ(fakes::take_trace(), kAsked + " | check src dst 7 | " + kKeepSoftware + " | " + kSoftware);
}

TEST(Convert, ProbesOnceForEightThreads) {
    Scene s("probe=1"); // the setting is raced for as well
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t)
        threads.emplace_back([&s] { EXPECT_EQ(convert(s), 0); });
    for (std::thread& thread : threads)
        thread.join();
    const auto& trace = fakes::world().trace;
    EXPECT_EQ(std::count(trace.begin(), trace.end(), "probe"), 1);
    EXPECT_EQ(std::count(trace.begin(), trace.end(), kEngine), 8);
}

} // namespace
