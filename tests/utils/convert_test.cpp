// SPDX-License-Identifier: MIT
#include <atomic>
#include <stdexcept>
#include <thread>

#include "utils/scene.h"

namespace {

using fakes::World;

int convert(Scene& s) { return tavi_image_convert(&s.src, &s.dst, 3); }

int keep_ration(Scene& s) {
    return tavi_image_convert_keep_ration(&s.src, &s.dst, 5, 6, &s.f[0], &s.f[1], &s.f[2], &s.f[3]);
}

int by_method(Scene& s) {
    return tavi_image_convert_keep_ratio_by_method(&s.src, &s.dst, 5, 6, &s.f[0], &s.f[1], &s.f[2], &s.f[3], 2, 7);
}

const char* const kNull = "E tavi_image_convert: src image or dst image is null";
const char* const kEnv = "env use_blit holding 1 default 1";
const char* const kKeepSoftware = "libyuv2 src dst 1 5 6 f0 f1 f2 f3 2";
const char* const kKeepBlit = "keep_ratio_blit src dst 5 6 f0 f1 f2 f3 7";

const Case kConvert[] = {
    {"NullSource",
     TAVI_LOG_DEBUG,
     nullptr,
     [](Scene& s) { return tavi_image_convert(nullptr, &s.dst, 0); },
     -2,
     {kNull}},
    {"NullDestination",
     TAVI_LOG_ERROR,
     nullptr,
     [](Scene& s) { return tavi_image_convert(&s.src, nullptr, 0); },
     -2,
     {kNull, "E tavi_image_convert: src image size=640x480 data=src.data fd=3 data_phy=null"}},
    {"NegativeFdIsNoMemory",
     TAVI_LOG_ERROR,
     [](Scene& s, World&) { s.src.data = nullptr, s.src.fd = -1; },
     convert,
     -2,
     {kNull, "E tavi_image_convert: src image size=640x480 data=null fd=-1 data_phy=null"}},
    {"PhysicalAddressIsMemory",
     TAVI_LOG_ERROR,
     [](Scene& s, World&) { s.src.data = nullptr, s.src.fd = 0, s.src.data_phy = &s; },
     convert,
     0,
     {"probe", "libyuv src dst 3"}},
    {"EngineTakesAllAndLogsAll",
     TAVI_LOG_INFO,
     [](Scene&, World& w) { w.answers["probe"] = 9; },
     convert,
     0,
     {"I tavi_image_convert: src image width=640 height=480 fmt=7 fd=3 data=src.data data_phy=null size=256",
      "I tavi_image_convert: dst image width=320 height=240 fmt=1 fd=4 data=dst.data data_phy=null size=256",
      "I tavi_image_convert: transform mode=3", "probe", kEnv, "I tavi_image_config_use_blit: use_blit=1",
      "blit src dst 3", "I tavi_image_convert: tavi_image_convert finish ret=0"}},
    {"EngineFailsSoftwareAnswers",
     TAVI_LOG_WARN,
     [](Scene&, World& w) {
         w.answers = {{"probe", 1}, {"blit", -7}, {"libyuv", -4}};
     },
     convert,
     -4,
     {"probe", kEnv, "blit src dst 3", "W tavi_image_convert: Encounter an error(-7), try convert image by software",
      "libyuv src dst 3"}},
    {"FdOfMinusOneGoesToTheEngine",
     TAVI_LOG_ERROR,
     [](Scene& s, World& w) { w.answers["probe"] = 1, s.src.fd = -1; },
     convert,
     0,
     {"probe", kEnv, "blit src dst 3"}},
    {"Gray16DestinationGoesToTheEngine",
     TAVI_LOG_ERROR,
     [](Scene& s, World& w) { w.answers["probe"] = 1, s.dst.pixel_format = TAVI_PIXEL_FORMAT_GRAY16; },
     convert,
     0,
     {"probe", kEnv, "blit src dst 3"}},
    {"NoEngineNoSetting", TAVI_LOG_ERROR, nullptr, convert, 0, {"probe", "libyuv src dst 3"}},
    {"SettingOfTwoMeansSoftware",
     TAVI_LOG_ERROR,
     [](Scene&, World& w) { w.answers["probe"] = 1, w.setting = {2}; },
     convert,
     0,
     {"probe", kEnv, "libyuv src dst 3"}},
    {"UnsetSettingAllows",
     TAVI_LOG_ERROR,
     [](Scene&, World& w) { w.answers["probe"] = 1, w.setting = {}; },
     convert,
     0,
     {"probe", kEnv, "blit src dst 3"}},
    {"OddSourceWidthAfterTheSetting",
     TAVI_LOG_ERROR,
     [](Scene& s, World& w) { w.answers["probe"] = 1, s.src.width = 642; },
     convert,
     0,
     {"probe", kEnv, "libyuv src dst 3"}},
    {"OddDestinationWidthAfterTheSetting",
     TAVI_LOG_ERROR,
     [](Scene& s, World& w) { w.answers["probe"] = 1, s.dst.width = 322, s.dst.height = 241; },
     convert,
     0,
     {"probe", kEnv, "libyuv src dst 3"}},
    {"KeepRationNeedsMemory",
     TAVI_LOG_DEBUG,
     [](Scene& s, World&) { s.src.data = nullptr, s.src.fd = -1; },
     keep_ration,
     -2,
     {}},
    {"KeepRationIsSoftware",
     TAVI_LOG_DEBUG,
     [](Scene& s, World& w) { w.answers["libyuv2"] = -8, s.src.data = nullptr; },
     keep_ration,
     -8,
     {"libyuv2 src dst 1 5 6 f0 f1 f2 f3 0"}},
    {"KeepRatioByEngine",
     TAVI_LOG_INFO,
     [](Scene&, World& w) {
         w.setting = {2}, w.answers = {{"check", 2}, {"keep_ratio_blit", -1}};
     },
     by_method,
     -1,
     {"I tavi_image_convert_keep_ratio_by_method: tavi_image_convert_keep_ratio_by_method begin",
      "I tavi_image_convert_keep_ratio_by_method: src image width=640 height=480 fmt=7",
      "I tavi_image_convert_keep_ratio_by_method: dst image width=320 height=240 fmt=1", "check src dst 7", kEnv,
      "I tavi_image_config_use_blit: use_blit=2",
      "I tavi_image_convert_keep_ratio_by_method: use blit to resize keep ratio", kKeepBlit,
      "I tavi_image_convert_keep_ratio_by_method: tavi_image_convert_keep_ratio_by_method end"}},
    {"KeepRatioOfAnOddRgbRow",
     TAVI_LOG_INFO,
     [](Scene& s, World& w) {
         w.answers["check"] = 1;
         s.src.width = 642, s.src.pixel_format = TAVI_PIXEL_FORMAT_BGR888;
     },
     by_method,
     0,
     {"I tavi_image_convert_keep_ratio_by_method: tavi_image_convert_keep_ratio_by_method begin",
      "I tavi_image_convert_keep_ratio_by_method: src image width=642 height=480 fmt=2",
      "I tavi_image_convert_keep_ratio_by_method: dst image width=320 height=240 fmt=1", "check src dst 7", kEnv,
      "I tavi_image_config_use_blit: use_blit=1",
      "I tavi_image_convert_keep_ratio_by_method: use blit to resize keep ratio",
      "I tavi_image_convert_keep_ratio_by_method: use libyuv to resize keep ratio", kKeepSoftware,
      "I tavi_image_convert_keep_ratio_by_method: tavi_image_convert_keep_ratio_by_method end"}},
    {"KeepRatioOfAnOddRgbaRow",
     TAVI_LOG_ERROR,
     [](Scene& s, World& w) {
         w.answers["check"] = 1;
         s.src.width = 642, s.src.pixel_format = TAVI_PIXEL_FORMAT_RGBA8888;
     },
     by_method,
     0,
     {"check src dst 7", kEnv, kKeepBlit}},
    {"KeepRatioWithTheSettingOff",
     TAVI_LOG_ERROR,
     [](Scene&, World& w) {
         w.setting = {0}, w.answers = {{"check", 1}, {"libyuv2", -6}};
     },
     by_method,
     -6,
     {"check src dst 7", kEnv, kKeepSoftware}},
};
DISPATCH_CASES(Convert, kConvert);

// The grey formats and ordinary memory decide before the setting is consulted.
TEST(Convert, SoftwareWithoutConsultingTheSetting) {
    fakes::world().answers["probe"] = 1;
    const std::function<void(Scene&)> reasons[] = {
        [](Scene& s) { s.src.pixel_format = TAVI_PIXEL_FORMAT_GRAY8; },
        [](Scene& s) { s.src.pixel_format = TAVI_PIXEL_FORMAT_GRAY16; },
        [](Scene& s) { s.dst.pixel_format = TAVI_PIXEL_FORMAT_GRAY8; },
        [](Scene& s) { s.src.fd = 0; },
        [](Scene& s) { s.dst.fd = 0; },
    };
    for (const auto& reason : reasons) {
        Scene s;
        reason(s);
        EXPECT_EQ(convert(s), 0);
    }
    const std::string software = "libyuv src dst 3";
    EXPECT_EQ(fakes::world().trace, (fakes::Trace{"probe", software, software, software, software, software}));
}

TEST(Convert, ReadsTheSettingOnceWhateverComesLater) {
    Scene s;
    fakes::world().answers["probe"] = 1;
    fakes::world().setting = {0};
    convert(s);
    fakes::world().setting = {1};
    by_method(s);
    convert(s);
    EXPECT_EQ(fakes::world().trace, (fakes::Trace{"probe", kEnv, "libyuv src dst 3", "check src dst 7", kKeepSoftware,
                                                  "libyuv src dst 3"}));
}

TEST(Convert, AsksAProbeThatThrewAgain) {
    Scene s;
    fakes::world().effects["probe"] = [] { throw std::runtime_error("no bus"); };
    EXPECT_THROW(convert(s), std::runtime_error);
    fakes::world().effects.clear();
    EXPECT_EQ(convert(s), 0);
    EXPECT_EQ(convert(s), 0);
    EXPECT_EQ(fakes::world().trace, (fakes::Trace{"probe", "probe", "libyuv src dst 3", "libyuv src dst 3"}));
}

TEST(Convert, ProbesOnceForEightThreads) {
    Scene s;
    fakes::world().answers["probe"] = 1; // the setting is raced for as well
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t)
        threads.emplace_back([&s] { EXPECT_EQ(convert(s), 0); });
    for (std::thread& thread : threads)
        thread.join();
    const fakes::Trace& trace = fakes::world().trace;
    EXPECT_EQ(std::count(trace.begin(), trace.end(), "probe"), 1);
    EXPECT_EQ(std::count(trace.begin(), trace.end(), "blit src dst 3"), 8);
}

} // namespace
