// SPDX-License-Identifier: MIT
#include "services/tavi_env.h"

#include <cstdlib>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "services/pixel_limit.h"
#include "services/yuv_setting.h"
#include "support/captured_log.h"

namespace {

TEST(Env, ReadsDecimalAndHexadecimalAndRefusesTheRest) {
    CapturedLog log;
    int value = 99, number = 0;
    for (const char* text : {"0", "1", "-17", "+3", "010", "0x1F", "-0X10", "2147483647", "-2147483648"}) {
        setenv("TAVI_GOOD", text, 1);
        EXPECT_EQ(tavi_env_get_int("good", &value, 7), TAVI_RET_SUCCESS);
        EXPECT_EQ(value, strtol(text, nullptr, strpbrk(text, "xX") ? 16 : 10)) << text;
    }
    EXPECT_EQ(log.lines.size(), 0u);
    for (const char* text : {"2147483648", "-2147483649", "99999999999999999999999999", "0xffffffff", "", "-", "0x",
                             "1f", " 1", "1 ", "1.5", "yes"}) {
        const std::string key = "key_" + std::to_string(++number), name = "TAVI_KEY_" + std::to_string(number);
        setenv(name.c_str(), text, 1);
        for (int reading = 0; reading < 2; ++reading) { // the second reading must not report again
            value = 99;
            EXPECT_EQ(tavi_env_get_int(key.c_str(), &value, 7), TAVI_RET_FAIL);
            EXPECT_EQ(value, 7) << text;
        }
        ASSERT_EQ(log.lines.size(), size_t(number));
        EXPECT_EQ(log.lines.back().message, name + "=\"" + text + "\" is not a decimal or 0x integer; 7 is used");
    }
}

TEST(Env, PrefersThePrefixedNameOverThePlainOne) {
    int value = 5;
    unsetenv("TAVI_USE_BLIT");
    unsetenv("use_blit");
    EXPECT_EQ(tavi_env_get_int("use_blit", &value, 1), TAVI_RET_FAIL);
    EXPECT_EQ(value, 1);
    setenv("use_blit", "2", 1);
    EXPECT_EQ(tavi_env_get_int("use_blit", &value, 1), TAVI_RET_SUCCESS);
    EXPECT_EQ(value, 2);
    setenv("TAVI_USE_BLIT", "0", 1);
    EXPECT_EQ(tavi_env_get_int("use_blit", &value, 1), TAVI_RET_SUCCESS);
    EXPECT_EQ(value, 0);

    CapturedLog log;
    EXPECT_EQ(tavi_env_get_int(nullptr, &value, 1), TAVI_RET_PARAM_ERR);
    EXPECT_EQ(tavi_env_get_int("use_blit", nullptr, 1), TAVI_RET_PARAM_ERR);
    EXPECT_EQ(tavi_env_get_int(std::string(500, 'k').c_str(), &value, 4), TAVI_RET_FAIL);
    EXPECT_EQ(value, 4);
    EXPECT_EQ(log.lines.size(), 2u);
}

TEST(PixelLimit, IsAnIntegerFromOneOn) {
    int pixels = 7;
    for (const char* text : {"-1", "12e6", "2147483648", ""})
        EXPECT_FALSE(tavi::parse_pixel_limit(text, pixels) || pixels != 7) << text;
    setenv("TAVI_MAX_PIXELS", "0", 1);
    CapturedLog log;
    EXPECT_EQ(tavi::pixel_limit(), tavi::kDefaultPixelLimit);
    EXPECT_EQ(log.lines.size(), 1u);
}

TEST(YuvSetting, IsReadOnceAndRefusesWhatItDoesNotKnow) {
    tavi::ColorSpace color;
    EXPECT_TRUE(tavi::parse_yuv("bt2020-full", color));
    EXPECT_EQ(color, (tavi::ColorSpace{tavi::Matrix::bt2020, true}));
    for (const char* text : {"", "BT709", "bt709-", "bt709-limited", "709"})
        EXPECT_FALSE(tavi::parse_yuv(text, color)) << text;
    CapturedLog log;
    setenv("TAVI_YUV", "bt470", 1);
    EXPECT_EQ(tavi::yuv_setting(), tavi::ColorSpace{});
    setenv("TAVI_YUV", "bt709", 1);
    EXPECT_EQ(tavi::yuv_setting(), tavi::ColorSpace{}) << "read again";
    ASSERT_EQ(log.lines.size(), 1u);
    EXPECT_NE(log.lines[0].message.find("TAVI_YUV=\"bt470\": allowed are"), std::string::npos);
}

} // namespace
