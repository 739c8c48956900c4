// SPDX-License-Identifier: MIT
#include <algorithm>
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

const std::string kSoftware = "libyuv src dst 3", kEngine = "blit src dst 3";
const std::string kKeepSoftware = "libyuv2 src dst 1 5 6 f0 f1 f2 f3 2",
                  kKeepEngine = "keep_ratio_blit src dst 5 6 f0 f1 f2 f3 7";
const std::string kNull = "E tavi_image_convert: src image or dst image is null";
const std::string kC = "I tavi_image_convert: ", kK = "I tavi_image_convert_keep_ratio_by_method: ";
const std::string kKeepBegin = kK + "tavi_image_convert_keep_ratio_by_method begin | " + kK;
const std::string kKeepEnd = " | " + kK + "tavi_image_convert_keep_ratio_by_method end";

void with_engine(Scene&, World& w) { w.answers["probe"] = 9; }

const Case kConvert[] = {
    Case(
        "NullSource", TAVI_LOG_DEBUG, nullptr, [](Scene& s) { return tavi_image_convert(nullptr, &s.dst, 0); }, -2,
        kNull),
    Case(
        "NullDestination", TAVI_LOG_ERROR, nullptr, [](Scene& s) { return tavi_image_convert(&s.src, nullptr, 0); },
        -2, kNull + " | E tavi_image_convert: src image size=640x480 data=src.data fd=3 data_phy=null"),
    Case(
        "NegativeFdIsNoMemory", TAVI_LOG_ERROR, [](Scene& s, World&) { s.src.data = nullptr, s.src.fd = -1; },
        convert, -2, kNull + " | E tavi_image_convert: src image size=640x480 data=null fd=-1 data_phy=null"),
    Case(
        "PhysicalAddressIsMemory", TAVI_LOG_ERROR,
        [](Scene& s, World&) { s.src.data = nullptr, s.src.fd = 0, s.src.data_phy = &s; }, convert, 0,
        "probe | " + kSoftware),
    Case("EngineTakesAllAndLogsAll", TAVI_LOG_INFO, with_engine, convert, 0,
         kC + "src image width=640 height=480 fmt=7 fd=3 data=src.data data_phy=null size=256 | " + kC +
             "dst image width=320 height=240 fmt=1 fd=4 data=dst.data data_phy=null size=256 | " + kC +
             "transform mode=3 | probe | env | I tavi_image_config_use_blit: use_blit=1 | " + kEngine + " | " + kC +
             "tavi_image_convert finish ret=0"),
    Case(
        "EngineFailsSoftwareAnswers", TAVI_LOG_WARN,
        [](Scene&, World& w) {
            w.answers = {{"probe", 1}, {"blit", -7}, {"libyuv", -4}};
        },
        convert, -4,
        "probe | env | " + kEngine +
            " | W tavi_image_convert: Encounter an error(-7), try convert image by software | " + kSoftware),
    Case(
        "FdOfMinusOneGoesToTheEngine", TAVI_LOG_ERROR,
        [](Scene& s, World& w) { with_engine(s, w), s.src.fd = -1, s.dst.fd = 0, s.dst.data_phy = &s; }, convert, 0,
        "probe | env | " + kEngine),
    Case(
        "UnsetSettingAllowsAndGray16IsAGoodDestination", TAVI_LOG_ERROR,
        [](Scene& s, World& w) { with_engine(s, w), w.setting = {}, s.dst.pixel_format = TAVI_PIXEL_FORMAT_GRAY16; },
        convert, 0, "probe | env | " + kEngine),
    Case(
        "SettingOfTwoMeansSoftware", TAVI_LOG_ERROR, [](Scene& s, World& w) { with_engine(s, w), w.setting = {2}; },
        convert, 0, "probe | env | " + kSoftware),
    Case("NoEngineNoSetting", TAVI_LOG_ERROR, nullptr, convert, 0, "probe | " + kSoftware),
    Case(
        "KeepRationIsSoftware", TAVI_LOG_DEBUG,
        [](Scene& s, World& w) { w.answers["libyuv2"] = -8, s.src.data = nullptr; }, keep_ration, -8,
        "libyuv2 src dst 1 5 6 f0 f1 f2 f3 0"),
    Case(
        "KeepRationRefusesSilently", TAVI_LOG_DEBUG, [](Scene& s, World&) { s.src.data = nullptr, s.src.fd = -1; },
        [](Scene& s) {
            return keep_ration(s) + 10 * tavi_image_convert_keep_ration(nullptr, &s.dst, 0, 0, s.f, s.f, s.f, s.f) +
                   100 * tavi_image_convert_keep_ration(&s.dst, nullptr, 0, 0, s.f, s.f, s.f, s.f);
        },
        -222, ""),
    Case(
        "KeepRatioByEngine", TAVI_LOG_INFO,
        [](Scene&, World& w) {
            w.setting = {2}, w.answers = {{"check", 2}, {"keep_ratio_blit", -1}};
        },
        by_method, -1,
        kKeepBegin + "src image width=640 height=480 fmt=7 | " + kK +
            "dst image width=320 height=240 fmt=1 | check src dst 7 | env | I tavi_image_config_use_blit: use_blit=2 "
            "| " +
            kK + "use blit to resize keep ratio | " + kKeepEngine + kKeepEnd),
    Case(
        "KeepRatioOfAnOddRgbRow", TAVI_LOG_INFO,
        [](Scene& s, World& w) {
            w.answers["check"] = 1, s.src.width = 642, s.src.pixel_format = TAVI_PIXEL_FORMAT_BGR888;
        },
        by_method, 0,
        kKeepBegin + "src image width=642 height=480 fmt=2 | " + kK +
            "dst image width=320 height=240 fmt=1 | check src dst 7 | env | I tavi_image_config_use_blit: use_blit=1 "
            "| " +
            kK + "use blit to resize keep ratio | " + kK + "use libyuv to resize keep ratio | " + kKeepSoftware +
            kKeepEnd),
    Case(
        "KeepRatioWithTheSettingOff", TAVI_LOG_ERROR,
        [](Scene&, World& w) {
            w.setting = {0}, w.answers = {{"check", 1}, {"libyuv2", -6}};
        },
        by_method, -6, "check src dst 7 | env | " + kKeepSoftware),
};
DISPATCH_CASES(Convert, kConvert);

TEST(Convert, ConsultsTheSettingBetweenMemoryAndWidths) {
    const struct {
        std::function<void(Scene&)> arrange;
        const char* consulted;
    } rows[] = {
        {[](Scene& s) { s.src.pixel_format = TAVI_PIXEL_FORMAT_GRAY8; }, ""},
        {[](Scene& s) { s.src.pixel_format = TAVI_PIXEL_FORMAT_GRAY16; }, ""},
        {[](Scene& s) { s.dst.pixel_format = TAVI_PIXEL_FORMAT_GRAY8; }, ""},
        {[](Scene& s) { s.src.fd = 0; }, ""},
        {[](Scene& s) { s.dst.fd = 0; }, ""},
        {[](Scene& s) { s.src.width = 642; }, "I tavi_image_config_use_blit: use_blit=1 | "},
        {[](Scene& s) { s.dst.width = 322; }, "I tavi_image_config_use_blit: use_blit=1 | "},
    };
    fakes::world().answers["probe"] = 1;
    Scene warm;
    convert(warm); // the probe and the reading are behind us
    for (const auto& row : rows) {
        Scene s;
        row.arrange(s);
        TaviLogger::GetInstance()->level = TAVI_LOG_INFO;
        fakes::take_trace();
        EXPECT_EQ(convert(s), 0);
        const std::string trace = fakes::take_trace(), from = "mode=3 | ";
        EXPECT_EQ(trace.substr(trace.find(from) + from.size()),
                  row.consulted + kSoftware + " | " + kC + "tavi_image_convert finish ret=0");
    }
}

TEST(Convert, KeepRatioTestsWidthsOfThreeBytePixelsOnly) {
    fakes::world().answers["check"] = 1;
    for (uint32_t format = 0; format < 16; ++format) {
        Scene s;
        s.src.width = 642, s.src.pixel_format = static_cast<tavi_pixel_format>(format);
        by_method(s);
        EXPECT_EQ(fakes::world().trace.back(), format == 1 || format == 2 ? kKeepSoftware : kKeepEngine) << format;
    }
}

TEST(Convert, ReadsTheSettingOnceWhateverComesLater) {
    Scene s;
    fakes::world().answers["probe"] = 1;
    fakes::world().setting = {0};
    convert(s);
    fakes::world().setting = {1};
    by_method(s);
    convert(s);
    EXPECT_EQ(fakes::take_trace(),
              "probe | env | " + kSoftware + " | check src dst 7 | " + kKeepSoftware + " | " + kSoftware);
}

TEST(Convert, AsksAProbeThatThrewAgain) {
    Scene s;
    fakes::world().effects["probe"] = [] { throw std::runtime_error("no bus"); };
    EXPECT_THROW(convert(s), std::runtime_error);
    fakes::world().effects.clear();
    EXPECT_EQ(convert(s), 0);
    EXPECT_EQ(convert(s), 0);
    EXPECT_EQ(fakes::take_trace(), "probe | probe | " + kSoftware + " | " + kSoftware);
}

TEST(Convert, ProbesOnceForEightThreads) {
    Scene s;
    fakes::world().answers["probe"] = 1; // the setting is raced for as well
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
