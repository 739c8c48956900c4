// SPDX-License-Identifier: MIT
#include "services/tavi_env.h"

#include <climits>
#include <cstdlib>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "services/tavi_logger.h"

namespace {

struct Lines {
    Lines() {
        TaviLogger::GetInstance()->level = TAVI_LOG_ERROR;
        TaviLogger::GetInstance()->SetSink(
            [](void* user, tavi_log_level_t, const char*, const char*, const char* message) {
                static_cast<Lines*>(user)->text.emplace_back(message);
            },
            this);
    }
    ~Lines() { TaviLogger::GetInstance()->SetSink(nullptr, nullptr); }
    std::vector<std::string> text;
};

TEST(Env, ReadsDecimalAndHexadecimalAndRefusesTheRest) {
    const struct {
        const char* text;
        bool good;
        int value;
    } rows[] = {{"0", true, 0},
                {"1", true, 1},
                {"-17", true, -17},
                {"+3", true, 3},
                {"010", true, 10},
                {"0x1F", true, 31},
                {"-0X10", true, -16},
                {"2147483647", true, INT_MAX},
                {"-2147483648", true, INT_MIN},
                {"2147483648", false, 7},
                {"-2147483649", false, 7},
                {"99999999999999999999999999", false, 7},
                {"0xffffffff", false, 7},
                {"", false, 7},
                {"-", false, 7},
                {"0x", false, 7},
                {"1f", false, 7},
                {" 1", false, 7},
                {"1 ", false, 7},
                {"1.5", false, 7},
                {"yes", false, 7}};
    int number = 0;
    for (const auto& row : rows) {
        Lines lines;
        const std::string key = "key_" + std::to_string(++number);
        const std::string name = "TAVI_KEY_" + std::to_string(number);
        setenv(name.c_str(), row.text, 1);
        for (int reading = 0; reading < 2; ++reading) { // the second reading must not report again
            int value = 99;
            EXPECT_EQ(tavi_env_get_int(key.c_str(), &value, 7), row.good ? TAVI_RET_SUCCESS : TAVI_RET_FAIL);
            EXPECT_EQ(value, row.value) << row.text;
        }
        const std::string report = name + "=\"" + row.text + "\" is not a decimal or 0x integer; 7 is used";
        EXPECT_EQ(lines.text, row.good ? std::vector<std::string>{} : std::vector<std::string>{report});
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

    Lines lines;
    EXPECT_EQ(tavi_env_get_int(nullptr, &value, 1), TAVI_RET_PARAM_ERR);
    EXPECT_EQ(tavi_env_get_int("use_blit", nullptr, 1), TAVI_RET_PARAM_ERR);
    EXPECT_EQ(tavi_env_get_int(std::string(500, 'k').c_str(), &value, 4), TAVI_RET_FAIL);
    EXPECT_EQ(value, 4);
    EXPECT_EQ(lines.text.size(), 2u);
}

} // namespace
