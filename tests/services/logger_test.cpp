// SPDX-License-Identifier: MIT
#include "services/tavi_logger.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <regex>
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
    const struct {
        const char* text;
        int level;
        bool reported;
    } rows[] = {{nullptr, 1, false}, {"0", 0, false}, {"3", 3, false},   {"0x2", 2, false},
                {"4", 1, true},      {"-1", 1, true}, {"info", 1, true}, {"", 1, true}};
    for (const auto& row : rows) {
        testing::internal::CaptureStderr(); // of the descriptor: the logger writes to it
        const pid_t child = fork();
        if (child == 0) {
            row.text ? setenv("TAVI_LOG_LEVEL", row.text, 1) : unsetenv("TAVI_LOG_LEVEL");
            TaviLogger::GetInstance();
            setenv("TAVI_LOG_LEVEL", "3", 1);
            _exit(TaviLogger::GetInstance()->level);
        }
        int status = 0;
        waitpid(child, &status, 0);
        const std::string text = testing::internal::GetCapturedStderr();
        EXPECT_EQ(WEXITSTATUS(status), row.level) << (row.text ? row.text : "unset");
        EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), row.reported ? 1 : 0) << text;
        EXPECT_EQ(text.find("ERROR [tavi-log]") != std::string::npos, row.reported) << text;
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
        std::ostringstream line;
        line << level << ' ' << tag << ' ' << func << ' ' << message;
        static_cast<std::vector<std::string>*>(user)->push_back(line.str());
        errno = 0;
    };
    testing::internal::CaptureStderr();
    logger->SetSink(sink, &lines);
    std::vector<std::string> expected;
    // Around the size of the logger's own buffer a wrong bound loses a character.
    errno = ENOSPC;
    for (int length = 900; length < 1100; ++length)
        for (const char* format : {"%s\n", "%s"}) {
            const std::string message(static_cast<size_t>(length), 'x');
            LOG_ERROR(format, message.c_str());
            expected.push_back("0 tavi-test TestBody " + message);
        }
    EXPECT_EQ(errno, ENOSPC); // callers look at theirs after a line
    // Names of others are escaped, however long they are, and what is no control character stays.
    LOG_ERROR("%s\n", "a\nERROR b\r\t\x1b[31m\x7f \xc2\x9b \xc3\xa9\xc2\xa0");
    expected.push_back("0 tavi-test TestBody a\\x0aERROR b\\x0d\\x09\\x1b[31m\\x7f \\xc2\\x9b \xc3\xa9\xc2\xa0");
    for (size_t length = 200; length < 1200; ++length) {
        expected.push_back("0 tavi-test TestBody x");
        for (size_t i = 0; i < length; ++i)
            expected.back() += "\\x01";
        LOG_ERROR("x%s", std::string(length, 1).c_str());
    }
    logger->SetSink(nullptr, nullptr);
    EXPECT_EQ(lines, expected);
    LOG_ERROR("again");
    EXPECT_NE(testing::internal::GetCapturedStderr().find("again\n"), std::string::npos);
}

TEST(Logger, KeepsLinesOfEightThreadsWhole) {
    testing::internal::CaptureStderr();
    std::vector<std::thread> threads;
    std::vector<std::string> expected, found;
    for (int t = 0; t < 8; ++t) {
        const std::string filler(static_cast<size_t>(50 + t * 250), static_cast<char>('a' + t));
        threads.emplace_back([filler] {
            for (int i = 0; i < 300; ++i)
                LOG_ERROR("line=%d %s.", i, filler.c_str());
        });
        for (int i = 0; i < 300; ++i)
            expected.push_back("line=" + std::to_string(i) + " " + filler + ".");
    }
    for (std::thread& thread : threads)
        thread.join();
    std::istringstream text(testing::internal::GetCapturedStderr());
    for (std::string line; std::getline(text, line);)
        found.push_back(line.substr(std::min(line.size(), line.find("line="))));
    std::sort(expected.begin(), expected.end());
    std::sort(found.begin(), found.end());
    EXPECT_EQ(found, expected);
}

} // namespace
