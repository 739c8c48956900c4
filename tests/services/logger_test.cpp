// SPDX-License-Identifier: MIT
#include "services/tavi_logger.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#define TAVI_LOG_TAG "tavi-test"
#include "services/log.h"

namespace {

int evaluated = 0;
int count_evaluation() { return ++evaluated; }

TEST(Logger, ReadsItsLevelOncePerProcessAndReportsAMalformedOne) {
    constexpr int kMalformed = 9;
    const std::pair<const char*, int> rows[] = {{nullptr, 1},         {"0", 0},          {"3", 3},
                                                {"0x2", 2},           {"4", kMalformed}, {"-1", kMalformed},
                                                {"info", kMalformed}, {"", kMalformed}};
    for (const auto& [text, level] : rows) {
        testing::internal::CaptureStderr(); // of the descriptor: the logger writes to it
        const pid_t child = fork();
        if (child == 0) {
            text ? setenv("TAVI_LOG_LEVEL", text, 1) : unsetenv("TAVI_LOG_LEVEL");
            TaviLogger::GetInstance();
            setenv("TAVI_LOG_LEVEL", "3", 1);
            _exit(TaviLogger::GetInstance()->level);
        }
        int status = 0;
        waitpid(child, &status, 0);
        const std::string line = testing::internal::GetCapturedStderr();
        const bool reported = level == kMalformed;
        EXPECT_EQ(WEXITSTATUS(status), reported ? 1 : level) << (text ? text : "unset");
        EXPECT_EQ(std::count(line.begin(), line.end(), '\n'), reported ? 1 : 0) << line;
        EXPECT_EQ(line.find("ERROR [tavi-log]") != line.npos, reported) << line;
    }
}

TEST(Logger, WritesTimeLevelTagAndFunctionAndSkipsWhatIsBelowTheLevel) {
    TaviLogger::GetInstance()->level = TAVI_LOG_WARN;
    testing::internal::CaptureStderr();
    LOG_INFO("not written %d", count_evaluation());
    LOG_WARN("written %d\n", count_evaluation());
    const std::string text = testing::internal::GetCapturedStderr();
    const std::regex line(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} WARN  \[tavi-test\] TestBody:\d+: written 1\n)");
    EXPECT_TRUE(std::regex_match(text, line)) << text;
}

TEST(Logger, HandsWholeLinesToTheSinkAndGoesBackToStandardError) {
    TaviLogger* logger = TaviLogger::GetInstance();
    std::vector<std::string> lines;
    const auto sink = [](void* user, tavi_log_level_t level, const char* tag, const char* func, const char* message) {
        static_cast<std::vector<std::string>*>(user)->push_back(std::to_string(level) + ' ' + tag + ' ' + func + ' ' +
                                                                message);
        errno = 0;
    };
    testing::internal::CaptureStderr();
    logger->SetSink(sink, &lines);
    std::vector<std::string> expected;
    errno = ENOSPC; // callers look at theirs after a line
    // Names of others are escaped, and what is no control character stays.
    LOG_ERROR("%s\n", "a\nERROR b\r\t\x1b[31m\x7f \xc2\x9b \xc3\xa9\xc2\xa0");
    expected.push_back("0 tavi-test TestBody a\\x0aERROR b\\x0d\\x09\\x1b[31m\\x7f \\xc2\\x9b \xc3\xa9\xc2\xa0");
    // Around the size of the logger's own buffer a wrong bound loses a character.
    for (size_t length = 200; length < 1100; ++length)
        for (const char text : {'x', '\1'}) {
            const std::string message(length, text);
            LOG_ERROR(text == 'x' ? "%s" : "%s\n", message.c_str());
            expected.push_back("0 tavi-test TestBody " + std::regex_replace(message, std::regex("\1"), "\\x01"));
        }
    EXPECT_EQ(errno, ENOSPC);
    logger->SetSink(nullptr, nullptr);
    EXPECT_EQ(lines, expected);
    LOG_ERROR("again");
    EXPECT_NE(testing::internal::GetCapturedStderr().find("again\n"), std::string::npos);
}

TEST(Logger, KeepsLinesOfEightThreadsWhole) {
    testing::internal::CaptureStderr();
    std::vector<std::thread> threads;
    std::multiset<std::string> expected, found;
    for (int t = 0; t < 8; ++t) {
        const std::string line = ": " + std::string(static_cast<size_t>(50 + t * 250), static_cast<char>('a' + t));
        threads.emplace_back([line] {
            for (int i = 0; i < 300; ++i)
                LOG_ERROR("%s", line.c_str() + 2);
        });
        for (int i = 0; i < 300; ++i)
            expected.insert(line);
    }
    for (std::thread& thread : threads)
        thread.join();
    std::istringstream text(testing::internal::GetCapturedStderr());
    for (std::string line; std::getline(text, line);)
        found.insert(line.substr(std::min(line.size(), line.rfind(": "))));
    EXPECT_TRUE(found == expected);
}

// What bindings read instead of a sink.
TEST(LastError, IsTheThreadsOwnAndKeptWhenNothingIsWritten) {
    ASSERT_EQ(tavi_log_set_level(TAVI_LOG_NONE), TAVI_RET_SUCCESS);
    EXPECT_EQ(tavi_log_get_level(), TAVI_LOG_NONE);
    const int before = evaluated;
    int sunk = 0;
    tavi_log_set_sink(
        [](void* n, tavi_log_level_t, const char*, const char*, const char*) { ++*static_cast<int*>(n); }, &sunk);
    errno = ENOSPC;
    LOG_ERROR("a\n%s\n", "b");
    LOG_WARN("not kept %d", count_evaluation());
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_STREQ(tavi_last_error(), "a\\x0ab");
    std::thread([] {
        EXPECT_STREQ(tavi_last_error(), "");
        LOG_ERROR("of another thread");
        EXPECT_STREQ(tavi_last_error(), "of another thread");
    }).join();
    EXPECT_STREQ(tavi_last_error(), "a\\x0ab");
    EXPECT_EQ(sunk, 0);
    EXPECT_EQ(evaluated, before);
    for (const int level : {-2, 4}) {
        EXPECT_EQ(tavi_log_set_level(level), TAVI_RET_PARAM_ERR);
        EXPECT_EQ(tavi_log_get_level(), TAVI_LOG_NONE);
    }
    EXPECT_EQ(tavi_last_error(), std::string("level=4; allowed are -1 to 3"));
    for (int level = TAVI_LOG_ERROR; level <= TAVI_LOG_DEBUG; ++level) {
        ASSERT_EQ(tavi_log_set_level(level), TAVI_RET_SUCCESS);
        EXPECT_EQ(tavi_log_get_level(), level);
        LOG_ERROR("written");
        LOG_WARN("written");
        EXPECT_EQ(sunk, level == TAVI_LOG_ERROR ? 1 : 2 * level + 1);
    }
    tavi_log_set_sink(nullptr, nullptr);
}

TEST(LastError, EndsBetweenTwoCharacters) {
    tavi_log_set_level(TAVI_LOG_NONE);
    for (size_t before = 500; before < 516; ++before)
        for (const std::string last : {"\xc3\xa9", "\xe2\x82\xac", "\xf0\x9f\x98\x80"}) {
            const std::string text(before, 'x');
            LOG_ERROR("%s%s", text.c_str(), last.c_str());
            EXPECT_EQ(tavi_last_error(), before + last.size() <= 511 ? text + last : text.substr(0, 511));
        }
}

} // namespace
