// SPDX-License-Identifier: MIT
// The lines that pass the logger's level while this lives.
#pragma once

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "services/tavi_logger.h"

class CapturedLog {
public:
    CapturedLog() { TaviLogger::GetInstance()->SetSink(&CapturedLog::receive, this); }
    ~CapturedLog() { TaviLogger::GetInstance()->SetSink(nullptr, nullptr); }
    CapturedLog(const CapturedLog&) = delete;
    CapturedLog& operator=(const CapturedLog&) = delete;

    struct Line {
        tavi_log_level_t level;
        std::string tag, func, message;
    };
    std::vector<Line> lines;

private:
    static void receive(void* self, tavi_log_level_t level, const char* tag, const char* func, const char* message) {
        static_cast<CapturedLog*>(self)->lines.push_back({level, tag, func, message});
    }
};

/// A call that answers with a code and one line, at the error level, that has the words in it.
template <typename Call>
void expect_refused(int code, const char* words, Call call) {
    CapturedLog log;
    EXPECT_EQ(call(), code) << words;
    ASSERT_EQ(log.lines.size(), 1u) << words;
    EXPECT_EQ(log.lines[0].level, TAVI_LOG_ERROR);
    EXPECT_NE(log.lines[0].message.find(words), std::string::npos) << log.lines[0].message;
}
